#include "korv/navmesh/pieces/chainsearch.h"

#include <algorithm>

namespace KORV::NavMesh
{
namespace
{
/// More than this, and a search of its own is the faster way to price a chord.
constexpr int32 MAX_STEPS = 160;
/// After so many the count of searches starts anew.
constexpr int32 MAX_SEARCHES = 1 << 30;
} // namespace

ChainSearch::ChainSearch(ChordTable& table, Common::Memory::Allocator* allocator)
    : mTable(table), mPivots(allocator), mRecords(allocator)
{
}

void ChainSearch::reset()
{
    const size_t n = mTable.getOutline().mPoints.size();
    if (mSearch < MAX_SEARCHES && n <= mPivots.size())
        return; // no search to come has the number of one before
    mSearch = 0;
    mPivots.assign(n, Pivot{});
}

/// Goes on along an edge of the outline whose ends don't see each other.
ChainSearch::Run ChainSearch::passHiddenEdge(int32 corner, Run run)
{
    const Vec2<float> direction = mTable.direction(corner, corner + 1);
    run = advance(getPivot(corner), run, direction);
    extend({direction, run.mBestCost, corner, static_cast<int32>(run.mBest)}, mPivots[static_cast<size_t>(corner) + 1]);
    return run;
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
