#include "korv/common/memory/memoryexception.h"
#include "support/generate.h"
#include "support/test.h"

#include <cstring>
#include <functional>

using namespace KORV;
using namespace KORV::NavMesh;
using Testing::SceneRun;

namespace
{
/// A horizontal square from the origin, in the plane that the up component leaves.
Scenes::Scene square(float size, int upComponent, float upSign)
{
    Scenes::Scene scene;
    const float corners[4][2] = {{0, 0}, {size, 0}, {size, size}, {0, size}};
    for (const auto& corner : corners)
    {
        float p[3];
        p[upComponent] = 0.1f * upSign;
        p[(upComponent + 1) % 3] = corner[0];
        p[(upComponent + 2) % 3] = corner[1];
        scene.mVertices.push_back({p[0], p[1], p[2]});
    }
    scene.mTriangles = {{{0, 1, 2}, 0}, {{0, 2, 3}, 0}};
    if (upSign < 0)
        scene.mTriangles = {{{2, 1, 0}, 0}, {{3, 2, 0}, 0}};
    return scene;
}

bool sameMesh(const NavMeshContainer& a, const NavMeshContainer& b)
{
    const auto sameNode = [](const NavMeshContainer::NavNode& n, const NavMeshContainer::NavNode& m)
    {
        return n.mPolygon == m.mPolygon && n.mNeighbours == m.mNeighbours && n.mHeightClass == m.mHeightClass &&
               n.mSurfaceTypeID == m.mSurfaceTypeID;
    };
    return a.mVertices.size() == b.mVertices.size() &&
           std::memcmp(a.mVertices.data(), b.mVertices.data(), a.mVertices.size() * sizeof(Vec3<float>)) == 0 &&
           a.mNodes.size() == b.mNodes.size() &&
           std::equal(a.mNodes.begin(), a.mNodes.end(), b.mNodes.begin(), sameNode) && a.mHeight == b.mHeight;
}

void expectSound(const SceneRun& run, const NavMeshContainer& mesh)
{
    for (const NavMeshContainer::Violation& violation : mesh.checkInvariants(5))
        ADD_FAILURE() << "node " << violation.mNode << ", side " << violation.mSide << ": " << violation.mText.c_str();
    const auto& statistics = run.mBuilder->getStatistics();
    const double cube = mesh.mCubeSize;
    const double expected = double(statistics.mNumWalkableVoxels) * cube * cube;
    EXPECT_NEAR(Testing::totalArea(mesh), expected, expected * 1e-4);
}

/// Stops a run at the n-th call.
class Stopper : public ProgressReceiver
{
public:
    explicit Stopper(int calls) : mCallsLeft(calls) {}
    bool onProgress(const char* stage, float fraction) override
    {
        EXPECT_NE(stage, nullptr);
        EXPECT_GE(fraction, 0.0f);
        EXPECT_LE(fraction, 1.0f);
        return mCallsLeft-- > 0;
    }

private:
    int mCallsLeft;
};

class ThrowingClassifier : public TriangleClassifier
{
public:
    void classifyTriangle(TriangleClass& result, const GeometryInfo&, uint32) override
    {
        result.mWalkable = true;
        if (++mCalls == 50)
            throw new Common::Exceptions::NotSupportedException("no more");
    }
    int mCalls = 0;
};
} // namespace

KORV_TEST(Generation, logsItsStagesInOrder)
{
    SceneRun run(square(10.0f, 1, 1.0f), 0.5f);
    run.mParameter.mGravityDir = {0.0f, -9.81f, 0.0f};
    const auto mesh = run.run();
    ASSERT_NE(mesh, nullptr);
    EXPECT_EQ(run.mBuilder->getParameter().mGravityDir, (Vec3<float>{0.0f, -1.0f, 0.0f}));
    EXPECT_EQ(run.mBuilder->getParameter().mSplitDepth, 1);
    EXPECT_EQ(mesh->mHeight.size(), 2u);
    EXPECT_EQ(mesh->mNormal, (Vec3<float>{0.0f, 1.0f, 0.0f}));

    const std::string head = "KORV::NavMesh::NavMeshBuilder::generateNavMesh : ";
    const std::string starts[] = {"KORV::Common::Threading::ThreadPool::ThreadPool : Number of threads: 1",
                                  head + "Using Allocator:FreeList",
                                  "KORV::NavMesh::NavMeshOctree::buildTree : ",
                                  "KORV::NavMesh::NavMeshOctree::buildMaxConnectedPolygons : Build Octree Time used: ",
                                  head + "Build maximal connected polygons Time used: ",
                                  head + "Build Convex Polygon Time used: ",
                                  head + "Build Vertical Connections Time used: ",
                                  head + "Add Height Classifier Time used: ",
                                  head + "Building Navigation Mesh Time used: "};
    size_t next = 0;
    for (const Testing::TraceLine& line : mTraces)
    {
        if (next < std::size(starts) && line.mText.starts_with(starts[next]))
            ++next;
    }
    EXPECT_EQ(next, std::size(starts)) << "missing: " << starts[next];
}

KORV_TEST(Generation, endsEmptyHandedWhereNothingIsWalkable)
{
    {
        SceneRun run(square(4.0f, 1, 1.0f), 0.25f, {0.0f, -1.0f, 0.0f}); // seen from below
        EXPECT_EQ(run.run(), nullptr);
        EXPECT_TRUE(mTraces.back().mText.starts_with(
            "KORV::NavMesh::NavMeshBuilder::generateNavMesh : Build maximal connected polygons Time used: "));
        run.mBuilder->clearGeometries();
        EXPECT_EQ(run.run(), nullptr);
        EXPECT_EQ(run.mBuilder->getParameter().mSplitDepth, 1);
    }
    SceneRun run(square(4.0f, 1, 1.0f));
    run.mBuilder->clearCharacters();
    EXPECT_EQ(run.run(), nullptr);
}

KORV_TEST(Generation, aFloorIsOneNodeWhicheverWayIsUp)
{
    for (int axis = 0; axis < 6; ++axis)
    {
        KORV_CONTEXT("axis " << axis);
        const float sign = axis % 2 == 0 ? 1.0f : -1.0f;
        Vec3<float> up;
        up[axis / 2] = sign;
        SceneRun run(square(10.0f, axis / 2, sign), 0.5f, up);
        run.mParameter.mSplitDepth = 0;
        const auto mesh = run.run();
        ASSERT_NE(mesh, nullptr);
        EXPECT_EQ(mesh->mNodes.size(), 1u);
        EXPECT_EQ(mesh->mNodes[0].mPolygon.size(), 4u);
        EXPECT_EQ(mesh->mNodes[0].mHeightClass, 1);
        EXPECT_EQ(mesh->mNormal, up);
        expectSound(run, *mesh);
    }
}

KORV_TEST(Generation, coversEveryWalkableVoxelOnceOnWholeScenes)
{
    const struct
    {
        const char* mName;
        Scenes::Scene mScene;
        float mCubeSize;
    } rows[] = {
        {"courtyard", Scenes::courtyard(), 0.25f},    {"hall", Scenes::hall(25, 3), 0.2f},
        {"hills", Scenes::hills(30.0f, 20, 5), 0.3f}, {"city", Scenes::city(2, 7), 0.3f},
        {"floors", Scenes::floors(3, 11), 0.25f},
    };
    for (const auto& row : rows)
    {
        for (const int32 splitDepth : {-2, -1, 3})
        {
            KORV_CONTEXT(row.mName << ", split depth " << splitDepth);
            SceneRun run(row.mScene, row.mCubeSize);
            run.mParameter.mSplitDepth = splitDepth;
            const auto mesh = run.run();
            ASSERT_NE(mesh, nullptr);
            expectSound(run, *mesh);
        }
    }
}

KORV_TEST(Generation, givesTheSameBytesForAnyNumberOfWorkers)
{
    for (const bool hall : {false, true})
    {
        SceneRun run(hall ? Scenes::hall(49, 2) : Scenes::courtyard());
        const auto one = run.run();
        ASSERT_NE(one, nullptr);
        for (const uint32 workers : {2u, 5u, 8u})
        {
            KORV_CONTEXT(workers << " workers");
            run.mParameter.mNumThreads = workers;
            const auto many = run.run();
            ASSERT_NE(many, nullptr);
            EXPECT_TRUE(sameMesh(*one, *many));
        }
    }
}

namespace
{
/// The direction of a side in the ground plane.
Vec2<float> direction(const NavMeshContainer& mesh, const NavMeshContainer::NavNode& node, size_t side)
{
    const Vec3<float> along =
        mesh.mVertices[node.mPolygon[(side + 1) % node.mPolygon.size()]] - mesh.mVertices[node.mPolygon[side]];
    return normalised(Vec2<float>(dot(mesh.mXAxis, along), dot(mesh.mYAxis, along)));
}

/// Whether a node has a side that runs against that of the other one.
bool faces(const NavMeshContainer& mesh, const NavMeshContainer::NavNode& node, const Vec2<float>& side)
{
    for (size_t i = 0; i < node.mPolygon.size(); ++i)
        if (dot(direction(mesh, node, i), side) <= -0.989f)
            return true;
    return false;
}
} // namespace

KORV_TEST(Generation, refinedRulesKeepThePromises)
{
    for (const auto& [name, scene, cubeSize] :
         {std::tuple("courtyard", Scenes::courtyard(), 0.25f), std::tuple("hall", Scenes::hall(49, 3), 0.2f),
          std::tuple("hills", Scenes::hills(30.0f, 12, 2), 0.3f), std::tuple("city", Scenes::city(2, 1), 0.3f),
          std::tuple("floors", Scenes::floors(3, 1), 0.2f)})
    {
        KORV_CONTEXT(name);
        SceneRun run(scene, cubeSize);
        run.mBuilder->setRefined(true);
        const auto mesh = run.run();
        ASSERT_NE(mesh, nullptr);
        expectSound(run, *mesh);
        EXPECT_EQ(run.mBuilder->getStatistics().mNumTriangleRescues, 0u);
        size_t numFacing = 0;
        size_t numLinks = 0;
        for (const NavMeshContainer::NavNode& node : mesh->mNodes)
        {
            EXPECT_GT(Testing::doubleArea(*mesh, node), 0.1 * double(cubeSize) * double(cubeSize));
            for (size_t side = 0; side < node.mNeighbours.size(); ++side)
            {
                if (node.mNeighbours[side] < 0)
                    continue;
                ++numLinks;
                numFacing += faces(*mesh, mesh->mNodes[size_t(node.mNeighbours[side])], direction(*mesh, node, side));
            }
        }
        EXPECT_EQ(numFacing, numLinks);
        run.mParameter.mNumThreads = 3;
        EXPECT_TRUE(sameMesh(*mesh, *run.run()));
    }
}

KORV_TEST(Generation, canBeStoppedAtAnyCall)
{
    SceneRun run(Scenes::courtyard(), 0.4f);
    run.mParameter.mNumThreads = 2;
    const auto whole = run.run();
    int calls = 0;
    for (bool finished = false; !finished; ++calls)
    {
        KORV_CONTEXT("stopped at call " << calls);
        Stopper stopper(calls);
        run.mBuilder->setProgressReceiver(&stopper);
        const auto mesh = run.run();
        finished = mesh != nullptr;
        EXPECT_EQ(run.mBuilder->getStatistics().mCancelled, !finished);
        EXPECT_TRUE(!finished || sameMesh(*whole, *mesh));
    }
    EXPECT_GT(calls, 8);
}

KORV_TEST(Generation, theBuilderSurvivesWhatTheHostThrows)
{
    SceneRun run(Scenes::courtyard(), 0.5f);
    const auto before = run.run();
    ThrowingClassifier classifier;
    GeometryInfo geometry;
    geometry.mClassifier = &classifier;
    geometry.mVertexData = run.mScene.mVertices.data();
    geometry.mVertexStride = sizeof(Scenes::Vertex);
    geometry.mNumVertices = static_cast<uint32>(run.mScene.mVertices.size());
    geometry.mIndexData = run.mScene.mTriangles.data();
    geometry.mTriangleStride = sizeof(Scenes::Triangle);
    geometry.mNumTriangles = static_cast<uint32>(run.mScene.mTriangles.size());
    SceneRun throwing(Scenes::Scene{}, 0.5f);
    throwing.mBuilder->addGeometry(geometry);
    EXPECT_EQ(Testing::expectThrow<Common::Exceptions::NotSupportedException>([&] { throwing.run(); }), "no more");
    throwing.mBuilder->clearGeometries();
    EXPECT_EQ(throwing.run(), nullptr);
    const auto after = run.run();
    EXPECT_TRUE(sameMesh(*before, *after));
}

KORV_TEST(Generation, runningOutOfMemoryIsATypedExceptionAndLeaksNothing)
{
    SceneRun run(square(6.0f, 1, 1.0f), 0.5f);
    run.mParameter.mNumThreads = 2;
    ASSERT_NE(run.run(), nullptr);
    int failures = 0;
    for (int64 allowed = 0;; ++allowed)
    {
        KORV_CONTEXT("after " << allowed << " allocations");
        mMemory->mFailAfter = allowed;
        bool finished = false;
        try
        {
            finished = run.run() != nullptr;
        }
        catch (Common::Memory::OutOfMemoryException* error)
        {
            ++failures;
            delete error;
        }
        mMemory->mFailAfter = -1;
        dropReports(); // free lists report the page they did not get
        Common::Interface::getSharedAllocator()->releaseUnusedMemory();
        if (finished)
            break;
    }
    EXPECT_GT(failures, 3);
}
