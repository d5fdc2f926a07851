#include "korv/navmesh/navmeshserializer.h"

#include "korv/common/io/ioexception.h"
#include "korv/common/memory/memoryexception.h"
#include "korv/common/parser/parserexception.h"
#include "support/memorystream.h"
#include "support/storedmesh.h"
#include "support/test.h"

#include <filesystem>
#include <fstream>
#include <limits>

#include <unistd.h>

using namespace KORV;
using namespace KORV::NavMesh;
using Common::Parser::XML::XMLParserException;
using Testing::expectThrow;
using Testing::MemoryStream;

namespace
{
using MeshPtr = SharedPtr<NavMeshContainer>;

class MeshXml : public Testing::StoredMeshTest
{
protected:
    void expectReport(const std::string& text)
    {
        EXPECT_EQ(mReports, std::vector<std::string>{"\nError Message: " + text});
        mReports.clear();
    }

    static MeshPtr createSample()
    {
        MeshPtr mesh = createMesh();
        mesh->mHeight = {1.8f, 0.3f};
        mesh->mNormal = {0, 0, 1};
        mesh->mXAxis = {1, 0, 0};
        mesh->mYAxis = {0, 1, 0};
        mesh->mCubeSize = 0.25f;
        mesh->mVertices = {{0, 0, 0}, {1.5f, -0.5f, 1e-7f}, {1234567.0f, 2, 3e38f}};
        addNode(*mesh, {0, 1, 2}, {-1, 1, -1}, 0, 3);
        addNode(*mesh, {}, {}, -1, 65535);
        mesh->mCharacters.push_back({"a human & more", -5, 1.8f, 0.5f, 1.0f, 1});
        mesh->mCharacters.push_back({"", std::numeric_limits<int64>::min(), 0.3f, 0.25f, 0.1f, 4000000000u});
        mesh->mSurfaceTypes.push_back({" grass > here ", 3});
        return mesh;
    }
    static std::string textOf(const MeshPtr& mesh)
    {
        MemoryStream stream;
        NavMeshSerializer::writeNavMesh(&stream, mesh);
        return std::string(stream.text());
    }
    static MeshPtr meshOf(std::string_view text)
    {
        MemoryStream stream(text);
        return NavMeshSerializer::readNavMesh(&stream);
    }
    /// The sample's document with one piece of it replaced.
    static std::string sampleWith(std::string_view piece, std::string_view replacement)
    {
        std::string text = textOf(createSample());
        const size_t place = text.find(piece);
        EXPECT_NE(place, std::string::npos) << piece;
        return text.replace(place, piece.size(), replacement);
    }
    static BasicString temporaryName()
    {
        return BasicString((testing::TempDir() + "korv_mesh_" + std::to_string(::getpid()) + ".xml").c_str());
    }
};
} // namespace

TEST_F(MeshXml, documentHasItsElementsInTheirOrder)
{
    EXPECT_EQ(textOf(createSample()),
              "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>\n<KORV>\n\t<navmesh version=\"2.5.0\">\n"
              "\t\t<heightmap>\n\t\t\t<height id=\"0\">1.8</height>\n\t\t\t<height id=\"1\">0.3</height>\n"
              "\t\t</heightmap>\n\t\t<normal>0/0/1</normal>\n\t\t<vertices>\n\t\t\t<pos>0/0/0</pos>\n"
              "\t\t\t<pos>1.5/-0.5/1e-07</pos>\n\t\t\t<pos>1.23457e+06/2/3e+38</pos>\n\t\t</vertices>\n\t\t<nodes>\n"
              "\t\t\t<node>\n\t\t\t\t<heightclass>0</heightclass>\n\t\t\t\t<polygon>\n\t\t\t\t\t<vert_id>0</vert_id>\n"
              "\t\t\t\t\t<vert_id>1</vert_id>\n\t\t\t\t\t<vert_id>2</vert_id>\n\t\t\t\t</polygon>\n"
              "\t\t\t\t<neighbour>\n\t\t\t\t\t<node_id>-1</node_id>\n\t\t\t\t\t<node_id>1</node_id>\n"
              "\t\t\t\t\t<node_id>-1</node_id>\n\t\t\t\t</neighbour>\n\t\t\t\t<surfacetypeid>3</surfacetypeid>\n"
              "\t\t\t</node>\n\t\t\t<node>\n\t\t\t\t<heightclass>-1</heightclass>\n\t\t\t\t<polygon>\n"
              "\t\t\t\t</polygon>\n\t\t\t\t<neighbour>\n\t\t\t\t</neighbour>\n"
              "\t\t\t\t<surfacetypeid>65535</surfacetypeid>\n\t\t\t</node>\n\t\t</nodes>\n\t\t<xaxis>1/0/0</xaxis>\n"
              "\t\t<yaxis>0/1/0</yaxis>\n\t\t<cubesize>0.25</cubesize>\n\t\t<characters>\n\t\t\t<character>\n"
              "\t\t\t\t<name>a human & more</name>\n\t\t\t\t<userid>-5</userid>\n"
              "\t\t\t\t<physicalheight>1.8</physicalheight>\n\t\t\t\t<jumpheight>0.5</jumpheight>\n"
              "\t\t\t\t<fallheight>1</fallheight>\n\t\t\t\t<maxheightclassid>1</maxheightclassid>\n"
              "\t\t\t</character>\n\t\t\t<character>\n\t\t\t\t<name></name>\n"
              "\t\t\t\t<userid>-9223372036854775808</userid>\n\t\t\t\t<physicalheight>0.3</physicalheight>\n"
              "\t\t\t\t<jumpheight>0.25</jumpheight>\n\t\t\t\t<fallheight>0.1</fallheight>\n"
              "\t\t\t\t<maxheightclassid>4000000000</maxheightclassid>\n\t\t\t</character>\n\t\t</characters>\n"
              "\t\t<surfacetypes>\n\t\t\t<surfacetype>\n\t\t\t\t<name> grass > here </name>\n\t\t\t\t<id>3</id>\n"
              "\t\t\t</surfacetype>\n\t\t</surfacetypes>\n\t</navmesh>\n</KORV>\n");
}

TEST_F(MeshXml, meshIsReadBackAsItWasWritten)
{
    const MeshPtr sample = createSample();
    const MeshPtr mesh = meshOf(textOf(sample));
    ASSERT_NE(mesh, nullptr);
    EXPECT_EQ(mesh->mHeight, sample->mHeight);
    EXPECT_EQ(mesh->mNormal, sample->mNormal);
    EXPECT_EQ(mesh->mXAxis, sample->mXAxis);
    EXPECT_EQ(mesh->mYAxis, sample->mYAxis);
    EXPECT_EQ(mesh->mCubeSize, sample->mCubeSize);
    EXPECT_EQ(mesh->mVertices[1], sample->mVertices[1]);
    EXPECT_EQ(mesh->mVertices[2].mX, 1234570.0f); // six digits are kept
    ASSERT_EQ(mesh->mNodes.size(), 2u);
    for (size_t i = 0; i < 2; ++i)
    {
        EXPECT_EQ(mesh->mNodes[i].mPolygon, sample->mNodes[i].mPolygon);
        EXPECT_EQ(mesh->mNodes[i].mNeighbours, sample->mNodes[i].mNeighbours);
        EXPECT_EQ(mesh->mNodes[i].mHeightClass, sample->mNodes[i].mHeightClass);
        EXPECT_EQ(mesh->mNodes[i].mSurfaceTypeID, sample->mNodes[i].mSurfaceTypeID);
        EXPECT_EQ(mesh->mNodes[i].mPolygon.get_allocator().getAllocator(), mesh->getMemory());
    }
    EXPECT_EQ(mesh->mCharacters[0].mName, "a human & more");
    EXPECT_EQ(mesh->mCharacters[0].mName.get_allocator().getAllocator(), mesh->getMemory());
    EXPECT_EQ(mesh->mCharacters[1].mUserID, std::numeric_limits<int64>::min());
    EXPECT_EQ(textOf(mesh), textOf(meshOf(textOf(mesh))));
    const MeshPtr empty = meshOf(textOf(createMesh()));
    ASSERT_NE(empty, nullptr);
    EXPECT_TRUE(empty->empty() && empty->mCharacters.empty() && empty->mSurfaceTypes.empty());
}

TEST_F(MeshXml, missingPiecesAreNamedAndLeaveNoMesh)
{
    const struct
    {
        const char *mPiece, *mReplacement, *mReport;
    } rows[] = {
        {"<navmesh", "<other/><navmesh", "In 'KORV' the tag 'navmesh' is required !"},
        {"<heightmap>", "<normal>0/0/1</normal><heightmap>", "In 'KORV'->'navmesh' the tag 'heightmap' is required !"},
        {"<height id=\"1\">", "<height>",
         "In 'KORV'->'navmesh'->'heightmap'->'height' the attribute 'id' is required !"},
        {"<normal>0/0/1</normal>", "", "In 'KORV'->'navmesh' the tag 'normal' is required !"},
        {"<vertices>", "<verts/><vertices>", "In 'KORV'->'navmesh' the tag 'vertices' is required !"},
        {"<nodes>", "<n/><nodes>", "In 'KORV'->'navmesh' the tag 'nodes' is required !"},
        {"<heightclass>0</heightclass>", "",
         "In 'KORV'->'navmesh'->'nodes'->'node' the tag 'heightclass' is required !"},
        {"<neighbour>", "<n/><neighbour>", "In 'KORV'->'navmesh'->'nodes'->'node' the tag 'neighbour' is required !"},
        {"<polygon>", "<n/><polygon>", "In 'KORV'->'navmesh'->'nodes'->'node' the tag 'polygon' is required !"},
        {"<cubesize>0.25</cubesize>", "", "In 'KORV'->'navmesh' the tag 'cubesize' is required !"},
        {"<fallheight>1</fallheight>", "",
         "In 'KORV'->'navmesh'->'characters'->'character' the tag 'fallheight' is required !"},
        {"<id>3</id>", "", "In 'KORV'->'navmesh'->'surfacetypes'->'surfacetype' the tag 'id' is required !"},
    };
    for (const auto& row : rows)
    {
        KORV_CONTEXT(row.mPiece);
        EXPECT_EQ(meshOf(sampleWith(row.mPiece, row.mReplacement)), nullptr);
        expectReport(row.mReport);
    }
}

TEST_F(MeshXml, readerIsLooseWhereTheFormatIs)
{
    MeshPtr mesh = meshOf(sampleWith("<surfacetypeid>3</surfacetypeid>", ""));
    ASSERT_NE(mesh, nullptr);
    EXPECT_EQ(mesh->mNodes[0].mSurfaceTypeID, 65535);
    mesh = meshOf(sampleWith("<id>3</id>", "<id>65539</id>"));
    EXPECT_EQ(mesh->mSurfaceTypes[0].mID, 3);
    mesh = meshOf(sampleWith("version=\"2.5.0\"", "version=\"9\""));
    EXPECT_NE(mesh, nullptr);
    mesh = meshOf(sampleWith("<vert_id>1</vert_id>", "<other/>")); // a list ends at a stranger
    EXPECT_EQ(mesh->mNodes[0].mPolygon.size(), 1u);
    EXPECT_EQ(mesh->mNodes[0].mNeighbours.size(), 3u);

    std::string text = textOf(createSample());
    const size_t begin = text.find("\t\t<characters>");
    text.erase(begin, text.find("\t</navmesh>") - begin);
    const MeshPtr bare = meshOf(text);
    ASSERT_NE(bare, nullptr);
    EXPECT_TRUE(bare->mCharacters.empty() && bare->mSurfaceTypes.empty());
    EXPECT_EQ(bare->mNodes.size(), 2u);
}

TEST_F(MeshXml, everyCutDocumentIsRefused)
{
    const std::string text = textOf(createSample());
    for (size_t length = 0; length < text.size() - 1; ++length) // the last line feed is not needed
    {
        KORV_CONTEXT("cut to " << length);
        expectThrow<XMLParserException>([&] { meshOf(std::string_view(text).substr(0, length)); });
    }
}

TEST_F(MeshXml, namesThatADocumentCannotHoldAreRefusedBeforeTheFileIsTouched)
{
    const BasicString path = temporaryName();
    std::ofstream(path.c_str()) << "old";
    using namespace std::string_view_literals;
    for (const std::string_view name : {"<"sv, "a\0b"sv, "a<b"sv, " "sv, "\t\n\r "sv, "\0"sv})
    {
        const MeshPtr mesh = createMesh();
        mesh->mCharacters.push_back({BasicString(name), 0, 1, 1, 1, 0});
        expectThrow<Common::Exceptions::ArgumentException>([&] { NavMeshSerializer::writeNavMesh(path, mesh); });
        mesh->mCharacters.clear();
        mesh->mSurfaceTypes.push_back({BasicString(name), 0});
        MemoryStream stream;
        expectThrow<Common::Exceptions::ArgumentException>([&] { NavMeshSerializer::writeNavMesh(&stream, mesh); });
        EXPECT_EQ(stream.mWrites, 0u);
    }
    EXPECT_EQ(std::filesystem::file_size(path.c_str()), 3u);
    std::filesystem::remove(path.c_str());
}

TEST_F(MeshXml, filesAreClosedOnEveryWayOut)
{
    const BasicString path = temporaryName();
    const auto openFiles = []
    {
        const std::filesystem::directory_iterator entries("/proc/self/fd");
        return std::distance(begin(entries), end(entries));
    };
    const auto before = openFiles();
    NavMeshSerializer::writeNavMesh(path, createSample());
    const MeshPtr mesh = NavMeshSerializer::readNavMesh(path);
    ASSERT_NE(mesh, nullptr);
    EXPECT_EQ(textOf(mesh), textOf(meshOf(textOf(createSample()))));

    std::ofstream(path.c_str()) << "<KORV></KORV>";
    EXPECT_EQ(NavMeshSerializer::readNavMesh(path), nullptr);
    expectReport("In 'KORV' the tag 'navmesh' is required !");
    std::ofstream(path.c_str()) << "<KORV>";
    expectThrow<XMLParserException>([&] { NavMeshSerializer::readNavMesh(path); });
    std::filesystem::remove(path.c_str());
    expectThrow<Common::Exceptions::UnAuthorizedAccessException>([&] { NavMeshSerializer::readNavMesh("/"); });
    expectThrow<Common::IO::FileNotFoundException>(
        [&] { NavMeshSerializer::writeNavMesh("/no/such/folder/a.xml", createSample()); });
    if (std::filesystem::exists("/dev/full"))
        expectThrow<Common::IO::OutOfSpaceException>([&]
                                                     { NavMeshSerializer::writeNavMesh("/dev/full", createSample()); });

    testing::internal::CaptureStderr();
    EXPECT_EQ(NavMeshSerializer::readNavMesh("no such file.xml"), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Cannot handle file: 'no such file.xml'\nError msg: CallbackFileStream: File or path not found\n");
    EXPECT_EQ(openFiles(), before);
}

TEST_F(MeshXml, readerSurvivesRunningOutOfMemory)
{
    const MeshPtr sample = createSample();
    for (int i = 0; i < 2000; ++i)
        addNode(*sample, {0, 1, 2, 0, 1, 2}, {1, 1, 1, 1, 1, 1}, 0, 0);
    const std::string text = textOf(sample);
    int failures = 0;
    for (int64 after = 0; after < 1000; ++after)
    {
        MemoryStream stream(text);
        mMemory->mFailAfter = after;
        try
        {
            const MeshPtr mesh = NavMeshSerializer::readNavMesh(&stream);
            mMemory->mFailAfter = -1;
            EXPECT_EQ(mesh->mNodes.size(), sample->mNodes.size());
            break;
        }
        catch (Common::Memory::OutOfMemoryException* error)
        {
            mMemory->mFailAfter = -1;
            delete error;
            ++failures;
        }
    }
    EXPECT_GT(failures, 5);
    mReports.clear(); // of the allocators
}
