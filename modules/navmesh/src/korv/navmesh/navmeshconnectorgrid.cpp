// Finds sides near a side in the ground plane.
//
// Idea: square cells of twice the average length of the open sides; a side is listed in every cell it crosses, and
// meets the sides listed in its own cells. The lists are ranges of one array, and stay as they are: whoever searches
// knows which sides have left, and pieces of split sides, which are few, hang in chains of their own. A coarse box
// beside each entry tells that a side is too far away, so that most sides need not be fetched.
//
// Cost: a side crosses few cells, as the cell size follows the average. A side takes 12 bytes, and 8 for each cell that
// it crosses; a cell takes 16, a node 4.
#include "korv/navmesh/navmeshconnectorgrid.h"

#include "korv/common/debug/assert.h"
#include "korv/common/exceptions/exception.h"

#include <cmath>
#include <cstdlib>
#include <limits>

namespace KORV::NavMesh
{
namespace
{
// Up to so many cells the grid is a table.
constexpr uint64 CELLS_PER_SIDE = 1;
constexpr uint64 FEW_CELLS = 1024;

constexpr size_t NODES_PER_STRETCH = 4096;

/// So many sides are not worth waking a worker.
constexpr uint32 FEW_EDGES = 4096;

/// How far from a side the search looks: twice what is needed, and far more than the rounding of the tests.
/// @param extent  of the coordinates of a side, and its length.
float searchDistance(float tolerance, float extent)
{
    constexpr float ROUNDING_SHARE = 1e-5f;
    return 2.0f * std::fabs(tolerance) + ROUNDING_SHARE * extent;
}

/// Average of those that are finite; 0 when there are none.
float average(const Vector<float>& lengths)
{
    float sum = 0.0f;
    uint64 numMeasured = 0;
    for (const float length : lengths)
    {
        if (!std::isfinite(length))
            continue;
        sum += length;
        ++numMeasured;
    }
    return numMeasured > 0 ? sum / static_cast<float>(numMeasured) : 0.0f;
}

bool isFinite(const Vec2<float>& p)
{
    return std::isfinite(p.mX) && std::isfinite(p.mY);
}
} // namespace

NavMeshConnector::Grid::Grid(const Vector<Vec3<float>>& vertices, int32 vertComp)
    : mVertComp(vertComp), mVertices(vertices), mEdges(getMemory()), mNodeHeights(getMemory()), mStretches(getMemory()),
      mCells(getMemory()), mUsedCells(CellNumbers::allocator_type(getMemory())), mEntries(getMemory()),
      mPieces(getMemory()), mPieceEntries(getMemory())
{
    if (!KORV_ASSERT(mVertComp == 0 || mVertComp == 1 || mVertComp == 2,
                     "mVertComp == 0 || mVertComp == 1 || mVertComp == 2",
                     "vertical component must be in range of [0 .. 2]"))
        mVertComp = 2;
}

NavMeshConnector::Grid::~Grid() = default;

void NavMeshConnector::Grid::listOpenSides(MeshDraft& draft, float tolerance, const RangeRunner& runner)
{
    layStretchesOut(draft);
    Vector<float> lengths(mEdges.size(), 0.0f, getMemory());
    runner.run(static_cast<uint32>(mStretches.size()), getStretchesPerTask(),
               [&](uint32 begin, uint32 end)
               {
                   for (uint32 stretch = begin; stretch < end; ++stretch)
                       listStretch(mStretches[stretch], lengths);
               });
    measure(2.0f * average(lengths), tolerance);
}

/// Splits the nodes into stretches, and makes room for their sides.
void NavMeshConnector::Grid::layStretchesOut(MeshDraft& draft)
{
    size_t numOpen = 0;
    for (MeshDraft::Block& block : draft.getBlocks())
    {
        for (size_t piece = 0; piece < block.mPieces.size(); piece += NODES_PER_STRETCH)
        {
            const size_t end = std::min(piece + NODES_PER_STRETCH, block.mPieces.size());
            const Stretch& stretch = mStretches.emplace_back(&block, piece, end, static_cast<uint32>(numOpen));
            const auto neighbours = block.mPieces.mNeighbours.begin();
            numOpen += static_cast<size_t>(std::count(neighbours + static_cast<ptrdiff_t>(stretch.begin()),
                                                      neighbours + static_cast<ptrdiff_t>(stretch.end()), OPEN));
            if (numOpen > MOST_EDGES)
                throw new Common::Exceptions::InvalidStateException("The navigation mesh has too many open sides.");
        }
    }
    mEdges.resize(numOpen);
    mNodeHeights.resize(draft.size());
}

uint32 NavMeshConnector::Grid::getStretchesPerTask() const
{
    constexpr uint32 MANY_TASKS = 32;
    const auto numStretches = static_cast<uint32>(mStretches.size());
    return getNumEdges() <= FEW_EDGES ? numStretches : numStretches / MANY_TASKS + 1;
}

void NavMeshConnector::Grid::listStretch(const Stretch& stretch, Vector<float>& lengths)
{
    uint32 edge = stretch.mFirstEdge;
    for (size_t piece = stretch.mPiece; piece < stretch.mEndPiece; ++piece)
    {
        const MeshDraft::Node node = MeshDraft::getNode(*stretch.mBlock, piece);
        const int32 number = stretch.mBlock->mFirstNode + static_cast<int32>(piece);
        const bool hasHeight = node.mSize > 0 && static_cast<uint32>(node.mCorners[0]) < mVertices.size();
        mNodeHeights[static_cast<uint32>(number)] =
            hasHeight ? getHeight(mVertices[static_cast<uint32>(node.mCorners[0])]) : 0.0f;
        for (uint32 side = 0; side < node.mSize; ++side)
        {
            if (node.mNeighbours[side] != OPEN)
                continue;
            mEdges[edge] = {
                number,
                {static_cast<uint32>(node.mCorners[side]), static_cast<uint32>(node.mCorners[node.getNext(side)])}};
            lengths[edge] = measureEdge(mEdges[edge]);
            ++edge;
        }
    }
}

/// The length of a side. Marks one that can't be registered.
/// @return not finite when it can't be measured.
float NavMeshConnector::Grid::measureEdge(GridEdge& edge)
{
    if (edge.mVertices[0] >= mVertices.size())
        mNumMissing.fetch_add(1, std::memory_order_relaxed);
    const bool exists = edge.mVertices[0] < mVertices.size() && edge.mVertices[1] < mVertices.size();
    const float length =
        exists ? (getEnd(edge, 1) - getEnd(edge, 0)).getLength() : std::numeric_limits<float>::infinity();
    if (!std::isfinite(length) || !(length > 0.0f))
        edge.mVertices[0] = GridEdge::UNUSABLE;
    return length;
}

/// Finds origin and cell counts. Without a usable cell size, mCellSize stays negative.
void NavMeshConnector::Grid::measure(float cellSize, float tolerance)
{
    Vec2<float> low(3.4028235e+38f, 3.4028235e+38f);
    Vec2<float> high(-3.4028235e+38f, -3.4028235e+38f);
    for (const Vec3<float>& vertex : mVertices)
    {
        const Vec2<float> p = getPosition(vertex);
        if (!isFinite(p))
            continue;
        low = {std::min(low.mX, p.mX), std::min(low.mY, p.mY)};
        high = {std::max(high.mX, p.mX), std::max(high.mY, p.mY)};
    }
    if (!(cellSize > 0.0f) || !isFinite(high - low) || !std::isfinite(cellSize))
        return;
    // at least the largest coordinate and the length of a side together
    const float extent = low.getLength() + high.getLength() + (high - low).getLength();
    setReach(searchDistance(tolerance, extent) / cellSize);
    low = low - Vec2<float>(cellSize, cellSize);
    high = high + Vec2<float>(cellSize, cellSize);
    mCellSize = cellSize;
    mOrigin = low;
    mGridX = countCells(high.mX - low.mX);
    mGridY = countCells(high.mY - low.mY);
    const uint64 numCells = static_cast<uint64>(mGridX) * static_cast<uint64>(mGridY);
    mIsSparse = numCells > CELLS_PER_SIDE * mEdges.size() + FEW_CELLS;
    if (!mIsSparse)
        mCells.resize(numCells);
}

/// @param cells  how far beyond a side the search looks. A box reaches that far from the end of its last step.
void NavMeshConnector::Grid::setReach(float cells)
{
    const float steps = cells * CoarseBox::STEPS + 1.0f;
    mReach = steps < static_cast<float>(CoarseBox::MOST) ? static_cast<uint32>(steps) : CoarseBox::MOST;
}

int32 NavMeshConnector::Grid::countCells(float extent) const
{
    const float cells = extent / mCellSize;
    constexpr int32 MOST = std::numeric_limits<int32>::max();
    return cells < static_cast<float>(MOST) ? static_cast<int32>(cells) + 1 : MOST;
}

/// Out of line: a report's text takes 4 KB of stack.
bool NavMeshConnector::Grid::reportPosition() const
{
    return KORV_ASSERT(false, "pos.mX >= 0 && pos.mX < mGridX && pos.mY >= 0 && pos.mY < mGridY",
                       "grid position out of range");
}

uint32 NavMeshConnector::Grid::getSparseCell(uint64 key)
{
    const auto [place, isNew] = mUsedCells.try_emplace(key, static_cast<uint32>(mCells.size()));
    if (isNew)
        mCells.emplace_back();
    return place->second;
}

const NavMeshConnector::Grid::Cell* NavMeshConnector::Grid::findSparseCell(uint64 key) const
{
    const auto place = mUsedCells.find(key);
    return place != mUsedCells.end() ? &mCells[place->second] : nullptr;
}

void NavMeshConnector::Grid::insertOpenSides(RangeRunner& runner, uint32 numParts, float begin, float end)
{
    const uint32 numEdges = getNumEdges();
    const bool isWhole = mIsSparse || numEdges <= FEW_EDGES; // new cells are for one thread
    const uint32 batch = isWhole ? numEdges : numEdges / numParts + 1;
    RangeResults<uint32> counts(numEdges, batch, getMemory());
    const float middle = (begin + end) / 2.0f;
    runner.setSpan(begin, middle);
    runner.run(numEdges, batch,
               [&](uint32 first, uint32 behind) { countEntries(first, behind, counts.getPart(first)); });
    layEntriesOut(counts);
    runner.setSpan(middle, end);
    runner.run(numEdges, batch,
               [&](uint32 first, uint32 behind) { fillEntries(first, behind, counts.getPart(first)); });
}

/// Counts the entries of a range of sides by cell.
void NavMeshConnector::Grid::countEntries(uint32 begin, uint32 end, Vector<uint32>& counts)
{
    counts.resize(mCells.size());
    visitAllCells(begin, end,
                  [&](uint32, const Crossing&, const Position& position)
                  {
                      const uint32 cell = getCellNumber(position);
                      if (cell == counts.size())
                          counts.push_back(0);
                      ++counts[cell];
                  });
}

/// Calls the visitor with each of a range of sides, how it lies, and each cell that it crosses.
template <class Visitor>
void NavMeshConnector::Grid::visitAllCells(uint32 begin, uint32 end, const Visitor& visitor) const
{
    // measured some at a time: a wrong guess of how many cells a side crosses would else wait for its divisions
    constexpr uint32 BATCH = 64;
    uint32 edges[BATCH];
    Crossing crossings[BATCH];
    for (uint32 edge = begin; edge < end;)
    {
        uint32 count = 0;
        for (; count < BATCH && edge < end; ++edge)
        {
            if (!mEdges[edge].isUsable())
                continue;
            const Segment segment = getSegment(mEdges[edge]);
            edges[count] = edge;
            crossings[count++] = {segment, getEndCells(segment)};
        }
        for (uint32 i = 0; i < count; ++i)
        {
            visitCells(crossings[i],
                       [&](const Position& position)
                       {
                           visitor(edges[i], crossings[i], position);
                           return false;
                       });
        }
    }
}

/// Gives each cell its room, and in it each range of sides, in their order; counts become places.
void NavMeshConnector::Grid::layEntriesOut(RangeResults<uint32>& counts)
{
    uint64 numEntries = 0;
    for (size_t cell = 0; cell < mCells.size(); ++cell)
    {
        mCells[cell].mBegin = static_cast<uint32>(numEntries);
        counts.forEachPart(
            [&](Vector<uint32>& part)
            {
                if (part.empty())
                    return;
                const uint32 count = part[cell];
                part[cell] = static_cast<uint32>(numEntries);
                numEntries += count;
            });
        mCells[cell].mEnd = static_cast<uint32>(numEntries);
    }
    if (numEntries > std::numeric_limits<uint32>::max())
        Common::Memory::throwOutOfMemory();
    mEntries.resize(numEntries);
}

/// @param free  the next free place of each cell.
void NavMeshConnector::Grid::fillEntries(uint32 begin, uint32 end, Vector<uint32>& free)
{
    visitAllCells(begin, end,
                  [&](uint32 edge, const Crossing& crossing, const Position& position)
                  {
                      const CoarseBox box = crossing.mSegment.getCoarseBox(position);
                      mEntries[free[getCellNumber(position)]++] = {edge, position == crossing.mCells.mFirst, box};
                  });
}

NavMeshConnector::EdgeRange NavMeshConnector::Grid::getOwnEdges(uint32 edge) const
{
    const auto isOwn = [&](const GridEdge& other) { return other.mNode == mEdges[edge].mNode; };
    EdgeRange own{edge, edge + 1};
    while (own.mBegin > 0 && isOwn(mEdges[own.mBegin - 1]))
        --own.mBegin;
    while (own.mEnd < mEdges.size() && isOwn(mEdges[own.mEnd]))
        ++own.mEnd;
    return own;
}

void NavMeshConnector::Grid::insertPiece(uint32 origin, const GridEdge& piece, Vector<uint32>& sidesNearby)
{
    const auto number = static_cast<uint32>(mPieces.size());
    mPieces.push_back({piece, origin});
    const Segment segment = getSegment(piece);
    visitCells(segment,
               [&](const Position& position)
               {
                   Cell& cell = mCells[getCellNumber(position)];
                   const CoarseBox box = segment.getCoarseBox(position);
                   appendPiece(cell, {number, false, box});
                   const uint32 limits = getLimits(box);
                   for (uint32 at = cell.mEnd; at > cell.mBegin && mEntries[at - 1].getEdge() > origin; --at)
                   {
                       if (mEntries[at - 1].mBox.meets(limits))
                           sidesNearby.push_back(mEntries[at - 1].getEdge());
                   }
                   return false;
               });
}

void NavMeshConnector::Grid::appendPiece(Cell& cell, const Entry& entry)
{
    const auto number = static_cast<uint32>(mPieceEntries.size());
    mPieceEntries.push_back({entry, NONE});
    (cell.mFirstPiece == NONE ? cell.mFirstPiece : mPieceEntries[cell.mLastPiece].mNext) = number;
    cell.mLastPiece = number;
}
} // namespace KORV::NavMesh
