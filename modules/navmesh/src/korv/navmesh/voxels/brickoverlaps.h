#pragma once

#include "korv/navmesh/voxels/bricktests.h"

namespace KORV::NavMesh
{
/// The octants of a brick that a triangle touches.
struct BrickOverlaps
{
    uint64 mVoxels[PlaneLayout::BRICK_EDGE] = {}; ///< planes, as those of a VoxelBrick
    uint64 mParents = 0;                          ///< octants of 2 voxels a side, bit 16 * w + 4 * v + u
    uint64 mChildren = 0;                         ///< octants of 4 voxels a side, at the bit of their first part
};

/// The octants of 2 voxels a side that voxels lie in, as BrickOverlaps has them.
uint64 findParents(const uint64 (&voxels)[PlaneLayout::BRICK_EDGE]);
/// The octants of 4 voxels a side that such octants lie in.
uint64 findChildren(uint64 parents);

/// The cubes of a brick's octants down to the voxels, each a little enlarged, for testing which of them a triangle
/// touches. The answers are those of ChildCubes on the way down, bit for bit.
class BrickCubes
{
public:
    /// @param layout  must outlive the object.
    /// @param edge  of the brick's cube. [world units]
    BrickCubes(const PlaneLayout& layout, const Vec3<float>& centre, float edge);

    /// @param triangle  one that touches the brick.
    /// @param covers  that it is known to span the whole brick, see ChildCubes.
    BrickOverlaps find(const BrickTriangle& triangle, bool covers) const;
    /// Finds what a triangle touches that may not touch the brick, when the way down began at an octant further up.
    /// Octants on the way to the brick are touched if voxels of theirs are.
    /// @param edge  of the octant.
    /// @param drift  how far off the centres of octants in it are from each other at most, by rounding.
    /// @return whether that is certain; nothing is found then but what lies in the brick.
    bool findCertain(const BrickTriangle& triangle, float edge, float drift, BrickOverlaps& result) const;

private:
    static constexpr uint32 EDGE = PlaneLayout::BRICK_EDGE;

    void findCovered(const VoxelTriangle& triangle, BrickOverlaps& result) const;

    const PlaneLayout& mLayout;
    Vec3<float> mCentre;
    float mEdge;
    float mDrift;                        // of the centres of octants in the brick
    alignas(16) float mOffsets[3][EDGE]; // of the voxels' centres from the brick's, along u, v and w
};
} // namespace KORV::NavMesh
