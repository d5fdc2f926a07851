#include "korv/common/geom/geomutility.h"
#include "korv/navmesh/surfaces/surfaceextraction.h"
#include "outlinechecks.h"
#include "support/test.h"

using namespace KORV;
using namespace KORV::NavMesh;
using Testing::OctreeRun;
using Testing::VoxelScene;

namespace
{
constexpr uint32 UP_Z = 1; // side 1 is +x, side 2 is +y

void fill(VoxelScene& scene, int32 u0, int32 v0, int32 u1, int32 v1, int32 w, bool walkable = true)
{
    for (int32 u = u0; u < u1; ++u)
    {
        for (int32 v = v0; v < v1; ++v)
            scene.addCell(u, v, w, walkable);
    }
}

bool isSame(const SurfacePolygonList& a, const SurfacePolygonList& b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](const SurfacePolygon& p, const SurfacePolygon& q) {
                          return p.mPoints == q.mPoints && p.mHeightClass == q.mHeightClass &&
                                 p.mSurfaceTypeID == q.mSurfaceTypeID;
                      });
}

struct Settings
{
    uint32 mAxis = UP_Z;
    std::vector<float> mHeights{4.0f, 8.0f};
    int32 mSplitDepth = 0;
    Rules mRules = Rules::SPECIFIED;
    bool mIsSplitDepthAutomatic = false;
    uint32 mNumThreads = 1;
};

std::unique_ptr<OctreeRun> runOn(VoxelScene& scene, const Settings& settings)
{
    auto run = std::make_unique<OctreeRun>(std::vector{scene.getGeometry()}, settings.mHeights, settings.mSplitDepth,
                                           settings.mNumThreads, nullptr, VoxelScene::CUBE_SIZE, settings.mRules,
                                           settings.mIsSplitDepthAutomatic);
    run->mOctree->buildMaxConnectedPolygons(run->mPolygons, settings.mAxis);
    EXPECT_EQ(run->mStatistics.mNumSurfaces, run->mPolygons.size());
    return run;
}

/// The stages that look at one voxel after the other.
std::unique_ptr<OctreeRun> runVoxelByVoxel(VoxelScene& scene, const Settings& settings)
{
    auto run = std::make_unique<OctreeRun>(std::vector{scene.getGeometry()}, settings.mHeights, settings.mSplitDepth);
    run->buildRawOutlines(settings.mAxis);
    for (SurfacePolygon& polygon : run->mPolygons)
        Common::Geom::RemoveCollinearPoints(polygon.mPoints, 0.017453292f);
    return run;
}

uint64 countCubes(const SurfacePolygonList& polygons, uint32 axis)
{
    int64 eighths = 0;
    for (const SurfacePolygon& polygon : polygons)
        eighths += Testing::areaInEighths(Testing::toHalves(polygon.mPoints), PLANE_DIRECTIONS[axis]);
    return static_cast<uint64>(eighths) / 8;
}

/// Ceilings of all heights close to the upper end of the grid, where rays are cut off.
void fillNearTheTop(VoxelScene& scene, int32 size, uint32 seed)
{
    std::mt19937 random(seed);
    for (int32 i = 0; i < size * size; ++i)
    {
        const int32 w = size - 1 - static_cast<int32>(random() % 10 == 0 ? random() % 3 : 3);
        scene.addCell(i % size, i / size, std::max(w, 0), random() % 8 != 0, random() % 20 == 0 ? 3 : 0);
        if (w + 1 < size && random() % 4 == 0)
            scene.addCell(i % size, i / size, std::min(w + 1 + static_cast<int32>(random() % 3), size - 1),
                          random() % 2 == 0);
    }
}
} // namespace

// On bits or voxel by voxel: the same outlines, point for point, for every axis, depth of the tree, split depth (also
// branches smaller than a brick) and height class, with and without a gap between classes.
KORV_TEST(SurfaceExtraction, givesWhatTheVoxelsGive)
{
    uint64 numOutlines = 0;
    for (uint32 seed = 0; seed < 400; ++seed)
    {
        KORV_CONTEXT("seed " << seed);
        Settings settings;
        settings.mAxis = seed % NUM_MAIN_AXES;
        settings.mSplitDepth = static_cast<int32>(seed / 6 % 8) - 1;
        if (seed % 5 == 0)
            settings.mHeights = {2.0f, 4.00005f, 8.0f, 10.0f};
        const int32 sizes[] = {1, 2, 4, 8, 16, 32};
        const int32 size = seed % 2 == 0 ? 32 : sizes[seed / 2 % 6];
        VoxelScene scene(size, settings.mAxis);
        if (seed % 2 == 0)
            Testing::fillRandomField(scene, 20, seed);
        else
            fillNearTheTop(scene, size, seed);
        const auto expected = runVoxelByVoxel(scene, settings);
        const auto bits = runOn(scene, settings);
        ASSERT_TRUE(SurfaceExtraction::isExact(*bits->mOctree));
        ASSERT_TRUE(isSame(bits->mPolygons, expected->mPolygons));
        settings.mNumThreads = 3;
        ASSERT_TRUE(isSame(runOn(scene, settings)->mPolygons, expected->mPolygons));
        numOutlines += bits->mPolygons.size();
    }
    EXPECT_GT(numOutlines, 10000u);
}

// Two thousand units from the origin a cube of 2 is well resolved, two hundred thousand are too far.
KORV_TEST(SurfaceExtraction, leavesLargeCoordinatesToTheVoxels)
{
    for (const float offset : {2000.0f, 200000.0f})
    {
        KORV_CONTEXT("offset " << offset);
        VoxelScene scene(32, UP_Z);
        Testing::fillRandomField(scene, 20, 3);
        for (Vec3<float>& vertex : scene.mVertices)
            vertex = vertex + Vec3<float>(offset, offset, offset);
        const auto run = runOn(scene, {});
        EXPECT_EQ(SurfaceExtraction::isExact(*run->mOctree), offset < 32768.0f);
        EXPECT_TRUE(isSame(run->mPolygons, runVoxelByVoxel(scene, {})->mPolygons));
    }
}

KORV_TEST(SurfaceExtraction, refinedCoversTheWalkableVoxelsOnce)
{
    for (uint32 seed = 0; seed < 100; ++seed)
    {
        KORV_CONTEXT("seed " << seed);
        Settings settings;
        settings.mAxis = seed % NUM_MAIN_AXES;
        settings.mSplitDepth = static_cast<int32>(seed / 6 % 8) - 1;
        settings.mRules = Rules::REFINED;
        settings.mIsSplitDepthAutomatic = seed % 3 != 0;
        settings.mHeights = {2.0f, 4.00005f, 8.0f};
        VoxelScene scene(32, settings.mAxis);
        if (seed % 2 == 0)
            Testing::fillRandomField(scene, 20, seed);
        else
            fillNearTheTop(scene, 32, seed);
        const auto run = runOn(scene, settings);
        EXPECT_EQ(countCubes(run->mPolygons, settings.mAxis), run->mStatistics.mNumWalkableVoxels);
        settings.mNumThreads = 2;
        EXPECT_TRUE(isSame(runOn(scene, settings)->mPolygons, run->mPolygons));
    }
}

// One cell of room under a roof in the grid's last layer: a ray that ends before it takes it for open sky.
KORV_TEST(SurfaceExtraction, refinedSeesALowRoofAtTheTopOfTheGrid)
{
    VoxelScene scene(8, UP_Z);
    fill(scene, 1, 1, 7, 7, 5);
    fill(scene, 1, 1, 4, 7, 7, false);
    Settings settings;
    settings.mHeights = {2.0f, 6.0f};
    const auto specified = runOn(scene, settings);
    ASSERT_EQ(specified->mPolygons.size(), 1u);
    EXPECT_EQ(specified->mPolygons.front().mHeightClass, 1u);

    settings.mRules = Rules::REFINED;
    const auto refined = runOn(scene, settings);
    ASSERT_EQ(refined->mPolygons.size(), 2u);
    EXPECT_EQ(refined->mPolygons.front().mHeightClass, 0u) << "under the roof";
    EXPECT_EQ(refined->mPolygons.back().mHeightClass, 1u) << "under the sky, though the grid ends";
}

// Nine cubes of 0.7 make a hair less than 6.3, but more than the 6.2999 at which the lower class ends.
KORV_TEST(SurfaceExtraction, refinedClassesHaveNoGap)
{
    HeightClassifier classifier(Common::Memory::getDefaultAllocator());
    for (const float height : {2.0f, 6.3f})
    {
        CharacterInfo character;
        character.mPhysicalHeight = height;
        classifier.insert(character);
    }
    classifier.finalizeIDs();
    const auto describe = [&classifier](Rules rules)
    {
        const HeightGroups heightGroups(classifier, 0.7f, rules, Common::Memory::getDefaultAllocator());
        std::vector<std::tuple<uint32, uint32, bool>> groups;
        for (const HeightGroups::Group& group : heightGroups.getGroups())
            groups.emplace_back(group.mLength, group.mHeightClass, group.mIsAlone);
        return groups;
    };
    using Groups = std::vector<std::tuple<uint32, uint32, bool>>;
    EXPECT_EQ(describe(Rules::SPECIFIED), (Groups{{3, 0, false}, {9, 0, true}, {10, 1, false}}));
    EXPECT_EQ(describe(Rules::REFINED), (Groups{{3, 0, false}, {10, 1, false}}));

    VoxelScene scene(8, UP_Z);
    fill(scene, 1, 1, 7, 7, 1);
    fill(scene, 1, 1, 7, 7, 4, false); // two cubes of room: 4.0
    Settings settings;
    settings.mHeights = {2.0f, 4.00005f};
    EXPECT_EQ(runOn(scene, settings)->mPolygons.size(), 36u);
    settings.mRules = Rules::REFINED;
    EXPECT_EQ(runOn(scene, settings)->mPolygons.size(), 1u);
}

KORV_TEST(SurfaceExtraction, refinedAutomaticSplitsSpareSmallSurfaces)
{
    const struct
    {
        const char* mWhat;
        int32 mSide;
        int32 mSplitDepth;
        bool mIsAutomatic;
        Rules mRules;
        size_t mOutlines;
    } rows[] = {
        {"small, specified", 10, 1, true, Rules::SPECIFIED, 4},
        {"small, chosen", 10, 1, false, Rules::REFINED, 4},
        {"small, automatic", 10, 1, true, Rules::REFINED, 1},
        {"144 voxels, automatic", 12, 1, true, Rules::REFINED, 4},
        {"small, branches of two voxels", 10, 5, true, Rules::REFINED, 1},
        {"144 voxels, branches of two voxels", 12, 5, true, Rules::REFINED, 36},
        {"small, deeper than the tree", 10, 9, true, Rules::REFINED, 1},
        {"144 voxels, deeper than the tree", 12, 9, true, Rules::REFINED, 144},
    };
    for (const auto& row : rows)
    {
        KORV_CONTEXT(row.mWhat);
        VoxelScene scene(64, UP_Z);
        fill(scene, 32 - row.mSide / 2, 32 - row.mSide / 2, 32 + row.mSide / 2, 32 + row.mSide / 2, 3);
        Settings settings;
        settings.mSplitDepth = row.mSplitDepth;
        settings.mIsSplitDepthAutomatic = row.mIsAutomatic;
        settings.mRules = row.mRules;
        const auto run = runOn(scene, settings);
        EXPECT_EQ(run->mPolygons.size(), row.mOutlines);
        EXPECT_EQ(countCubes(run->mPolygons, UP_Z), static_cast<uint64>(row.mSide * row.mSide));
    }
}
