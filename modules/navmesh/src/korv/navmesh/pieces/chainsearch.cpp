#include "korv/navmesh/pieces/chainsearch.h"

#include <algorithm>

namespace KORV::NavMesh
{
namespace
{
/// More than this, and a search of its own is the faster way to price a chord.
constexpr int32 MAX_STEPS = 160;
} // namespace

ChainSearch::ChainSearch(ChordTable& table, Common::Memory::Allocator* allocator)
    : mTable(table), mPivots(allocator), mRecords(allocator)
{
}

void ChainSearch::reset()
{
    mSearch = 0;
    mPivots.assign(mTable.getOutline().mPoints.size(), Pivot{});
}

void ChainSearch::begin(int32 first, const int32* corners, const int32* end)
{
    ++mSearch;
    mFirst = first;
    mForced = false;
    uint32 place = 0;
    for (; corners != end; ++corners)
    {
        const bool allTurns = mTable.getTurns(*corners) == ChordTable::Turns::ALL;
        mPivots[static_cast<size_t>(*corners)] = {mSearch, place + 1, place + 1, allTurns};
        place += 1 + (allTurns ? 1 : mTable.numLastSides(*corners));
    }
    if (mRecords.size() < place)
        mRecords.resize(place);
}

/// Goes on along the sides to later corners. They come in increasing order, so that a record which has been used once
/// needs no second look.
void ChainSearch::pass(int32 corner)
{
    const Pivot pivot = getPivot(corner);
    if (pivot.mBegin == pivot.mEnd)
        return; // no piece reaches it: it takes no part
    const Record* const records = mRecords.data();
    uint32 record = pivot.mBegin;
    uint32 best = record;
    float bestCost = records[record].mCost;
    const auto advance = [&](const Vec2<float>& leaving)
    {
        for (; record < pivot.mEnd && (pivot.mAllTurns || turnsConvex(records[record].mDirection, leaving)); ++record)
        {
            if (bestCost < records[record].mCost)
                continue;
            best = record;
            bestCost = records[record].mCost;
        }
        mForced = mForced || record == pivot.mBegin;
    };
    Pivot* const pivots = mPivots.data();
    if (mTable.isEdgeHidden(corner + 1) && takesPart(corner + 1))
    {
        const Vec2<float> direction = mTable.direction(corner, corner + 1);
        advance(direction);
        extend({direction, bestCost, corner, static_cast<int32>(best)}, pivots[corner + 1]);
    }
    const ChordTable::Side* const sidesEnd = mTable.sidesEnd(corner);
    for (const ChordTable::Side* side = mTable.sidesBegin(corner); side != sidesEnd; ++side)
    {
        Pivot& target = pivots[side->mTo];
        if (target.mSearch != mSearch)
            continue;
        advance(side->mDirection);
        extend({side->mDirection, side->mCost + bestCost, corner, static_cast<int32>(best)}, target);
    }
}

inline void ChainSearch::extend(const Record& chain, Pivot& target)
{
    Record* const records = mRecords.data();
    if (!target.mAllTurns || target.mBegin == target.mEnd)
        records[target.mEnd++] = chain;
    else if (records[target.mBegin].mCost >= chain.mCost)
        records[target.mBegin] = chain;
}

int32 ChainSearch::findClosing(int32 corner, const Vec2<float>& back) const
{
    const Pivot& pivot = getPivot(corner);
    const Record* const records = mRecords.data();
    const uint32 end = endWithoutHidden(corner);
    int32 best = NONE;
    float bestCost = 0.0f;
    for (uint32 record = pivot.mBegin; record < end; ++record)
    {
        if (!pivot.mAllTurns && !turnsConvex(records[record].mDirection, back))
            break;
        if (best != NONE && !(bestCost >= records[record].mCost))
            continue;
        best = static_cast<int32>(record);
        bestCost = records[record].mCost;
    }
    // the closing edge of the outline takes what there is
    if (best == NONE && pivot.mBegin < end && mTable.isRoot(mFirst, corner))
        best = static_cast<int32>(pivot.mBegin);
    return best;
}

/// End of the records of a corner whose last side may be one of a piece against it: a hidden edge is not.
uint32 ChainSearch::endWithoutHidden(int32 corner) const
{
    const Pivot& pivot = getPivot(corner);
    const bool hidden =
        mTable.isEdgeHidden(corner) && isReached(corner) && mRecords[pivot.mEnd - 1].mFrom + 1 == corner;
    return pivot.mEnd - (hidden ? 1 : 0);
}

bool ChainSearch::isChainSeen(int32 record, int32 corner) const
{
    if (record == NONE)
        return true;
    // the last side is one, so its corner sees the end; the record without one before it starts at the first corner
    const Record* const records = mRecords.data();
    for (record = records[record].mPrevious; record != NONE; record = records[record].mPrevious)
    {
        if (records[record].mPrevious != NONE && !mTable.sees(records[record].mFrom, corner))
            return false;
    }
    return true;
}

/// The costs known are lower bounds, as they take more chains into account; where the chain of a record is seen, its
/// cost is exact. Else the records that may come before it are asked, as far as they can be cheaper than what is found.
bool ChainSearch::priceSeenChains(float& cost, int32 corner, const Vec2<float>& back)
{
    mClosing = corner;
    mStepsLeft = MAX_STEPS;
    return priceSeen(cost, corner, back);
}

/// The cheapest record of a corner that may go on to a side and whose chain is seen.
bool ChainSearch::priceSeen(float& cost, int32 corner, const Vec2<float>& leaving)
{
    const Pivot& pivot = getPivot(corner);
    if (mTable.isEdgeHidden(corner))
        return false;
    bool found = false;
    for (uint32 record = pivot.mBegin; record < pivot.mEnd; ++record)
    {
        if (!pivot.mAllTurns && !turnsConvex(mRecords[record].mDirection, leaving))
            break;
        if (--mStepsLeft < 0)
            return false;
        if (found && mRecords[record].mCost >= cost)
            continue;
        if (corner != mClosing && mRecords[record].mPrevious != NONE && !mTable.sees(mRecords[record].mFrom, mClosing))
        {
            if (pivot.mAllTurns)
                return false; // others that are seen have not been kept
            continue;
        }
        float seenCost = 0.0f;
        if (!priceSeenRecord(seenCost, corner, record))
            return false;
        cost = found ? std::min(cost, seenCost) : seenCost;
        found = true;
    }
    return found;
}

bool ChainSearch::priceSeenRecord(float& cost, int32 corner, uint32 record)
{
    const Record& link = mRecords[record];
    cost = link.mCost;
    if (link.mPrevious == NONE)
        return true;
    const bool seen = isChainSeen(static_cast<int32>(record), mClosing);
    if (seen || getPivot(corner).mAllTurns)
        return seen;
    if (!priceSeen(cost, link.mFrom, link.mDirection))
        return false;
    const ChordTable::Side* side = std::lower_bound(mTable.sidesBegin(link.mFrom), mTable.sidesEnd(link.mFrom), corner,
                                                    [](const ChordTable::Side& a, int32 to) { return a.mTo < to; });
    cost = side->mCost + cost;
    return true;
}
} // namespace KORV::NavMesh
