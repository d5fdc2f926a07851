#include "korv/navmesh/pieces/chainsearch.h"

namespace KORV::NavMesh
{
namespace
{
/// More than this, and a search of its own is the faster way to price a chord.
constexpr int32 MAX_STEPS = 3000;
/// After so many the counts of searches and of pricings start anew. One outline has far fewer.
constexpr int32 MAX_COUNT = 1 << 30;
} // namespace

ChainSearch::ChainSearch(ChordTable& table, bool serves, Common::Memory::Allocator* allocator)
    : mTable(table), mServes(serves), mPartOf(allocator), mChains(allocator), mDoubts(allocator), mProgress(allocator),
      mPrices(allocator)
{
}

void ChainSearch::reset()
{
    mCleared = false;
}

/// Makes all arrivals look as if no chain came by them, as those that are not open must.
void ChainSearch::clear()
{
    mCleared = true;
    mChains.assign(mTable.getNumArrivals(), Chain{});
    const size_t n = mTable.getOutline().mPoints.size();
    if (std::max(mSearch, mPricing) < MAX_COUNT && n <= mPartOf.size())
        return; // no search to come has the number of one before
    mSearch = 0;
    mPricing = 0;
    mPartOf.assign(n, 0);
    mProgress.clear();
    mPrices.clear();
}

/// The same for many arrivals, and where a run is empty or not known. Most of many take no part: no chain comes by
/// them.
void ChainSearch::reachAnyhow(int32 corner)
{
    const ChordTable::Arrival* const arrivals = mTable.arrivals();
    const int32* const partOf = mPartOf.data();
    const int32 search = mSearch;
    Chain* const chains = mChains.data();
    float bestCost = NEVER;
    uint32 best = NONE;
    uint32 last = NONE;
    const uint32 end = mTable.arrivalsEnd(corner);
    for (uint32 arrival = firstArrival(corner); arrival < end; ++arrival)
    {
        const ChordTable::Arrival& side = arrivals[arrival];
        Chain& chain = chains[arrival];
        chain.mCost = NEVER;
        chain.mBestCost = bestCost;
        chain.mBest = best;
        if (partOf[side.mFrom] != search)
            continue;
        uint32 previous = chains[side.mRun].mBest;
        if (previous == NONE)
            previous = findPrevious(arrival, corner);
        if (previous == NONE)
            continue;
        last = arrival;
        const float cost = side.mCost + chains[previous].mCost;
        if (bestCost >= cost)
        {
            bestCost = cost;
            best = arrival;
        }
        chain = {cost, previous, bestCost, best};
    }
    mLastReached = last;
    mReached = best;
}

/// The cheapest chain to the corner reached last that turns back convex, when not all do.
uint32 ChainSearch::findConvex(int32 corner, const Vec2<float>& back) const
{
    const uint32 begin = firstArrival(corner);
    if (!mTable.isEdgeHidden(corner) && doAllTurn(begin, mTable.arrivalsEnd(corner), back) && mReached != NONE)
        return mReached;
    const uint32 end = findConvexEnd(corner, back);
    uint32 best = NONE;
    for (uint32 chain = begin; chain < end; ++chain)
    {
        if (mChains[chain].mCost < NEVER && mChains[best].mCost >= mChains[chain].mCost)
            best = chain;
    }
    // the closing edge of the outline takes what there is
    if (best == NONE && mTable.isRoot(mFirst, corner))
        best = findFirstChain(begin, mTable.arrivedSidesEnd(corner));
    return best;
}

/// Whether all of some chains turn convex.
bool ChainSearch::doAllTurn(uint32 chain, uint32 end, const Vec2<float>& onward) const
{
    uint32 isOther = 0; // no branch: see the header
    for (; chain < end; ++chain)
    {
        const uint32 exists = mChains[chain].mCost < NEVER ? 1 : 0;
        isOther |= exists & (turnsConvex(mTable.arriving(chain), onward) ? 0u : 1u);
    }
    return isOther == 0;
}

/// End of the arrivals at a corner before the first chain that turns back too far to the left. A hidden edge is no side
/// of a piece.
uint32 ChainSearch::findConvexEnd(int32 corner, const Vec2<float>& back) const
{
    const uint32 end = mTable.arrivedSidesEnd(corner);
    if (mTable.getTurns(corner) == ChordTable::Turns::ALL)
        return end;
    return advance(firstArrival(corner), end, back);
}

uint32 ChainSearch::findFirstChain(uint32 arrival, uint32 end) const
{
    while (arrival < end && mChains[arrival].mCost == NEVER)
        ++arrival;
    return arrival < end ? arrival : NONE;
}

/// The chain that the cheapest one over a side goes on from, where the table knows no run with a chain.
uint32 ChainSearch::findPrevious(uint32 arrival, int32 corner)
{
    const int32 from = mTable.arrivals()[arrival].mFrom;
    Progress& progress = getProgress(from, corner);
    const uint32 first = progress.mFirst;
    if (first == NONE) // no piece reaches that corner
        return NONE;
    const bool ordered = mTable.getTurns(from) != ChordTable::Turns::UNORDERED;
    const uint32 best = ordered ? NONE : findUnorderedBest(progress, from, corner);
    if (mServes)
        noteDoubt(arrival, corner, ordered ? first : progress.mRun);
    return best != NONE ? best : first;
}

/// @param run  end of the chains that may go on along an arrival.
void ChainSearch::noteDoubt(uint32 arrival, int32 corner, uint32 run)
{
    const int32 from = mTable.arrivals()[arrival].mFrom;
    const uint32 blocker = findFirstChain(run, mTable.arrivalsEnd(from));
    const bool isBlocked = blocker == NONE || !doesAnyTurn(blocker, from, corner);
    const int32 opener = isBlocked ? findOpener(arrival, corner, run) : NO_CORNER;
    const float least = mChains[mTable.arrivalsEnd(from) - 1].mBestCost + mTable.arrivals()[arrival].mCost;
    if (blocker != NONE || opener != corner)
        mDoubts.push_back({least, from, corner, opener, blocker});
}

int32 ChainSearch::findOpener(uint32 arrival, int32 corner, uint32 run) const
{
    const int32 from = mTable.arrivals()[arrival].mFrom;
    const uint32 begin = mTable.arrivalsBegin(from);
    if (doAllTurn(begin, run, mTable.arriving(arrival)))
        return corner;
    const int32 opener = mProgress[static_cast<size_t>(from)].mOpener; // without one there is no run
    return doAllTurn(begin, run, mTable.direction(from, opener)) ? opener : NO_CORNER;
}

/// Whether some side of a corner, up to one, lets a chain go on.
bool ChainSearch::doesAnyTurn(uint32 chain, int32 from, int32 corner) const
{
    const Vec2<float> arriving = mTable.arriving(chain);
    const ChordTable::Side* side = mTable.sidesBegin(from);
    const ChordTable::Side* const sidesEnd = mTable.sidesEnd(from);
    while (side != sidesEnd && side->mTo <= corner && !turnsConvex(arriving, mTable.arriving(side->mArrival)))
        ++side;
    return mTable.isEdgeHidden(from + 1) || (side != sidesEnd && side->mTo <= corner);
}

bool ChainSearch::isDoubtSeen(int32 corner, float cost) const
{
    const auto sees = [this, corner](int32 other) { return other == corner || mTable.sees(other, corner); };
    const auto isOpen = [&](const Doubt& doubt)
    {
        return doubt.mLeast <= cost && sees(doubt.mAt) && sees(doubt.mTo) &&
               (doubt.mOpener == NO_CORNER || !sees(doubt.mOpener) ||
                (doubt.mBlocker != NONE && !isWaySeen(doubt.mBlocker, corner)));
    };
    return std::any_of(mDoubts.begin(), mDoubts.end(), isOpen);
}

/// Sides are taken in the order of their later corners: what may go on along one is not asked again for the next. A
/// search asks in that order, too, for corners that take part afterwards: it goes on where it was.
uint32 ChainSearch::findUnorderedBest(Progress& progress, int32 from, int32 corner)
{
    const uint32 end = mTable.arrivalsEnd(from);
    const ChordTable::Side* const begin = mTable.sidesBegin(from);
    const ChordTable::Side* const sidesEnd = mTable.sidesEnd(from);
    const ChordTable::Side* side = begin + progress.mSide;
    for (; side != sidesEnd && side->mTo <= corner; ++side)
    {
        if (side->mTo != corner && !takesPart(side->mTo))
            continue;
        const uint32 run = advance(progress.mRun, end, mTable.arriving(side->mArrival));
        progress.mOpener = run != progress.mRun ? side->mTo : progress.mOpener;
        progress.mRun = run;
    }
    progress.mSide = static_cast<uint32>(side - begin);
    return mChains[progress.mRun - 1].mBest;
}

/// @param corner  the first one after it that is asked for.
ChainSearch::Progress& ChainSearch::getProgress(int32 from, int32 corner)
{
    if (mProgress.empty())
        mProgress.resize(mPartOf.size());
    Progress& progress = mProgress[static_cast<size_t>(from)];
    if (progress.mSearch == mSearch)
        return progress;
    const uint32 begin = mTable.arrivalsBegin(from);
    const uint32 end = mTable.arrivalsEnd(from);
    progress = {mSearch, findFirstChain(begin, end), 0, begin, from + 1};
    if (mTable.isEdgeHidden(from + 1) && (from + 1 == corner || takesPart(from + 1)))
        progress.mRun = advance(begin, end, mTable.direction(from, from + 1));
    return progress;
}

/// Lets arrivals take part up to the first chain that must not go on along a side.
uint32 ChainSearch::advance(uint32 run, uint32 end, const Vec2<float>& leaving) const
{
    while (run < end && (mChains[run].mCost == NEVER || turnsConvex(mTable.arriving(run), leaving)))
        ++run;
    return run;
}

/// The costs known are lower bounds, as they take more chains into account; where a chain is seen, its cost is exact.
/// Else the chains that may come before its last side are asked, as far as they can be cheaper than what is found.
bool ChainSearch::priceSeenChains(float& cost, int32 corner, const Vec2<float>& back)
{
    mClosing = corner;
    mStepsLeft = MAX_STEPS;
    ++mPricing;
    mPrices.resize(std::max(mPrices.size(), mChains.size()));
    return !mTable.isEdgeHidden(corner) && priceSeen(cost, firstArrival(corner), findConvexEnd(corner, back));
}

/// The cheapest of some chains to a corner that are seen.
bool ChainSearch::priceSeen(float& cost, uint32 chain, uint32 end)
{
    bool found = false;
    for (; chain < end; ++chain)
    {
        const Chain& link = mChains[chain];
        if (link.mCost == NEVER)
            continue;
        if (--mStepsLeft < 0)
            return false;
        if (found && link.mCost >= cost)
            continue;
        if (link.mPrevious != NONE && !mTable.sees(mTable.arrivals()[chain].mFrom, mClosing))
            continue;
        float seenCost = 0.0f;
        if (!priceSeenChain(seenCost, chain))
            return false;
        cost = found ? std::min(cost, seenCost) : seenCost;
        found = true;
    }
    return found;
}

/// Different chains share their beginnings, so each is priced once.
bool ChainSearch::priceSeenChain(float& cost, uint32 chain)
{
    SeenPrice& price = mPrices[chain];
    if (price.mPricing != mPricing)
    {
        if (!priceBySides(cost, chain))
            return false;
        price = {mPricing, cost};
    }
    cost = price.mCost;
    return true;
}

bool ChainSearch::priceBySides(float& cost, uint32 chain)
{
    cost = mChains[chain].mCost;
    if (isChainSeen(chain, mClosing))
        return true;
    const ChordTable::Arrival& side = mTable.arrivals()[chain];
    if (mTable.isEdgeHidden(side.mFrom) || !priceSeen(cost, mTable.openArrival(side.mFrom), side.mRun + 1))
        return false;
    cost = side.mCost + cost;
    return true;
}
} // namespace KORV::NavMesh
