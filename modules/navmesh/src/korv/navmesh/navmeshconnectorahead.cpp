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
#include <cstring>

namespace KORV::NavMesh
{
namespace
{
/// Sides a task.
constexpr uint32 SIDES_PER_STEP = 8192;
} // namespace

void NavMeshConnector::searchAhead(const RangeRunner& runner)
{
    mFound.resize(mGrid->getNumEdges());
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
        : mSides(allocator), mNodes(allocator), mBoxes(allocator), mDirX(allocator), mDirY(allocator)
    {
    }

    /// Takes the sides of a cell.
    void assign(const Grid& grid, uint32 cell)
    {
        mEntries = grid.getEntries(cell);
        const size_t numLanes = (mEntries.size() + PER_STEP - 1) / PER_STEP * PER_STEP;
        mBoxes.resize(std::max(mBoxes.size(), numLanes));
        mNodes.resize(mBoxes.size());
        mDirX.resize(mBoxes.size());
        mDirY.resize(mBoxes.size());
        mSides.clear();
        for (const Grid::Entry& entry : mEntries)
        {
            grid.fetchAhead(entry);
            const size_t place = mSides.size();
            const Side& side = mSides.emplace_back(grid, grid.getEdge(entry.getEdge()));
            mNodes[place] = side.mEdge.mNode;
            mBoxes[place] = entry.mBox;
            mDirX[place] = side.mDir.mX;
            mDirY[place] = side.mDir.mY;
        }
    }

    uint32 size() const { return static_cast<uint32>(mSides.size()); }
    const Side& operator[](uint32 place) const { return mSides[place]; }
    const Grid::Entry& getEntry(uint32 place) const { return mEntries[place]; }

    /// What the candidates of a side have: another node, a direction along the side's, a box that meets its box.
    struct Wanted
    {
        int32 mOtherNode;
        float mDirX;
        float mDirY;
        uint32 mLimits;
        bool mIsOpposite; ///< not the same direction
    };
    Wanted getWanted(uint32 place, uint32 limits, Rules rules) const
    {
        return {mNodes[place], mDirX[place], mDirY[place], limits, rules == Rules::REFINED};
    }

    /// Calls a function with the places of candidates in a range, in ascending order, until it returns true.
    template <class Function>
    bool visitCandidates(const EdgeRange& range, const Wanted& wanted, const Function& function) const
    {
        for (uint32 step = range.mBegin / PER_STEP * PER_STEP; step < range.mEnd; step += PER_STEP)
        {
            uint32 bits = gatherBits(findCandidates(step, wanted), findCandidates(step + NUM_LANES, wanted));
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

    MaskLanes findCandidates(uint32 at, const Wanted& wanted) const
    {
        const FloatLanes cosines = loadLanes(&mDirX[at]) * wanted.mDirX + loadLanes(&mDirY[at]) * wanted.mDirY;
        const FloatLanes along = wanted.mIsOpposite ? -cosines : absoluteLanes(cosines);
        MaskLanes nodes;
        std::memcpy(&nodes, &mNodes[at], sizeof nodes);
        return (along >= MIN_COSINE) & (nodes != wanted.mOtherNode) &
               Grid::CoarseBox::meetLanes(&mBoxes[at], wanted.mLimits);
    }

    std::span<const Grid::Entry> mEntries;
    Vector<Side> mSides;
    Vector<int32> mNodes;
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
        searchCell(sides);
    }
}

/// Searches for those sides of a cell that start there.
void NavMeshConnector::searchCell(const CellSides& sides)
{
    for (uint32 side = 0; side < sides.size(); ++side)
    {
        const Grid::Entry& entry = sides.getEntry(side);
        if (!entry.isFirst())
            continue;
        Match match = findInCell(sides, side);
        if (match.mOutcome == Outcome::NOTHING && !entry.mBox.isWithinCell())
            match = search(sides[side].mEdge, mGrid->getOwnEdges(entry.getEdge()), [](uint32) { return false; });
        mFound[entry.getEdge()] = Found(match.mOutcome, match.mEdge);
    }
}

/// The first of the cell's sides that decides about one of them.
NavMeshConnector::Match NavMeshConnector::findInCell(const CellSides& sides, uint32 side) const
{
    Match match;
    const auto decides = [&](uint32 other)
    {
        match = judgeParallel(sides[side], sides[other], sides.getEntry(other).getEdge());
        return match.mOutcome != Outcome::NOTHING;
    };
    const CellSides::Wanted wanted = sides.getWanted(side, mGrid->getLimits(sides.getEntry(side).mBox), mRules);
    if (!sides.visitCandidates({side + 1, sides.size()}, wanted, decides))
        sides.visitCandidates({0, side}, wanted, decides);
    return match;
}
} // namespace KORV::NavMesh
