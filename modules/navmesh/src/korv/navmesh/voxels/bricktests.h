#pragma once

#include "korv/navmesh/voxels/childoverlaps.h"
#include "korv/navmesh/voxels/voxelbricks.h"

namespace KORV::NavMesh
{
// axes of a brick
inline constexpr uint32 U = 0;
inline constexpr uint32 V = 1;
inline constexpr uint32 W = 2;

/// The unit roundoff of a float, rounded up by a third for what bounds of errors leave out.
inline constexpr float ROUNDING = 8e-8f;

/// A triangle as bricks are tested with it: what is the same for all of them. Along u, v and w; a lane for each corner
/// or the edge from there to the next.
struct BrickTriangle
{
    /// @param triangle  must outlive the object.
    BrickTriangle(const VoxelTriangle& triangle, const PlaneLayout& layout);

    const VoxelTriangle& mTriangle;
    uint32 mFlatAxis; ///< of u, v and w: along which it has no extent, or VoxelTriangle::NOT_FLAT
    FloatLanes mCorners[3];
    FloatLanes mEdges[3];
    FloatLanes mAlong[3][2]; ///< seen along each axis: edges divided by the sums of their components, 0 for a point
    float mNormal[3];        ///< the same of the normal, unless the triangle is flat
    float mNormalLength;     ///< the sum of its components
    bool mHasTinyEdge;       ///< whether products with a component have few digits, or none
};

/// The voxels of a brick.
struct BrickVoxels
{
    float mCentre[3];                                    ///< of the brick, along u, v and w
    const float (&mOffsets)[3][PlaneLayout::BRICK_EDGE]; ///< of the voxels' centres from there
    float mHalf;                                         ///< of a voxel's edge, enlarged
};

/// The octant that the way down to voxels begins at.
struct LargestOctant
{
    float mEdge;
    float mDrift; ///< how far off the centres of octants in it are from each other at most, by rounding
};

/// Finds the voxels of a brick that a triangle touches, by real numbers as far as floats go.
/// @param planes  gets them, all zero on entry.
/// @return whether they are certain: what the literal test finds, and that an octant is touched if voxels of it are.
bool findVoxels(const BrickTriangle& triangle, const BrickVoxels& voxels, const LargestOctant& octant,
                uint64 (&planes)[PlaneLayout::BRICK_EDGE]);

/// Bits of a plane.
inline constexpr uint64 FIRST_COLUMN = 0x0101010101010101;

/// Rows of a plane as a whole.
inline uint64 toRows(uint32 rows)
{
    constexpr uint32 ROWS[16] = {0x00000000, 0x000000FF, 0x0000FF00, 0x0000FFFF, 0x00FF0000, 0x00FF00FF,
                                 0x00FFFF00, 0x00FFFFFF, 0xFF000000, 0xFF0000FF, 0xFF00FF00, 0xFF00FFFF,
                                 0xFFFF0000, 0xFFFF00FF, 0xFFFFFF00, 0xFFFFFFFF};
    return ROWS[rows % 16] | uint64{ROWS[rows / 16]} << 32;
}
} // namespace KORV::NavMesh
