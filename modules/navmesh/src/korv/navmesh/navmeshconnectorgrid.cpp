// Finds sides near a side in the ground plane.
//
// Idea: square cells of twice the average length of the open sides; a side is listed in every cell it crosses, and
// meets the sides listed in its own cells. A record is shared by its cells and counted.
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
} // namespace

/// The cells from one position to another, in the order met.
class NavMeshConnector::Grid::CellWalk
{
public:
    CellWalk(const Grid& grid, const Vec2<float>& a, const Vec2<float>& b)
        : mGrid(grid), mCell{grid.toCell(a.mX, grid.mGridX), grid.toCell(a.mY, grid.mGridY)},
          mEnd{grid.toCell(b.mX, grid.mGridX), grid.toCell(b.mY, grid.mGridY)}
    {
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
        if ((mCell.mX == mEnd.mX && mCell.mY == mEnd.mY) || mStepsLeft-- == 0)
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

    const Grid& mGrid;
    Position mCell;
    Position mEnd;
    Axis mX;
    Axis mY;
    int64 mStepsLeft = 0;
    bool mDone = false;
};

NavMeshConnector::Grid::Grid(const NavMeshContainer& navMesh, int32 vertComp)
    : mVertComp(vertComp), mNavMesh(navMesh), mCells(CellTable::allocator_type(getMemory())), mEdges(getMemory()),
      mFreeEdges(getMemory())
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
    const float cellSize = 2.0f * averageOpenLength();
    if (!(cellSize > 0.0f) || !isFinite(high - low) || !std::isfinite(cellSize))
        return;
    low = low - Vec2<float>(cellSize, cellSize);
    high = high + Vec2<float>(cellSize, cellSize);
    mCellSize = cellSize;
    mOrigin = low;
    mGridX = countCells(high.mX - low.mX);
    mGridY = countCells(high.mY - low.mY);
}

/// Average length of the open sides, those that can't be measured left out; 0 when there are none.
float NavMeshConnector::Grid::averageOpenLength() const
{
    float sum = 0.0f;
    uint64 count = 0;
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
            ++count;
        }
    }
    return count > 0 ? sum / static_cast<float>(count) : 0.0f;
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

/// The ends of a side in grid coordinates, and the height it is registered with.
/// @return false when the side can't be registered.
bool NavMeshConnector::Grid::measureSide(Vec2<float>& a, Vec2<float>& b, float& height, int32 node, int32 side) const
{
    if (node < 0 || static_cast<size_t>(node) >= mNavMesh.mNodes.size() || side < 0 || !isUsable())
        return false;
    const NavMeshContainer::NavNode& navNode = mNavMesh.mNodes[static_cast<size_t>(node)];
    if (!getEnds(a, b, navNode, static_cast<size_t>(side)))
        return false;
    const float length = (b - a).getLength();
    if (!(length > 0.0f) || !std::isfinite(length))
        return false;
    a = toGridCoords(a);
    b = toGridCoords(b);
    height = mNavMesh.mVertices[navNode.mPolygon[static_cast<size_t>(side)]][mVertComp];
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

NavMeshConnector::Grid::CellList& NavMeshConnector::Grid::getCell(const Position& position)
{
    return mCells.try_emplace(getKey(position), getMemory()).first->second;
}

NavMeshConnector::Grid::CellList* NavMeshConnector::Grid::findCell(const Position& position)
{
    const auto cell = mCells.find(getKey(position));
    return cell != mCells.end() ? &cell->second : nullptr;
}

NavMeshConnector::GridEdge* NavMeshConnector::Grid::takeEdge(const GridEdge& edge)
{
    if (mFreeEdges.empty())
        return &mEdges[mEdges.append(edge)];
    GridEdge* reused = mFreeEdges.back();
    mFreeEdges.pop_back();
    *reused = edge;
    return reused;
}

void NavMeshConnector::Grid::insertEdge(int32 node, int32 side)
{
    Vec2<float> a;
    Vec2<float> b;
    GridEdge edge{node, side};
    if (!measureSide(a, b, edge.mHeight, node, side))
        return;
    GridEdge* record = takeEdge(edge);
    for (CellWalk walk(*this, a, b); !walk.isDone(); walk.advance())
    {
        getCell(walk.getCell()).push_back(record);
        ++record->mRefCount;
    }
}

void NavMeshConnector::Grid::removeEdge(int32 node, int32 side)
{
    Vec2<float> a;
    Vec2<float> b;
    float height;
    if (!measureSide(a, b, height, node, side))
        return;
    GridEdge* removed = nullptr;
    for (CellWalk walk(*this, a, b); !walk.isDone(); walk.advance())
    {
        CellList* cell = findCell(walk.getCell());
        if (removed == nullptr)
            removed = findRecord(cell, node, side);
        if (!KORV_ASSERT(removed != nullptr, "removeEdge != NULL", "edge not found"))
            return;
        if (cell != nullptr)
            removed->mRefCount -= static_cast<int32>(std::erase(*cell, removed));
    }
    if (KORV_ASSERT(removed->mRefCount == 0, "removeEdge->mRefCount == 0", "reference count of the edge must be zero"))
        mFreeEdges.push_back(removed);
}

NavMeshConnector::GridEdge* NavMeshConnector::Grid::findRecord(const CellList* cell, int32 node, int32 side)
{
    if (cell == nullptr)
        return nullptr;
    const auto record =
        std::find_if(cell->begin(), cell->end(),
                     [node, side](const GridEdge* edge) { return edge->mNode == node && edge->mSide == side; });
    return record != cell->end() ? *record : nullptr;
}

void NavMeshConnector::Grid::findCandidates(CandidateList& candidates, int32 node, int32 side, float range)
{
    Vec2<float> a;
    Vec2<float> b;
    float height;
    if (!measureSide(a, b, height, node, side))
        return;
    const size_t numBefore = candidates.size();
    for (CellWalk walk(*this, a, b); !walk.isDone(); walk.advance())
    {
        CellList* cell = findCell(walk.getCell());
        if (cell != nullptr)
            collectCell(candidates, *cell, height, range);
    }
    for (size_t i = numBefore; i < candidates.size(); ++i)
        candidates[i]->mVisited = 0;
}

/// Appends the records of a cell within a range of a height that are not marked yet, and marks them.
void NavMeshConnector::Grid::collectCell(CandidateList& candidates, const CellList& cell, float height, float range)
{
    for (GridEdge* edge : cell)
    {
        if (edge->mVisited != 0 || !(std::fabs(edge->mHeight - height) <= range))
            continue;
        candidates.push_back(edge);
        edge->mVisited = 1;
    }
}
} // namespace KORV::NavMesh
