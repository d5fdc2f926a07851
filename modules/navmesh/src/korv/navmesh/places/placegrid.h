#pragma once

#include "korv/navmesh/places/boxtree.h"
#include "korv/navmesh/types.h"

#include <algorithm>

namespace KORV::NavMesh
{
/// Lists, for every place, the items that may hold it: a grid over the ground plane, whose crowded cells hold finer
/// grids, over the heights, too. So a place lies in one cell, wherever it is.
///
/// The cell of a coordinate never falls when the coordinate grows, so whatever lies in a box lies in the cells between
/// those of its corners, whatever the rounding.
class PlaceGrid
{
public:
    using Item = BoxTree::Item;

    /// Knows more of the items than their boxes.
    class Shapes
    {
    public:
        virtual ~Shapes() = default;
        /// Whether an item may hold a place of a rectangle in the ground plane.
        /// @param id  of the item.
        virtual bool meets(uint32 id, const SearchBox& rectangle) const = 0;
    };

    /// As wide as possible in the ground plane.
    static constexpr float WIDEST = 1e30f;

    explicit PlaceGrid(Common::Memory::Allocator* allocator)
        : mGrids(allocator), mCells(allocator), mLongLists(allocator)
    {
    }

    /// Builds the grid anew. All coordinates are finite, magnitudes at most 1e30.
    /// @param items  in the order in which they are to be listed. Their boxes hold all their places; one that
    ///               reaches WIDEST does not count when the cells are chosen.
    /// Cost: a few steps for every item and cell that it meets, of which there are about ten an item.
    void build(const Vector<Item>& items, const Shapes& shapes);

    /// Calls visit(id, end) with the list of item ids of each cell that a vertical line segment meets, mostly one. None
    /// of the coordinates is NaN.
    template <class Visit>
    void visitLists(float x, float y, float lowZ, float highZ, Visit&& visit) const
    {
        if (!mGrids.empty())
            visitGrid(0, x, y, lowZ, highZ, visit);
    }

    uint64 getMemoryUsage() const
    {
        return mGrids.capacity() * sizeof(Grid) + mCells.capacity() * sizeof(Cell) +
               mLongLists.capacity() * sizeof(uint32);
    }

private:
    class Builder;

    static constexpr uint32 NUM_INLINE = 7;

    struct Grid
    {
        float mOrigin[3];
        float mScale[3]; ///< cells per unit
        float mLast[3];  ///< greatest index of a cell
        uint32 mFirstCell;

        uint32 getIndex(int axis, float value) const
        {
            const float steps = (value - mOrigin[axis]) * mScale[axis];
            return static_cast<uint32>(static_cast<int32>(std::min(std::max(steps, 0.0f), mLast[axis])));
        }
        uint32 getSize(int axis) const { return static_cast<uint32>(mLast[axis]) + 1; }
        uint32 getCell(uint32 x, uint32 y, uint32 z) const
        {
            return mFirstCell + (z * getSize(1) + y) * getSize(0) + x;
        }
    };

    /// A short list lies in its cell: to look that up is often all that has to be waited for.
    struct alignas(32) Cell
    {
        uint32 mCount;               ///< of ids; IS_GRID for a grid
        uint32 mEntries[NUM_INLINE]; ///< ids; when there are more of them, the first is their place in mLongLists, in a
                                     ///< crowded cell the index of a finer grid
    };

    static constexpr uint32 IS_GRID = 0xFFFFFFFF;

    template <class Visit>
    void visitGrid(uint32 index, float x, float y, float lowZ, float highZ, Visit& visit) const
    {
        const Grid& grid = mGrids[index];
        const uint32 indexX = grid.getIndex(0, x);
        const uint32 indexY = grid.getIndex(1, y);
        const uint32 end = grid.getIndex(2, highZ);
        for (uint32 indexZ = grid.getIndex(2, lowZ); indexZ <= end; ++indexZ)
        {
            const Cell& cell = mCells[grid.getCell(indexX, indexY, indexZ)];
            if (cell.mCount == IS_GRID)
            {
                visitGrid(cell.mEntries[0], x, y, lowZ, highZ, visit);
                continue;
            }
            const uint32* list = cell.mCount <= NUM_INLINE ? cell.mEntries : mLongLists.data() + cell.mEntries[0];
            visit(list, list + cell.mCount);
        }
    }

    Vector<Grid> mGrids; // the coarse one first
    Vector<Cell> mCells;
    Vector<uint32> mLongLists;
};
} // namespace KORV::NavMesh
