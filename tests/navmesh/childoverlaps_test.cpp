#include "korv/navmesh/voxels/childoverlaps.h"

#include "korv/common/geom/geomutility.h"
#include "korv/navmesh/voxels/leafcursor.h"
#include "support/test.h"

#include <array>
#include <cmath>
#include <random>

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
