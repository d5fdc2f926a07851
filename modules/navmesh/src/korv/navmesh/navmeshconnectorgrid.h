#pragma once

#include "korv/common/platform/prefetch.h"
#include "korv/navmesh/floatlanes.h"
#include "korv/navmesh/navmeshconnector.h"
#include "korv/navmesh/rangetask.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <span>
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
    /// Column and row of a cell.
    struct Position
    {
        bool operator==(const Position&) const = default;

        int32 mX;
        int32 mY;
    };
    /// Where a segment's box lies about a cell, four bytes in a word: lower ends, and upper ends counted downwards. In
    /// steps so coarse that rounding keeps the order of coordinates, so no box that meets another is lost.
    class CoarseBox
    {
    public:
        static constexpr float STEPS = 32.0f; ///< a cell, so that a box may reach from one cell before to two behind
        static constexpr uint32 MOST = 127;

        CoarseBox() = default;
        /// @param box  lower and upper ends in grid coordinates. What is not a number becomes 0.
        CoarseBox(const Position& cell, FloatLanes box)
        {
            const auto x = static_cast<float>(cell.mX - 1);
            const auto y = static_cast<float>(cell.mY - 1);
            const FloatLanes steps = (box - FloatLanes{x, y, x, y}) * STEPS;
            const FloatLanes above = steps > 0.0f ? steps : sameLanes(0.0f);
            const FloatLanes inside = above < float{MOST} ? above : sameLanes(float{MOST});
            mBytes = std::bit_cast<uint32>(__builtin_convertvector(__builtin_convertvector(inside, MaskLanes), Bytes)) ^
                     UPPER_ENDS;
        }

        /// Whether both ends lie in the cell and nowhere else.
        bool isWithinCell() const { return (mBytes & OTHER_CELLS) == IN_CELL; }
        /// What meets compares with.
        /// @param reach  added on every side. [steps, MOST at most]
        uint32 getLimits(uint32 reach) const
        {
            const uint32 reduced = (mBytes | GUARDS) - reach * EACH;
            const uint32 guards = reduced & GUARDS; // gone where the box would reach too far
            const uint32 widened = reduced & (guards - (guards >> 7));
            // no byte borrows from the next, for all steps are below 128
            return (MAX_STEPS - ((widened >> 16) | (widened << 16))) | GUARDS;
        }
        bool meets(uint32 limits) const { return ((limits - mBytes) & GUARDS) == GUARDS; }
        /// The same for four boxes at once.
        static MaskLanes meetLanes(const CoarseBox* boxes, uint32 limits)
        {
            WordLanes bytes;
            std::memcpy(&bytes, boxes, sizeof bytes);
            return ((limits - bytes) & GUARDS) == GUARDS;
        }

    private:
        using Bytes = uint8 __attribute__((vector_size(4)));
        using WordLanes = uint32 __attribute__((vector_size(16)));

        static constexpr uint32 EACH = 0x01010101;
        static constexpr uint32 GUARDS = 0x80808080;
        static constexpr uint32 MAX_STEPS = 0x7F7F7F7F;
        // the bits that tell cells apart: the cell itself has the steps from 32 to 63, counted downwards from 64 to 95
        static constexpr uint32 OTHER_CELLS = 0x60606060;
        static constexpr auto IN_CELL = std::bit_cast<uint32>(std::array<uint8, 4>{0x20, 0x20, 0x40, 0x40});
        static constexpr auto UPPER_ENDS = std::bit_cast<uint32>(std::array<uint8, 4>{0, 0, 0x7F, 0x7F});

        uint32 mBytes = 0;
    };
    /// A side in a cell.
    class Entry
    {
    public:
        Entry() = default;
        Entry(uint32 edge, bool isFirst, CoarseBox box) : mBox(box), mBits(edge | (isFirst ? FIRST : 0)) {}

        uint32 getEdge() const { return mBits & ~FIRST; }
        /// Whether the side starts in the cell.
        bool isFirst() const { return (mBits & FIRST) != 0; }

        CoarseBox mBox;

    private:
        static constexpr uint32 FIRST = 1u << 31;

        uint32 mBits = 0;
    };

    /// Nodes of a block that are worked on together.
    struct Stretch
    {
        Stretch(MeshDraft::Block* block, size_t piece, size_t endPiece, uint32 firstEdge)
            : mBlock(block), mPiece(piece), mEndPiece(endPiece), mFirstEdge(firstEdge)
        {
        }

        /// Their sides in the lists of the block.
        size_t begin() const { return mBlock->mPieces.begin(mPiece); }
        size_t end() const { return mBlock->mPieces.end(mEndPiece - 1); }

        MeshDraft::Block* mBlock;
        size_t mPiece;
        size_t mEndPiece;
        uint32 mFirstEdge;
    };
    /// @param vertices  those of the mesh, which must outlive the grid.
    Grid(const Vector<Vec3<float>>& vertices, int32 vertComp);
    ~Grid() override;

    /// Numbers the open sides of a mesh, and sets the cells up for them. Throws what the runner throws, and
    /// InvalidStateException when there are too many.
    /// @param draft  must outlive the grid.
    /// @param tolerance  distance at which sides touch.
    void listOpenSides(MeshDraft& draft, float tolerance, const RangeRunner& runner);
    /// False when there is no side that could be registered.
    bool isUsable() const { return mCellSize > 0.0f; }
    /// The open sides of the mesh, registered or not.
    uint32 getNumEdges() const { return static_cast<uint32>(mEdges.size()); }
    /// Those of them that start at a corner which does not exist.
    uint32 getNumMissing() const { return mNumMissing; }

    /// Registers the open sides of all nodes. One with an invalid corner, or without a finite length above 0, can't be
    /// linked and is left out. Throws what the runner throws.
    /// @param numParts  that workers may take.
    /// @param begin, end  fractions of the stage that are done before and then.
    void insertOpenSides(RangeRunner& runner, uint32 numParts, float begin, float end);
    /// Registers what is left of a side that has left: a piece of it. Origins must come in ascending order.
    /// Appends the sides behind the origin in the cells that it crosses, all that can touch it, and some beyond.
    void insertPiece(uint32 origin, const GridEdge& piece, Vector<uint32>& sidesNearby);

    /// Calls the visitor with the sides in the cells of a side until it returns true: cell by cell, first those of
    /// nodes behind, then those of nodes before, in ascending order; some of them more than once. The numbers of pieces
    /// follow those of the mesh's sides.
    /// @param own  the sides of the same node, which are left out.
    /// @param hasLeft  tells of a side of a node before whether it is not there any more.
    template <class HasLeft, class Visitor>
    void findCandidates(const GridEdge& edge, const EdgeRange& own, const HasLeft& hasLeft,
                        const Visitor& visitor) const;

    uint32 getNumCells() const { return static_cast<uint32>(mCells.size()); }
    /// The sides of the mesh in a cell, in ascending order, those that have left among them.
    std::span<const Entry> getEntries(uint32 cell) const
    {
        return {mEntries.data() + mCells[cell].mBegin, mEntries.data() + mCells[cell].mEnd};
    }
    /// Has what measuring an entry some turns later takes brought to the cache.
    void fetchAhead(const Entry& entry) const
    {
        constexpr ptrdiff_t TURNS = 8;
        const ptrdiff_t left = mEntries.data() + mEntries.size() - &entry;
        if (left > 2 * TURNS)
        {
            Common::Platform::prefetch(&mEdges[(&entry)[2 * TURNS].getEdge()]);
            Common::Platform::prefetch(&mVertices[mEdges[(&entry)[TURNS].getEdge()].mVertices[0]]);
        }
    }
    /// Limits of the boxes in a cell that can touch another one.
    uint32 getLimits(const CoarseBox& box) const { return box.getLimits(mReach); }
    /// The sides of the node that a side belongs to.
    EdgeRange getOwnEdges(uint32 edge) const;
    /// The side of the mesh that a side is, or is a piece of.
    uint32 getOrigin(uint32 edge) const { return edge < mEdges.size() ? edge : mPieces[edge - mEdges.size()].mOrigin; }
    const Vector<Stretch>& getStretches() const { return mStretches; }
    /// How many of them make a task.
    uint32 getStretchesPerTask() const;

    const GridEdge& getEdge(uint32 edge) const
    {
        return edge < mEdges.size() ? mEdges[edge] : mPieces[edge - mEdges.size()].mEdge;
    }
    const Vec3<float>& getVertex(const GridEdge& edge, uint32 end) const { return mVertices[edge.mVertices[end]]; }
    Vec2<float> getEnd(const GridEdge& edge, uint32 end) const { return getPosition(getVertex(edge, end)); }
    /// A position in the ground plane.
    Vec2<float> getPosition(const Vec3<float>& vertex) const
    {
        return {mVertComp == 0 ? vertex.mY : vertex.mX, mVertComp == 2 ? vertex.mY : vertex.mZ};
    }
    float getHeight(const Vec3<float>& vertex) const { return vertex[mVertComp]; }
    /// Vertical coordinate of a node's first corner.
    float getNodeHeight(int32 node) const { return mNodeHeights[static_cast<uint32>(node)]; }

    float mCellSize = -1.0f;
    Vec2<float> mOrigin;
    int32 mVertComp;
    int32 mGridX = 0;
    int32 mGridY = 0;

private:
    static constexpr uint32 NONE = 0xFFFFFFFF;

    /// A side in grid coordinates.
    struct Segment
    {
        CoarseBox getCoarseBox(const Position& cell) const
        {
            const FloatLanes ends{mA.mX, mA.mY, mB.mX, mB.mY};
            const FloatLanes others{mB.mX, mB.mY, mA.mX, mA.mY};
            const FloatLanes smaller = ends < others ? ends : others;
            const FloatLanes larger = ends < others ? others : ends;
            return CoarseBox(cell, __builtin_shufflevector(smaller, larger, 0, 1, 6, 7));
        }

        Vec2<float> mA;
        Vec2<float> mB;
    };
    /// The cells of a segment's ends.
    struct EndCells
    {
        Position mFirst;
        Position mLast;
    };
    struct Crossing
    {
        Segment mSegment;
        EndCells mCells;
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

    void layStretchesOut(MeshDraft& draft);
    void listStretch(const Stretch& stretch, Vector<float>& lengths);
    float measureEdge(GridEdge& edge);
    void measure(float cellSize, float tolerance);
    void setReach(float cells);
    int32 countCells(float extent) const;
    /// @return 0 also for what is not a number.
    static int32 toCell(float coordinate, int32 numCells)
    {
        const float inside = std::min(std::max(0.0f, coordinate), static_cast<float>(numCells));
        return static_cast<int32>(std::min(static_cast<int64>(inside), int64{numCells} - 1));
    }
    Position toCell(const Vec2<float>& position) const
    {
        return {toCell(position.mX, mGridX), toCell(position.mY, mGridY)};
    }
    EndCells getEndCells(const Segment& segment) const
    {
        if (mIsSparse) // it may have more cells than lanes can count
            return {toCell(segment.mA), toCell(segment.mB)};
        const MaskLanes numCells{mGridX, mGridY, mGridX, mGridY};
        const FloatLanes limits = __builtin_convertvector(numCells, FloatLanes);
        const FloatLanes inside = smallerLanes(largerLanes(FloatLanes{}, std::bit_cast<FloatLanes>(segment)), limits);
        const MaskLanes cells = __builtin_convertvector(inside, MaskLanes);
        return std::bit_cast<EndCells>(cells < numCells ? cells : numCells - 1);
    }
    Segment getSegment(const GridEdge& edge) const
    {
        const Vec2<float> a = getEnd(edge, 0);
        const Vec2<float> b = getEnd(edge, 1);
        const FloatLanes origin{mOrigin.mX, mOrigin.mY, mOrigin.mX, mOrigin.mY};
        return std::bit_cast<Segment>((FloatLanes{a.mX, a.mY, b.mX, b.mY} - origin) / mCellSize);
    }
    bool isInside(const Position& position) const
    {
        return position.mX >= 0 && position.mX < mGridX && position.mY >= 0 && position.mY < mGridY;
    }
    [[gnu::noinline, gnu::cold]] bool reportPosition() const;
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
    /// A cell's place in mCells, which it gets now if need be.
    uint32 getCellNumber(const Position& position)
    {
        const uint64 key = getKey(position);
        return mIsSparse ? getSparseCell(key) : static_cast<uint32>(key);
    }
    uint32 getSparseCell(uint64 key);
    const Cell* findCell(const Position& position) const
    {
        const uint64 key = getKey(position);
        return mIsSparse ? findSparseCell(key) : &mCells[key];
    }
    const Cell* findSparseCell(uint64 key) const;
    void countEntries(uint32 begin, uint32 end, Vector<uint32>& counts);
    void layEntriesOut(RangeResults<uint32>& counts);
    void fillEntries(uint32 begin, uint32 end, Vector<uint32>& free);
    void appendPiece(Cell& cell, const Entry& entry);
    static bool isStraight(const Segment& segment, const Position& begin, const Position& end);
    template <class Visitor>
    void visitAllCells(uint32 begin, uint32 end, const Visitor& visitor) const;
    template <class Visitor>
    void visitCells(const Segment& segment, const Visitor& visitor) const;
    template <class Visitor>
    void visitCells(const Crossing& crossing, const Visitor& visitor) const;
    template <class HasLeft, class Visitor>
    bool visitCell(const Cell& cell, const EdgeRange& own, uint32 limits, const HasLeft& hasLeft,
                   const Visitor& visitor) const;
    template <class Visitor>
    bool visitPieces(uint32& piece, uint32 end, uint32 limits, const Visitor& visitor) const;

    const Vector<Vec3<float>>& mVertices;
    Vector<GridEdge> mEdges;
    Vector<float> mNodeHeights;
    Vector<Stretch> mStretches; ///< all nodes in order
    std::atomic<uint32> mNumMissing{0};
    uint32 mReach = 0; ///< of a search beyond a side's coarse box [steps]
    bool mIsSparse = false;
    Vector<Cell> mCells;    ///< by number, y * mGridX + x; only those used where a table of all cells would be huge
    CellNumbers mUsedCells; ///< their places then: short sides in a wide mesh
    Vector<Entry> mEntries;
    Vector<Piece> mPieces;
    Vector<PieceEntry> mPieceEntries;
};

/// The cells that a segment crosses, in the order met.
///
/// A walk adds up distances in float, so near the corner of four cells it can step past the last cell and miss it. It
/// then goes on to the rim. That is harmless, since sides out there are too far away to be linked, but in a sparse grid
/// it would fill the memory with cells; there it is cut soon after.
///
/// Source: J. Amanatides, A. Woo, "A Fast Voxel Traversal Algorithm for Ray Tracing", Eurographics 1987.
class NavMeshConnector::Grid::CellWalk
{
public:
    CellWalk(const Grid& grid, const Segment& segment, const Position& begin, const Position& end)
        : mGrid(grid), mCell(begin), mEnd(end)
    {
        const Vec2<float> direction = normalised(segment.mB - segment.mA);
        mX = Axis(mCell.mX, segment.mA.mX, direction.mX);
        mY = Axis(mCell.mY, segment.mA.mY, direction.mY);
        const int64 overrun = mGrid.mIsSparse ? MAX_OVERRUN : int64{mGrid.mGridX} + mGrid.mGridY;
        mStepsLeft = std::abs(int64{mEnd.mX} - mCell.mX) + std::abs(int64{mEnd.mY} - mCell.mY) + overrun;
    }

    const Position& getCell() const { return mCell; }
    bool isDone() const { return mDone; }

    void advance()
    {
        mDone = mCell == mEnd || mStepsLeft == 0;
        if (mDone)
            return;
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

    const Grid& mGrid;
    Position mCell;
    Position mEnd;
    Axis mX;
    Axis mY;
    int64 mStepsLeft = 0;
    bool mDone = false;
};

template <class HasLeft, class Visitor>
void NavMeshConnector::Grid::findCandidates(const GridEdge& edge, const EdgeRange& own, const HasLeft& hasLeft,
                                            const Visitor& visitor) const
{
    const Segment segment = getSegment(edge);
    visitCells(segment,
               [&](const Position& position)
               {
                   const Cell* cell = findCell(position);
                   return cell != nullptr &&
                          visitCell(*cell, own, getLimits(segment.getCoarseBox(position)), hasLeft, visitor);
               });
}

/// Whether a segment surely stays in its row or column of cells.
inline bool NavMeshConnector::Grid::isStraight(const Segment& segment, const Position& begin, const Position& end)
{
    if (segment.mA.mX == segment.mB.mX || segment.mA.mY == segment.mB.mY)
        return true;
    // into the next cell: a walk would have to round a lot before it left the row close to the end
    const auto isInside = [](float coordinate, int32 cell)
    {
        constexpr float MARGIN = 1.0f / 1024.0f;
        const float place = coordinate - static_cast<float>(cell);
        return place >= MARGIN && place <= 1.0f - MARGIN;
    };
    if (begin.mY == end.mY)
        return std::abs(end.mX - begin.mX) == 1 && isInside(segment.mB.mY, end.mY);
    return begin.mX == end.mX && std::abs(end.mY - begin.mY) == 1 && isInside(segment.mB.mX, end.mX);
}

/// Calls the visitor with the cells that a segment crosses, in the order met, until it returns true.
template <class Visitor>
void NavMeshConnector::Grid::visitCells(const Segment& segment, const Visitor& visitor) const
{
    visitCells(Crossing{segment, getEndCells(segment)}, visitor);
}

/// The same for a segment whose end cells are known.
template <class Visitor>
void NavMeshConnector::Grid::visitCells(const Crossing& crossing, const Visitor& visitor) const
{
    const Segment& segment = crossing.mSegment;
    const Position& end = crossing.mCells.mLast;
    Position cell = crossing.mCells.mFirst;
    if (cell != end && !isStraight(segment, cell, end))
    {
        for (CellWalk walk(*this, segment, cell, end); !walk.isDone() && !visitor(walk.getCell());)
            walk.advance();
        return;
    }
    const int32 stepX = (end.mX > cell.mX) - (end.mX < cell.mX);
    const int32 stepY = (end.mY > cell.mY) - (end.mY < cell.mY);
    while (!visitor(cell) && cell != end)
        cell = {cell.mX + stepX, cell.mY + stepY};
}

/// @return whether the visitor wants no more.
template <class HasLeft, class Visitor>
bool NavMeshConnector::Grid::visitCell(const Cell& cell, const EdgeRange& own, uint32 limits, const HasLeft& hasLeft,
                                       const Visitor& visitor) const
{
    const auto isBefore = [](const Entry& entry, uint32 edge) { return entry.getEdge() < edge; };
    const Entry* const begin = mEntries.data() + cell.mBegin;
    const Entry* const end = mEntries.data() + cell.mEnd;
    const Entry* const behind = std::lower_bound(begin, end, own.mEnd, isBefore);
    const Entry* before = behind; // their end
    while (before != begin && before[-1].getEdge() >= own.mBegin)
        --before;
    for (const Entry* entry = behind; entry != end; ++entry)
    {
        if (entry->mBox.meets(limits) && visitor(entry->getEdge()))
            return true;
    }
    uint32 piece = cell.mFirstPiece;
    for (const Entry* entry = begin; entry != before; ++entry)
    {
        if (!entry->mBox.meets(limits) || hasLeft(entry->getEdge()))
            continue;
        if (visitPieces(piece, entry->getEdge(), limits, visitor) || visitor(entry->getEdge()))
            return true;
    }
    return visitPieces(piece, own.mBegin, limits, visitor);
}

/// Visits the pieces from @p piece on whose origin comes before a side, and leaves it behind them.
template <class Visitor>
bool NavMeshConnector::Grid::visitPieces(uint32& piece, uint32 end, uint32 limits, const Visitor& visitor) const
{
    for (; piece != NONE; piece = mPieceEntries[piece].mNext)
    {
        const Entry& entry = mPieceEntries[piece].mEntry;
        if (mPieces[entry.getEdge()].mOrigin >= end)
            return false;
        if (entry.mBox.meets(limits) && visitor(static_cast<uint32>(mEdges.size()) + entry.getEdge()))
            return true;
    }
    return false;
}
} // namespace KORV::NavMesh
