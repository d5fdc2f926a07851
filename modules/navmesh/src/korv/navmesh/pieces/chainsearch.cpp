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
    : mTable(table), mPivots(allocator), mNumSides(allocator), mRecords(allocator)
{
}

void ChainSearch::reset()
{
    const size_t n = mTable.getOutline().mPoints.size();
    mSearch = 0;
    mPivots.assign(n, Pivot{});
    mNumSides.assign(n, 0);
}

void ChainSearch::countSides(int32 first)
{
    for (const ChordTable::Side* side = mTable.sidesBegin(first); side != mTable.sidesEnd(first); ++side)
        ++mNumSides[static_cast<size_t>(side->mTo)];
}

void ChainSearch::begin(int32 first, const int32* corners, const int32* end)
{
    ++mSearch;
    mFirst = first;
    mForced = false;
    uint32 place = 0;
    for (; corners != end; ++corners)
    {
        const bool hiddenEdge = mTable.isEdgeHidden(*corners);
        const bool allTurns = mTable.getTurns(*corners) == ChordTable::Turns::ALL;
        mPivots[static_cast<size_t>(*corners)] = {mSearch, place, 0, false, hiddenEdge, allTurns};
        place += 1 + (allTurns ? 1 : mNumSides[static_cast<size_t>(*corners)] + (hiddenEdge ? 1 : 0));
    }
    if (mRecords.size() < place)
        mRecords.resize(place);
}

void ChainSearch::addFirstSide(int32 corner, const ChordTable::Side& side)
{
    Pivot& pivot = mPivots[static_cast<size_t>(corner)];
    mRecords[pivot.mFirst] = {side.mDirection, side.mCost, mFirst, NONE};
    pivot.mFirstSide = true;
}

/// Goes on along the sides to later corners. They come in increasing order, so that a record which has been used once
/// needs no second look.
void ChainSearch::pass(int32 corner)
{
    const Pivot& pivot = getPivot(corner);
    uint32 record = pivot.mFirst + (pivot.mFirstSide ? 0 : 1);
    const uint32 first = record;
    const uint32 end = pivot.mFirst + 1 + pivot.mNumRecords;
    if (first == end)
        return; // no piece reaches it: it takes no part
    uint32 best = first;
    float bestCost = mRecords[first].mCost;
    const auto advance = [&](const Vec2<float>& leaving)
    {
        for (; record < end && (pivot.mAllTurns || turnsConvex(mRecords[record].mDirection, leaving)); ++record)
        {
            if (bestCost < mRecords[record].mCost)
                continue;
            best = record;
            bestCost = mRecords[record].mCost;
        }
        mForced = mForced || record == first;
    };
    Pivot* next = mPivots.data() + corner + 1;
    if (mTable.isEdgeHidden(corner + 1) && takesPart(corner + 1))
    {
        const Vec2<float> direction = mTable.direction(corner, corner + 1);
        advance(direction);
        extend({direction, bestCost, corner, static_cast<int32>(best)}, *next);
    }
    const ChordTable::Side* const sidesEnd = mTable.sidesEnd(corner);
    for (const ChordTable::Side* side = mTable.sidesBegin(corner); side != sidesEnd; ++side)
    {
        Pivot& target = mPivots[static_cast<size_t>(side->mTo)];
        if (target.mSearch != mSearch)
            continue;
        advance(side->mDirection);
        extend({side->mDirection, side->mCost + bestCost, corner, static_cast<int32>(best)}, target);
    }
}

void ChainSearch::extend(const Record& chain, Pivot& target)
{
    const uint32 place = target.mFirst + 1;
    if (!target.mAllTurns)
    {
        mRecords[place + target.mNumRecords++] = chain;
        return;
    }
    if (target.mNumRecords > 0 && !(mRecords[place].mCost >= chain.mCost))
        return;
    mRecords[place] = chain;
    target.mNumRecords = 1;
}

int32 ChainSearch::findClosing(int32 corner, const Vec2<float>& back) const
{
    const Pivot& pivot = getPivot(corner);
    const uint32 first = pivot.mFirst + 1;
    const bool lastIsHidden =
        pivot.mHiddenEdge && pivot.mNumRecords > 0 && mRecords[first + pivot.mNumRecords - 1].mFrom + 1 == corner;
    const uint32 end = first + pivot.mNumRecords - (lastIsHidden ? 1 : 0);
    int32 best = NONE;
    for (uint32 record = first; record < end; ++record)
    {
        if (!pivot.mAllTurns && !turnsConvex(mRecords[record].mDirection, back))
            break;
        if (best == NONE || getRecord(best).mCost >= mRecords[record].mCost)
            best = static_cast<int32>(record);
    }
    // the closing edge of the outline takes what there is
    if (best == NONE && first < end && mTable.isRoot(mFirst, corner))
        best = static_cast<int32>(first);
    return best;
}

bool ChainSearch::isChainSeen(int32 record, int32 corner) const
{
    if (record == NONE)
        return true;
    // the last side is one, so its corner sees the end; the record without one before it starts at the first corner
    for (record = getRecord(record).mPrevious; record != NONE; record = getRecord(record).mPrevious)
    {
        const Record& link = getRecord(record);
        if (link.mPrevious != NONE && !mTable.sees(link.mFrom, corner))
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
    return priceSeen(cost, corner, getPivot(corner).mFirst + 1, back);
}

/// The cheapest record of a corner, from one on, that may go on to a side and whose chain is seen.
bool ChainSearch::priceSeen(float& cost, int32 corner, uint32 record, const Vec2<float>& leaving)
{
    const Pivot& pivot = getPivot(corner);
    if (pivot.mHiddenEdge)
        return false;
    bool found = false;
    for (const uint32 end = pivot.mFirst + 1 + pivot.mNumRecords; record < end; ++record)
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
    const Pivot& before = getPivot(link.mFrom);
    if (!priceSeen(cost, link.mFrom, before.mFirst + (before.mFirstSide ? 0 : 1), link.mDirection))
        return false;
    const ChordTable::Side* side = std::lower_bound(mTable.sidesBegin(link.mFrom), mTable.sidesEnd(link.mFrom), corner,
                                                    [](const ChordTable::Side& a, int32 to) { return a.mTo < to; });
    cost = side->mCost + cost;
    return true;
}
} // namespace KORV::NavMesh
