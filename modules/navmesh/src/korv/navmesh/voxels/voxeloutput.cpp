#include "korv/navmesh/voxels/voxeloutput.h"

namespace KORV::NavMesh
{
uint32 RecordOutput::addChildren(uint32 octant, uint32 childMask)
{
    const uint32 firstChild = mInnerOctants.size();
    for (uint32 rest = childMask; rest != 0; rest &= rest - 1)
        mInnerOctants.append(InnerOctant());
    mInnerOctants.getUnchecked(octant) = {static_cast<uint8>(childMask), firstChild};
    return firstChild;
}

/// Puts a block's octants behind those of the blocks before it.
void RecordOutput::addBlock(const VoxelBlock& block, uint32 octant, const Vec3<int32>&)
{
    const uint32 firstInner = mInnerOctants.size();
    const uint32 firstVoxel = mLeafOctants.size();
    const auto moved = [=](InnerOctant inner)
    {
        if (inner.firstChild == InnerOctant::NO_CHILD)
            return inner;
        const bool hasVoxels = (inner.firstChild & VoxelBlock::VOXELS) != 0;
        inner.firstChild = (inner.firstChild & ~VoxelBlock::VOXELS) + (hasVoxels ? firstVoxel : firstInner);
        return inner;
    };
    mLeafOctants.append(block.getVoxels().data(), static_cast<uint32>(block.getVoxels().size()));
    for (const InnerOctant& inner : block.getInnerOctants())
        mInnerOctants.append(moved(inner));
    if (block.getDepth() > 0)
        mInnerOctants.getUnchecked(octant) = moved(block.getRoot());
}

uint32 BrickOutput::addChildren(uint32, uint32 childMask)
{
    mNumInnerOctants += static_cast<uint32>(std::popcount(childMask));
    return 0; // there are no records to point at
}

void BrickOutput::addBlock(const VoxelBlock& block, uint32, const Vec3<int32>& corner)
{
    addBricks(block.getBricks(), block.getDepth(), corner);
}

void BrickOutput::addBricks(const BlockBricks& bricks, uint32 depth, const Vec3<int32>& corner)
{
    const PlaneLayout& layout = mBricks.getLayout();
    const Vec3<int32> first = corner * (1 << (depth - layout.getBrickLevels()));
    const uint32 numBricksAcross = 1u << (layout.getDepth() - layout.getBrickLevels());
    const auto append = [&](VoxelBrick brick)
    {
        brick.mPosition = layout.toPlane(first + brick.mPosition, numBricksAcross);
        mBricks.append(brick, bricks.getTypes());
    };
    bricks.forEachBrick(append);
    mNumInnerOctants += bricks.countInnerOctants();
    mNumVoxels += bricks.countVoxels();
}
} // namespace KORV::NavMesh
