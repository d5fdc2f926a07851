#include "korv/common/parser/vrml2/meshgen.h"
#include "korv/navmesh/geometryimporter.h"
#include "support/stringfiles.h"
#include "support/test.h"

#include <algorithm>
#include <cmath>

using namespace KORV;
using namespace KORV::NavMesh;
using KORV::Testing::StringFiles;

namespace
{
const std::string HEADER = "#VRML V2.0 utf8\n";
const std::string BOX = "Shape { geometry Box { size 2 2 2 } }";

/// What an import gave.
struct Scene
{
    bool mRead = false;
    Vector<Vec3<float>> mVertices;
    Vector<IndexedTriangle> mTriangles;
    GeometryImportError mError;

    explicit Scene(const std::string& body)
    {
        StringFiles files;
        files.mFiles["main.wrl"] = HEADER + body + "\n";
        import(files);
    }
    explicit Scene(StringFiles& files) { import(files); }

    void import(StringFiles& files)
    {
        GeometryImporter::VRML2Importer importer;
        mRead = importer.importGeometry(mVertices, mTriangles, "main.wrl", mError, files);
    }
    float min(int axis) const { return bound(axis, -1.0f); }
    float max(int axis) const { return bound(axis, 1.0f); }

    /// The triangles as digits, to compare; vertices are single digits.
    std::string triangles() const
    {
        std::string text;
        for (const IndexedTriangle& triangle : mTriangles)
        {
            for (const uint32 corner : triangle.mVertices)
                text += std::to_string(corner);
            text += " ";
        }
        return text;
    }

private:
    float bound(int axis, float sign) const
    {
        float result = -1e30f;
        for (const Vec3<float>& vertex : mVertices)
            result = std::max(result, sign * vertex[axis]);
        return sign * result;
    }
};

std::string faceSet(const std::string& points, const std::string& indices)
{
    return "Shape { geometry IndexedFaceSet { coord Coordinate { point [ " + points + " ] } coordIndex [ " + indices +
           " ] } }";
}

const std::string SQUARE = "0 0 0, 1 0 0, 1 1 0, 0 1 0";

size_t countTraces(const std::vector<Testing::TraceLine>& traces, const std::string& text)
{
    return static_cast<size_t>(std::count_if(traces.begin(), traces.end(),
                                             [&](const Testing::TraceLine& line)
                                             { return line.mText.find(text) != std::string::npos; }));
}
} // namespace

KORV_TEST(VRML2Import, aBoxIsClosedAndFacesOutwards)
{
    const Scene scene(BOX);
    ASSERT_TRUE(scene.mRead);
    ASSERT_EQ(scene.mVertices.size(), 8u);
    ASSERT_EQ(scene.mTriangles.size(), 12u);
    EXPECT_EQ(scene.mVertices[0], Vec3<float>(-1, -1, 1));
    EXPECT_EQ(scene.mVertices[6], Vec3<float>(1, 1, -1));
    EXPECT_EQ(scene.triangles(), "015 054 304 347 237 276 126 165 456 467 321 310 ");
    float volume = 0.0f;
    for (const IndexedTriangle& triangle : scene.mTriangles)
    {
        const Vec3<float> a = scene.mVertices[triangle.mVertices[0]];
        volume += dot(a, cross(scene.mVertices[triangle.mVertices[1]], scene.mVertices[triangle.mVertices[2]])) / 6.0f;
    }
    EXPECT_FLOAT_EQ(volume, 8.0f);
}

KORV_TEST(VRML2Import, transformsApplyInTheOrderOfTheirFields)
{
    const Scene moved("Transform { translation 10 0 0 children [ Group { children " + BOX + " } ] }");
    EXPECT_EQ(moved.min(0), 9.0f);
    EXPECT_EQ(moved.max(0), 11.0f);

    // +x turns to -z about +y; the outer translation is not turned.
    const Scene turned("Transform { translation 0 5 0 rotation 0 1 0 1.5707964 children "
                       "Transform { translation 10 0 0 children " +
                       BOX + " } }");
    EXPECT_NEAR(turned.min(2), -11.0f, 1e-5f);
    EXPECT_NEAR(turned.max(2), -9.0f, 1e-5f);
    EXPECT_NEAR(turned.min(1), 4.0f, 1e-5f);

    const Scene centred("Transform { center 1 0 0 rotation 0 0 1 3.1415927 scale 2 1 1 children " + BOX + " }");
    EXPECT_NEAR(centred.min(0), 1.0f, 1e-5f);
    EXPECT_NEAR(centred.max(0), 5.0f, 1e-5f);

    // Doubled along the diagonal: the corner on it moves out, the one beside it stays.
    const Scene sheared("Transform { scale 2 1 1 scaleOrientation 0 0 1 0.7853982 children " + BOX + " }");
    EXPECT_NEAR(sheared.mVertices[5].mX, 2.0f, 1e-5f);
    EXPECT_NEAR(sheared.mVertices[5].mY, 2.0f, 1e-5f);
    EXPECT_NEAR(sheared.mVertices[1].mX, 1.0f, 1e-5f);
    EXPECT_NEAR(sheared.mVertices[1].mY, -1.0f, 1e-5f);

    const Scene crooked("Transform { rotation 0 0 2 1 children " + BOX + " } " + BOX);
    EXPECT_TRUE(crooked.mRead);
    EXPECT_EQ(crooked.mVertices.size(), 16u);
    expectReports({"axis.isNormalized()\nError Message: rotation axis must be normalized"});
}

KORV_TEST(VRML2Import, facesBecomeTriangles)
{
    const struct
    {
        std::string mIndices;
        std::string mTriangles;
        size_t mReports;
    } rows[] = {
        {"0 1 2 3 -1", "013 123 ", 0},          {"0 1 2 3", "013 123 ", 0},
        {"0 1 2 -1 2 3 0 -1", "012 230 ", 0},   {"0 1 2 3 -1 ] ccw FALSE colorIndex [", "310 321 ", 0},
        {"0 1 -1 -1 0 1 2", "012 ", 2},      // a face of two corners, and one of none
        {"0 -2 1 2147483647-9 2 -1", "", 0}, // refused: index beyond the points
        {"0 -2 1 -2147483648 2 -1", "012 ", 0}, {"", "", 0},
    };
    for (const auto& row : rows)
    {
        KORV_CONTEXT(row.mIndices);
        const Scene scene(faceSet(SQUARE, row.mIndices));
        EXPECT_EQ(scene.triangles(), row.mTriangles);
        EXPECT_EQ(scene.mVertices.size(), scene.mRead && !row.mIndices.empty() ? 4u : 0u);
        EXPECT_EQ(dropReports(), row.mReports + (scene.mRead ? 0 : 1));
    }
    EXPECT_EQ(countTraces(mTraces, "index -2147483648 names no point"), 1u);
}

KORV_TEST(VRML2Import, hugeFacesBecomeFans)
{
    for (const int corners : {1000, 1001})
    {
        std::string points;
        std::string indices;
        for (int i = 0; i < corners; ++i)
        {
            const double angle = 2.0 * 3.14159265 * i / corners;
            points += std::to_string(std::cos(angle)) + " " + std::to_string(std::sin(angle)) + " 0 ";
            indices += std::to_string(i) + " ";
        }
        const Scene scene(faceSet(points, indices));
        EXPECT_EQ(scene.mTriangles.size(), static_cast<size_t>(corners) - 2);
        EXPECT_EQ(countTraces(mTraces, "is cut into a fan"), corners > 1000 ? 1u : 0u);
    }
}

KORV_TEST(VRML2Import, onlyWhatIsKnownCountsAndTheRestStaysUntouched)
{
    const Scene scene("Switch { whichChoice 0 choice " + BOX +
                      " } Appearance { material M { } } Cone { } "
                      "Shape { geometry Sphere { radius 1 } } Shape { geometry IndexedFaceSet { ccw TRUE } } "
                      "DEF b " +
                      BOX + " USE b");
    EXPECT_TRUE(scene.mRead);
    EXPECT_EQ(scene.mVertices.size(), 16u);
    EXPECT_EQ(countTraces(mTraces, "MeshGen::extractGeometry : skipping node: Switch"), 1u);
    EXPECT_EQ(countTraces(mTraces, "skipping node: Appearance"), 1u);
    EXPECT_EQ(countTraces(mTraces, "Skipping node 'Cone' as no appropriate node parser registered and node skipping "
                                   "enabled"),
              1u);
    expectReports({"node->mCoord\nError Message: need coordinate set in indexed face set for import"});

    Scene second(faceSet(SQUARE, "0 1 2"));
    StringFiles files;
    files.mFiles["main.wrl"] = HEADER + BOX + "\n";
    second.import(files);
    EXPECT_EQ(second.mVertices.size(), 12u);
    EXPECT_EQ(second.mTriangles[0], (IndexedTriangle{{0, 1, 2}}));
    EXPECT_EQ(second.mTriangles[1], (IndexedTriangle{{4, 5, 9}}));
}

KORV_TEST(VRML2Import, aRefusedFileAddsNothingAndSaysWhy)
{
    StringFiles files;
    files.mFiles["main.wrl"] = HEADER + BOX + "\nInline { url \"part.wrl\" }\n";
    files.mFiles["part.wrl"] = HEADER + "Shape {\n appearance Appearance { material Material { } } }\n";
    Scene scene(files);
    EXPECT_FALSE(scene.mRead);
    EXPECT_TRUE(scene.mVertices.empty());
    EXPECT_STREQ(scene.mError.mFileName.c_str(), "main.wrl");
    EXPECT_EQ(scene.mError.mLine, 3u);
    EXPECT_STREQ(scene.mError.mMessage.c_str(), "VRML2::Parser: Cannot open file 'part.wrl' referenced in URL node "
                                                "(in the Inline that begins in line 3)");
    ASSERT_EQ(scene.mError.mInner.size(), 1u);
    EXPECT_STREQ(scene.mError.mInner[0].mFileName.c_str(), "part.wrl");
    EXPECT_EQ(scene.mError.mInner[0].mLine, 3u);
    EXPECT_NE(scene.mError.mInner[0].mMessage.find("unkown node: Material ("), BasicString::npos);
    expectReports({"\nError Message: Cannot parse VRML2 file: main.wrl because: VRML2::Parser: Cannot open file "
                   "'part.wrl' referenced in URL node"});

    files.mFiles.clear();
    scene.import(files);
    EXPECT_STREQ(scene.mError.mMessage.c_str(), "no such file");
    EXPECT_EQ(scene.mError.mLine, 0u);
    EXPECT_TRUE(scene.mError.mInner.empty());
    EXPECT_EQ(dropReports(), 1u);

    files.mFiles["main.wrl"] = HEADER;
    scene.import(files);
    EXPECT_TRUE(scene.mRead);
    EXPECT_TRUE(scene.mError.mMessage.empty());
}

// Each group holds the one before twice: 60 short lines stand for 2^60 nodes.
KORV_TEST(VRML2Import, sharedSubtreesDoNotExplode)
{
    std::string body = "DEF n0 Shape { appearance Foo { } }\n";
    for (int i = 1; i < 60; ++i)
    {
        const std::string inner = "USE n" + std::to_string(i - 1) + " ";
        body += "DEF n" + std::to_string(i) + " Group { children [ " + inner + inner + "] }\n";
    }
    const Scene scene(body);
    EXPECT_FALSE(scene.mRead);
    EXPECT_STREQ(scene.mError.mMessage.c_str(), "VRML2::MeshGen: the scene has more than 10000000 nodes");
    EXPECT_EQ(dropReports(), 1u);
}
