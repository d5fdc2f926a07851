#include "korv/navmesh/voxels/blockbricks.h"

#include "korv/common/geom/geomutility.h"
#include "korv/navmesh/voxels/leafcursor.h"
#include "support/test.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <vector>

using namespace KORV;
using namespace KORV::NavMesh;

namespace
{
using Corners = Vec3<float>[3];

/// An octant somewhere, and triangles around it of every kind that is decided in a way of its own.
class TriangleSource
{
public:
    explicit TriangleSource(uint32 seed) : mRandom(seed)
    {
        const float scales[] = {0.01f, 0.3f, 1.0f, 64.0f, 3e4f, 1e12f, 1e30f};
        mEdge = scales[pick(std::size(scales))];
        for (int i = 0; i < 3; ++i)
            mCentre[i] = pick(3) == 0 ? 0.0f : uniform(-200.0f, 200.0f) * (pick(2) == 0 ? 1.0f : mEdge);
        mOrdinary = std::fabs(mCentre.mX) + std::fabs(mCentre.mY) + std::fabs(mCentre.mZ) + mEdge < ORDINARY_REACH;
    }

    void makeTriangle(Corners& corners)
    {
        const float sizes[] = {0.05f, 0.4f, 1.0f, 3.0f, 40.0f, 5000.0f};
        const float size = mEdge * sizes[pick(std::size(sizes))];
        for (Vec3<float>& corner : corners)
        {
            for (int i = 0; i < 3; ++i)
                corner[i] = mCentre[i] + uniform(-size, size);
        }
        switch (pick(8))
        {
        case 0: // on the children's faces and corners, or as far beyond as they are enlarged
        case 1:
            for (Vec3<float>& corner : corners)
                snap(corner);
            break;
        case 2: // no area
            corners[2] = pick(2) == 0 ? corners[1] : corners[0] * 0.5f + corners[1] * 0.5f;
            break;
        case 3:
            corners[pick(3)][static_cast<int>(pick(3))] = pick(2) == 0 ? NAN : uniform(-1.0f, 1.0f) * 3e38f;
            break;
        default:
            break;
        }
        if (pick(2) == 0) // flat
        {
            const int axis = static_cast<int>(pick(3));
            for (Vec3<float>& corner : corners)
                corner[axis] = corners[0][axis];
        }
    }

    /// Moves a triangle to where it just touches one of the equal cubes that fill the octant, or just does not.
    void moveToContact(Corners& corners, uint32 cubesAcross)
    {
        const float edge = mEdge / static_cast<float>(cubesAcross);
        Vec3<float> cube;
        Vec3<float> step;
        for (int i = 0; i < 3; ++i)
        {
            cube[i] = mCentre[i] + (static_cast<float>(pick(cubesAcross)) + 0.5f) * edge - mEdge / 2.0f;
            step[i] = uniform(-mEdge, mEdge);
        }
        const Corners start = {corners[0], corners[1], corners[2]};
        float touching = 0.0f;
        float apart = 8.0f;
        for (int i = 0; i < 40; ++i)
        {
            const float middle = (touching + apart) / 2.0f;
            for (int k = 0; k < 3; ++k)
                corners[k] = start[k] + step * middle;
            const bool touches =
                Common::Geom::TriangleBoxOverlap(corners[0], corners[1], corners[2], cube, edge + 0.0001f);
            (touches ? touching : apart) = middle;
        }
    }

    uint32 pick(size_t count) { return static_cast<uint32>(mRandom() % count); }

    Vec3<float> mCentre;
    float mEdge;
    bool mOrdinary;

private:
    float uniform(float low, float high) { return std::uniform_real_distribution<float>(low, high)(mRandom); }

    void snap(Vec3<float>& corner)
    {
        for (int i = 0; i < 3; ++i)
        {
            const float step = mEdge / 4.0f;
            const float margin = static_cast<float>(static_cast<int>(pick(3)) - 1) * 0.00005f;
            corner[i] = mCentre[i] + std::round((corner[i] - mCentre[i]) / step) * step + margin;
        }
    }

    std::mt19937 mRandom;
};

uint32 findTouchedOneByOne(const Vec3<float>& centre, float edge, const Corners& corners)
{
    uint32 touched = 0;
    for (uint32 k = 0; k < NUM_CHILDREN; ++k)
    {
        Vec3<float> child = centre;
        for (int i = 0; i < 3; ++i)
            child[i] += CHILD_CORNERS[k][i] != 0 ? edge / 4.0f : -(edge / 4.0f);
        if (Common::Geom::TriangleBoxOverlap(corners[0], corners[1], corners[2], child, edge / 2.0f + 0.0001f))
            touched |= 1u << k;
    }
    return touched;
}

/// Goes down an octant by the literal test, and calls a function with each octant touched: the levels below it, and its
/// rank among those of its size in the order of the octree.
template <class Function>
void descend(const Corners& corners, const Vec3<float>& centre, float edge, uint32 levels, uint32 rank,
             const Function& function)
{
    const uint32 touched = findTouchedOneByOne(centre, edge, corners);
    const ChildCubes cubes(centre, edge);
    for (uint32 k = 0; k < NUM_CHILDREN; ++k)
    {
        if (((touched >> k) & 1u) == 0)
            continue;
        const uint32 child = rank * NUM_CHILDREN + k;
        function(levels - 1, child);
        if (levels > 1)
            descend(corners, cubes.getCentre(k), edge / 2.0f, levels - 1, child, function);
    }
}

BrickOverlaps findOneByOne(const PlaneLayout& layout, const Corners& corners, const Vec3<float>& centre, float edge)
{
    BrickOverlaps found;
    const auto add = [&](uint32 levels, uint32 rank)
    {
        const uint32 cell = layout.getCell(rank << (3 * levels));
        const uint32 u = cell % 8;
        const uint32 v = cell / 8 % 8;
        const uint32 w = cell / 64;
        if (levels == 0)
            found.mVoxels[w] |= uint64{1} << (8 * v + u);
        else if (levels == 1)
            found.mParents |= uint64{1} << (16 * (w / 2) + 4 * (v / 2) + u / 2);
        else
            found.mChildren |= uint64{1} << (16 * (w / 4 * 2) + 4 * (v / 4 * 2) + u / 4 * 2);
    };
    descend(corners, centre, edge, PlaneLayout::BRICK_LEVELS, 0, add);
    return found;
}

std::vector<uint32> listVoxels(const BlockBricks& bricks, const PlaneLayout& layout, uint32 brickLevels)
{
    std::vector<uint32> ranks;
    const auto list = [&](const VoxelBrick& brick)
    {
        uint32 rank = 0;
        for (uint32 level = brickLevels; level-- > 0;)
            rank = rank * NUM_CHILDREN + childOnLevel(brick.mPosition, level);
        for (uint32 cell = 0; cell < PlaneLayout::BRICK_VOXELS; ++cell)
        {
            if (((brick.mOccupied[cell / 64] >> (cell % 64)) & 1u) != 0)
                ranks.push_back(rank * PlaneLayout::BRICK_VOXELS + layout.getRank(cell));
        }
    };
    bricks.forEachBrick(list);
    std::sort(ranks.begin(), ranks.end());
    return ranks;
}

/// Checks an octant and some way down, where a triangle may be known to span the octant.
void expectSameBelow(const VoxelTriangle& triangle, const Corners& corners, const Vec3<float>& centre, float edge,
                     bool covers, uint32 levels, std::array<uint32, 2>& counts)
{
    ChildCubes cubes(centre, edge);
    const ChildCubes::Overlaps found = cubes.find(triangle, covers);
    ASSERT_EQ(found.mTouched, findTouchedOneByOne(centre, edge, corners)) << "levels left: " << levels;
    ASSERT_EQ(found.mCovered & ~found.mTouched, 0u);
    ++counts[covers ? 1 : 0];
    for (uint32 k = 0; k < NUM_CHILDREN && levels > 0; ++k)
    {
        if (((found.mTouched >> k) & 1u) != 0)
            expectSameBelow(triangle, corners, cubes.getCentre(k), edge / 2.0f, ((found.mCovered >> k) & 1u) != 0,
                            levels - 1, counts);
    }
}
} // namespace

KORV_TEST(ChildOverlaps, agreeWithTheTestOfOneCube)
{
    std::array<uint32, 2> counts = {};
    uint32 touched = 0;
    for (uint32 seed = 0; seed < 3000; ++seed)
    {
        KORV_CONTEXT("seed " << seed);
        TriangleSource source(seed);
        for (int n = 0; n < 20; ++n)
        {
            Corners corners;
            source.makeTriangle(corners);
            const VoxelTriangle triangle({}, corners, source.mOrdinary);
            expectSameBelow(triangle, corners, source.mCentre, source.mEdge, false, n == 0 ? 3 : 1, counts);
            ChildCubes cubes(source.mCentre, source.mEdge);
            touched += cubes.find(triangle, false).mTouched != 0 ? 1 : 0;
        }
    }
    EXPECT_GT(touched, 20000u);
    EXPECT_GT(counts[1], 1000u) << "octants that a triangle covers";
}

// All levels of a brick at once, for every direction that may be up; many triangles are at the very edge of touching.
KORV_TEST(BrickOverlaps, agreeWithTheWayDown)
{
    uint32 numTouching = 0;
    for (uint32 seed = 0; seed < 1500; ++seed)
    {
        KORV_CONTEXT("seed " << seed);
        TriangleSource source(seed);
        const PlaneLayout layout(PlaneLayout::BRICK_LEVELS, seed % NUM_MAIN_AXES);
        const BrickCubes cubes(layout, source.mCentre, source.mEdge);
        for (uint32 n = 0; n < 20; ++n)
        {
            Corners corners;
            source.makeTriangle(corners);
            if (n % 2 == 0)
                source.moveToContact(corners, 2u << n % 3);
            const BrickOverlaps expected = findOneByOne(layout, corners, source.mCentre, source.mEdge);
            const VoxelTriangle triangle({}, corners, source.mOrdinary);
            const BrickOverlaps found = cubes.find(BrickTriangle(triangle, layout), false);
            ASSERT_EQ(found.mChildren, expected.mChildren);
            ASSERT_EQ(found.mParents, expected.mParents);
            ASSERT_TRUE(std::equal(std::begin(found.mVoxels), std::end(found.mVoxels), expected.mVoxels));
            numTouching += found.mChildren != 0 ? 1 : 0;
        }
    }
    EXPECT_GT(numTouching, 10000u);
}

// Triangles as small as a voxel and up to some bricks long, most of which are decided by their box.
KORV_TEST(BlockBricks, agreeWithTheWayDown)
{
    uint32 numTouching = 0;
    for (uint32 seed = 0; seed < 600; ++seed)
    {
        KORV_CONTEXT("seed " << seed);
        TriangleSource source(seed);
        const uint32 depth = 3 + seed % 4;
        const PlaneLayout layout(depth, seed % NUM_MAIN_AXES);
        BlockBricks bricks(Common::Memory::getDefaultAllocator());
        for (uint32 n = 0; n < 20; ++n)
        {
            Corners corners;
            source.makeTriangle(corners);
            for (Vec3<float>& corner : corners)
                corner = corners[0] + (corner - corners[0]) * (n % 2 == 0 ? 0.1f : 1.0f);
            if (n % 4 == 0)
                source.moveToContact(corners, 1u << depth);
            bricks.start(source.mCentre, source.mEdge, depth, layout);
            bricks.addTriangle(corners, {});
            bricks.finish();
            std::vector<uint32> voxels;
            uint64 numInnerOctants = 0;
            const auto list = [&](uint32 levels, uint32 rank)
            { levels == 0 ? voxels.push_back(rank) : void(++numInnerOctants); };
            descend(corners, source.mCentre, source.mEdge, depth, 0, list);
            ASSERT_EQ(listVoxels(bricks, layout, depth - PlaneLayout::BRICK_LEVELS), voxels);
            ASSERT_EQ(bricks.countInnerOctants(), numInnerOctants);
            numTouching += voxels.empty() ? 0 : 1;
        }
    }
    EXPECT_GT(numTouching, 3000u);
}
