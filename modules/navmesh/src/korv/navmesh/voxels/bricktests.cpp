// The tests of a triangle against all voxels of a brick together (see brickoverlaps).
//
// Numbers: u is the unit roundoff 6e-8, L the largest distance along an axis from a cube's centre to a corner, E the
// largest component of an edge. Corners seen from a centre are off by u L. The literal test asks about the triangle of
// these corners: on an axis made of edge components that add up to e, its projections are off by 6 u L e, compared with
// half a cube times e; here it is 10 u L e. A computed normal is off by 8 u E^2 each; its components add up to n. Seen
// from a centre, that and the projections come to 24 u L E^2 + 8 u L n, compared with half a cube times n; here it is
// 27 u L E^2 + 10 u L n. Seen from a point that the rounded triangle shares with a shrunk cube, which the literal test
// must find, it is 48 u E^3 + 8 u L n. The normals of the triangle and the rounded one differ by 24 u L E. The centres
// of octants are off by u times the largest coordinate from one level to the next, of which a brick has two; a block
// measures what it really is.

#include "korv/navmesh/voxels/bricktests.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

namespace KORV::NavMesh
{
namespace
{
constexpr uint32 EDGE = PlaneLayout::BRICK_EDGE;
constexpr uint32 ROW = 0xFF;
constexpr float TINY = 1e-15f; // [world units]

/// Sets of cubes: what the triangle touches when they are shrunk, and when they are grown.
template <class Bits>
struct Touched
{
    Bits mShrunk = 0;
    Bits mGrown = 0;

    void addRow(uint32 row, const Touched<uint32>& columns)
    {
        mShrunk |= Bits{columns.mShrunk} << (EDGE * row);
        mGrown |= Bits{columns.mGrown} << (EDGE * row);
    }
};

/// How far the centre of a cube may be from the triangle's projection on an axis to be touched: half of its edge, less
/// or more what rounding may come to.
struct Limits
{
    FloatLanes mShrunk;
    FloatLanes mGrown;

    Touched<uint32> compare(const FloatLanes (&distances)[2]) const
    {
        return {gatherBits(distances[0] <= mShrunk, distances[1] <= mShrunk),
                gatherBits(distances[0] <= mGrown, distances[1] <= mGrown)};
    }
};

/// Turns the lanes of a triangle's corners, of which the last is not used: each gets the next one's.
FloatLanes nextCorners(FloatLanes corners)
{
    return __builtin_shufflevector(corners, corners, 1, 2, 0, 3);
}

float largestOf(FloatLanes corners)
{
    return std::max(std::max(corners[0], corners[1]), corners[2]);
}

/// The axes that are seen along another, as columns and rows.
constexpr uint32 COLUMNS[3] = {V, U, U};
constexpr uint32 ROWS[3] = {W, W, V};

/// A triangle along an axis of the plane, seen from the brick's centre.
struct AxisLanes
{
    /// @param centre  of the brick.
    /// @param edge  of the largest octant that is tested, or of one around it.
    AxisLanes(FloatLanes corners, float centre, float edge)
        : mCorners(corners - centre), mFarthest(largestOf(absoluteLanes(mCorners)) + edge / 2.0f)
    {
    }

    /// The test along the axis.
    Touched<uint32> find(const float (&offsets)[EDGE], const Limits& limits) const
    {
        const float min = -largestOf(-mCorners);
        const float max = largestOf(mCorners);
        const FloatLanes middle = sameLanes((min + max) * 0.5f);
        const FloatLanes spread = sameLanes((max - min) * 0.5f);
        return limits.compare({absoluteLanes(middle - loadLanes(offsets)) - spread,
                               absoluteLanes(middle - loadLanes(offsets + NUM_LANES)) - spread});
    }

    FloatLanes mCorners;
    float mFarthest; // distance of a corner from the centre of a cube, at most
};

/// The tests in one of the planes that two axes span, along the normals of the three edges there. Distances are divided
/// by the sums of the edges' components, so that half a cube's edge is the limit of all.
class EdgeTests
{
public:
    /// @param along  the edges, see BrickTriangle.
    EdgeTests(const FloatLanes (&along)[2], const AxisLanes& x, const AxisLanes& y)
        : mAlongX(along[0]), mAlongY(along[1])
    {
        const FloatLanes here = mAlongX * y.mCorners - mAlongY * x.mCorners;
        const FloatLanes opposite =
            mAlongX * nextCorners(nextCorners(y.mCorners)) - mAlongY * nextCorners(nextCorners(x.mCorners));
        mMiddle = (here + opposite) * 0.5f;
        mSpread = absoluteLanes(here - opposite) * 0.5f;
    }

    /// Whether the triangle's projection holds all cubes, grown.
    /// @param farthest  largest offset of a cube's centre.
    bool holdsAll(float farthest, const Limits& limits) const
    {
        const FloatLanes length = absoluteLanes(mAlongX) + absoluteLanes(mAlongY); // 0 for what isn't an edge
        const MaskLanes holds = absoluteLanes(mMiddle) + length * (farthest + limits.mGrown) <= mSpread;
        return (gatherBits(holds, holds) & 7u) == 7u;
    }

    /// @param columns,rows  positions of the cubes.
    /// @param wanted  the rows to look at, which have no gaps.
    /// @return bit 8 * row + column.
    Touched<uint64> find(const float (&columns)[EDGE], const float (&rows)[EDGE], uint32 wanted,
                         const Limits& limits) const
    {
        FloatLanes ofColumns[3][2];
        for (uint32 edge = 0; edge < 3; ++edge)
        {
            for (uint32 half = 0; half < 2; ++half)
                ofColumns[edge][half] =
                    sameLanes(mMiddle[edge]) + sameLanes(mAlongY[edge]) * loadLanes(columns + NUM_LANES * half);
        }
        Touched<uint64> result;
        const uint32 end = static_cast<uint32>(std::bit_width(wanted));
        for (uint32 row = static_cast<uint32>(std::countr_zero(wanted)); row < end; ++row)
        {
            FloatLanes distances[2] = {};
            for (uint32 edge = 0; edge < 3; ++edge)
            {
                const FloatLanes ofRow = sameLanes(mAlongX[edge] * rows[row]);
                const FloatLanes spread = sameLanes(mSpread[edge]);
                for (uint32 half = 0; half < 2; ++half)
                    distances[half] =
                        largerLanes(distances[half], absoluteLanes(ofColumns[edge][half] - ofRow) - spread);
            }
            result.addRow(row, limits.compare(distances));
        }
        return result;
    }

private:
    FloatLanes mAlongX; // a lane for each edge
    FloatLanes mAlongY;
    FloatLanes mMiddle; // of the triangle's projection
    FloatLanes mSpread; // half its extent
};

/// The test along the triangle's normal, in the same units.
class PlaneTest
{
public:
    PlaneTest(const BrickTriangle& triangle, const AxisLanes (&axes)[3])
        : mNormal(triangle.mNormal), mDistance(mNormal[U] * axes[U].mCorners[0] + mNormal[V] * axes[V].mCorners[0] +
                                               mNormal[W] * axes[W].mCorners[0])
    {
    }

    /// The axis that the normal is closest to.
    uint32 getMainAxis() const
    {
        const float u = std::fabs(mNormal[U]);
        const float v = std::fabs(mNormal[V]);
        const float w = std::fabs(mNormal[W]);
        return w >= u && w >= v ? W : v >= u ? V : U;
    }

    /// @return bit 8 * row + column, of those rows of plane w that have cubes.
    Touched<uint64> find(const float (&offsets)[3][EDGE], uint32 w, uint64 cubes, const Limits& limits) const
    {
        const FloatLanes ofColumns[2] = {mDistance - mNormal[W] * offsets[W][w] - mNormal[U] * loadLanes(offsets[U]),
                                         mDistance - mNormal[W] * offsets[W][w] -
                                             mNormal[U] * loadLanes(offsets[U] + NUM_LANES)};
        Touched<uint64> result;
        for (uint32 row = 0; row < EDGE; ++row)
        {
            if (((cubes >> (EDGE * row)) & ROW) == 0)
                continue;
            const FloatLanes ofRow = sameLanes(mNormal[V] * offsets[V][row]);
            const FloatLanes distances[2] = {absoluteLanes(ofColumns[0] - ofRow), absoluteLanes(ofColumns[1] - ofRow)};
            result.addRow(row, limits.compare(distances));
        }
        return result;
    }

private:
    const float (&mNormal)[3];
    float mDistance; // of the plane from the brick's centre
};

/// What the tests along the axes say, and those along the normals of edges: the latter look at the brick from a side.
class SideViews
{
public:
    /// @return whether there may be anything to touch.
    bool findExtents(const AxisLanes (&axes)[3], const BrickVoxels& voxels, const Limits& limits)
    {
        for (uint32 i = 0; i < 3; ++i)
        {
            mExtents[i] = axes[i].find(voxels.mOffsets[i], limits);
            if (mExtents[i].mGrown == 0)
                return false;
        }
        return true;
    }

    /// Tests the edges seen along an axis.
    void look(uint32 axis, const BrickTriangle& triangle, const AxisLanes (&axes)[3], const BrickVoxels& voxels,
              const Limits& limits)
    {
        test(axis, EdgeTests(triangle.mAlong[axis], axes[COLUMNS[axis]], axes[ROWS[axis]]), voxels, limits);
    }

    /// Tests the edges seen along all axes. Where the triangle covers the brick, seen along its normal's main axis, its
    /// plane alone decides, and the other views are left out.
    void lookAlongNormal(uint32 axis, const BrickTriangle& triangle, const AxisLanes (&axes)[3],
                         const BrickVoxels& voxels, const Limits& limits)
    {
        const EdgeTests edges(triangle.mAlong[axis], axes[COLUMNS[axis]], axes[ROWS[axis]]);
        const float farthest = std::max(reach(voxels.mOffsets[COLUMNS[axis]]), reach(voxels.mOffsets[ROWS[axis]]));
        if (edges.holdsAll(farthest, limits))
            return;
        test(axis, edges, voxels, limits);
        look((axis + 1) % 3, triangle, axes, voxels, limits);
        look((axis + 2) % 3, triangle, axes, voxels, limits);
    }

    uint32 getLevels() const { return mExtents[W].mGrown; }
    /// What the views leave of plane w.
    Touched<uint64> getLevel(uint32 w) const
    {
        const auto atLevel = [w](uint64 uv, uint64 uw, uint64 vw, uint32 u, uint32 v) {
            return uv & (FIRST_COLUMN * (((uw >> (EDGE * w)) & u))) & toRows(static_cast<uint32>(vw >> (EDGE * w)) & v);
        };
        const bool isShrunk = ((mExtents[W].mShrunk >> w) & 1u) != 0;
        return {isShrunk ? atLevel(mViews[W].mShrunk, mViews[V].mShrunk, mViews[U].mShrunk, mExtents[U].mShrunk,
                                   mExtents[V].mShrunk)
                         : 0,
                atLevel(mViews[W].mGrown, mViews[V].mGrown, mViews[U].mGrown, mExtents[U].mGrown, mExtents[V].mGrown)};
    }

private:
    static float reach(const float (&offsets)[EDGE])
    {
        return std::max(std::fabs(offsets[0]), std::fabs(offsets[EDGE - 1]));
    }

    void test(uint32 axis, const EdgeTests& edges, const BrickVoxels& voxels, const Limits& limits)
    {
        mViews[axis] = edges.find(voxels.mOffsets[COLUMNS[axis]], voxels.mOffsets[ROWS[axis]],
                                  mExtents[ROWS[axis]].mGrown, limits);
    }

    static constexpr uint64 ALL = ~uint64{0};

    Touched<uint32> mExtents[3];
    Touched<uint64> mViews[3] = {{ALL, ALL}, {ALL, ALL}, {ALL, ALL}}; // along u, v and w; bit 8 * row + column
};

/// A triangle against all voxels of a brick, by real numbers as far as floats go.
class BrickTests
{
public:
    BrickTests(const BrickTriangle& triangle, const BrickVoxels& voxels, const LargestOctant& octant)
        : mTriangle(triangle), mVoxels(voxels), mAxes{{triangle.mCorners[U], voxels.mCentre[U], octant.mEdge},
                                                      {triangle.mCorners[V], voxels.mCentre[V], octant.mEdge},
                                                      {triangle.mCorners[W], voxels.mCentre[W], octant.mEdge}},
          mFarthest(std::max(std::max(mAxes[U].mFarthest, mAxes[V].mFarthest), mAxes[W].mFarthest)),
          mExtent(triangle.mTriangle.mExtent), mDrift(octant.mDrift)
    {
    }

    /// Finds the voxels that the triangle touches, see findVoxels.
    bool find(uint64 (&planes)[EDGE]) const
    {
        const bool isFlat = mTriangle.mFlatAxis != VoxelTriangle::NOT_FLAT;
        const float errors = isFlat ? boundErrors() : boundErrors(mTriangle.mNormalLength);
        if (!isSmall(errors))
            return false;
        const Limits limits = {sameLanes(mVoxels.mHalf - errors), sameLanes(mVoxels.mHalf + errors)};
        SideViews views;
        if (!views.findExtents(mAxes, mVoxels, limits))
            return true;
        if (isFlat)
        {
            views.look(mTriangle.mFlatAxis, mTriangle, mAxes, mVoxels, limits);
            return collect(views, nullptr, limits, planes);
        }
        const PlaneTest plane(mTriangle, mAxes);
        views.lookAlongNormal(plane.getMainAxis(), mTriangle, mAxes, mVoxels, limits);
        return collect(views, &plane, limits, planes);
    }

private:
    /// What all rounding errors come to, here and in the literal test, as a distance: see the numbers above, rounded up
    /// by a third.
    float boundErrors() const
    {
        if (mTriangle.mHasTinyEdge)
            return std::numeric_limits<float>::infinity();
        return ROUNDING * mFarthest * 20.0f + mDrift;
    }

    /// The same with a normal, given the sum of its components. Infinite for a triangle without area.
    float boundErrors(float normal) const
    {
        const float certain = normal - ROUNDING * mExtent * (24.0f * mFarthest + 48.0f * mExtent);
        if (!(certain > 0.0f))
            return std::numeric_limits<float>::infinity();
        return boundErrors() + ROUNDING * mExtent * mExtent * (51.0f * mFarthest + 48.0f * mExtent) / certain;
    }

    bool isSmall(float errors) const
    {
        constexpr float LARGEST_SHARE = 0.1f; // of half a voxel; with more, most triangles would be uncertain
        return errors < mVoxels.mHalf * LARGEST_SHARE;
    }

    /// Puts the answers together.
    /// @param plane  null when its test separates nothing.
    /// @return whether shrunk and grown voxels agree.
    bool collect(const SideViews& views, const PlaneTest* plane, const Limits& limits, uint64 (&planes)[EDGE]) const
    {
        const uint32 levels = views.getLevels();
        const uint32 end = static_cast<uint32>(std::bit_width(levels));
        for (uint32 w = static_cast<uint32>(std::countr_zero(levels)); w < end; ++w)
        {
            Touched<uint64> touched = views.getLevel(w);
            if (touched.mGrown != 0 && plane != nullptr)
            {
                const Touched<uint64> found = plane->find(mVoxels.mOffsets, w, touched.mGrown, limits);
                touched.mShrunk &= found.mShrunk;
                touched.mGrown &= found.mGrown;
            }
            if (touched.mShrunk != touched.mGrown)
                return false;
            planes[w] = touched.mGrown;
        }
        return true;
    }

    const BrickTriangle& mTriangle;
    const BrickVoxels& mVoxels;
    AxisLanes mAxes[3];
    float mFarthest;
    float mExtent;
    float mDrift;
};
} // namespace

BrickTriangle::BrickTriangle(const VoxelTriangle& triangle, const PlaneLayout& layout)
    : mTriangle(triangle),
      mFlatAxis(triangle.mFlatAxis != VoxelTriangle::NOT_FLAT ? layout.findPlaneAxis(triangle.mFlatAxis)
                                                              : VoxelTriangle::NOT_FLAT),
      mNormalLength(0.0f)
{
    MaskLanes areTiny = {};
    for (uint32 i = 0; i < 3; ++i)
    {
        const float(&positions)[3] = triangle.mPositions[layout.getAxis(static_cast<int>(i))];
        mCorners[i] = FloatLanes{positions[0], positions[1], positions[2], positions[2]};
        mEdges[i] = nextCorners(mCorners[i]) - mCorners[i];
        areTiny |= (mEdges[i] != 0.0f) & (absoluteLanes(mEdges[i]) < TINY);
    }
    mHasTinyEdge = gatherBits(areTiny, areTiny) != 0;
    for (uint32 i = 0; i < 3; ++i)
    {
        const FloatLanes x = mEdges[COLUMNS[i]];
        const FloatLanes y = mEdges[ROWS[i]];
        const FloatLanes length = absoluteLanes(x) + absoluteLanes(y);
        const MaskLanes isEdge = length > 0.0f; // one along the axis separates nothing
        const FloatLanes scale = isEdge ? 1.0f / length : FloatLanes{};
        mAlong[i][0] = x * scale;
        mAlong[i][1] = y * scale;
        const FloatLanes& p = mEdges[(i + 1) % 3];
        const FloatLanes& q = mEdges[(i + 2) % 3];
        mNormal[i] = p[0] * q[1] - q[0] * p[1];
        mNormalLength += std::fabs(mNormal[i]);
    }
    for (float& component : mNormal)
        component /= mNormalLength;
}

bool findVoxels(const BrickTriangle& triangle, const BrickVoxels& voxels, const LargestOctant& octant,
                uint64 (&planes)[EDGE])
{
    if (!std::isfinite(triangle.mTriangle.mExtent))
        return false;
    return BrickTests(triangle, voxels, octant).find(planes);
}
} // namespace KORV::NavMesh
