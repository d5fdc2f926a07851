#include "outlinechecks.h"
#include "support/test.h"

using namespace KORV;
using namespace KORV::NavMesh;
using Testing::OctreeRun;
using Testing::OutlineCounts;
using Testing::VoxelScene;

namespace
{
constexpr uint32 UP_Z = 1; // side 1 is +x, side 2 is +y

void fill(VoxelScene& scene, int32 u0, int32 v0, int32 u1, int32 v1, int32 w = 2, uint16 type = 0)
{
    for (int32 u = u0; u < u1; ++u)
    {
        for (int32 v = v0; v < v1; ++v)
            scene.addCell(u, v, w, true, type);
    }
}

/// Outlines of a scene, straightened.
std::vector<SurfacePolygon> outlinesOf(VoxelScene& scene, uint32 axis, const std::vector<float>& heights,
                                       int32 splitDepth = 0, uint32 numThreads = 1)
{
    OctreeRun run({scene.getGeometry()}, heights, splitDepth, numThreads);
    run.mOctree->buildMaxConnectedPolygons(run.mPolygons, axis);
    EXPECT_EQ(run.mStatistics.mNumSurfaces, run.mPolygons.size());
    return {run.mPolygons.begin(), run.mPolygons.end()};
}

int64 doubleAreaInCubes(const SurfacePolygon& polygon, uint32 axis)
{
    return Testing::areaInEighths(Testing::toHalves(polygon.mPoints), PLANE_DIRECTIONS[axis]) / 4;
}
} // namespace

KORV_TEST(Outlines, ofASquareAreItsFourCornersOnTheTopFaceCounterClockwise)
{
    VoxelScene scene(8, UP_Z);
    fill(scene, 1, 2, 4, 5);
    const auto outlines = outlinesOf(scene, UP_Z, {1.0f});
    ASSERT_EQ(outlines.size(), 1u);
    const Vector<Vec3<float>> expected{
        {8.0f, 4.0f, 6.0f}, {8.0f, 10.0f, 6.0f}, {2.0f, 10.0f, 6.0f}, {2.0f, 4.0f, 6.0f}};
    auto points = outlines[0].mPoints;
    ASSERT_EQ(points.size(), 4u);
    std::rotate(points.begin(), std::find(points.begin(), points.end(), expected[0]), points.end());
    EXPECT_EQ(points, expected);
    EXPECT_EQ(outlines[0].mHeightClass, 0u);

    for (uint32 axis = 0; axis < NUM_MAIN_AXES; ++axis)
    {
        KORV_CONTEXT("axis " << axis);
        VoxelScene turned(8, axis);
        fill(turned, 1, 2, 4, 5);
        const auto turnedOutlines = outlinesOf(turned, axis, {1.0f});
        ASSERT_EQ(turnedOutlines.size(), 1u);
        EXPECT_EQ(turnedOutlines[0].mPoints.size(), 4u);
        EXPECT_EQ(doubleAreaInCubes(turnedOutlines[0], axis), 2 * 9);
    }
}

KORV_TEST(Outlines, ofASquareWithAHoleRunToAndFroOverABridge)
{
    VoxelScene scene(8, UP_Z);
    fill(scene, 0, 0, 2, 5);
    fill(scene, 3, 0, 5, 5);
    fill(scene, 2, 0, 3, 2);
    fill(scene, 2, 3, 3, 5);
    OctreeRun run({scene.getGeometry()}, {1.0f});
    run.buildRawOutlines(UP_Z);
    ASSERT_EQ(run.mPolygons.size(), 1u);
    const auto outline = Testing::toHalves(run.mPolygons.front().mPoints);
    // The hole's corners are (2..3, 2..3), at 4 and 6 halves; its walk comes in at one of them and leaves there.
    int holeCorners = 0;
    std::map<std::pair<int32, int32>, int> centres;
    for (const auto& p : outline)
    {
        holeCorners += p.mX >= 4 && p.mX <= 6 && p.mY >= 4 && p.mY <= 6 && p.mX % 2 == 0 && p.mY % 2 == 0 ? 1 : 0;
        if (p.mX % 2 != 0)
            ++centres[{p.mX, p.mY}];
        EXPECT_EQ(p.mZ, 6);
    }
    EXPECT_EQ(holeCorners, 4 + 1);
    EXPECT_EQ(centres.size(), 2u);
    for (const auto& [centre, count] : centres)
        EXPECT_EQ(count, 2);
    EXPECT_EQ(outline.size(), 20u + 1u + 4u + 1u + 2u * 2u);
}

// Every field has one outline for each surface, of exactly its area; and where the straightforward way with one set of
// links and a stack works at all, the very same points.
KORV_TEST(Outlines, areRightOnRandomFields)
{
    OutlineCounts counts;
    for (uint32 seed = 0; seed < 600; ++seed)
    {
        KORV_CONTEXT("seed " << seed);
        const uint32 axis = seed % NUM_MAIN_AXES;
        VoxelScene scene(32, axis);
        Testing::fillRandomField(scene, 20, seed);
        OctreeRun run({scene.getGeometry()}, {4.0f, 8.0f}, static_cast<int32>(seed / 6 % 4) - 1);
        run.buildRawOutlines(axis);
        checkOutlines(run, axis, counts);
        ASSERT_EQ(counts.mWrongNumbers, 0u);
        ASSERT_EQ(counts.mWrongAreas, 0u);
        ASSERT_EQ(counts.mDifferent, 0u);
    }
    EXPECT_GT(counts.mWithHoles, 500u);
    EXPECT_GT(counts.mLiteralFails, 20u) << "the fields no longer hold what makes bridges hard";
}

// Bridges that share border voxels, voxels between two holes that also end a bridge, holes that touch at corners.
KORV_TEST(Outlines, ofPillarHallsCoverTheFloorOnce)
{
    for (int32 pitch = 2; pitch < 8; ++pitch)
    {
        for (int32 shift = 0; shift < pitch; ++shift)
        {
            KORV_CONTEXT("pitch " << pitch << ", shift " << shift);
            VoxelScene scene(32, UP_Z);
            int64 numCells = 0;
            for (int32 i = 0; i < 30 * 30; ++i)
            {
                const int32 u = i % 30, v = i / 30;
                const bool isInterior = u > 0 && v > 0 && u < 29 && v < 29;
                if (isInterior && u % pitch == pitch - 1 && (v + shift * (u / pitch)) % pitch == pitch - 1)
                    continue;
                scene.addCell(u, v, 2);
                ++numCells;
            }
            const auto outlines = outlinesOf(scene, UP_Z, {1.0f}, -1);
            int64 doubleArea = 0;
            for (const SurfacePolygon& outline : outlines)
                doubleArea += doubleAreaInCubes(outline, UP_Z);
            EXPECT_EQ(doubleArea, 2 * numCells);
            EXPECT_EQ(outlines.size(), 1u);
        }
    }
}

KORV_TEST(Outlines, separateTypesHeightClassesAndLevels)
{
    VoxelScene types(16, UP_Z);
    fill(types, 1, 1, 4, 4, 2, 0);
    fill(types, 4, 1, 7, 4, 2, 5);
    const auto byType = outlinesOf(types, UP_Z, {1.0f});
    ASSERT_EQ(byType.size(), 2u);
    EXPECT_EQ(byType[0].mSurfaceTypeID + byType[1].mSurfaceTypeID, 5);

    VoxelScene heights(16, UP_Z);
    fill(heights, 1, 1, 7, 4);
    for (int32 i = 0; i < 9; ++i)
        heights.addCell(1 + i % 3, 1 + i / 3, 5, false); // two cubes of room
    const auto byHeight = outlinesOf(heights, UP_Z, {4.0f, 6.0f});
    ASSERT_EQ(byHeight.size(), 2u);
    EXPECT_EQ(byHeight[0].mHeightClass + byHeight[1].mHeightClass, 1u);
    EXPECT_EQ(outlinesOf(heights, UP_Z, {6.0f}).size(), 1u) << "too low for anybody";
    EXPECT_EQ(outlinesOf(heights, UP_Z, {}).size(), 0u) << "nobody to walk there";

    VoxelScene levels(16, UP_Z);
    fill(levels, 1, 1, 4, 4, 2);
    fill(levels, 4, 1, 7, 4, 3);
    EXPECT_EQ(outlinesOf(levels, UP_Z, {1.0f}).size(), 2u);
    fill(levels, 1, 1, 4, 4, 3); // covers the first square
    EXPECT_EQ(outlinesOf(levels, UP_Z, {1.0f}).size(), 1u);
}

// A free height just below the next class belongs to no interval. Seen from one side such voxels would join.
KORV_TEST(Outlines, heightsInTheGapBetweenClassesJoinNobody)
{
    VoxelScene scene(8, UP_Z);
    fill(scene, 1, 1, 7, 7, 1);
    for (int32 u = 1; u < 7; ++u)
    {
        for (int32 v = 1; v < 7; ++v)
            scene.addCell(u, v, (u + v) % 4 == 0 ? 4 : 3, false);
    }
    OctreeRun run({scene.getGeometry()}, {2.0f, 4.00005f});
    run.buildRawOutlines(UP_Z);
    OutlineCounts counts;
    checkOutlines(run, UP_Z, counts);
    EXPECT_EQ(counts.mWrongNumbers + counts.mWrongAreas, 0u);
    EXPECT_GE(counts.mSurfaces, 9u);
}

KORV_TEST(Outlines, stayWithinTheBranchesOfTheSplitDepth)
{
    VoxelScene scene(16, UP_Z);
    fill(scene, 0, 0, 16, 16);
    const struct
    {
        int32 mSplitDepth;
        size_t mSurfaces;
    } rows[] = {{-1, 1}, {0, 1}, {1, 4}, {2, 16}, {4, 256}, {5, 256}};
    for (const auto& row : rows)
    {
        KORV_CONTEXT("split depth " << row.mSplitDepth);
        const auto outlines = outlinesOf(scene, UP_Z, {1.0f}, row.mSplitDepth);
        EXPECT_EQ(outlines.size(), row.mSurfaces);
        for (const SurfacePolygon& outline : outlines)
        {
            EXPECT_EQ(outline.mPoints.size(), 4u);
            EXPECT_EQ(doubleAreaInCubes(outline, UP_Z), int64{2} * 256 / static_cast<int64>(row.mSurfaces));
        }
    }
}

// Near the end of the grid rays over-report, which must not let a join depend on who is asked first.
KORV_TEST(Outlines, areTheSameForAnyNumberOfWorkers)
{
    for (uint32 seed = 0; seed < 20; ++seed)
    {
        KORV_CONTEXT("seed " << seed);
        std::mt19937 random(seed);
        VoxelScene scene(64, seed % NUM_MAIN_AXES);
        for (int32 i = 0; i < 64 * 64; ++i)
        {
            scene.addCell(i % 64, i / 64, 60, random() % 8 != 0);
            if (random() % 4 == 0)
                scene.addCell(i % 64, i / 64, 61 + static_cast<int32>(random() % 3), random() % 2 == 0);
        }
        const auto one = outlinesOf(scene, seed % NUM_MAIN_AXES, {2.0f, 4.0f, 10.0f}, 1, 1);
        EXPECT_GT(one.size(), 10u);
        for (const uint32 numThreads : {2u, 5u})
        {
            const auto many = outlinesOf(scene, seed % NUM_MAIN_AXES, {2.0f, 4.0f, 10.0f}, 1, numThreads);
            const bool isSame = std::equal(one.begin(), one.end(), many.begin(), many.end(),
                                           [](auto& a, auto& b) {
                                               return a.mPoints == b.mPoints && a.mHeightClass == b.mHeightClass &&
                                                      a.mSurfaceTypeID == b.mSurfaceTypeID;
                                           });
            EXPECT_TRUE(isSame);
        }
    }
}

KORV_TEST(Outlines, logTheirStepsInOrder)
{
    VoxelScene scene(8, UP_Z);
    fill(scene, 1, 1, 4, 4);
    OctreeRun run({scene.getGeometry()}, {1.0f});
    mTraces.clear();
    run.mOctree->buildMaxConnectedPolygons(run.mPolygons, UP_Z);
    EXPECT_EQ(run.mStatistics.mNumVoxels, 9u);
    EXPECT_EQ(run.mStatistics.mNumWalkableVoxels, 9u);
    EXPECT_EQ(run.mStatistics.mOctreeDepth, 3u);

    const std::string tree = "KORV::NavMesh::NavMeshOctree::buildTree : ";
    const std::string polygons = "KORV::NavMesh::NavMeshOctree::buildMaxConnectedPolygons : ";
    const std::vector<std::pair<std::string, bool>> expected = {
        {tree + "------------- Octree statistics ---------------", false},
        {tree + "Number of inner octants: 6", false},
        {tree + "Bytes of inner octants: 48", false},
        {tree + "Number of leaf octants: 9", false},
        {tree + "Bytes of leaf octants: 72", false},
        {tree + "Bytes of complete octree: 120", false},
        {tree + "Dimension: 8 / 8 / 8", false},
        {tree + "Percentage filled: 1.75781 %", false},
        {tree + "------------------------------------------------", false},
        {polygons + "Build Octree", true},
        {polygons + "Build NeighbourBits", false},
        {polygons + "Mark Face Border", false},
        {polygons + "built borders: 1", false},
        {polygons + "find merge positions", false},
        {polygons + "Find Merge Positions", true},
        {polygons + "build final borders", false},
        {std::string(4, '\0'), false},
        {polygons + "Build Final Polygons", true},
    };
    ASSERT_EQ(mTraces.size(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i)
    {
        const auto& [text, isTimed] = expected[i];
        const std::string start = isTimed ? text + " Time used: " : text;
        EXPECT_EQ(mTraces[i].mType, text.size() == 4 ? 9u : 1u);
        EXPECT_EQ(isTimed ? mTraces[i].mText.substr(0, start.size()) : mTraces[i].mText, start);
    }
}

KORV_TEST(Outlines, ofNothingAreNone)
{
    OctreeRun empty({}, {1.0f});
    empty.mOctree->buildMaxConnectedPolygons(empty.mPolygons, UP_Z);
    EXPECT_TRUE(empty.mPolygons.empty());
    EXPECT_EQ(empty.mStatistics.mNumVoxels, 0u);

    VoxelScene noTriangles(8, UP_Z);
    EXPECT_TRUE(outlinesOf(noTriangles, UP_Z, {1.0f}).empty());
    VoxelScene notWalkable(8, UP_Z);
    notWalkable.addCell(1, 1, 1, false);
    EXPECT_TRUE(outlinesOf(notWalkable, UP_Z, {1.0f}).empty());
}
