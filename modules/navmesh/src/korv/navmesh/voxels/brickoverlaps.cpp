// Which voxels of a brick a triangle touches, all 512 tests together.
//
// Idea: by real numbers the separating-axis test is cheap for many equal cubes. A test along an edge times a coordinate
// axis looks at two coordinates of a cube only, so 64 answers in each of three planes serve all 512 cubes; the
// triangle's plane is asked for what is left, a slab about it. Rounding makes the literal test (childoverlaps) differ
// from that by very little, so the cubes are tested twice: shrunk and grown by more than all rounding errors come to.
// Where both find the same voxels, that is what the literal test finds; a triangle for which they differ goes down the
// octree by the literal test.
//
// The octants above are settled with the voxels. One with a shrunk voxel that the triangle touches is touched by the
// literal test, too; and where the literal test finds it touched, the triangle has a point in it or next to it, so it
// touches one of the grown voxels.
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

#include "korv/navmesh/voxels/brickoverlaps.h"

#include "korv/navmesh/voxels/leafcursor.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace KORV::NavMesh
{
namespace
{
constexpr uint32 U = 0;
constexpr uint32 V = 1;
constexpr uint32 W = 2;
constexpr uint32 EDGE = PlaneLayout::BRICK_EDGE;
constexpr float UNIT = 8e-8f; // the unit roundoff, rounded up by a third
constexpr uint64 COLUMN = 0x0101010101010101;
constexpr uint32 ROW = 0xFF;
constexpr uint64 FIRST_PARTS = 0x0000050500000505; // of the octants of 4 voxels a side

/// Rows of a plane as a whole.
uint64 toRows(uint32 rows)
{
    constexpr uint32 ROWS[16] = {0x00000000, 0x000000FF, 0x0000FF00, 0x0000FFFF, 0x00FF0000, 0x00FF00FF,
                                 0x00FFFF00, 0x00FFFFFF, 0xFF000000, 0xFF0000FF, 0xFF00FF00, 0xFF00FFFF,
                                 0xFFFF0000, 0xFFFF00FF, 0xFFFFFF00, 0xFFFFFFFF};
    return ROWS[rows % 16] | uint64{ROWS[rows / 16]} << 32;
}

/// The octants of 2 voxels a side that have voxels in two planes, bit 4 * v + u.
uint64 toParents(uint64 low, uint64 high)
{
    uint64 bits = low | high;
    bits |= bits >> 8;
    bits = (bits | bits >> 1) & 0x0055005500550055;
    bits = (bits | bits >> 1) & 0x0033003300330033;
    bits = (bits | bits >> 2) & 0x000F000F000F000F;
    return (bits | bits >> 12 | bits >> 24 | bits >> 36) & 0xFFFF;
}

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

/// The voxels of a brick, from its centre.
struct BrickVoxels
{
    const float (&mOffsets)[3][EDGE]; // along u, v and w
    float mHalf;                      // of a voxel's edge, enlarged
    float mDrift;                     // how far off the centres of two octants are at most, together
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
        const auto atLevel = [w](uint64 uv, uint64 uw, uint64 vw, uint32 u, uint32 v)
        { return uv & (COLUMN * (((uw >> (EDGE * w)) & u))) & toRows(static_cast<uint32>(vw >> (EDGE * w)) & v); };
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
    BrickTests(const BrickTriangle& triangle, const PlaneLayout& layout, const Vec3<float>& centre, float edge)
        : mTriangle(triangle), mAxes{{triangle.mCorners[U], centre[layout.getAxis(U)], edge},
                                     {triangle.mCorners[V], centre[layout.getAxis(V)], edge},
                                     {triangle.mCorners[W], centre[layout.getAxis(W)], edge}},
          mFarthest(std::max(std::max(mAxes[U].mFarthest, mAxes[V].mFarthest), mAxes[W].mFarthest)),
          mExtent(triangle.mTriangle.mExtent)
    {
    }

    /// Finds the voxels that a flat triangle touches.
    /// @param flat  the axis, of u, v and w, along which it has no extent.
    /// @param planes  gets them.
    /// @return whether they are certain.
    bool findFlat(uint32 flat, const BrickVoxels& voxels, uint64 (&planes)[EDGE]) const
    {
        const float errors = boundErrors(voxels.mDrift);
        if (!isSmall(errors, voxels))
            return false;
        const Limits limits = {sameLanes(voxels.mHalf - errors), sameLanes(voxels.mHalf + errors)};
        SideViews views;
        if (!views.findExtents(mAxes, voxels, limits))
            return true;
        views.look(flat, mTriangle, mAxes, voxels, limits);
        return collect(views, nullptr, voxels, limits, planes);
    }

    /// The same for one that isn't flat.
    bool find(const BrickVoxels& voxels, uint64 (&planes)[EDGE]) const
    {
        const PlaneTest plane(mTriangle, mAxes);
        const float errors = boundErrors(voxels.mDrift, mTriangle.mNormalLength);
        if (!isSmall(errors, voxels))
            return false;
        const Limits limits = {sameLanes(voxels.mHalf - errors), sameLanes(voxels.mHalf + errors)};
        SideViews views;
        if (!views.findExtents(mAxes, voxels, limits))
            return true;
        views.lookAlongNormal(plane.getMainAxis(), mTriangle, mAxes, voxels, limits);
        return collect(views, &plane, voxels, limits, planes);
    }

private:
    /// What all rounding errors come to, here and in the literal test, as a distance: see the numbers above, rounded up
    /// by a third.
    float boundErrors(float drift) const
    {
        if (mTriangle.mHasTinyEdge)
            return std::numeric_limits<float>::infinity();
        return UNIT * mFarthest * 20.0f + drift;
    }

    /// The same with a normal, given the sum of its components. Infinite for a triangle without area.
    float boundErrors(float drift, float normal) const
    {
        const float certain = normal - UNIT * mExtent * (24.0f * mFarthest + 48.0f * mExtent);
        if (!(certain > 0.0f))
            return std::numeric_limits<float>::infinity();
        return boundErrors(drift) + UNIT * mExtent * mExtent * (51.0f * mFarthest + 48.0f * mExtent) / certain;
    }

    static bool isSmall(float errors, const BrickVoxels& voxels)
    {
        constexpr float LARGEST_SHARE = 0.1f; // of half a voxel; with more, most triangles would be uncertain
        return errors < voxels.mHalf * LARGEST_SHARE;
    }

    /// Puts the answers together.
    /// @param plane  null when its test separates nothing.
    /// @return whether shrunk and grown voxels agree.
    static bool collect(const SideViews& views, const PlaneTest* plane, const BrickVoxels& voxels, const Limits& limits,
                        uint64 (&planes)[EDGE])
    {
        const uint32 levels = views.getLevels();
        const uint32 end = static_cast<uint32>(std::bit_width(levels));
        for (uint32 w = static_cast<uint32>(std::countr_zero(levels)); w < end; ++w)
        {
            Touched<uint64> touched = views.getLevel(w);
            if (touched.mGrown != 0 && plane != nullptr)
            {
                const Touched<uint64> found = plane->find(voxels.mOffsets, w, touched.mGrown, limits);
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
    AxisLanes mAxes[3];
    float mFarthest;
    float mExtent;
};

/// The centres of an octant's halves along an axis.
template <uint32 NUM>
void halve(const float* centres, float edge, float (&halves)[NUM])
{
    for (uint32 i = 0; i < NUM; ++i)
        halves[i] = centres[i / 2] + (i % 2 == 0 ? -(edge / 4.0f) : edge / 4.0f);
}

/// Half of the edge of an octant's children, which are a little enlarged.
float getHalf(float edge)
{
    return (edge / 2.0f + OVERLAP_MARGIN) * 0.5f;
}

/// The bit that an octant of 2 voxels a side has among those of the brick. @param cell  of any of its voxels.
uint64 toParentBit(uint32 cell)
{
    return uint64{1} << (cell / 128 * 16 + cell % 64 / 16 * 4 + cell % 8 / 2);
}

/// Octants of 2 voxels a side whose position along u, v or w has a bit.
uint64 toSlabs(uint32 axis, uint32 positions)
{
    constexpr uint64 SLABS[3] = {0x1111111111111111, 0x000F000F000F000F, 0x000000000000FFFF};
    uint64 slabs = 0;
    for (; positions != 0; positions &= positions - 1)
        slabs |= SLABS[axis] << (static_cast<uint32>(std::countr_zero(positions)) << (2 * axis));
    return slabs;
}

/// The halves, quarters and eighths of a brick along an axis that a position lies in, enlarged as the cubes are.
struct AxisHalves
{
    void descend(float centre, float edge, uint32 levels, uint32 rank)
    {
        const float half = getHalf(edge);
        for (uint32 side = 0; side < 2; ++side)
        {
            const float middle = centre + (side == 0 ? -(edge / 4.0f) : edge / 4.0f);
            if (mPosition - middle > half || mPosition - middle < -half)
                continue;
            const uint32 child = 2 * rank + side;
            const uint32 last = (2u << (PlaneLayout::BRICK_LEVELS - levels)) - 1;
            mTouched[levels - 1] |= 1u << (mIsFlipped ? last - child : child);
            if (levels > 1)
                descend(middle, edge / 2.0f, levels - 1, child);
        }
    }

    float mPosition;
    bool mIsFlipped;
    uint32 mTouched[PlaneLayout::BRICK_LEVELS]; // eighths first
};

/// An octant of a brick, at a place in the order of the octree among those of its size.
struct BrickOctant
{
    Vec3<float> mCentre;
    float mEdge;
    uint32 mLevels; // below it
    uint32 mRank;
};

/// The literal test, down to the voxels.
void descend(const PlaneLayout& layout, const VoxelTriangle& triangle, bool covers, const BrickOctant& octant,
             BrickOverlaps& result)
{
    ChildCubes cubes(octant.mCentre, octant.mEdge);
    const ChildCubes::Overlaps found = cubes.find(triangle, covers);
    if (octant.mLevels == 1)
    {
        layout.addChildren(result.mVoxels, octant.mRank * NUM_CHILDREN, found.mTouched);
        return;
    }
    for (uint32 rest = found.mTouched; rest != 0; rest &= rest - 1)
    {
        const uint32 k = static_cast<uint32>(std::countr_zero(rest));
        const BrickOctant child = {cubes.getCentre(k), octant.mEdge / 2.0f, octant.mLevels - 1,
                                   octant.mRank * NUM_CHILDREN + k};
        const uint64 bit = toParentBit(layout.getCell(child.mRank << (3 * child.mLevels)));
        if (child.mLevels == 1)
            result.mParents |= bit;
        else
            result.mChildren |= findChildren(bit);
        descend(layout, triangle, ((found.mCovered >> k) & 1u) != 0, child, result);
    }
}
} // namespace

BrickTriangle::BrickTriangle(const VoxelTriangle& triangle, const PlaneLayout& layout)
    : mTriangle(triangle), mNormalLength(0.0f)
{
    MaskLanes areTiny = {};
    for (uint32 i = 0; i < 3; ++i)
    {
        const float(&positions)[3] = triangle.mPositions[layout.getAxis(static_cast<int>(i))];
        mCorners[i] = FloatLanes{positions[0], positions[1], positions[2], positions[2]};
        mEdges[i] = nextCorners(mCorners[i]) - mCorners[i];
        areTiny |= (mEdges[i] != 0.0f) & (absoluteLanes(mEdges[i]) < 1e-15f);
    }
    mHasTinyEdge = gatherBits(areTiny, areTiny) != 0;
    for (uint32 i = 0; i < 3; ++i)
    {
        const FloatLanes x = mEdges[COLUMNS[i]];
        const FloatLanes y = mEdges[ROWS[i]];
        const FloatLanes length = absoluteLanes(x) + absoluteLanes(y);
        const FloatLanes scale =
            length > 0.0f ? 1.0f / length : FloatLanes{}; // an edge along the axis separates nothing
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

uint64 findParents(const uint64 (&voxels)[EDGE])
{
    uint64 parents = 0;
    for (uint32 w = 0; w < EDGE; w += 2)
        parents |= toParents(voxels[w], voxels[w + 1]) << (EDGE * w);
    return parents;
}

uint64 findChildren(uint64 parents)
{
    parents |= parents >> 1;
    parents |= parents >> 4;
    parents |= parents >> 16;
    return parents & FIRST_PARTS;
}

BrickCubes::BrickCubes(const PlaneLayout& layout, const Vec3<float>& centre, float edge)
    : mLayout(layout), mCentre(centre), mEdge(edge),
      mDrift(2.0f * UNIT * (std::max({std::fabs(centre.mX), std::fabs(centre.mY), std::fabs(centre.mZ)}) + edge))
{
    for (int i = 0; i < 3; ++i)
    {
        const float middle = centre[layout.getAxis(i)];
        float children[2];
        float parents[4];
        halve(&middle, edge, children);
        halve(children, edge / 2.0f, parents);
        halve(parents, edge / 4.0f, mOffsets[i]);
        for (float& offset : mOffsets[i])
            offset -= middle;
        if (layout.isFlipped(i))
            std::reverse(std::begin(mOffsets[i]), std::end(mOffsets[i]));
    }
}

BrickOverlaps BrickCubes::find(const BrickTriangle& triangle, bool covers) const
{
    BrickOverlaps result;
    const uint32 levels = mLayout.getBrickLevels();
    const bool isFull = levels == PlaneLayout::BRICK_LEVELS;
    if (isFull && covers)
    {
        findCovered(triangle.mTriangle, result);
        return result;
    }
    if (isFull && findCertain(triangle, mEdge, mDrift, result))
        return result;
    result = BrickOverlaps();
    descend(mLayout, triangle.mTriangle, covers, {mCentre, mEdge, levels, 0}, result);
    return result;
}

/// @return whether the result is certain.
bool BrickCubes::findCertain(const BrickTriangle& triangle, float edge, float drift, BrickOverlaps& result) const
{
    const VoxelTriangle& corners = triangle.mTriangle;
    if (!std::isfinite(corners.mExtent))
        return false;
    const BrickTests tests(triangle, mLayout, mCentre, edge);
    const BrickVoxels voxels = {mOffsets, getHalf(mEdge / 4.0f), drift};
    const bool isCertain = corners.mFlatAxis != VoxelTriangle::NOT_FLAT
                               ? tests.findFlat(mLayout.findPlaneAxis(corners.mFlatAxis), voxels, result.mVoxels)
                               : tests.find(voxels, result.mVoxels);
    if (!isCertain)
        return false;
    result.mParents = findParents(result.mVoxels);
    result.mChildren = findChildren(result.mParents);
    return true;
}

/// What a flat triangle touches that spans the brick: its position along its axis decides.
void BrickCubes::findCovered(const VoxelTriangle& triangle, BrickOverlaps& result) const
{
    const uint32 i = mLayout.findPlaneAxis(triangle.mFlatAxis);
    const int axis = static_cast<int>(triangle.mFlatAxis);
    AxisHalves halves = {triangle.mPositions[axis][0], mLayout.isFlipped(static_cast<int>(i)), {}};
    halves.descend(mCentre[axis], mEdge, PlaneLayout::BRICK_LEVELS, 0);
    const uint32 voxels = halves.mTouched[0];
    for (uint32 w = 0; w < EDGE; ++w)
        result.mVoxels[w] = i == U                    ? COLUMN * voxels
                            : i == V                  ? toRows(voxels)
                            : (voxels >> w & 1u) != 0 ? ~uint64{0}
                                                      : 0;
    result.mParents = toSlabs(i, halves.mTouched[1]);
    const uint32 children = halves.mTouched[2];
    result.mChildren = toSlabs(i, (children & 1u) | (children & 2u) << 1) & FIRST_PARTS;
}
} // namespace KORV::NavMesh
