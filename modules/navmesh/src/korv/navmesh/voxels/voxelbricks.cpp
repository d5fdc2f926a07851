#include "korv/navmesh/voxels/voxelbricks.h"

#include <algorithm>

namespace KORV::NavMesh
{
namespace
{
constexpr size_t BLOCK_SLOTS = 64;
constexpr size_t SLOTS_PER_BRICK = 3;
} // namespace

PlaneLayout::PlaneLayout(uint32 depth, uint32 mainAxis) : mDepth(depth), mBrickLevels(std::min(depth, BRICK_LEVELS))
{
    const PlaneDirections& directions = PLANE_DIRECTIONS[mainAxis];
    const Vec3<int32> axes[3] = {directions.mSides[1], directions.mSides[2], directions.mUp};
    for (int i = 0; i < 3; ++i)
    {
        mAxes[i] = axes[i].mX != 0 ? 0 : axes[i].mY != 0 ? 1 : 2;
        mFlip[i] = axes[i][mAxes[i]] < 0;
    }
    const uint32 numCells = 1u << (3 * mBrickLevels);
    for (uint32 rank = 0; rank < numCells; ++rank)
    {
        Vec3<int32> position;
        for (uint32 level = mBrickLevels; level-- > 0;)
            position = position * 2 + CHILD_CORNERS[(rank >> (3 * level)) % NUM_CHILDREN];
        const Vec3<int32> uvw = toPlane(position, getBrickEdge());
        const uint32 cell = static_cast<uint32>(uvw.mZ * 64 + uvw.mY * 8 + uvw.mX);
        mCells[rank] = static_cast<uint16>(cell);
        mRanks[cell] = static_cast<uint16>(rank);
    }
    for (uint32 children = 0; children < 256; ++children)
    {
        for (uint32 mask = children; mask != 0; mask &= mask - 1)
        {
            const uint32 cell = mCells[std::countr_zero(mask)] & WITHIN_PARENT;
            mPatterns[cell / 64][children] = static_cast<uint16>(mPatterns[cell / 64][children] | 1u << (cell % 64));
        }
    }
}

Vec3<int32> PlaneLayout::toPlane(const Vec3<int32>& position, uint32 dimension) const
{
    Vec3<int32> uvw;
    for (int i = 0; i < 3; ++i)
        uvw[i] = mFlip[i] ? static_cast<int32>(dimension) - 1 - position[mAxes[i]] : position[mAxes[i]];
    return uvw;
}

VoxelBricks::VoxelBricks(uint32 depth, uint32 mainAxis, Common::Memory::Allocator* allocator)
    : mLayout(depth, mainAxis), mBricks(allocator), mTypes(allocator), mSlots(allocator)
{
}

void VoxelBricks::append(const VoxelBrick& brick, const Vector<uint16>& types)
{
    VoxelBrick& own = mBricks.getUnchecked(mBricks.append(brick));
    mTop = std::max(mTop, brick.mPosition.mZ);
    if ((brick.mTypes & VoxelBrick::MANY_TYPES) == 0)
        return;
    uint32 numTypes = 0;
    for (const uint64 plane : brick.mWalkable)
        numTypes += countBits(plane);
    if (mTypes.size() > ~VoxelBrick::MANY_TYPES)
        Common::Memory::throwOutOfMemory();
    const uint32 first = brick.mTypes & ~VoxelBrick::MANY_TYPES;
    own.mTypes = mTypes.append(types.data() + first, numTypes) | VoxelBrick::MANY_TYPES;
}

void VoxelBricks::buildIndex()
{
    mSlots.assign(std::bit_ceil(size() * SLOTS_PER_BRICK + BLOCK_SLOTS), NONE);
    for (uint32 brick = 0; brick < size(); ++brick)
        mSlots[getSlot((*this)[brick].mPosition)] = brick;
}

/// The slot of a position, or the empty one where it would go.
size_t VoxelBricks::getSlot(const Vec3<int32>& position) const
{
    // neighbours are asked for together: blocks of 4 x 4 x 4 stay together in the table, as 64 slots, and within them
    // columns, since floors are what fills a scene; multiples of large odd numbers spread the blocks
    const auto u = static_cast<uint32>(position.mX);
    const auto v = static_cast<uint32>(position.mY);
    const auto w = static_cast<uint32>(position.mZ);
    const uint64 block =
        (u >> 2) * 0x9E3779B97F4A7C15u + (v >> 2) * 0xC2B2AE3D27D4EB4Fu + (w >> 2) * 0x165667B19E3779F9u;
    const uint32 inBlock = (u & 3u) << 4 | (v & 3u) << 2 | (w & 3u);
    const size_t last = mSlots.size() - 1;
    size_t slot = (static_cast<size_t>(block >> 32) * BLOCK_SLOTS + inBlock) & last;
    while (mSlots[slot] != NONE && !((*this)[mSlots[slot]].mPosition == position))
        slot = (slot + 1) & last;
    return slot;
}

uint32 VoxelBricks::find(const Vec3<int32>& position) const
{
    return mSlots[getSlot(position)];
}
} // namespace KORV::NavMesh
