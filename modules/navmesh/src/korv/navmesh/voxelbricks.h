#pragma once

#include "korv/navmesh/leafcursor.h"
#include "korv/navmesh/planedirections.h"

namespace KORV::NavMesh
{
/// Grid positions seen from the main surface axis: u along side 1, v along side 2, w upwards, each from 0 on.
class PlaneLayout
{
public:
    /// A brick is a cube of 8 x 8 x 8 voxels, or the whole grid when that is smaller.
    static constexpr uint32 BRICK_LEVELS = 3;
    static constexpr uint32 BRICK_EDGE = 8;
    static constexpr uint32 BRICK_VOXELS = 512;

    PlaneLayout(const NavMeshOctree& octree, uint32 mainAxis);

    uint32 getDimension() const { return mDimension; }
    /// Levels of the octree that make up a brick, and its edge in voxels.
    uint32 getBrickLevels() const { return mBrickLevels; }
    uint32 getBrickEdge() const { return 1u << mBrickLevels; }

    Vec3<int32> toGrid(const Vec3<int32>& uvw) const;
    /// The same turn for a grid of another size.
    Vec3<int32> toPlane(const Vec3<int32>& position, uint32 dimension) const;

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
    uint32 mDimension;
    uint32 mBrickLevels;
    uint16 mCells[BRICK_VOXELS] = {};
    uint16 mRanks[BRICK_VOXELS] = {};
    uint16 mPatterns[2][256] = {}; // by mask of children: their cells in the lower and upper plane of a parent
};

/// The occupied voxels of the octree as bits, in bricks. A plane of a brick (equal w) is a word, bit 8 * v + u.
/// Thread use: bricks may be filled on several threads at once; const operations on any.
class VoxelBricks
{
public:
    static constexpr uint32 NONE = 0xFFFFFFFF;

    struct Brick
    {
        uint64 mOccupied[PlaneLayout::BRICK_EDGE];
        Vec3<int32> mPosition; ///< (u, v, w) in bricks
        uint32 mOctant;        ///< among the inner octants, or the one leaf of a tree without any
    };

    /// Lists the bricks in the order of the octree; they are to be filled then.
    VoxelBricks(NavMeshOctree& octree, uint32 mainAxis);
    void fill(uint32 begin, uint32 end);

    const PlaneLayout& getLayout() const { return mLayout; }
    uint32 size() const { return static_cast<uint32>(mBricks.size()); }
    const Brick& operator[](uint32 brick) const { return mBricks[brick]; }
    /// The brick at a position, NONE where nothing is occupied.
    uint32 find(const Vec3<int32>& position) const;
    /// No brick lies higher. [bricks]
    int32 getTop() const { return mTop; }

    /// Calls f(rank of the first child, mask of the children, index of the first leaf) for each parent of leaves.
    template <class F>
    void forEachParent(const Brick& brick, const F& f) const
    {
        if (mLayout.getBrickLevels() == 0)
            f(0u, 1u, brick.mOctant);
        else
            visit(brick.mOctant, mLayout.getBrickLevels(), 0, f);
    }

private:
    template <class F>
    void visit(uint32 octant, uint32 levels, uint32 rank, const F& f) const
    {
        const InnerOctant& inner = mOctree.getInnerOctants().getUnchecked(octant);
        if (levels == 1)
        {
            f(rank * NUM_CHILDREN, static_cast<uint32>(inner.childMask), inner.firstChild);
            return;
        }
        uint32 child = inner.firstChild;
        for (uint32 mask = inner.childMask; mask != 0; mask &= mask - 1)
            visit(child++, levels - 1, rank * NUM_CHILDREN + static_cast<uint32>(std::countr_zero(mask)), f);
    }

    void collect(uint32 octant, uint32 level, const Vec3<int32>& corner);
    void buildIndex();
    size_t getSlot(const Vec3<int32>& position) const;

    NavMeshOctree& mOctree;
    PlaneLayout mLayout;
    Vector<Brick> mBricks;
    Vector<uint32> mSlots; // open hash table over the positions
    int32 mTop = 0;
};
} // namespace KORV::NavMesh
