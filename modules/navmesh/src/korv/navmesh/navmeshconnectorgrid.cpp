// Finds sides near a side in the ground plane.
//
// Idea: square cells of twice the average length of the open sides; a side is listed in every cell it crosses, and
// meets the sides listed in its own cells. A record is shared by its cells and counted. Lists are chains of
// short arrays, with a coarse box beside each entry, so that most records need not be fetched.
//
// Numbers: a walk through the cells adds up distances in float, so near the corner of four cells it can step past the
// last cell and miss it. It then goes on to the rim. That is harmless, since sides out there are too far away to be
// linked, but in a huge grid it would fill the memory with cells; there it is cut soon after.
// Cost: a side crosses few cells, as the cell size follows the average; memory of the order of the sides.
//
// Source of the walk: J. Amanatides, A. Woo, "A Fast Voxel Traversal Algorithm for Ray Tracing", Eurographics 1987.
#include "korv/navmesh/navmeshconnector.h"

#include "korv/common/debug/assert.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace KORV::NavMesh
{
namespace
{
constexpr int64 MAX_CELLS_FOR_LONG_WALKS = int64{1} << 24;
constexpr int64 MAX_OVERRUN = 64; // cells past the end, in larger grids
// Up to so many cells the grid is an array.
constexpr uint64 CELLS_PER_SIDE = 4;
constexpr uint64 FEW_CELLS = 1024;
} // namespace

/// The cells from one position to another, in the order met.
class NavMeshConnector::Grid::CellWalk
{
public:
    CellWalk(const Grid& grid, const Vec2<float>& a, const Vec2<float>& b)
        : mGrid(grid), mCell{grid.toCell(a.mX, grid.mGridX), grid.toCell(a.mY, grid.mGridY)},
          mEnd{grid.toCell(b.mX, grid.mGridX), grid.toCell(b.mY, grid.mGridY)}
    {
        if (isAtEnd())
            return;
        const Vec2<float> direction = normalised(b - a);
        mX = Axis(mCell.mX, a.mX, direction.mX);
        mY = Axis(mCell.mY, a.mY, direction.mY);
        const bool mayRun = int64{grid.mGridX} * grid.mGridY <= MAX_CELLS_FOR_LONG_WALKS;
        const int64 overrun = mayRun ? MAX_CELLS_FOR_LONG_WALKS : MAX_OVERRUN;
        mStepsLeft = std::abs(int64{mEnd.mX} - mCell.mX) + std::abs(int64{mEnd.mY} - mCell.mY) + overrun;
    }

    const Position& getCell() const { return mCell; }
    bool isDone() const { return mDone; }

    void advance()
    {
        if (isAtEnd() || mStepsLeft-- == 0)
        {
            mDone = true;
            return;
        }
        if (mY.mNext <= mX.mNext)
            mY.advance(mCell.mY);
        else
            mX.advance(mCell.mX);
        mDone = !mGrid.isInside(mCell);
    }

private:
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

    bool isAtEnd() const { return mCell.mX == mEnd.mX && mCell.mY == mEnd.mY; }

    const Grid& mGrid;
    Position mCell;
    Position mEnd;
    Axis mX;
    Axis mY;
    int64 mStepsLeft = 0;
    bool mDone = false;
};

NavMeshConnector::Grid::Grid(const NavMeshContainer& navMesh, int32 vertComp)
    : mVertComp(vertComp), mNavMesh(navMesh), mCells(getMemory()), mUsedCells(CellTable::allocator_type(getMemory())),
      mChunks(getMemory()), mEdges(getMemory()), mFreeEdges(getMemory())
{
    if (!KORV_ASSERT(mVertComp == 0 || mVertComp == 1 || mVertComp == 2,
                     "mVertComp == 0 || mVertComp == 1 || mVertComp == 2",
                     "vertical component must be in range of [0 .. 2]"))
        mVertComp = 2;
    mHorizComp[0] = mVertComp == 0 ? 1 : 0;
    mHorizComp[1] = mVertComp == 2 ? 1 : 2;
    measure();
}

NavMeshConnector::Grid::~Grid() = default;

/// Finds cell size, origin and cell counts. Without a usable cell size, mCellSize stays negative.
void NavMeshConnector::Grid::measure()
{
    const auto isFinite = [](const Vec2<float>& p) { return std::isfinite(p.mX) && std::isfinite(p.mY); };
    Vec2<float> low(3.4028235e+38f, 3.4028235e+38f);
    Vec2<float> high(-3.4028235e+38f, -3.4028235e+38f);
    for (const Vec3<float>& vertex : mNavMesh.mVertices)
    {
        const Vec2<float> p = getPosition(vertex);
        if (!isFinite(p))
            continue;
        low = {std::min(low.mX, p.mX), std::min(low.mY, p.mY)};
        high = {std::max(high.mX, p.mX), std::max(high.mY, p.mY)};
    }
    uint64 numOpen = 0;
    const float cellSize = 2.0f * averageOpenLength(numOpen);
    if (!(cellSize > 0.0f) || !isFinite(high - low) || !std::isfinite(cellSize))
        return;
    low = low - Vec2<float>(cellSize, cellSize);
    high = high + Vec2<float>(cellSize, cellSize);
    mCellSize = cellSize;
    mOrigin = low;
    mGridX = countCells(high.mX - low.mX);
    mGridY = countCells(high.mY - low.mY);
    const uint64 numCells = static_cast<uint64>(mGridX) * static_cast<uint64>(mGridY);
    if (numCells <= CELLS_PER_SIDE * numOpen + FEW_CELLS)
        mCells.resize(numCells);
}

/// Average length of the open sides, those that can't be measured left out; 0 when there are none.
float NavMeshConnector::Grid::averageOpenLength(uint64& numOpen) const
{
    float sum = 0.0f;
    numOpen = 0;
    for (const NavMeshContainer::NavNode& node : mNavMesh.mNodes)
    {
        for (size_t side = 0; side < node.mNeighbours.size(); ++side)
        {
            if (node.mNeighbours[side] != -1)
                continue;
            Vec2<float> a;
            Vec2<float> b;
            if (!getEnds(a, b, node, side) || !std::isfinite((b - a).getLength()))
                continue;
            sum += (b - a).getLength();
            ++numOpen;
        }
    }
    return numOpen > 0 ? sum / static_cast<float>(numOpen) : 0.0f;
}

int32 NavMeshConnector::Grid::countCells(float extent) const
{
    const float cells = extent / mCellSize;
    constexpr int32 MOST = std::numeric_limits<int32>::max();
    return cells < static_cast<float>(MOST) ? static_cast<int32>(cells) + 1 : MOST;
}

int32 NavMeshConnector::Grid::toCell(float coordinate, int32 numCells)
{
    if (!(coordinate >= 0.0f))
        return 0;
    return coordinate < static_cast<float>(numCells) ? std::min(static_cast<int32>(coordinate), numCells - 1)
                                                     : numCells - 1;
}

bool NavMeshConnector::Grid::isInside(const Position& position) const
{
    return position.mX >= 0 && position.mX < mGridX && position.mY >= 0 && position.mY < mGridY;
}

bool NavMeshConnector::Grid::getEnds(Vec2<float>& a, Vec2<float>& b, const NavMeshContainer::NavNode& node,
                                     size_t side) const
{
    const Vector<uint32>& polygon = node.mPolygon;
    if (side >= polygon.size())
        return false;
    const uint32 first = polygon[side];
    const uint32 second = polygon[side + 1 < polygon.size() ? side + 1 : 0];
    if (first >= mNavMesh.mVertices.size() || second >= mNavMesh.mVertices.size())
        return false;
    a = getPosition(mNavMesh.mVertices[first]);
    b = getPosition(mNavMesh.mVertices[second]);
    return true;
}

/// The ends of a side in grid coordinates, and the record it is registered with.
/// @return false when the side can't be registered.
bool NavMeshConnector::Grid::measureSide(Vec2<float>& a, Vec2<float>& b, GridEdge& edge, int32 node, int32 side) const
{
    if (node < 0 || static_cast<size_t>(node) >= mNavMesh.mNodes.size() || side < 0 || !isUsable())
        return false;
    const NavMeshContainer::NavNode& navNode = mNavMesh.mNodes[static_cast<size_t>(node)];
    if (!getEnds(a, b, navNode, static_cast<size_t>(side)))
        return false;
    edge = {node, side, mNavMesh.mVertices[navNode.mPolygon[static_cast<size_t>(side)]][mVertComp], 0, 0, {a, b}};
    const float length = (b - a).getLength();
    if (!(length > 0.0f) || !std::isfinite(length))
        return false;
    a = toGridCoords(a);
    b = toGridCoords(b);
    return true;
}

Vec2<float> NavMeshConnector::Grid::toGridCoords(const Vec2<float>& position) const
{
    return {(position.mX - mOrigin.mX) / mCellSize, (position.mY - mOrigin.mY) / mCellSize};
}

uint64 NavMeshConnector::Grid::getKey(const Position& position) const
{
    if (!KORV_ASSERT(isInside(position), "pos.mX >= 0 && pos.mX < mGridX && pos.mY >= 0 && pos.mY < mGridY",
                     "grid position out of range"))
        return 0;
    return static_cast<uint64>(position.mY) * static_cast<uint64>(mGridX) + static_cast<uint64>(position.mX);
}

NavMeshConnector::Grid::Cell& NavMeshConnector::Grid::getCell(const Position& position)
{
    const uint64 key = getKey(position);
    return key < mCells.size() ? mCells[key] : mUsedCells[key];
}

NavMeshConnector::Grid::Cell* NavMeshConnector::Grid::findCell(const Position& position)
{
    const uint64 key = getKey(position);
    if (key < mCells.size())
        return &mCells[key];
    const auto cell = mUsedCells.find(key);
    return cell != mUsedCells.end() ? &cell->second : nullptr;
}

uint32 NavMeshConnector::Grid::takeEdge(const GridEdge& edge)
{
    if (mFreeEdges.empty())
        return mEdges.append(edge);
    const uint32 reused = mFreeEdges.back();
    mFreeEdges.pop_back();
    mEdges.getUnchecked(reused) = edge;
    return reused;
}

/// @param a, b  in grid coordinates.
NavMeshConnector::Grid::CoarseBox NavMeshConnector::Grid::coarseBox(const Position& cell, const Vec2<float>& a,
                                                                    const Vec2<float>& b)
{
    constexpr float STEPS = 64.0f; // a cell, so that the box may reach from one cell before to two behind
    const auto coarse = [](float coordinate, int32 origin)
    {
        const float steps = (coordinate - static_cast<float>(origin - 1)) * STEPS;
        return static_cast<uint8>(steps > 0.0f ? (steps < 255.0f ? steps : 255.0f) : 0.0f);
    };
    return {coarse(std::min(a.mX, b.mX), cell.mX), coarse(std::min(a.mY, b.mY), cell.mY),
            coarse(std::max(a.mX, b.mX), cell.mX), coarse(std::max(a.mY, b.mY), cell.mY)};
}

void NavMeshConnector::Grid::append(Cell& cell, const Entry& entry)
{
    if (cell.mLast == NONE || mChunks[cell.mLast].mEnd == Chunk::SIZE)
    {
        const uint32 chunk = takeChunk();
        (cell.mFirst == NONE ? cell.mFirst : mChunks[cell.mLast].mNext) = chunk;
        cell.mLast = chunk;
    }
    Chunk& last = mChunks[cell.mLast];
    last.mEntries[last.mEnd++] = entry;
    ++mEdges.getUnchecked(entry.mEdge).mRefCount;
}

uint32 NavMeshConnector::Grid::takeChunk()
{
    const uint32 chunk = mFreeChunks;
    if (chunk == NONE)
    {
        mChunks.emplace_back();
        return static_cast<uint32>(mChunks.size() - 1);
    }
    mFreeChunks = mChunks[chunk].mNext;
    mChunks[chunk] = Chunk();
    return chunk;
}

/// Forgets the removed records at the front of a chunk. Sides leave in the order in which they came, so that is where
/// nearly all of them are.
void NavMeshConnector::Grid::dropRemoved(Chunk& chunk)
{
    for (; chunk.mBegin != chunk.mEnd; ++chunk.mBegin)
    {
        const uint32 edge = chunk.mEntries[chunk.mBegin].mEdge;
        GridEdge& record = mEdges.getUnchecked(edge);
        if (!record.isRemoved())
            return;
        if (--record.mRefCount == 0)
            mFreeEdges.push_back(edge);
    }
}

/// @param previous  the chunk before, NONE for the first one.
/// @return the chunk behind.
uint32 NavMeshConnector::Grid::unlink(Cell& cell, uint32 previous, uint32 chunk)
{
    const uint32 next = mChunks[chunk].mNext;
    (previous == NONE ? cell.mFirst : mChunks[previous].mNext) = next;
    if (cell.mLast == chunk)
        cell.mLast = previous;
    mChunks[chunk].mNext = mFreeChunks;
    mFreeChunks = chunk;
    return next;
}

/// Calls the visitor with the records of a cell whose coarse boxes meet a box, in the order inserted, until it returns
/// false.
template <class Visitor>
void NavMeshConnector::Grid::visit(Cell* cell, const CoarseBox& box, Visitor&& visitor)
{
    uint32 previous = NONE;
    for (uint32 chunk = cell != nullptr ? cell->mFirst : NONE; chunk != NONE;)
    {
        Chunk& visited = mChunks[chunk];
        dropRemoved(visited);
        if (visited.mBegin == visited.mEnd)
        {
            chunk = unlink(*cell, previous, chunk);
            continue;
        }
        for (uint8 i = visited.mBegin; i != visited.mEnd; ++i)
        {
            if (!visited.mEntries[i].mBox.meets(box))
                continue;
            GridEdge& edge = mEdges.getUnchecked(visited.mEntries[i].mEdge);
            if (!edge.isRemoved() && !visitor(edge))
                return;
        }
        previous = chunk;
        chunk = visited.mNext;
    }
}

void NavMeshConnector::Grid::insertEdge(int32 node, int32 side)
{
    Vec2<float> a;
    Vec2<float> b;
    GridEdge edge;
    if (!measureSide(a, b, edge, node, side))
        return;
    const uint32 record = takeEdge(edge);
    for (CellWalk walk(*this, a, b); !walk.isDone(); walk.advance())
        append(getCell(walk.getCell()), {record, coarseBox(walk.getCell(), a, b)});
}

void NavMeshConnector::Grid::removeEdge(int32 node, int32 side)
{
    Vec2<float> a;
    Vec2<float> b;
    GridEdge edge;
    if (!measureSide(a, b, edge, node, side))
        return;
    GridEdge* removed = nullptr;
    const Position cell = CellWalk(*this, a, b).getCell();
    visit(findCell(cell), coarseBox(cell, a, b),
          [&](GridEdge& listed)
          {
              removed = listed.mNode == node && listed.mSide == side ? &listed : nullptr;
              return removed == nullptr;
          });
    if (KORV_ASSERT(removed != nullptr, "removeEdge != NULL", "edge not found"))
        removed->mNode = -1;
}

void NavMeshConnector::Grid::findCandidates(CandidateList& candidates, int32 node, int32 side, float range,
                                            const Box* box)
{
    Vec2<float> a;
    Vec2<float> b;
    GridEdge edge;
    if (!measureSide(a, b, edge, node, side))
        return;
    const uint32 mark = ++mNumSearches;
    const Vec2<float> low = box != nullptr ? toGridCoords(box->mMin) : Vec2<float>();
    const Vec2<float> high = box != nullptr ? toGridCoords(box->mMax) : Vec2<float>();
    for (CellWalk walk(*this, a, b); !walk.isDone(); walk.advance())
    {
        const CoarseBox coarse = box != nullptr ? coarseBox(walk.getCell(), low, high) : CoarseBox();
        visit(findCell(walk.getCell()), coarse,
              [&](GridEdge& listed)
              {
                  if (listed.mVisited == mark || !(std::fabs(listed.mHeight - edge.mHeight) <= range) ||
                      (box != nullptr && !box->meets(listed.mEnds[0], listed.mEnds[1])))
                      return true;
                  candidates.push_back(&listed);
                  listed.mVisited = mark;
                  return true;
              });
    }
}
} // namespace KORV::NavMesh
