#include "korv/common/geom/geomutility.h"
#include "korv/navmesh/voxels/directinsertion.h"
#include "korv/navmesh/voxels/voxelinsertion.h"
#include "support/test.h"
#include "support/voxelscenes.h"

#include <algorithm>
#include <map>
#include <random>
#include <tuple>

using namespace KORV;
using namespace KORV::NavMesh;
using Testing::OctreeRun;
using Testing::VoxelScene;

namespace
{
using Cell = std::tuple<int32, int32, int32>;
using Voxels = std::map<Cell, std::pair<bool, uint16>>;

constexpr uint32 UP_Z = 1; // main axis with up along z

class GatherVoxels : public LeafFunctional
{
public:
    explicit GatherVoxels(Voxels& voxels) : mVoxels(voxels) {}
    void operator()(const Vec3<int32>& p, LeafOctant& leaf) override
    {
        const bool isNew =
            mVoxels.emplace(Cell(p.mX, p.mY, p.mZ), std::pair(leaf.isWalkable(), leaf.surfaceTypeID)).second;
        EXPECT_TRUE(isNew);
    }

private:
    Voxels& mVoxels;
};

Voxels voxelsOf(OctreeRun& run)
{
    Voxels voxels;
    run.forEachLeaf(GatherVoxels(voxels));
    return voxels;
}

/// The definition of the voxelisation, with a list of its own for each octant.
struct ReferenceTree
{
    std::vector<Vec3<float>> mCorners; // three for each triangle, in order
    std::vector<TriangleClass> mClasses;
    Voxels mVoxels;

    void insert(const std::vector<size_t>& triangles, Vec3<float> centre, float edge, Vec3<int32> corner, int32 size)
    {
        if (size == 1)
        {
            auto& voxel = mVoxels[{corner.mX, corner.mY, corner.mZ}];
            for (const size_t triangle : triangles)
            {
                if (!voxel.first && mClasses[triangle].mWalkable)
                    voxel = {true, mClasses[triangle].mSurfaceTypeID};
            }
            return;
        }
        for (int32 child = 0; child < 8; ++child)
        {
            const Vec3<int32> half((child >> 2) & 1, (child >> 1) & 1, child & 1);
            Vec3<float> childCentre = centre;
            for (int i = 0; i < 3; ++i)
                childCentre[i] += half[i] != 0 ? edge / 4.0f : -(edge / 4.0f);
            std::vector<size_t> inside;
            for (const size_t t : triangles)
            {
                if (Common::Geom::TriangleBoxOverlap(mCorners[3 * t], mCorners[3 * t + 1], mCorners[3 * t + 2],
                                                     childCentre, edge / 2.0f + 0.0001f))
                    inside.push_back(t);
            }
            if (!inside.empty())
                insert(inside, childCentre, edge / 2.0f, corner + half * (size / 2), size / 2);
        }
    }
};

class ThrowingClassifier : public TriangleClassifier
{
public:
    void classifyTriangle(TriangleClass&, const GeometryInfo&, uint32) override
    {
        throw new Common::Exceptions::NotSupportedException("no");
    }
};

/// Remembers its calls, and can fail at one.
class CallSequence : public TriangleClassifier
{
public:
    void classifyTriangle(TriangleClass& result, const GeometryInfo&, uint32 triangle) override
    {
        if (mTriangles.size() == mFailAt)
            throw new Common::Exceptions::NotSupportedException("no");
        mTriangles.push_back(triangle);
        result = {triangle % 3 == 0, static_cast<uint16>(triangle)};
    }

    std::vector<uint32> mTriangles;
    size_t mFailAt = SIZE_MAX;
};

/// Adds triangles of all kinds to a cube: from specks to some of its size, slivers, and level ones.
void addTriangles(VoxelScene& scene, uint32 count, float edge)
{
    std::mt19937 random(count);
    const auto between = [&random](float low, float high)
    { return std::uniform_real_distribution<float>(low, high)(random); };
    for (uint32 n = 0; n < count; ++n)
    {
        const float reach = n % 50 == 0 ? edge : n % 3 == 0 ? 6.0f : 0.8f;
        const Vec3<float> first(between(0.0f, edge), between(0.0f, edge), between(0.0f, edge));
        for (int corner = 0; corner < 3; ++corner)
        {
            const Vec3<float> way(between(-reach, reach), between(-reach, reach), between(-reach, reach));
            Vec3<float> vertex = first + way * (n % 7 == 0 && corner == 2 ? 0.01f : 1.0f);
            if (n % 4 == 0)
                vertex.mZ = std::round(first.mZ);
            for (int i = 0; i < 3; ++i)
                vertex[i] = std::clamp(vertex[i], 0.0f, edge);
            scene.mVertices.push_back(vertex);
        }
        const uint32 end = static_cast<uint32>(scene.mVertices.size());
        scene.mTriangles.push_back({{end - 3, end - 2, end - 1}});
    }
}

/// All that the bricks of a scene hold, as an insertion fills them.
template <class Insertion>
std::vector<uint64> bricksOf(VoxelScene& scene, uint32 depth, uint32 axis, uint32 numThreads, CallSequence& classifier)
{
    const Common::Memory::AllocatorPtr allocator = Common::Interface::getSharedAllocator();
    GeometryInfo geometry = scene.getGeometry();
    geometry.mClassifier = &classifier;
    const Vector<GeometryInfo> geometries(1, geometry, allocator.get());
    NavMeshBuilder::Statistics statistics;
    const RunControl control(nullptr, statistics);
    const std::unique_ptr<Common::Threading::ThreadPool> pool(
        Common::Threading::ThreadPool::create(allocator, numThreads, 0));
    VoxelBricks bricks(depth, axis, allocator.get());
    BrickOutput output(bricks);
    const float edge = static_cast<float>(1 << depth) * VoxelScene::CUBE_SIZE;
    const float middle = edge * 0.5f;
    Insertion(geometries, output, control, 1.0f, pool.get(), allocator.get())
        .insert({middle, middle, middle}, edge, depth);
    std::vector<uint64> held{output.countVoxels(), output.countInnerOctants()};
    for (uint32 at = 0; at < bricks.size(); ++at)
    {
        const VoxelBrick& brick = bricks[at];
        held.insert(held.end(), std::begin(brick.mOccupied), std::end(brick.mOccupied));
        held.insert(held.end(), std::begin(brick.mWalkable), std::end(brick.mWalkable));
        for (int i = 0; i < 3; ++i)
            held.push_back(static_cast<uint64>(brick.mPosition[i]));
        held.push_back(brick.mTypes);
        if ((brick.mTypes & VoxelBrick::MANY_TYPES) == 0)
            continue;
        uint32 place = brick.mTypes & ~VoxelBrick::MANY_TYPES;
        for (const uint64 plane : brick.mWalkable)
        {
            for (uint32 left = countBits(plane); left > 0; --left)
                held.push_back(bricks.getType(place++));
        }
    }
    return held;
}

class StopAtCall : public ProgressReceiver
{
public:
    explicit StopAtCall(int call) : mCallsLeft(call) {}
    bool onProgress(const char*, float fraction) override
    {
        EXPECT_GE(fraction, mLast);
        EXPECT_LE(fraction, 1.0f);
        mLast = fraction;
        return mCallsLeft-- > 0;
    }

    int mCallsLeft;
    float mLast = 0.0f;
};
} // namespace

KORV_TEST(Octree, occupiesExactlyTheCellsTouched)
{
    for (uint32 axis = 0; axis < NUM_MAIN_AXES; ++axis)
    {
        KORV_CONTEXT("axis " << axis);
        std::mt19937 random(axis);
        VoxelScene scene(13, axis);
        Voxels expected;
        for (int n = 0; n < 200; ++n)
        {
            const auto coordinate = [&] { return static_cast<int32>(random() % 13); };
            const int32 u = coordinate(), v = coordinate(), w = coordinate();
            const Vec3<int32> p = scene.getPosition(u, v, w);
            if (!expected.emplace(Cell(p.mX, p.mY, p.mZ), std::pair(n % 3 != 0, n % 3 != 0 ? 7 : 0)).second)
                continue;
            scene.addCell(u, v, w, n % 3 != 0, 7);
        }
        OctreeRun run({scene.getGeometry()}, {1.0f});
        NavMeshOctree& octree = *run.mOctree;
        run.buildTree();
        EXPECT_EQ(octree.getDepth(), 4u);
        EXPECT_EQ(octree.getDimension(), 16u);
        EXPECT_EQ(voxelsOf(run), expected);
        for (int32 i = 0; i < 16 * 16 * 16; ++i)
        {
            const Vec3<int32> p(i / 256, i / 16 % 16, i % 16);
            const bool isOccupied = expected.count({p.mX, p.mY, p.mZ}) != 0;
            EXPECT_EQ(octree.getLeaf(p) != nullptr, isOccupied);
            Trail trail;
            octree.computeTrail(trail, p);
            EXPECT_EQ(trail.mCurrPos == 4, isOccupied);
        }
        for (const Vec3<int32>& p : {Vec3<int32>(-1, 0, 0), Vec3<int32>(16, 0, 0), Vec3<int32>(0, -1, 0),
                                     Vec3<int32>(0, 16, 0), Vec3<int32>(0, 0, -1), Vec3<int32>(0, 0, 16)})
            EXPECT_FALSE(octree.isInside(p));
    }
}

KORV_TEST(Octree, agreesWithTheDefinitionOnAnyTriangles)
{
    for (uint32 seed = 0; seed < 30; ++seed)
    {
        KORV_CONTEXT("seed " << seed);
        std::mt19937 random(seed);
        std::uniform_real_distribution<float> coordinate(-3.0f, 5.0f);
        VoxelScene scenes[2] = {VoxelScene(4, UP_Z), VoxelScene(4, UP_Z)};
        std::vector<GeometryInfo> geometries;
        ReferenceTree reference;
        for (VoxelScene& scene : scenes)
        {
            scene.mVertices.clear();
            for (uint32 n = 0; n < 6; ++n)
            {
                for (int corner = 0; corner < 3; ++corner)
                    scene.mVertices.push_back({coordinate(random), coordinate(random), coordinate(random)});
                scene.mTriangles.push_back({{3 * n, 3 * n + 1, 3 * n + 2}});
                scene.mClasses.push_back({random() % 2 == 0, static_cast<uint16>(random() % 5)});
            }
            geometries.push_back(scene.getGeometry());
            geometries.back().mUseTransform = seed % 2 == 0;
            geometries.back().mTransform = Matrix4<float>::getRotationMatrix({0.0f, 0.0f, 1.0f}, 0.3f);
            for (const Vec3<float>& vertex : scene.mVertices)
                reference.mCorners.push_back(
                    geometries.back().mUseTransform ? geometries.back().mTransform.transformPoint(vertex) : vertex);
            reference.mClasses.insert(reference.mClasses.end(), scene.mClasses.begin(), scene.mClasses.end());
        }
        OctreeRun run(geometries, {1.0f}, 0, 1, nullptr, 0.3f);
        run.buildTree();
        const int32 size = static_cast<int32>(run.mOctree->getDimension());
        const float edge = static_cast<float>(size) * 0.3f;
        const Vec3<float> min = run.mOctree->getCentre({}) - Vec3<float>(0.15f, 0.15f, 0.15f);
        std::vector<size_t> all(reference.mClasses.size());
        for (size_t i = 0; i < all.size(); ++i)
            all[i] = i;
        reference.insert(all, min + Vec3<float>(edge, edge, edge) * 0.5f, edge, {}, size);
        EXPECT_EQ(voxelsOf(run), reference.mVoxels);
    }
}

KORV_TEST(Octree, isTheSameForAnyNumberOfWorkers)
{
    std::mt19937 random(5);
    std::uniform_real_distribution<float> coordinate(0.0f, 400.0f);
    VoxelScene scene(200, UP_Z);
    for (uint32 n = 0; n < 80; ++n)
    {
        for (int corner = 0; corner < 3; ++corner) // every other one level
            scene.mVertices.push_back(
                {coordinate(random), coordinate(random), n % 2 == 0 ? static_cast<float>(4 * n) : coordinate(random)});
        scene.mTriangles.push_back({{3 * n + 2, 3 * n + 3, 3 * n + 4}});
    }
    CallSequence calls[3];
    Voxels voxels[3];
    for (const uint32 workers : {1u, 2u, 3u})
    {
        GeometryInfo geometry = scene.getGeometry();
        geometry.mClassifier = &calls[workers - 1];
        OctreeRun run({geometry}, {1.0f}, 0, workers);
        run.buildTree();
        voxels[workers - 1] = voxelsOf(run);
        EXPECT_GT(run.mOctree->getLeafOctants().size(), 200000u) << "else the workers have nothing to do";
    }
    for (const int other : {1, 2})
    {
        EXPECT_TRUE(voxels[other] == voxels[0]);
        EXPECT_TRUE(calls[other].mTriangles == calls[0].mTriangles);
    }
    EXPECT_EQ(calls[0].mTriangles.size(), scene.mTriangles.size()) << "once each";
    EXPECT_TRUE(std::is_sorted(calls[0].mTriangles.begin(), calls[0].mTriangles.end()));
    for (const size_t failAt : {size_t{0}, calls[0].mTriangles.size() - 1})
    {
        CallSequence failing;
        failing.mFailAt = failAt;
        GeometryInfo geometry = scene.getGeometry();
        geometry.mClassifier = &failing;
        OctreeRun run({geometry}, {1.0f}, 0, 2);
        Testing::expectThrow<Common::Exceptions::NotSupportedException>([&] { run.buildTree(); });
    }
}

KORV_TEST(Octree, smallGridsHaveTheBricksOfLargeOnes)
{
    for (const uint32 depth : {2u, 6u, 8u})
    {
        KORV_CONTEXT("depth " << depth);
        const int32 size = 1 << depth;
        VoxelScene scene(size, UP_Z);
        addTriangles(scene, 6000, static_cast<float>(size) * VoxelScene::CUBE_SIZE);
        for (uint32 axis = 0; axis < NUM_MAIN_AXES; ++axis)
        {
            CallSequence calls[3];
            const auto expected = bricksOf<VoxelInsertion>(scene, depth, axis, 1, calls[0]);
            EXPECT_TRUE(bricksOf<DirectInsertion>(scene, depth, axis, 1, calls[1]) == expected) << "axis " << axis;
            EXPECT_TRUE(bricksOf<DirectInsertion>(scene, depth, axis, 3, calls[2]) == expected) << "axis " << axis;
            EXPECT_TRUE(calls[1].mTriangles == calls[0].mTriangles && calls[2].mTriangles == calls[0].mTriangles);
        }
        CallSequence failing;
        failing.mFailAt = 5500;
        Testing::expectThrow<Common::Exceptions::NotSupportedException>(
            [&] { bricksOf<DirectInsertion>(scene, depth, UP_Z, 3, failing); });
    }
}

KORV_TEST(Octree, leavesOutTrianglesWithIndicesOutOfRange)
{
    VoxelScene scene(8, UP_Z);
    scene.addCell(1, 1, 1);
    scene.addCell(2, 1, 1);
    scene.mTriangles[0].mVertices[1] = 4711;
    OctreeRun run({scene.getGeometry()}, {1.0f});
    run.buildTree();
    expectReports({"vertexID < mNumVertices\nError Message: Vertex id out of range: 4711"});
    EXPECT_EQ(voxelsOf(run).size(), 1u);
}

KORV_TEST(Octree, depthFollowsTheCubesAcross)
{
    VoxelScene scene(100, UP_Z); // a box of 200 units
    const struct
    {
        const char* mWhat;
        float mCubeSize;
        uint32 mDepth;
    } rows[] = {
        {"a hundred cubes", 2.0f, 7}, {"forty cubes", 5.0f, 6}, {"a power of two", 3.125f, 6},
        {"a little more", 3.124f, 7}, {"one cube", 200.0f, 0},  {"a cube larger than the box", 1000.0f, 0},
    };
    for (const auto& row : rows)
    {
        KORV_CONTEXT(row.mWhat);
        OctreeRun run({scene.getGeometry()}, {1.0f}, 0, 1, nullptr, row.mCubeSize);
        run.buildTree();
        EXPECT_EQ(run.mOctree->getDepth(), row.mDepth);
        EXPECT_EQ(run.mOctree->getDimension(), 1u << row.mDepth);
    }
    OctreeRun tooFine({scene.getGeometry()}, {1.0f}, 0, 1, nullptr, 1e-8f);
    Testing::expectThrow<Common::Exceptions::ArgumentException>([&] { tooFine.buildTree(); });
}

KORV_TEST(Octree, raysCountTheEmptyVoxelsPassed)
{
    VoxelScene scene(32, UP_Z);
    for (const auto& [v, w] : {std::pair(5, 3), std::pair(6, 30), std::pair(7, 31), std::pair(8, 0), std::pair(9, 2)})
        scene.addCell(5, v, w);
    OctreeRun run({scene.getGeometry()}, {1.0f});
    run.buildTree();
    const struct
    {
        const char* mWhat;
        int32 mV;
        int32 mW;
        int32 mStep;
        uint32 mLength;
        bool mHit;
        uint32 mPassed;
    } rows[] = {
        {"empty space", 4, 0, 1, 10, false, 10},
        {"a voxel above", 5, 0, 1, 10, true, 3},
        {"a voxel just out of reach", 5, 0, 1, 3, false, 3},
        {"the voxel it starts in", 5, 3, 1, 10, true, 0},
        {"from below the grid", 5, -3, 1, 10, true, 6},
        {"from below, not reaching the grid", 5, -3, 1, 2, false, 2},
        {"from above the grid", 5, 40, -1, 38, true, 37},
        {"from above, cut off below", 5, 40, -1, 50, true, 47},
        {"from above, going on up", 5, 40, 1, 10, false, 10},
        {"cut off at the end, what is cut counts", 6, 28, 1, 10, true, 9},
        {"the last cell is not looked at", 7, 28, 1, 10, false, 10},
        {"nor the first", 8, 4, -1, 10, false, 10},
        {"downwards, cut off", 9, 4, -1, 10, true, 8},
        {"beside the grid", 32, 0, 1, 10, false, 10},
    };
    for (const auto& row : rows)
    {
        KORV_CONTEXT(row.mWhat);
        Ray ray({5, row.mV, row.mW}, {0, 0, row.mStep}, row.mLength);
        EXPECT_EQ(run.mOctree->castRay(ray), row.mHit);
        EXPECT_EQ(ray.mHit != nullptr, row.mHit);
        EXPECT_EQ(ray.mLength, row.mPassed);
    }
}

KORV_TEST(Octree, reportsMalformedRaysAndTrails)
{
    VoxelScene scene(8, UP_Z);
    scene.addCell(1, 1, 5);
    OctreeRun run({scene.getGeometry()}, {1.0f});
    run.buildTree();
    const std::string oneComponent =
        "(dir.mY == 0 && dir.mZ == 0) || (dir.mX == 0 && dir.mZ == 0) || (dir.mX == 0 && dir.mY == 0)"
        "\nError Message: direction of the ray can only have one non-zero component";
    const std::string unit = "dir.getLength() == 1\nError Message: direction must be normalized";

    Ray longer({1, 1, 0}, {0, 0, 2}, 7);
    expectReports({unit});
    EXPECT_TRUE(run.mOctree->castRay(longer)) << "goes on with the axis and the sign";
    EXPECT_EQ(longer.mLength, 5u);
    Ray diagonal({1, 1, 5}, {1, 1, 0}, 7);
    expectReports({oneComponent, unit});
    EXPECT_TRUE(run.mOctree->castRay(diagonal));
    Ray none({1, 1, 5}, {0, 0, 0}, 7);
    expectReports({unit});
    EXPECT_FALSE(run.mOctree->castRay(none));

    Trail trail;
    for (uint32 i = 0; i < Trail::N_MAX_TRAIL; ++i)
        trail.append(1);
    expectReports({});
    trail.append(1);
    expectReports({"mCurrPos < N_MAX_TRAIL\nError Message: Index out of range"});
    EXPECT_EQ(trail.mCurrPos, Trail::N_MAX_TRAIL);
}

// Stopped at any call, or by a classifier: everything comes back and the pool is idle (its destructor would hang).
KORV_TEST(Octree, givesEverythingBackWhenARunEndsEarly)
{
    VoxelScene scene(128, UP_Z);
    for (int32 i = 0; i < 128 * 128; ++i)
        scene.addCell(i % 128, i / 128, 3);
    int call = 0;
    for (bool stopped = true; stopped; ++call)
    {
        StopAtCall receiver(call);
        OctreeRun run({scene.getGeometry()}, {1.0f}, 0, 2, &receiver);
        stopped = false;
        try
        {
            run.mOctree->buildMaxConnectedPolygons(run.mPolygons, UP_Z);
        }
        catch (RunCancelled*)
        {
            stopped = true;
        }
        EXPECT_TRUE(stopped || run.mPolygons.size() == 1);
    }
    EXPECT_GT(call, 10);

    ThrowingClassifier classifier;
    GeometryInfo geometry = scene.getGeometry();
    geometry.mClassifier = &classifier;
    OctreeRun run({geometry}, {1.0f});
    Testing::expectThrow<Common::Exceptions::NotSupportedException>(
        [&] { run.mOctree->buildMaxConnectedPolygons(run.mPolygons, UP_Z); });
}
