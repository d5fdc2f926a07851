#include "korv/common/io/ioexception.h"
#include "korv/common/memory/memoryexception.h"
#include "korv/common/parser/parserexception.h"
#include "korv/common/serialize/serializeexception.h"
#include "korv/navmesh/navmeshserializer.h"
#include "support/memorystream.h"
#include "support/storedmesh.h"
#include "support/test.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>

#include <unistd.h>

using namespace KORV;
using namespace KORV::NavMesh;
using Common::Exceptions::ArgumentException;
using Common::Parser::ParserException;
using Common::Serialize::SerializeException;
using Common::Serialize::TypeMismatchException;
using Common::Serialize::VersionMismatchException;
using Testing::expectThrow;
using Testing::MemoryStream;

namespace
{
using MeshPtr = SharedPtr<NavMeshContainer>;
using StreamPtr = SharedPtr<Common::Stream>;

const std::string WARNING = "this->mEndiness == Endian::getSystemEncoding()\nError Message: Stream stored has not the "
                            "same endiness as the current system. Performance warning, can be ignored !";

/// Writes the binary form with plain code, item by item.
class PlainWriter
{
public:
    explicit PlainWriter(bool big) : mBig(big) {}

    std::string write(const NavMeshContainer& mesh)
    {
        item("navmesh", 14);
        number(0, 4);
        number(0, 4);
        number(25, 4);
        integer("heightmapcount", 6, mesh.mHeight.size(), 4);
        for (const float height : mesh.mHeight)
            real("height", height);
        vector({"normal_x", "normal_y", "normal_z"}, mesh.mNormal);
        vector({"xaxis_x", "xaxis_y", "xaxis_z"}, mesh.mXAxis);
        vector({"yaxis_x", "yaxis_y", "yaxis_z"}, mesh.mYAxis);
        real("cubesize", mesh.mCubeSize);
        integer("numvertices", 6, mesh.mVertices.size(), 4);
        for (const Vec3<float>& vertex : mesh.mVertices)
            vector({"pos_x", "pos_y", "pos_z"}, vertex);
        integer("numnodes", 6, mesh.mNodes.size(), 4);
        for (const NavMeshContainer::NavNode& node : mesh.mNodes)
        {
            integer("heightclass", 7, static_cast<uint32>(node.mHeightClass), 4);
            integer("surfacetypeid", 4, node.mSurfaceTypeID, 2);
            integer("numpolygon", 6, node.mPolygon.size(), 4);
            for (const uint32 id : node.mPolygon)
                integer("vert_id", 6, id, 4);
            for (const int32 id : node.mNeighbours)
                integer("node_id", 7, static_cast<uint32>(id), 4);
        }
        integer("numcharacters", 6, mesh.mCharacters.size(), 4);
        for (const CharacterInfo& character : mesh.mCharacters)
        {
            text("name", character.mName);
            integer("userid", 9, static_cast<uint64>(character.mUserID), 8);
            real("physicalheight", character.mPhysicalHeight);
            real("jumpheight", character.mJumpHeight);
            real("fallheight", character.mFallHeight);
            integer("maxheightclassid", 6, character.mMaxHeightClassID, 4);
        }
        integer("numsurfacetypes", 6, mesh.mSurfaceTypes.size(), 4);
        for (const SurfaceType& surfaceType : mesh.mSurfaceTypes)
        {
            text("name", surfaceType.mName);
            integer("id", 4, surfaceType.mID, 2);
        }
        number(15, 1);
        return whole();
    }

private:
    void number(uint64 value, int size)
    {
        for (int i = 0; i < size; ++i)
            mItems += static_cast<char>(value >> 8 * (mBig ? size - 1 - i : i));
    }
    void item(const std::string& name, uint64 type)
    {
        size_t id = 0;
        while (id < mNames.size() && mNames[id] != name)
            ++id;
        if (id == mNames.size())
            mNames.push_back(name);
        number(type, 1);
        number(id, 4);
    }
    void integer(const char* name, uint64 type, uint64 value, int size)
    {
        item(name, type);
        number(value, size);
    }
    void real(const char* name, float value)
    {
        uint32 bits = 0;
        std::memcpy(&bits, &value, sizeof(bits));
        integer(name, 10, bits, 4);
    }
    void vector(std::initializer_list<const char*> names, const Vec3<float>& v)
    {
        real(names.begin()[0], v.mX);
        real(names.begin()[1], v.mY);
        real(names.begin()[2], v.mZ);
    }
    void text(const char* name, const BasicString& value)
    {
        item(name, 12);
        number(value.size(), 2);
        mItems += std::string(value.c_str(), value.size());
    }
    void table(const std::vector<std::string>& names)
    {
        number(names.size(), 4);
        for (size_t i = 0; i < names.size(); ++i)
        {
            number(names[i].size(), 2);
            mItems += names[i];
            number(i, 4);
        }
    }
    std::string whole()
    {
        const uint64 place = 13 + mItems.size();
        table(mNames);
        table({"navmesh"});
        const std::string items = std::exchange(mItems, "");
        number(mBig ? 0 : 1, 1);
        number(1, 4);
        number(place, 8);
        return mItems + items;
    }

    bool mBig;
    std::string mItems;
    std::vector<std::string> mNames;
};

class MeshBinary : public Testing::StoredMeshTest
{
protected:
    void expectWarnings(size_t count)
    {
        EXPECT_EQ(mReports, std::vector<std::string>(count, WARNING));
        mReports.clear();
    }

    static StreamPtr createStream(std::string_view bytes = {})
    {
        return StreamPtr(new (getModuleAllocator()) MemoryStream(bytes));
    }
    static std::string bytesOf(const MeshPtr& mesh, Endiness endiness)
    {
        const StreamPtr stream = createStream();
        NavMeshSerializer::writeNavMeshBinary(stream, mesh, endiness);
        EXPECT_EQ(stream->getPosition(), stream->getLength());
        return std::string(static_cast<MemoryStream&>(*stream).text());
    }
    static MeshPtr meshOf(std::string_view bytes) { return NavMeshSerializer::readNavMeshBinary(createStream(bytes)); }
    /// Two squares side by side, as a generation could leave them.
    static MeshPtr createSound()
    {
        MeshPtr mesh = createMesh();
        mesh->mHeight = {1.8f, 2.1f};
        mesh->mNormal = {0, 0, 1};
        mesh->mXAxis = {1, 0, 0};
        mesh->mYAxis = {0, 1, 0};
        mesh->mCubeSize = 0.25f;
        mesh->mVertices = {{0, 0, 0}, {4, 0, 0}, {8, 0, 0}, {8, 4, 0}, {4, 4, 0}, {0, 4, 0}};
        addNode(*mesh, {0, 1, 4, 5}, {-1, 1, -1, -1}, 0, 3);
        addNode(*mesh, {1, 2, 3, 4}, {-1, -1, -1, 0}, 1, 3);
        mesh->mCharacters.push_back({"human", -5, 1.8f, 0.5f, 1.0f, 1});
        mesh->mSurfaceTypes.push_back({"grass", 3});
        return mesh;
    }
    /// Everything that a mesh should not be, but may hold.
    static MeshPtr createOdd()
    {
        MeshPtr mesh = createSound();
        const float numbers[] = {-0.0f, std::numeric_limits<float>::infinity(), std::numeric_limits<float>::quiet_NaN(),
                                 1e-45f, 0.1f};
        for (const float number : numbers)
        {
            mesh->mVertices.push_back({number, -number, 3e38f});
            mesh->mHeight.push_back(number);
        }
        addNode(*mesh, {}, {}, -1, 65535);
        addNode(*mesh, {0, 4000000000u, 7}, {-77, 1000000, 2147483647}, 99, 0);
        mesh->mCharacters.push_back({BasicString("<\0 \xFF", 4), std::numeric_limits<int64>::min(), 0.1f, -1, 0, 7});
        mesh->mCharacters.push_back({BasicString(65535, 'n'), 1, 0.1f, -1, 0, 4000000000u});
        mesh->mSurfaceTypes.push_back({"", 65535});
        return mesh;
    }
    static MeshPtr createEmpty()
    {
        MeshPtr mesh = createMesh();
        mesh->mNormal = mesh->mXAxis = mesh->mYAxis = {0, 0, 0};
        return mesh;
    }
    static BasicString temporaryName()
    {
        return BasicString((testing::TempDir() + "korv_mesh_" + std::to_string(::getpid()) + ".knm").c_str());
    }
};

/// Changes a few bytes at random: single bits, counts and offsets, pieces moved or dropped, the end cut off.
std::string mutate(const std::string& original, std::mt19937& random)
{
    std::string bytes = original;
    const auto place = [&] { return bytes.empty() ? 0 : random() % bytes.size(); };
    for (size_t i = 1 + random() % 3; i > 0 && !bytes.empty(); --i)
    {
        static constexpr uint32 VALUES[] = {0, 1, 4, 13, 0x7F, 0x80, 0xFFFF, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
        const uint32 value = VALUES[random() % std::size(VALUES)];
        const size_t at = random() % 4 == 0 ? random() % std::min<size_t>(bytes.size(), 40) : place();
        switch (random() % 6)
        {
        case 0:
            bytes[at] = static_cast<char>(bytes[at] ^ (1 << random() % 8));
            break;
        case 1:
            std::memcpy(bytes.data() + at, &value, std::min(sizeof(value), bytes.size() - at));
            break;
        case 2:
            bytes.resize(at);
            break;
        case 3:
            bytes[at] = static_cast<char>(random() % 18); // types
            break;
        case 4:
            bytes.insert(at, bytes.substr(place(), random() % 40));
            break;
        default:
            bytes.erase(at, random() % 40);
        }
    }
    return bytes;
}
} // namespace

TEST_F(MeshBinary, aPlainWriterAndThisOneWriteTheSameBytes)
{
    for (const MeshPtr& mesh : {createSound(), createOdd(), createEmpty()})
    {
        for (const bool big : {false, true})
        {
            KORV_CONTEXT((big ? "big, " : "little, ") << mesh->mNodes.size() << " nodes");
            const std::string expected = PlainWriter(big).write(*mesh);
            EXPECT_TRUE(bytesOf(mesh, big ? ENDIAN_BIG : ENDIAN_LITTLE) == expected);
            // what is read is written again, so every bit of it has come back
            EXPECT_TRUE(PlainWriter(big).write(*meshOf(expected)) == expected);
            expectWarnings(big ? 1 : 0);
        }
    }
}

TEST_F(MeshBinary, aBigMeshComesBack)
{
    const MeshPtr mesh = createMesh();
    std::mt19937 random(7);
    for (uint32 i = 0; i < 5000; ++i)
    {
        mesh->mVertices.push_back({static_cast<float>(random()), static_cast<float>(i), 0.5f});
        NavMeshContainer::NavNode& node = mesh->mNodes.emplace_back(mesh->getMemory());
        for (size_t corner = random() % (i == 77 ? 20000 : 7); corner > 0; --corner)
        {
            node.mPolygon.push_back(static_cast<uint32>(random()));
            node.mNeighbours.push_back(static_cast<int32>(random()));
        }
    }
    for (const Endiness endiness : {ENDIAN_LITTLE, ENDIAN_BIG})
    {
        const std::string bytes = bytesOf(mesh, endiness);
        EXPECT_TRUE(bytesOf(meshOf(bytes), endiness) == bytes);
    }
    expectWarnings(1);
}

TEST_F(MeshBinary, theStreamIsLeftBehindTheMesh)
{
    const std::string bytes = bytesOf(createSound(), ENDIAN_LITTLE);
    uint64 tables = 0;
    std::memcpy(&tables, bytes.data() + 5, sizeof(tables));
    const StreamPtr stream = createStream(bytes);
    EXPECT_NE(NavMeshSerializer::readNavMeshBinary(stream), nullptr);
    EXPECT_EQ(stream->getPosition(), tables);
    EXPECT_FALSE(stream->isClosed());
}

TEST_F(MeshBinary, whatTheFormCannotHoldIsRefusedBeforeAnythingIsWritten)
{
    const BasicString fileName = temporaryName();
    std::ofstream(fileName.c_str()) << "the old file";
    const auto refuse = [&](const MeshPtr& mesh)
    {
        const StreamPtr stream = createStream();
        expectThrow<ArgumentException>([&] { NavMeshSerializer::writeNavMeshBinary(fileName, mesh, ENDIAN_LITTLE); });
        std::string message = expectThrow<ArgumentException>([&] { mesh->writeToBinary(stream, ENDIAN_LITTLE); });
        EXPECT_EQ(stream->getLength(), 0u);
        return message;
    };
    MeshPtr mesh = createSound();
    mesh->mNodes[1].mNeighbours.pop_back();
    EXPECT_EQ(refuse(mesh), "The mesh cannot be stored in binary form: node 1 has 4 sides, but 3 neighbour entries");
    mesh = createSound();
    mesh->mSurfaceTypes[0].mName = BasicString(65536, 'x');
    EXPECT_EQ(refuse(mesh), "The mesh cannot be stored in binary form: the name of a surface type is 65536 bytes "
                            "long, the longest possible is 65535");
    EXPECT_EQ(std::filesystem::file_size(fileName.c_str()), 12u);
    std::filesystem::remove(fileName.c_str());
}

TEST_F(MeshBinary, filesAreReadInEitherFormByTheirContent)
{
    const BasicString fileName = temporaryName();
    const MeshPtr mesh = createSound();
    const std::string bytes = bytesOf(mesh, ENDIAN_BIG);

    NavMeshSerializer::writeNavMeshBinary(fileName, mesh, ENDIAN_BIG);
    EXPECT_EQ(std::filesystem::file_size(fileName.c_str()), bytes.size());
    EXPECT_EQ(NavMeshSerializer::detectFormat(fileName), NavMeshSerializer::FORMAT_BINARY);
    EXPECT_TRUE(bytesOf(NavMeshSerializer::readNavMeshBinary(fileName), ENDIAN_BIG) == bytes);
    EXPECT_TRUE(bytesOf(NavMeshSerializer::readCheckedNavMesh(fileName), ENDIAN_BIG) == bytes);
    expectWarnings(2);
    NavMeshSerializer::writeNavMesh(fileName, mesh);
    EXPECT_EQ(NavMeshSerializer::detectFormat(fileName), NavMeshSerializer::FORMAT_XML);
    EXPECT_TRUE(bytesOf(NavMeshSerializer::readCheckedNavMesh(fileName), ENDIAN_BIG) == bytes);
    std::filesystem::remove(fileName.c_str());

    testing::internal::CaptureStderr();
    EXPECT_EQ(NavMeshSerializer::readNavMeshBinary(fileName), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Cannot handle file: '" + std::string(fileName.c_str()) +
                                                          "'\nError msg: CallbackFileStream: File or path not found\n");
    const struct
    {
        std::string mBytes;
        NavMeshSerializer::MeshFormat mFormat;
    } rows[] = {
        {"", NavMeshSerializer::FORMAT_UNKNOWN},
        {" \r\n\t", NavMeshSerializer::FORMAT_UNKNOWN},
        {"solid <cube>", NavMeshSerializer::FORMAT_UNKNOWN},
        {"\xEF\xBB\xBF\n <KORV>", NavMeshSerializer::FORMAT_XML},
        {std::string(1, '\0'), NavMeshSerializer::FORMAT_BINARY},
        {"\x01\x02", NavMeshSerializer::FORMAT_BINARY},
    };
    for (const auto& row : rows)
    {
        MemoryStream stream(row.mBytes);
        EXPECT_EQ(NavMeshSerializer::detectFormat(&stream), row.mFormat) << row.mBytes;
        EXPECT_EQ(stream.getPosition(), 0u);
    }
    EXPECT_EQ(
        expectThrow<SerializeException>([] { NavMeshSerializer::readCheckedNavMesh(createStream("solid <cube>")); }),
        "This is no mesh, neither an XML document nor in binary form");
    expectThrow<VersionMismatchException>(
        [] { NavMeshSerializer::readCheckedNavMesh(createStream(std::string("\x01\x02\0\0\0", 5))); });
}

TEST_F(MeshBinary, aCheckedReadNamesTheFirstBrokenPromises)
{
    const MeshPtr mesh = createSound();
    mesh->mNodes[0].mPolygon[1] = 6;
    mesh->mNodes[1].mNeighbours[2] = 2;
    const std::string bytes = bytesOf(mesh, ENDIAN_LITTLE);
    const auto read = [&](uint32 count)
    {
        return expectThrow<InvalidMeshException>(
            [&] { NavMeshSerializer::readCheckedNavMesh(createStream(bytes), count); });
    };
    const std::string first = "The mesh breaks promises of a finished mesh:\n  node 0, side 1: the corner names vertex "
                              "6, there are 6";
    EXPECT_EQ(read(10), first + "\n  node 1, side 2: the neighbour is node 2, there are 2");
    EXPECT_EQ(read(1), first + "\n  and more");
    EXPECT_EQ(read(0), first + "\n  and more");
    EXPECT_NE(meshOf(bytes), nullptr);
}

TEST_F(MeshBinary, typesAndOrderCountAndNamesDoNot)
{
    std::string bytes = bytesOf(createSound(), ENDIAN_LITTLE);
    const size_t name = bytes.find("heightclass");
    bytes.replace(name, 11, "class");
    bytes[name - 2] = 5;
    EXPECT_NE(meshOf(bytes), nullptr);

    // the second item, "heightmapcount", becomes an int32
    bytes[13 + 17] = 7;
    expectThrow<TypeMismatchException>([&] { meshOf(bytes); });
}

// Each prefix lies in a block of its own size, so that a sanitizer sees the first byte too far.
TEST_F(MeshBinary, everyPrefixIsRefused)
{
    for (const Endiness endiness : {ENDIAN_LITTLE, ENDIAN_BIG})
    {
        const std::string bytes = bytesOf(createSound(), endiness);
        for (size_t length = 0; length < bytes.size(); ++length)
        {
            KORV_CONTEXT(length << " bytes");
            expectThrow<SerializeException>([&] { meshOf(std::string_view(bytes.data(), length)); });
        }
    }
    mReports.clear();
}

// A count that the rest of the stream cannot hold must not cost memory.
TEST_F(MeshBinary, countsAreNotBelieved)
{
    const MeshPtr mesh = createEmpty();
    const std::string bytes = bytesOf(mesh, ENDIAN_LITTLE);
    const size_t places[] = {30, 30 + 9 + 90, 30 + 9 + 90 + 9, 30 + 9 + 90 + 18, 30 + 9 + 90 + 27};
    const char* const what[] = {"heights", "vertices", "nodes", "characters", "surface types"};
    for (size_t i = 0; i < std::size(places); ++i)
    {
        std::string changed = bytes;
        ASSERT_EQ(changed.substr(places[i] + 5, 4), std::string(4, '\0'));
        changed.replace(places[i] + 5, 4, "\xFF\xFF\xFF\x7F");
        mMemory->mRecord = true;
        mMemory->mSizes.clear();
        const std::string message = expectThrow<SerializeException>([&] { meshOf(changed); });
        mMemory->mRecord = false;
        EXPECT_NE(message.find(std::string("it announces 2147483647 ") + what[i] + ", but only"), std::string::npos)
            << message;
        for (const uint32 size : mMemory->mSizes)
            EXPECT_LT(size, 100000u);
    }
}

TEST_F(MeshBinary, changedFilesAreReadOrRefused)
{
    std::mt19937 random(20);
    const MeshPtr mesh = createSound();
    const StreamPtr document = createStream();
    NavMeshSerializer::writeNavMesh(document.get(), mesh);
    const std::string originals[] = {bytesOf(mesh, ENDIAN_LITTLE), bytesOf(mesh, ENDIAN_BIG),
                                     std::string(static_cast<MemoryStream&>(*document).text())};
    uint32 refused = 0;
    for (uint32 i = 0; i < 3000; ++i)
    {
        KORV_CONTEXT("change " << i);
        const std::string bytes = mutate(originals[i % 3], random);
        try
        {
            if (i % 3 == 2)
                NavMeshSerializer::readNavMesh(createStream(bytes).get());
            else
                meshOf(bytes);
        }
        catch (SerializeException* error)
        {
            EXPECT_NE(i % 3, 2u);
            delete error;
            ++refused;
        }
        catch (ParserException* error)
        {
            EXPECT_EQ(i % 3, 2u);
            delete error;
            ++refused;
        }
        mReports.clear();
    }
    EXPECT_GT(refused, 1000u);
}

TEST_F(MeshBinary, runningOutOfMemoryLeaksNothing)
{
    const std::string bytes = bytesOf(createSound(), ENDIAN_LITTLE);
    const StreamPtr input = createStream(bytes);
    const StreamPtr output = createStream(bytes);
    bool done = false;
    for (int64 limit = 0; !done && limit < 1000; ++limit)
    {
        input->seek(0, Common::IO::SORIGIN_START);
        output->seek(0, Common::IO::SORIGIN_START);
        mMemory->mFailAfter = limit;
        try
        {
            const MeshPtr mesh = NavMeshSerializer::readCheckedNavMesh(input);
            NavMeshSerializer::writeNavMeshBinary(output, mesh, ENDIAN_LITTLE);
            done = true;
        }
        catch (Common::Memory::OutOfMemoryException* error)
        {
            delete error;
        }
        mMemory->mFailAfter = -1;
        mReports.clear(); // the allocators' own
    }
    EXPECT_TRUE(done);
}

TEST_F(MeshBinary, aFullDiskLeavesNoWholeFile)
{
    const MeshPtr mesh = createSound();
    const size_t size = bytesOf(mesh, ENDIAN_LITTLE).size();
    for (size_t capacity = 0; capacity < size; capacity += 50)
    {
        const StreamPtr stream = createStream();
        MemoryStream& disk = static_cast<MemoryStream&>(*stream);
        disk.mCapacity = capacity;
        expectThrow<Common::IO::OutOfSpaceException>(
            [&] { NavMeshSerializer::writeNavMeshBinary(stream, mesh, ENDIAN_LITTLE); });
        expectThrow<SerializeException>([&] { meshOf(disk.text()); });
    }
}
