#pragma once

#include "korv/navmesh/navmeshconnector.h"
#include "korv/navmesh/rangetask.h"

#include <algorithm>
#include <unordered_map>

namespace KORV::NavMesh
{
/// Finds the open sides near a side: a grid of square cells over the ground plane, each with the sides that cross it.
/// All sides of the mesh come first, numbered by node; pieces of those that are split come later. A huge grid takes
/// memory only for the cells that are used.
/// Thread use: several threads may search while nobody inserts or removes.
class NavMeshConnector::Grid : public Common::Memory::MemoryManaged
{
public:
    /// One open side.
    struct GridEdge
    {
        int32 mNode = -1;
        uint32 mVertices[2] = {};

        bool isRemoved() const { return mNode < 0; }
    };

    /// An upright rectangle in the ground plane.
    struct Box
    {
        Vec2<float> mMin;
        Vec2<float> mMax;

        /// Whether the box of a segment touches this one; true as well where an end is not a number.
        bool meets(const Vec2<float>& a, const Vec2<float>& b) const
        {
            return !((a.mX > mMax.mX && b.mX > mMax.mX) || (a.mX < mMin.mX && b.mX < mMin.mX) ||
                     (a.mY > mMax.mY && b.mY > mMax.mY) || (a.mY < mMin.mY && b.mY < mMin.mY));
        }
    };

    /// What to look for.
    struct Search
    {
        Vec2<float> mA; ///< ends of the side
        Vec2<float> mB;
        Box mBox;         ///< where sides must lie at least in part
        uint32 mFirstOwn; ///< the node's own sides, which are left out
        uint32 mEndOwn;
    };

    /// Sets the cells up for the open sides of a mesh, which must outlive the grid, and numbers them.
    Grid(MeshDraft& draft, int32 vertComp);
    ~Grid() override;

    /// False when there is no side that could be registered.
    bool isUsable() const { return mCellSize > 0.0f; }
    /// The open sides of the mesh, registered or not.
    uint32 getNumEdges() const { return static_cast<uint32>(mEdges.size()); }

    /// Registers the open sides of all nodes. One with an invalid corner, or without a finite length above 0, can't be
    /// linked and is left out. Throws what the runner throws.
    /// @param numParts  that workers may take.
    /// @param end  fraction of the stage that is done then.
    void insertOpenSides(RangeRunner& runner, uint32 numParts, float end);
    /// Takes a side of the mesh back.
    void removeEdge(uint32 edge) { mEdges[edge].mNode = -1; }
    /// Registers what is left of a side that has been taken back: a piece of it. Origins must come in ascending order.
    /// Appends the sides behind the origin in the cells that it crosses, all that are as near as that, and some beyond.
    void insertPiece(uint32 origin, const GridEdge& piece, float distance, Vector<uint32>& sidesNearby);

    /// Calls the visitor with the sides in the cells of a side until it returns true: cell by cell, first those of
    /// nodes behind, then those of nodes before, in ascending order; some of them more than once. The numbers of pieces
    /// follow those of the mesh's sides.
    template <class Visitor>
    void findCandidates(const Search& search, const Visitor& visitor) const;

    /// At least the largest coordinate and the length of a side together.
    float getExtent() const { return mExtent; }

    const GridEdge& getEdge(uint32 edge) const
    {
        return edge < mEdges.size() ? mEdges[edge] : mPieces[edge - mEdges.size()].mEdge;
    }
    /// A position in the ground plane.
    Vec2<float> getPosition(const Vec3<float>& vertex) const { return {vertex[mHorizComp[0]], vertex[mHorizComp[1]]}; }

    float mCellSize = -1.0f;
    Vec2<float> mOrigin;
    int32 mVertComp;
    int32 mHorizComp[2];
    int32 mGridX = 0;
    int32 mGridY = 0;

private:
    static constexpr uint32 NONE = 0xFFFFFFFF;

    struct Position
    {
        int32 mX;
        int32 mY;
    };
    /// Where a segment's box lies about a cell, four bytes in a word: lower ends, and upper ends counted downwards. In
    /// steps so coarse that rounding keeps the order of coordinates, so no box that meets another is lost.
    struct CoarseBox
    {
        static CoarseBox around(const Position& cell, const Vec2<float>& low, const Vec2<float>& high);

        /// What meets compares with; no byte borrows from the next, for all steps are below 128.
        uint32 getLimits() const { return (MAX_STEPS - ((mBytes >> 16) | (mBytes << 16))) | GUARDS; }
        bool meets(uint32 limits) const { return ((limits - mBytes) & GUARDS) == GUARDS; }

        static constexpr uint32 GUARDS = 0x80808080;
        static constexpr uint32 MAX_STEPS = 0x7F7F7F7F;

        uint32 mBytes;
    };
    /// A side in grid coordinates.
    struct Segment
    {
        /// @param margin  added on every side.
        CoarseBox getCoarseBox(const Position& cell, float margin = 0.0f) const
        {
            return CoarseBox::around(cell, {std::min(mA.mX, mB.mX) - margin, std::min(mA.mY, mB.mY) - margin},
                                     {std::max(mA.mX, mB.mX) + margin, std::max(mA.mY, mB.mY) + margin});
        }

        Vec2<float> mA;
        Vec2<float> mB;
    };
    struct Entry
    {
        uint32 mEdge;
        CoarseBox mBox;
    };
    struct Cell
    {
        uint32 mBegin = 0; ///< in mEntries
        uint32 mEnd = 0;
        uint32 mFirstPiece = NONE; ///< in mPieceEntries
        uint32 mLastPiece = NONE;
    };
    struct Piece
    {
        GridEdge mEdge;
        uint32 mOrigin;
    };
    struct PieceEntry
    {
        Entry mEntry;
        uint32 mNext;
    };
    using CellNumbers = std::unordered_map<uint64, uint32, std::hash<uint64>, std::equal_to<uint64>,
                                           Common::Memory::STLAllocator<std::pair<const uint64, uint32>>>;
    class CellWalk;

    void listEdges(MeshDraft& draft);
    void measure();
    float averageLength();
    int32 countCells(float extent) const;
    static int32 toCell(float coordinate, int32 numCells)
    {
        if (!(coordinate >= 0.0f))
            return 0;
        return coordinate < static_cast<float>(numCells) ? std::min(static_cast<int32>(coordinate), numCells - 1)
                                                         : numCells - 1;
    }
    Position toCell(const Vec2<float>& position) const
    {
        return {toCell(position.mX, mGridX), toCell(position.mY, mGridY)};
    }
    Segment getSegment(const GridEdge& edge) const
    {
        return {toGridCoords(getEnd(edge, 0)), toGridCoords(getEnd(edge, 1))};
    }
    bool isInside(const Position& position) const
    {
        return position.mX >= 0 && position.mX < mGridX && position.mY >= 0 && position.mY < mGridY;
    }
    [[gnu::noinline, gnu::cold]] bool reportPosition() const;
    Vec2<float> getEnd(const GridEdge& edge, uint32 end) const { return getPosition(mVertices[edge.mVertices[end]]); }
    Vec2<float> toGridCoords(const Vec2<float>& position) const
    {
        return {(position.mX - mOrigin.mX) / mCellSize, (position.mY - mOrigin.mY) / mCellSize};
    }
    uint64 getKey(const Position& position) const
    {
        return isInside(position) || reportPosition()
                   ? static_cast<uint64>(position.mY) * static_cast<uint64>(mGridX) + static_cast<uint64>(position.mX)
                   : 0;
    }
    uint32 getCellNumber(const Position& position);
    const Cell* findCell(const Position& position) const;
    void countEntries(uint32 begin, uint32 end, Vector<uint32>& counts);
    void layEntriesOut(RangeResults<uint32>& counts);
    void fillEntries(uint32 begin, uint32 end, Vector<uint32>& places);
    template <class Visitor>
    bool visitCell(const Cell& cell, const Search& search, uint32 limits, const Visitor& visitor) const;
    template <class Visitor>
    bool visitPieces(uint32& piece, uint32 end, uint32 limits, const Visitor& visitor) const;

    const Vector<Vec3<float>>& mVertices;
    Vector<GridEdge> mEdges;
    float mExtent = 0.0f;
    bool mIsSparse = false;
    Vector<Cell> mCells;    ///< by number, y * mGridX + x; only those used where a table of all cells would be huge
    CellNumbers mUsedCells; ///< their places then: short sides in a wide mesh
    Vector<Entry> mEntries;
    Vector<Piece> mPieces;
    Vector<PieceEntry> mPieceEntries;
};

/// The cells from one position to another, in the order met.
///
/// A walk adds up distances in float, so near the corner of four cells it can step past the last cell and miss it. It
/// then goes on to the rim. That is harmless, since sides out there are too far away to be linked, but in a sparse grid
/// it would fill the memory with cells; there it is cut soon after.
///
/// Source: J. Amanatides, A. Woo, "A Fast Voxel Traversal Algorithm for Ray Tracing", Eurographics 1987.
class NavMeshConnector::Grid::CellWalk
{
public:
    CellWalk(const Grid& grid, const Segment& segment)
        : mGrid(grid), mSegment(segment), mCell(grid.toCell(segment.mA)), mEnd(grid.toCell(segment.mB))
    {
    }

    const Position& getCell() const { return mCell; }
    bool isDone() const { return mDone; }

    void advance()
    {
        mDone = isAtEnd() || mStepsLeft == 0;
        if (mDone)
            return;
        if (mStepsLeft < 0)
            begin();
        --mStepsLeft;
        if (mY.mNext <= mX.mNext)
            mY.advance(mCell.mY);
        else
            mX.advance(mCell.mX);
        mDone = !mGrid.isInside(mCell);
    }

private:
    static constexpr int64 MAX_OVERRUN = 64; // cells past the end, in sparse grids

    struct Axis
    {
        Axis() = default;
        Axis(int32 cell, float start, float direction)
        {
            const bool forward = direction >= 0.0f;
            const float border = static_cast<float>(int64{cell} + (forward ? 1 : 0));
            mStep = forward ? 1 : -1;
            mNext = (border - start) / direction; // infinite, so never taken, where the walk keeps its row or column
            mDelta = static_cast<float>(mStep) / direction;
        }
        void advance(int32& cell)
        {
            mNext += mDelta;
            cell += mStep;
        }

        int32 mStep = 0;
        float mNext = 0.0f;
        float mDelta = 0.0f;
    };

    /// Makes ready for the first step; many walks have none.
    void begin()
    {
        const Vec2<float> direction = normalised(mSegment.mB - mSegment.mA);
        mX = Axis(mCell.mX, mSegment.mA.mX, direction.mX);
        mY = Axis(mCell.mY, mSegment.mA.mY, direction.mY);
        const int64 overrun = mGrid.mIsSparse ? MAX_OVERRUN : int64{mGrid.mGridX} + mGrid.mGridY;
        mStepsLeft = std::abs(int64{mEnd.mX} - mCell.mX) + std::abs(int64{mEnd.mY} - mCell.mY) + overrun;
    }
    bool isAtEnd() const { return mCell.mX == mEnd.mX && mCell.mY == mEnd.mY; }

    const Grid& mGrid;
    const Segment& mSegment;
    Position mCell;
    Position mEnd;
    Axis mX;
    Axis mY;
    int64 mStepsLeft = -1; ///< negative before the first one
    bool mDone = false;
};

template <class Visitor>
void NavMeshConnector::Grid::findCandidates(const Search& search, const Visitor& visitor) const
{
    const Vec2<float> low = toGridCoords(search.mBox.mMin);
    const Vec2<float> high = toGridCoords(search.mBox.mMax);
    const Segment segment{toGridCoords(search.mA), toGridCoords(search.mB)};
    for (CellWalk walk(*this, segment); !walk.isDone(); walk.advance())
    {
        const Cell* cell = findCell(walk.getCell());
        if (cell == nullptr)
            continue;
        const uint32 limits = CoarseBox::around(walk.getCell(), low, high).getLimits();
        if (visitCell(*cell, search, limits, visitor))
            return;
    }
}

/// @return whether the visitor wants no more.
template <class Visitor>
bool NavMeshConnector::Grid::visitCell(const Cell& cell, const Search& search, uint32 limits,
                                       const Visitor& visitor) const
{
    const auto isBefore = [](const Entry& entry, uint32 edge) { return entry.mEdge < edge; };
    const Entry* const begin = mEntries.data() + cell.mBegin;
    const Entry* const end = mEntries.data() + cell.mEnd;
    const Entry* const behind = std::lower_bound(begin, end, search.mEndOwn, isBefore);
    const Entry* own = behind;
    while (own != begin && own[-1].mEdge >= search.mFirstOwn)
        --own;
    for (const Entry* entry = behind; entry != end; ++entry)
    {
        if (entry->mBox.meets(limits) && visitor(entry->mEdge))
            return true;
    }
    uint32 piece = cell.mFirstPiece;
    for (const Entry* entry = begin; entry != own; ++entry)
    {
        if (!entry->mBox.meets(limits) || mEdges[entry->mEdge].isRemoved())
            continue;
        if (visitPieces(piece, entry->mEdge, limits, visitor) || visitor(entry->mEdge))
            return true;
    }
    return visitPieces(piece, search.mFirstOwn, limits, visitor);
}

/// Visits the pieces from @p piece on whose origin comes before a side, and leaves it behind them.
template <class Visitor>
bool NavMeshConnector::Grid::visitPieces(uint32& piece, uint32 end, uint32 limits, const Visitor& visitor) const
{
    for (; piece != NONE; piece = mPieceEntries[piece].mNext)
    {
        const Entry& entry = mPieceEntries[piece].mEntry;
        if (mPieces[entry.mEdge].mOrigin >= end)
            return false;
        if (entry.mBox.meets(limits) && visitor(static_cast<uint32>(mEdges.size()) + entry.mEdge))
            return true;
    }
    return false;
}
} // namespace KORV::NavMesh
