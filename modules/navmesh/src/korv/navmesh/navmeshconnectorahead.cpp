// Searches for all sides of a mesh while all of them are in the grid.
//
// Idea: sides that cross a cell have the same candidates there. So the search goes cell by cell: all sides of a cell
// are measured once, close together, and then compared with each other. A side is searched for in the first of its
// cells; the few that find nothing there, and cross others, are then searched for on their own.
//
// Order: the candidates of a side come as in a search of its own, those of nodes behind before those of nodes before,
// so that both find the same. Cells share nothing but what is only read, so workers can take any of them.
#include "korv/navmesh/navmeshconnectorside.h"
#include "korv/navmesh/rangetask.h"

namespace KORV::NavMesh
{
namespace
{
/// Sides a task.
constexpr uint32 SIDES_PER_STEP = 8192;
} // namespace

void NavMeshConnector::searchAhead(const RangeRunner& runner)
{
    mAhead.resize(mGrid->getNumEdges());
    const uint32 numCells = mGrid->getNumCells();
    const uint64 sidesPerCell = mGrid->getNumEdges() / numCells + 1;
    const auto cellsPerTask = static_cast<uint32>(SIDES_PER_STEP / sidesPerCell + 1);
    runner.run(numCells, cellsPerTask, [&](uint32 begin, uint32 end) { searchCells(begin, end); });
}

void NavMeshConnector::searchCells(uint32 begin, uint32 end)
{
    Vector<Side> sides(getMemory());
    for (uint32 cell = begin; cell < end; ++cell)
    {
        sides.clear();
        for (const Grid::Entry& entry : mGrid->getEntries(cell))
        {
            mGrid->fetchAhead(entry);
            sides.emplace_back(*mGrid, mGrid->getEdge(entry.mEdge));
        }
        searchCell(cell, sides);
    }
}

/// @param sides  those of the cell.
void NavMeshConnector::searchCell(uint32 cell, const Vector<Side>& sides)
{
    const Grid::Entry* const entries = mGrid->getEntries(cell).data();
    const auto numSides = static_cast<uint32>(sides.size());
    for (EdgeRange own; own.mBegin < numSides; own.mBegin = own.mEnd)
    {
        while (own.mEnd < numSides && sides[own.mEnd].mEdge.mNode == sides[own.mBegin].mEdge.mNode)
            ++own.mEnd;
        for (uint32 side = own.mBegin; side < own.mEnd; ++side)
        {
            const uint32 edge = entries[side].mEdge;
            const bool isWithin = entries[side].mBox.isWithinCell();
            if (!isWithin && !mGrid->isFirstCell(cell, sides[side].mStart))
                continue;
            Match match = findInCell(cell, sides, side, own);
            if (!isWithin && match.mOutcome == Outcome::NOTHING)
                match = search(sides[side].mEdge, mGrid->getOwnEdges(edge));
            mAhead[edge] = Ahead(match.mOutcome, match.mEdge);
        }
    }
}

/// The first of the cell's sides that decides about one of them.
/// @param own  the sides of the same node, which are left out.
NavMeshConnector::Match NavMeshConnector::findInCell(uint32 cell, const Vector<Side>& sides, uint32 side,
                                                     const EdgeRange& own) const
{
    const Grid::Entry* const entries = mGrid->getEntries(cell).data();
    const uint32 limits = mGrid->getLimits(entries[side].mBox);
    Match match;
    const auto decides = [&](uint32 other)
    {
        if (!entries[other].mBox.meets(limits) || !runsAlong(sides[side], sides[other]))
            return false;
        match = judgeParallel(sides[side], sides[other], entries[other].mEdge);
        return match.mOutcome != Outcome::NOTHING;
    };
    for (uint32 other = own.mEnd; other < sides.size(); ++other)
    {
        if (decides(other))
            return match;
    }
    for (uint32 other = 0; other < own.mBegin; ++other)
    {
        if (decides(other))
            return match;
    }
    return match;
}
} // namespace KORV::NavMesh
