// Builds the coarse grid over all items, in its crowded cells grids over the items listed there, and so on.
//
// A grid has some cells for each item, of about the proportions of a mean box: so a list holds about three items, and
// one of them is mostly the answer. Where boxes overlap or differ much in size they would be listed too often; then the
// cells are made larger, until the boxes meet few on average. A grid
// that does not spread its items is not kept: they stay one list, which is as good as anything can be for items that
// all lie in the same place.

#include "korv/navmesh/places/placegrid.h"

#include "korv/navmesh/trim.h"

#include <cmath>
#include <limits>

namespace KORV::NavMesh
{
namespace
{
/// A longer list becomes a grid.
constexpr uint32 CROWD = 24;
constexpr double CELLS_PER_ITEM = 2.0;
/// Cells that boxes meet on average, at most; shapes meet fewer.
constexpr double MAX_CELLS_PER_BOX = 32.0;
/// Beyond, rounding of indices would come near to the slack of a cell.
constexpr double MAX_SIZE = 4096.0;
constexpr uint32 MAX_LEVELS = 8;
/// Entries per item, above which no more grids are made.
constexpr uint64 MAX_ENTRIES_PER_ITEM = 40;
constexpr SearchBox EVERYWHERE{{-PlaceGrid::WIDEST, -PlaceGrid::WIDEST, -PlaceGrid::WIDEST},
                               {PlaceGrid::WIDEST, PlaceGrid::WIDEST, PlaceGrid::WIDEST}};

/// A float beyond a value, by more than its rounding.
float moveOut(double value, float direction)
{
    constexpr float ROUNDING = 2e-7f;
    const auto nearest = static_cast<float>(value);
    return nearest + direction * (ROUNDING * std::fabs(nearest) + std::numeric_limits<float>::min());
}

SearchBox intersect(const SearchBox& a, const SearchBox& b)
{
    SearchBox box;
    for (int axis = 0; axis < 3; ++axis)
    {
        box.mLow[axis] = std::max(a.mLow[axis], b.mLow[axis]);
        box.mHigh[axis] = std::max(box.mLow[axis], std::min(a.mHigh[axis], b.mHigh[axis]));
    }
    return box;
}
} // namespace

class PlaceGrid::Builder
{
public:
    Builder(PlaceGrid& result, const Vector<Item>& items, const Shapes& shapes)
        : mResult(result), mItems(items), mShapes(shapes)
    {
    }

    void run();

private:
    using List = Vector<uint32>; // of indices into mItems

    /// A block of cells.
    struct Range
    {
        uint32 mBegin[3];
        uint32 mEnd[3];
    };

    /// What the cells of a grid list: those of cell i end where those of the next begin.
    struct Lists
    {
        explicit Lists(const List::allocator_type& allocator) : mItems(allocator), mEnds(allocator) {}

        List mItems;
        Vector<uint32> mEnds;
    };

    bool plan(Grid& grid, const List& list, const SearchBox& region, int numAxes) const;
    double countCells(const Grid& grid, const List& list, const SearchBox& region) const;
    static Range getRange(const Grid& grid, const SearchBox& box);
    static SearchBox getBox(const Grid& grid, const Range& range);
    template <class Visit>
    void visitCells(const Grid& grid, uint32 item, const Range& range, Visit& visit) const;
    void makeLists(Lists& lists, const Grid& grid, const List& list, const SearchBox& region) const;
    void addGrid(Grid grid, const List& list, const SearchBox& region, uint32 level);
    void setCell(uint32 cell, const List& list, const SearchBox& region, uint32 level);

    PlaceGrid& mResult;
    const Vector<Item>& mItems;
    const Shapes& mShapes;
    uint64 mNumEntries = 0;
};

void PlaceGrid::Builder::run()
{
    List list(mItems.get_allocator());
    for (uint32 i = 0; i < mItems.size(); ++i)
        list.push_back(i);
    Grid grid{};
    plan(grid, list, EVERYWHERE, 2);
    addGrid(grid, list, EVERYWHERE, 0);
    trim(mResult.mGrids);
    trim(mResult.mCells);
    trim(mResult.mLongLists);
}

/// Chooses the cells for some items.
/// @param region  where places will be looked for.
/// @param numAxes  how many axes may be divided.
/// @return false when the items would not be spread.
bool PlaceGrid::Builder::plan(Grid& grid, const List& list, const SearchBox& region, int numAxes) const
{
    SearchBox bounds{};
    double sums[3] = {};
    double count = 0.0;
    for (const uint32 item : list)
    {
        if (mItems[item].mBox.mHigh[0] >= WIDEST)
            continue;
        const SearchBox box = intersect(mItems[item].mBox, region);
        if (count++ == 0.0)
            bounds = box;
        for (int axis = 0; axis < 3; ++axis)
        {
            bounds.mLow[axis] = std::min(bounds.mLow[axis], box.mLow[axis]);
            bounds.mHigh[axis] = std::max(bounds.mHigh[axis], box.mHigh[axis]);
            sums[axis] += double(box.mHigh[axis]) - double(box.mLow[axis]);
        }
    }
    double ratios[3] = {1.0, 1.0, 1.0}; // of a mean box
    double extents[3];
    for (int axis = 0; axis < 3; ++axis)
    {
        grid.mOrigin[axis] = bounds.mLow[axis];
        extents[axis] = double(bounds.mHigh[axis]) - double(bounds.mLow[axis]);
        if (axis < numAxes && extents[axis] > 0.0)
            ratios[axis] = extents[axis] / std::max(sums[axis] / count, 1e-6 * extents[axis]);
    }
    double wanted = CELLS_PER_ITEM * count;
    while (wanted >= 2.0)
    {
        const double growth = std::pow(wanted / (ratios[0] * ratios[1] * ratios[2]), 1.0 / numAxes);
        double numCells = 1.0;
        for (int axis = 0; axis < 3; ++axis)
        {
            const bool isDivided = axis < numAxes && extents[axis] > 0.0;
            const double size = isDivided ? std::floor(std::clamp(ratios[axis] * growth, 1.0, MAX_SIZE)) : 1.0;
            grid.mLast[axis] = static_cast<float>(size - 1.0);
            grid.mScale[axis] = size > 1.0 ? static_cast<float>(std::min(size / extents[axis], 1e30)) : 0.0f;
            numCells *= size;
        }
        const double numMet = countCells(grid, list, region);
        if (numMet <= MAX_CELLS_PER_BOX * count)
            return numMet <= 0.5 * numCells * count;
        wanted *= 0.7;
    }
    return false;
}

double PlaceGrid::Builder::countCells(const Grid& grid, const List& list, const SearchBox& region) const
{
    double sum = 0.0;
    for (const uint32 item : list)
    {
        if (mItems[item].mBox.mHigh[0] >= WIDEST)
            continue;
        const Range range = getRange(grid, intersect(mItems[item].mBox, region));
        double product = 1.0;
        for (int axis = 0; axis < 3; ++axis)
            product *= double(range.mEnd[axis] - range.mBegin[axis]);
        sum += product;
    }
    return sum;
}

PlaceGrid::Builder::Range PlaceGrid::Builder::getRange(const Grid& grid, const SearchBox& box)
{
    Range range;
    for (int axis = 0; axis < 3; ++axis)
    {
        range.mBegin[axis] = grid.getIndex(axis, box.mLow[axis]);
        range.mEnd[axis] = grid.getIndex(axis, box.mHigh[axis]) + 1;
    }
    return range;
}

/// Holds all places of the cells, whatever the rounding of their indices.
SearchBox PlaceGrid::Builder::getBox(const Grid& grid, const Range& range)
{
    constexpr double SLACK = 0.01;
    SearchBox box = EVERYWHERE;
    for (int axis = 0; axis < 3; ++axis)
    {
        const double step = grid.mScale[axis] > 0.0f ? 1.0 / double(grid.mScale[axis]) : 0.0;
        const double origin = double(grid.mOrigin[axis]);
        // what lies beyond the grid falls into its outermost cells
        if (range.mBegin[axis] > 0)
            box.mLow[axis] = moveOut(origin + (double(range.mBegin[axis]) - SLACK) * step, -1.0f);
        if (range.mEnd[axis] < grid.getSize(axis))
            box.mHigh[axis] = moveOut(origin + (double(range.mEnd[axis]) + SLACK) * step, 1.0f);
    }
    return box;
}

/// Visits the cells of a block that an item may meet. Halves the block until there is one column of cells left, so few
/// are looked at for a slender item in a large block; calls itself at most 24 deep.
template <class Visit>
void PlaceGrid::Builder::visitCells(const Grid& grid, uint32 item, const Range& range, Visit& visit) const
{
    if (!mShapes.meets(mItems[item].mID, intersect(mItems[item].mBox, getBox(grid, range))))
        return;
    const int axis = range.mEnd[0] - range.mBegin[0] >= range.mEnd[1] - range.mBegin[1] ? 0 : 1;
    if (range.mEnd[axis] - range.mBegin[axis] > 1)
    {
        Range half = range;
        half.mEnd[axis] = range.mBegin[axis] + (range.mEnd[axis] - range.mBegin[axis]) / 2;
        visitCells(grid, item, half, visit);
        half.mBegin[axis] = half.mEnd[axis];
        half.mEnd[axis] = range.mEnd[axis];
        visitCells(grid, item, half, visit);
        return;
    }
    for (uint32 z = range.mBegin[2]; z < range.mEnd[2]; ++z)
        visit(grid.getCell(range.mBegin[0], range.mBegin[1], z));
}

void PlaceGrid::Builder::makeLists(Lists& lists, const Grid& grid, const List& list, const SearchBox& region) const
{
    struct Entry
    {
        uint32 mCell;
        uint32 mItem;
    };
    Vector<Entry> entries(lists.mItems.get_allocator());
    lists.mEnds.resize(size_t{grid.getSize(0)} * grid.getSize(1) * grid.getSize(2) + 1);
    for (const uint32 item : list)
    {
        const auto visit = [&](uint32 cell)
        {
            entries.push_back({cell - grid.mFirstCell, item});
            ++lists.mEnds[cell - grid.mFirstCell + 1];
        };
        visitCells(grid, item, getRange(grid, intersect(mItems[item].mBox, region)), visit);
    }
    for (size_t i = 1; i < lists.mEnds.size(); ++i)
        lists.mEnds[i] += lists.mEnds[i - 1];
    lists.mItems.resize(entries.size());
    // what was the beginning of each list becomes its end
    for (const Entry& entry : entries)
        lists.mItems[lists.mEnds[entry.mCell]++] = entry.mItem;
}

void PlaceGrid::Builder::addGrid(Grid grid, const List& list, const SearchBox& region, uint32 level)
{
    Lists lists(mItems.get_allocator());
    grid.mFirstCell = static_cast<uint32>(mResult.mCells.size());
    makeLists(lists, grid, list, region);
    mNumEntries += lists.mItems.size();
    mResult.mGrids.push_back(grid);
    mResult.mCells.resize(mResult.mCells.size() + lists.mEnds.size() - 1);

    List listOfCell(mItems.get_allocator());
    uint32 cell = grid.mFirstCell;
    auto begin = lists.mItems.begin();
    for (uint32 z = 0; z < grid.getSize(2); ++z)
    {
        for (uint32 y = 0; y < grid.getSize(1); ++y)
        {
            for (uint32 x = 0; x < grid.getSize(0); ++x, ++cell)
            {
                const auto end = lists.mItems.begin() + lists.mEnds[cell - grid.mFirstCell];
                listOfCell.assign(begin, end);
                setCell(cell, listOfCell, intersect(region, getBox(grid, {{x, y, z}, {x + 1, y + 1, z + 1}})), level);
                begin = end;
            }
        }
    }
}

void PlaceGrid::Builder::setCell(uint32 cell, const List& list, const SearchBox& region, uint32 level)
{
    const auto count = static_cast<uint32>(list.size());
    Grid grid{};
    if (count > CROWD && level < MAX_LEVELS && mNumEntries < MAX_ENTRIES_PER_ITEM * mItems.size() &&
        plan(grid, list, region, 3))
    {
        mResult.mCells[cell] = {IS_GRID, {static_cast<uint32>(mResult.mGrids.size())}};
        addGrid(grid, list, region, level + 1);
        return;
    }
    Cell& result = mResult.mCells[cell];
    result.mCount = count;
    if (count > NUM_INLINE)
        result.mEntries[0] = static_cast<uint32>(mResult.mLongLists.size());
    for (uint32 i = 0; i < count; ++i)
    {
        if (count > NUM_INLINE)
            mResult.mLongLists.push_back(mItems[list[i]].mID);
        else
            result.mEntries[i] = mItems[list[i]].mID;
    }
}

void PlaceGrid::build(const Vector<Item>& items, const Shapes& shapes)
{
    mGrids.clear();
    mCells.clear();
    mLongLists.clear();
    if (!items.empty())
        Builder(*this, items, shapes).run();
}
} // namespace KORV::NavMesh
