#include "korv/common/interface.h"
#include "korv/navmesh/heightclassifier.h"
#include "korv/navmesh/navmeshbuilder.h"
#include "korv/navmesh/octreedepth.h"
#include "support/test.h"

#include <cstring>
#include <functional>
#include <limits>

using namespace KORV;
using namespace KORV::NavMesh;
using Common::Exceptions::ArgumentException;

namespace
{
using BuilderPtr = SharedPtr<NavMeshBuilder>;

constexpr float FLOAT_MAX = std::numeric_limits<float>::max();
constexpr float NOT_A_NUMBER = std::numeric_limits<float>::quiet_NaN();
constexpr float ENDLESS = std::numeric_limits<float>::infinity();

class AllWalkable : public TriangleClassifier
{
public:
    void classifyTriangle(TriangleClass& result, const GeometryInfo&, uint32) override { result.mWalkable = true; }
};

AllWalkable gClassifier;

BuilderPtr createBuilder()
{
    return BuilderPtr(new (Common::Interface::getSharedAllocator()) NavMeshBuilder);
}

CharacterInfo character(const char* name, float height, float jump = 0.0f, float fall = 0.0f)
{
    CharacterInfo info;
    info.mName = name;
    info.mPhysicalHeight = height;
    info.mJumpHeight = jump;
    info.mFallHeight = fall;
    return info;
}

/// A triangle of the given extent in the ground plane, with its arrays.
struct Scene
{
    explicit Scene(float extent) : mVertices{0, 0, 0, extent, 0, 0, 0, extent, 0}
    {
        mGeometry.mClassifier = &gClassifier;
        mGeometry.mVertexData = mVertices;
        mGeometry.mIndexData = mIndices;
        mGeometry.mVertexStride = 12;
        mGeometry.mTriangleStride = 12;
        mGeometry.mNumVertices = 3;
        mGeometry.mNumTriangles = 1;
    }
    Scene(const Scene&) = delete;

    float mVertices[9];
    uint32 mIndices[3] = {0, 1, 2};
    GeometryInfo mGeometry;
};

HeightClassifier createClassifier(std::initializer_list<CharacterInfo> characters)
{
    HeightClassifier classifier(Common::Memory::getDefaultAllocator());
    for (const CharacterInfo& info : characters)
        classifier.insert(info);
    classifier.finalizeIDs();
    return classifier;
}
} // namespace

KORV_TEST(BuilderInputs, defaultsAreTheDocumentedOnes)
{
    const BuilderPtr builder = createBuilder();
    const NavMeshBuilder::Parameter& parameter = builder->getParameter();
    EXPECT_EQ(parameter.mGravityDir, (Vec3<float>{0.0f, 0.0f, -1.0f}));
    EXPECT_EQ(parameter.mCubeSize, 2.0f);
    EXPECT_EQ(parameter.mSplitDepth, -2);
    EXPECT_EQ(parameter.mNumThreads, 0u);
    EXPECT_EQ(builder->findSurfaceType("Default"), nullptr);
    EXPECT_EQ(SurfaceType().mName, "Default");
    EXPECT_EQ(SurfaceType().mID, 65535);
}

KORV_TEST(BuilderInputs, duplicatesAreReportedAndAddedAllTheSame)
{
    const BuilderPtr builder = createBuilder();
    SurfaceType type;
    type.mName = "grass";
    type.mID = 3;
    builder->addSurfaceType(type);
    type.mName = "sand";
    builder->addSurfaceType(type);
    expectReports({"\nError Message: There is already a surface type with equal name or id. Try to add:sand / 3"});
    type.mID = 4;
    builder->addSurfaceType(type);
    expectReports({"\nError Message: There is already a surface type with equal name or id. Try to add:sand / 4"});
    EXPECT_EQ(builder->findSurfaceType(uint16(3))->mName, "grass");
    EXPECT_EQ(builder->findSurfaceType("sand")->mID, 3);
    EXPECT_EQ(builder->findSurfaceType(uint16(4))->mName, "sand");
    builder->clearSurfaceTypes();
    EXPECT_EQ(builder->findSurfaceType("sand"), nullptr);

    // one report for each character that has the name already
    builder->addCharacter(character("orc", 1.0f));
    builder->addCharacter(character("Orc", 1.0f));
    builder->addCharacter(character("orc", 2.0f));
    builder->addCharacter(character("orc", 2.0f));
    const std::string report = "\nError Message: There is already a character with equal name: orc";
    expectReports({report, report, report});
    builder->clearCharacters();
    builder->addCharacter(character("orc", 2.0f));
}

// The arrays end where the last element ends, so that the sanitizer sees a byte read too far.
KORV_TEST(BuilderInputs, elementsAreReadFromAnyLayout)
{
    const float xyz[3] = {1.5f, -2.0f, 3.0f};
    std::vector<unsigned char> vertices(1 + 2 * 17 + 12);
    std::memcpy(&vertices[1 + 2 * 17], xyz, 12);
    GeometryInfo geometry;
    geometry.mVertexData = &vertices[1];
    geometry.mVertexStride = 17;
    geometry.mNumVertices = 3;
    EXPECT_EQ(geometry.getVertex(2), (Vec3<float>{1.5f, -2.0f, 3.0f}));
    geometry.mTransform = Matrix4<float>::getTranslationMatrix({10.0f, 20.0f, 30.0f});
    EXPECT_EQ(geometry.getWorldVertex(2), (Vec3<float>{1.5f, -2.0f, 3.0f}));
    geometry.mUseTransform = true;
    EXPECT_EQ(geometry.getWorldVertex(2), (Vec3<float>{11.5f, 18.0f, 33.0f}));
    EXPECT_EQ(geometry.getVertex(3), Vec3<float>());
    expectReports({"vertexID < mNumVertices\nError Message: Vertex id out of range: 3"});

    std::vector<uint16> narrow = {7, 7, 7, 7, 1, 2, 65535};
    geometry.mIndexData = narrow.data();
    geometry.mTriangleStride = 8;
    geometry.mNumTriangles = 2;
    for (const uint32 size : {1u, 2u, 8u})
    {
        geometry.mIndexSize = size;
        EXPECT_EQ(geometry.getTriangle(1), (IndexedTriangle{{1, 2, 65535}}));
    }
    std::vector<uint32> wide = {1, 2, 4000000000u};
    geometry.mIndexData = wide.data();
    geometry.mIndexSize = 4;
    geometry.mTriangleStride = 12;
    EXPECT_EQ(geometry.getTriangle(0), (IndexedTriangle{{1, 2, 4000000000u}}));
    EXPECT_EQ(geometry.getTriangle(2), IndexedTriangle());
    expectReports({"triangleID < mNumTriangles\nError Message: Triangle id out of range: 2"});
}

KORV_TEST(BuilderInputs, brokenRecordsAreReadWithinTheirElements)
{
    std::vector<float> values = {1.0f, 2.0f};
    GeometryInfo geometry;
    geometry.mNumVertices = 2;
    geometry.mNumTriangles = 2;
    EXPECT_EQ(geometry.getVertex(1), Vec3<float>());
    EXPECT_EQ(geometry.getTriangle(1), IndexedTriangle());
    geometry.mVertexData = values.data();
    geometry.mVertexStride = 4;
    EXPECT_EQ(geometry.getVertex(1), (Vec3<float>{2.0f, 0.0f, 0.0f}));
    geometry.mVertexStride = 0;
    EXPECT_EQ(geometry.getVertex(1), Vec3<float>());
}

KORV_TEST(BuilderInputs, unusableInputIsRefusedByName)
{
    using Break = std::function<void(Scene&, NavMeshBuilder::Parameter&)>;
    const struct
    {
        Break mBreak;
        const char* mArgument;
        const char* mMessage;
    } rows[] = {
        {[](Scene&, auto& p) { p.mGravityDir.mY = NOT_A_NUMBER; }, "mGravityDir", "0 nan -1"},
        {[](Scene&, auto& p) { p.mGravityDir.mX = ENDLESS; }, "mGravityDir", "inf 0 -1"},
        {[](Scene&, auto& p) { p.mCubeSize = 0.0f; }, "mCubeSize", "above 0: 0"},
        {[](Scene&, auto& p) { p.mCubeSize = -1.0f; }, "mCubeSize", "-1"},
        {[](Scene&, auto& p) { p.mCubeSize = NOT_A_NUMBER; }, "mCubeSize", "nan"},
        {[](Scene&, auto& p) { p.mCubeSize = ENDLESS; }, "mCubeSize", "inf"},
        {[](Scene& s, auto&) { s.mGeometry.mClassifier = nullptr; }, "mClassifier", "Geometry 1 has no"},
        {[](Scene& s, auto&) { s.mGeometry.mVertexData = nullptr; }, "mVertexData", "Geometry 1 has 3 vertices"},
        {[](Scene& s, auto&) { s.mGeometry.mIndexData = nullptr; }, "mIndexData", "Geometry 1 has 1 triangles"},
        {[](Scene& s, auto&) { s.mGeometry.mVertexStride = 11; }, "mVertexStride", "11 bytes"},
        {[](Scene& s, auto&) { s.mGeometry.mTriangleStride = 11; }, "mTriangleStride", "11 bytes"},
        {[](Scene& s, auto&)
         {
             s.mGeometry.mTriangleStride = 5;
             s.mGeometry.mIndexSize = 2;
         },
         "mTriangleStride", "takes 6"},
        {[](Scene& s, auto&) { s.mVertices[4] = NOT_A_NUMBER; }, "mVertexData", "Geometry 1, vertex 1"},
        {[](Scene& s, auto&) { s.mVertices[8] = -ENDLESS; }, "mVertexData", "Geometry 1, vertex 2"},
        {[](Scene& s, auto&)
         {
             s.mGeometry.mUseTransform = true;
             s.mGeometry.mTransform.mEntries[12] = ENDLESS;
         },
         "mTransform", "Geometry 1 has a transform"},
        {[](Scene& s, auto&)
         {
             s.mGeometry.mUseTransform = true;
             s.mGeometry.mTransform.mEntries[0] = FLOAT_MAX;
         },
         "mTransform", "Geometry 1, vertex 1"},
    };
    for (const auto& row : rows)
    {
        KORV_CONTEXT(row.mArgument << " " << row.mMessage);
        const BuilderPtr builder = createBuilder();
        Scene sound(10.0f), scene(10.0f);
        NavMeshBuilder::Parameter parameter;
        row.mBreak(scene, parameter);
        builder->setParameter(parameter);
        builder->addGeometry(sound.mGeometry);
        builder->addGeometry(scene.mGeometry);
        try
        {
            builder->generateNavMesh();
            ADD_FAILURE() << "accepted";
        }
        catch (ArgumentException* error)
        {
            EXPECT_EQ(error->getArgumentName(), row.mArgument);
            EXPECT_NE(std::string(error->getMessage().c_str()).find(row.mMessage), std::string::npos)
                << error->getMessage().c_str();
            delete error;
        }
        EXPECT_TRUE(mTraces.empty()) << "work was done";
    }
}

KORV_TEST(BuilderInputs, automaticSplitDepthIsWrittenBack)
{
    const struct
    {
        float mExtent;
        int32 mBefore;
        int32 mAfter;
    } rows[] = {
        {100.0f, -2, 1}, {799.0f, -2, 1}, {800.0f, -2, 2}, {2000.0f, -7, 3}, {2000.0f, -1, -1}, {2000.0f, 0, 0},
    };
    for (const auto& row : rows)
    {
        KORV_CONTEXT(row.mExtent << " " << row.mBefore);
        const BuilderPtr builder = createBuilder();
        Scene scene(row.mExtent);
        // the automatic choice looks at the vertices as they are
        scene.mGeometry.mUseTransform = true;
        scene.mGeometry.mTransform = Matrix4<float>::getScaleMatrix({0.1f, 0.1f, 0.1f});
        NavMeshBuilder::Parameter parameter;
        parameter.mSplitDepth = row.mBefore;
        builder->setParameter(parameter);
        builder->addGeometry(scene.mGeometry);
        EXPECT_EQ(builder->generateNavMesh(), nullptr) << "without characters nothing is walkable";
        EXPECT_EQ(builder->getParameter().mSplitDepth, row.mAfter);
    }
}

// The octree widens its box by 0.5 on every side.
KORV_TEST(BuilderInputs, octreeDepthOfTheInputs)
{
    const BuilderPtr builder = createBuilder();
    EXPECT_EQ(builder->computeOctreeDepth(), 0u);
    const struct
    {
        float mExtent;
        float mCube;
        uint32 mDepth;
    } rows[] = {
        {99.0f, 1.0f, 7}, {39.0f, 1.0f, 6}, {63.0f, 1.0f, 6}, {63.1f, 1.0f, 7}, {0.0f, 1.0f, 0}, {0.0f, 2.0f, 0},
    };
    NavMeshBuilder::Parameter parameter;
    for (const auto& row : rows)
    {
        KORV_CONTEXT(row.mExtent << " / " << row.mCube);
        Scene scene(row.mExtent / 2.0f);
        scene.mGeometry.mUseTransform = true;
        scene.mGeometry.mTransform = Matrix4<float>::getScaleMatrix({1.0f, 2.0f, 1.0f});
        builder->clearGeometries();
        builder->addGeometry(scene.mGeometry);
        parameter.mCubeSize = row.mCube;
        builder->setParameter(parameter);
        EXPECT_EQ(builder->computeOctreeDepth(), row.mDepth);
    }

    EXPECT_EQ(computeOctreeDepth(0x1p30f, 1.0f), 30u);
    EXPECT_EQ(computeOctreeDepth(0x1p30f, 1e30f), 0u);
    const std::string message = Testing::expectThrow<ArgumentException>([] { computeOctreeDepth(0x1.1p30f, 1.0f); });
    EXPECT_NE(message.find("2^30"), std::string::npos) << message;
    Testing::expectThrow<ArgumentException>([] { computeOctreeDepth(1.0f, 0.0f); });
    Testing::expectThrow<ArgumentException>([] { computeOctreeDepth(NOT_A_NUMBER, 1.0f); });
}

// Walkable ground at right angles to the expected up direction, under gravity that may be slanted.
KORV_TEST(BuilderInputs, upIsTheMainAxisMostNearlyAgainstGravity)
{
    const struct
    {
        Vec3<float> mGravity;
        Vec3<float> mUp;
        int mFirst;
        int mSecond;
    } rows[] = {
        {{0, 0, -9.81f}, {0, 0, 1}, 0, 1},     {{0, -1, 0}, {0, 1, 0}, 0, 2},      {{1, 0, 0}, {-1, 0, 0}, 1, 2},
        {{0, 0, 2}, {0, 0, -1}, 0, 1},         {{0, 3, 0}, {0, -1, 0}, 0, 2},      {{-1, 0, 0}, {1, 0, 0}, 1, 2},
        {{-1, -1, 0}, {1, 0, 0}, 1, 2},        {{-1, -1.01f, 0}, {0, 1, 0}, 0, 2}, {{0, -3e38f, 0}, {0, 1, 0}, 0, 2},
        {{1e20f, 0, 3e38f}, {0, 0, -1}, 0, 1},
    };
    for (const auto& row : rows)
    {
        KORV_CONTEXT(row.mGravity.mX << " " << row.mGravity.mY << " " << row.mGravity.mZ);
        const BuilderPtr builder = createBuilder();
        Scene scene(0.0f);
        scene.mVertices[3 + row.mFirst] = 20.0f;
        scene.mVertices[6 + row.mSecond] = 20.0f;
        NavMeshBuilder::Parameter parameter;
        parameter.mGravityDir = row.mGravity;
        parameter.mCubeSize = 1.0f;
        builder->setParameter(parameter);
        builder->addCharacter(character("human", 1.8f));
        builder->addGeometry(scene.mGeometry);
        const SharedPtr<NavMeshContainer> mesh = builder->generateNavMesh();
        ASSERT_NE(mesh, nullptr);
        EXPECT_EQ(mesh->mNormal, row.mUp);
        EXPECT_NEAR(builder->getParameter().mGravityDir.getLength(), 1.0f, 1e-6f);
    }
}

KORV_TEST(HeightClasses, eachDistinctHeightMakesAClass)
{
    const HeightClassifier original =
        createClassifier({character("a", 1.8f, 0.7f, 2.0f), character("b", 0.5f, 0.3f, 5.0f), character("c", 1.8f)});
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): the copy is what is looked at
    const HeightClassifier classifier(original);
    const struct
    {
        float mHeight;
        uint32 mClass;
        float mLo;
        float mHi;
    } rows[] = {
        {0.4f, HeightClassifier::NO_CLASS, -1.0f, -1.0f},
        {0.5f, 0, 0.5f, static_cast<float>(double(1.8f) - 0.0001)},
        {1.0f, 0, 0.5f, static_cast<float>(double(1.8f) - 0.0001)},
        {1.8f, 1, 1.8f, FLOAT_MAX},
        {100.0f, 1, 1.8f, FLOAT_MAX},
    };
    for (const auto& row : rows)
    {
        KORV_CONTEXT(row.mHeight);
        float lo = -1.0f, hi = -1.0f;
        EXPECT_EQ(classifier.classify(row.mHeight, lo, hi), row.mClass);
        EXPECT_EQ(lo, row.mLo);
        EXPECT_EQ(hi, row.mHi);
    }
    EXPECT_EQ(classifier.getMaxPhysicalHeight(), 1.8f);
    EXPECT_EQ(classifier.getMaxJumpHeight(), 0.7f);
    EXPECT_EQ(classifier.getMaxFallHeight(), 5.0f);
    Vector<float> heights;
    classifier.writeHeights(heights);
    EXPECT_EQ(heights, (Vector<float>{0.5f, 1.8f}));
}

KORV_TEST(HeightClasses, withoutCharactersNothingFits)
{
    const HeightClassifier classifier = createClassifier({});
    float lo = 7.0f, hi = 8.0f;
    EXPECT_EQ(classifier.classify(FLOAT_MAX, lo, hi), HeightClassifier::NO_CLASS);
    EXPECT_EQ(lo, 7.0f);
    Vector<float> heights;
    classifier.writeHeights(heights);
    EXPECT_TRUE(heights.empty());
}
