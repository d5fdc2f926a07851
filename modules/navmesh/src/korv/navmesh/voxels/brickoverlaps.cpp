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
// What is behind "all rounding errors" is said with the tests (bricktests).

#include "korv/navmesh/voxels/brickoverlaps.h"

#include "korv/navmesh/voxels/leafcursor.h"

#include <algorithm>
#include <cmath>

namespace KORV::NavMesh
{
namespace
{
constexpr uint32 EDGE = PlaneLayout::BRICK_EDGE;
constexpr uint64 FIRST_PARTS = 0x0000050500000505; // of the octants of 4 voxels a side

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

/// Voxels of plane w whose position along u, v or w has a bit.
uint64 cutSlabs(uint32 axis, uint32 positions, uint32 w)
{
    if (axis == U)
        return FIRST_COLUMN * positions;
    if (axis == V)
        return toRows(positions);
    return ((positions >> w) & 1u) != 0 ? ~uint64{0} : 0;
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
      mDrift(2.0f * ROUNDING * (std::max({std::fabs(centre.mX), std::fabs(centre.mY), std::fabs(centre.mZ)}) + edge))
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
    const auto along = [this](int i) { return mCentre[mLayout.getAxis(i)]; };
    const BrickVoxels voxels = {{along(0), along(1), along(2)}, mOffsets, getHalf(mEdge / 4.0f)};
    if (!findVoxels(triangle, voxels, {edge, drift}, result.mVoxels))
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
        result.mVoxels[w] = cutSlabs(i, voxels, w);
    result.mParents = toSlabs(i, halves.mTouched[1]);
    const uint32 children = halves.mTouched[2];
    result.mChildren = toSlabs(i, (children & 1u) | (children & 2u) << 1) & FIRST_PARTS;
}
} // namespace KORV::NavMesh
