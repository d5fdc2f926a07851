#pragma once

#include "korv/common/container/segmentvector.h"
#include "korv/navmesh/surfaces/planedirections.h"
#include "korv/navmesh/voxels/leafcursor.h"

namespace KORV::NavMesh
{
/// The number of bits set. (std::popcount is a call on the oldest processors that we build for.)
inline uint32 countBits(uint64 bits)
{
    bits -= (bits >> 1) & 0x5555555555555555;
    bits = (bits & 0x3333333333333333) + ((bits >> 2) & 0x3333333333333333);
    bits = (bits + (bits >> 4)) & 0x0F0F0F0F0F0F0F0F;
    return static_cast<uint32>((bits * 0x0101010101010101) >> 56);
}

/// Grid positions seen from the main surface axis: u along side 1, v along side 2, w upwards, each from 0 on.
class PlaneLayout
{
public:
    /// A brick is a cube of 8 x 8 x 8 voxels, or the whole grid when that is smaller.
    static constexpr uint32 BRICK_LEVELS = 3;
    static constexpr uint32 BRICK_EDGE = 8;
    static constexpr uint32 BRICK_VOXELS = 512;

    /// @param depth  of the octree.
    PlaneLayout(uint32 depth, uint32 mainAxis);

    uint32 getDimension() const { return 1u << mDepth; }
    uint32 getDepth() const { return mDepth; }
    /// Levels of the octree that make up a brick, and its edge in voxels.
    uint32 getBrickLevels() const { return mBrickLevels; }
    uint32 getBrickEdge() const { return 1u << mBrickLevels; }

    Vec3<int32> toGrid(const Vec3<int32>& uvw) const
    {
        Vec3<int32> position;
        for (int i = 0; i < 3; ++i)
            position[mAxes[i]] = mFlip[i] ? static_cast<int32>(getDimension()) - 1 - uvw[i] : uvw[i];
        return position;
    }
    /// The same turn for a grid of another size.
    Vec3<int32> toPlane(const Vec3<int32>& position, uint32 dimension) const;

    /// The grid's axis that u, v or w runs along, and whether backwards.
    int getAxis(int i) const { return mAxes[i]; }
    bool isFlipped(int i) const { return mFlip[i]; }
    /// Which of u, v and w (0 to 2) runs along one of the grid's axes.
    uint32 findPlaneAxis(uint32 axis) const
    {
        const int wanted = static_cast<int>(axis);
        return mAxes[0] == wanted ? 0 : mAxes[1] == wanted ? 1 : 2;
    }

    /// Cells of a brick: 64 * w + 8 * v + u. The rank is the cell's place in the order of the octree.
    uint32 getCell(uint32 rank) const { return mCells[rank]; }
    uint32 getRank(uint32 cell) const { return mRanks[cell]; }
    /// Adds children of a parent of leaves to the planes of a brick. @param rank  of the first child.
    void addChildren(uint64* planes, uint32 rank, uint32 children) const
    {
        const uint32 base = mCells[rank] & ~WITHIN_PARENT;
        planes[base / 64] |= static_cast<uint64>(mPatterns[0][children]) << (base % 64);
        planes[base / 64 + 1] |= static_cast<uint64>(mPatterns[1][children]) << (base % 64);
    }

private:
    /// What tells the eight cells of a parent apart: the last bits of u, v and w.
    static constexpr uint32 WITHIN_PARENT = 1 + 8 + 64;

    int mAxes[3];  // grid axis of u, v, w
    bool mFlip[3]; // and whether it runs backwards
    uint32 mDepth;
    uint32 mBrickLevels;
    uint16 mCells[BRICK_VOXELS] = {};
    uint16 mRanks[BRICK_VOXELS] = {};
    uint16 mPatterns[2][256] = {}; // by mask of children: their cells in the lower and upper plane of a parent
};

/// The voxels of a brick as bits. A plane (equal w) is a word, bit 8 * v + u.
struct VoxelBrick
{
    static constexpr uint32 MANY_TYPES = 0x80000000;

    uint64 mOccupied[PlaneLayout::BRICK_EDGE] = {};
    uint64 mWalkable[PlaneLayout::BRICK_EDGE] = {}; ///< nothing is said of the room above
    Vec3<int32> mPosition;                          ///< (u, v, w) in bricks
    /// The surface type that all walkable voxels share; else MANY_TYPES and where the list of theirs begins, in the
    /// order of their bits, plane after plane.
    uint32 mTypes = 0;
};

/// The occupied voxels of a scene in bricks, about 2 bytes each where an octree's records take 11.
/// Thread use: const operations on any thread.
class VoxelBricks
{
public:
    static constexpr uint32 NONE = 0xFFFFFFFF;

    /// @param depth  of the octree that the bricks stand for.
    VoxelBricks(uint32 depth, uint32 mainAxis, Common::Memory::Allocator* allocator);

    /// Bricks come in the order of the octree.
    void append(const VoxelBrick& brick, const Vector<uint16>& types);
    /// To be called when all have come.
    void buildIndex();

    const PlaneLayout& getLayout() const { return mLayout; }
    uint32 size() const { return mBricks.size(); }
    const VoxelBrick& operator[](uint32 brick) const { return mBricks.getUnchecked(brick); }
    /// The brick at a position, NONE where nothing is occupied.
    uint32 find(const Vec3<int32>& position) const;
    /// No brick lies higher. [bricks]
    int32 getTop() const { return mTop; }
    /// An entry of the list of types.
    uint16 getType(uint32 place) const { return mTypes.getUnchecked(place); }

private:
    size_t getSlot(const Vec3<int32>& position) const;

    PlaneLayout mLayout;
    Common::Container::SegmentVector<VoxelBrick, 64> mBricks;
    Common::Container::SegmentVector<uint16> mTypes;
    Vector<uint32> mSlots; // open hash table over the positions
    int32 mTop = 0;
};
} // namespace KORV::NavMesh
