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

#include <algorithm>
#include <bit>

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

/// The sides of a cell, measured. What rules most of them out as candidates of each other lies in lanes.
class NavMeshConnector::CellSides
{
public:
    explicit CellSides(Common::Memory::Allocator* allocator)
        : mSides(allocator), mBoxes(allocator), mDirX(allocator), mDirY(allocator)
    {
    }

    /// Takes the sides of a cell.
    void assign(const Grid& grid, uint32 cell)
    {
        mEntries = grid.getEntries(cell);
        const size_t numLanes = (mEntries.size() + PER_STEP - 1) / PER_STEP * PER_STEP;
        mBoxes.resize(std::max(mBoxes.size(), numLanes));
        mDirX.resize(mBoxes.size());
        mDirY.resize(mBoxes.size());
        mSides.clear();
        for (const Grid::Entry& entry : mEntries)
        {
            grid.fetchAhead(entry);
            const size_t place = mSides.size();
            const Side& side = mSides.emplace_back(grid, grid.getEdge(entry.mEdge));
            mBoxes[place] = entry.mBox;
            mDirX[place] = side.mDir.mX;
            mDirY[place] = side.mDir.mY;
        }
    }

    uint32 size() const { return static_cast<uint32>(mSides.size()); }
    const Side& operator[](uint32 place) const { return mSides[place]; }
    const Grid::Entry& getEntry(uint32 place) const { return mEntries[place]; }

    /// Calls a function with the places in a range, in ascending order, whose sides run along one of them and meet its
    /// box, until it returns true.
    /// @param limits  of the box.
    template <class Function>
    bool visitCandidates(const EdgeRange& range, uint32 place, uint32 limits, Rules rules,
                         const Function& function) const
    {
        for (uint32 step = range.mBegin / PER_STEP * PER_STEP; step < range.mEnd; step += PER_STEP)
        {
            uint32 bits = findCandidates(step, place, limits, rules);
            bits &= ~0u << (std::max(range.mBegin, step) - step);
            for (; bits != 0; bits &= bits - 1)
            {
                const uint32 candidate = step + static_cast<uint32>(std::countr_zero(bits));
                if (candidate >= range.mEnd)
                    return false;
                if (function(candidate))
                    return true;
            }
        }
        return false;
    }

private:
    static constexpr uint32 PER_STEP = 2 * NUM_LANES;

    /// A bit for each candidate among the next ones.
    uint32 findCandidates(uint32 first, uint32 place, uint32 limits, Rules rules) const
    {
        const auto find = [&](uint32 at)
        {
            const FloatLanes cosines = loadLanes(&mDirX[at]) * mDirX[place] + loadLanes(&mDirY[at]) * mDirY[place];
            const FloatLanes along = rules == Rules::REFINED ? -cosines : absoluteLanes(cosines);
            return (along >= MIN_COSINE) & Grid::CoarseBox::meetLanes(&mBoxes[at], limits);
        };
        return gatherBits(find(first), find(first + NUM_LANES));
    }

    std::span<const Grid::Entry> mEntries;
    Vector<Side> mSides;
    Vector<Grid::CoarseBox> mBoxes;
    Vector<float> mDirX;
    Vector<float> mDirY;
};

void NavMeshConnector::searchCells(uint32 begin, uint32 end)
{
    CellSides sides(getMemory());
    for (uint32 cell = begin; cell < end; ++cell)
    {
        sides.assign(*mGrid, cell);
        searchCell(cell, sides);
    }
}

/// @param sides  those of the cell.
void NavMeshConnector::searchCell(uint32 cell, const CellSides& sides)
{
    for (EdgeRange own; own.mBegin < sides.size(); own.mBegin = own.mEnd)
    {
        while (own.mEnd < sides.size() && sides[own.mEnd].mEdge.mNode == sides[own.mBegin].mEdge.mNode)
            ++own.mEnd;
        for (uint32 side = own.mBegin; side < own.mEnd; ++side)
        {
            const uint32 edge = sides.getEntry(side).mEdge;
            const bool isWithin = sides.getEntry(side).mBox.isWithinCell();
            if (!isWithin && !mGrid->isFirstCell(cell, sides[side].mStart))
                continue;
            Match match = findInCell(sides, side, own);
            if (!isWithin && match.mOutcome == Outcome::NOTHING)
                match = search(sides[side].mEdge, mGrid->getOwnEdges(edge));
            mAhead[edge] = Ahead(match.mOutcome, match.mEdge);
        }
    }
}

/// The first of the cell's sides that decides about one of them.
/// @param own  the sides of the same node, which are left out.
NavMeshConnector::Match NavMeshConnector::findInCell(const CellSides& sides, uint32 side, const EdgeRange& own) const
{
    const uint32 limits = mGrid->getLimits(sides.getEntry(side).mBox);
    Match match;
    const auto decides = [&](uint32 other)
    {
        match = judgeParallel(sides[side], sides[other], sides.getEntry(other).mEdge);
        return match.mOutcome != Outcome::NOTHING;
    };
    if (!sides.visitCandidates({own.mEnd, sides.size()}, side, limits, mRules, decides))
        sides.visitCandidates({0, own.mBegin}, side, limits, mRules, decides);
    return match;
}
} // namespace KORV::NavMesh
