#pragma once

#include "korv/navmesh/pieces/chordtable.h"

#include <algorithm>
#include <limits>

namespace KORV::NavMesh
{
/// Searches the cheapest convex chains from one corner of an outline over others, in the order of the outline. A chain
/// is known by the arrival that its last side is.
/// The costs of all sides after the first corner must be known.
class ChainSearch
{
public:
    static constexpr uint32 NONE = ChordTable::NO_ARRIVAL;

    /// @param serves  whether other searches than the one made are to be answered, see isDoubtful.
    ChainSearch(ChordTable& table, bool serves, Common::Memory::Allocator* allocator);

    /// Forgets everything, for another outline in the table.
    void reset();

    /// Starts at a corner; what was found before is forgotten.
    void begin(int32 first);
    /// Finds the chains to a corner, from the first one over those that take part so far: all but the side from the
    /// first corner itself.
    void reach(int32 corner);
    /// Lets a corner that has been reached take part; the side from the first corner is a chain to it, too.
    /// @param arrival  of that side, or any other where it is none.
    void enter(int32 corner, uint32 arrival);

    /// The cheapest chain to the corner reached last that closes a convex piece against the side back to the first
    /// corner; of equal ones the one with the later last side. NONE if there is none.
    /// @param back  direction of that side.
    uint32 findClosing(int32 corner, const Vec2<float>& back) const
    {
        const bool clear = mTable.areAllClosing(corner, mLastReached, back) && !mTable.isRoot(mFirst, corner);
        return clear ? mReached : findConvex(corner, back);
    }
    /// Total chord length of everything on the side of a chain.
    float getCost(uint32 chain) const { return mChains[chain].mCost; }
    /// Whether every corner of a chain sees the one that it closes at.
    bool isChainSeen(uint32 chain, int32 corner) const;
    /// Writes the sides of such a chain, from the last to the first. @return how many, or 0 when it is not seen.
    size_t copyIfSeen(uint32* sides, uint32 chain, int32 corner) const;
    /// The cost of the cheapest chain that closes at the corner reached last and of which all corners see it, where a
    /// few steps find it and unless it is doubtful. @return false when they don't.
    bool priceSeenChains(float& cost, int32 corner, const Vec2<float>& back);
    /// Whether a search over fewer corners, those that see one which has been reached, may have found other chains that
    /// cost no more than one here: at some turn of theirs float noise decides, or the one here had to be taken though
    /// it is not convex, for want of another. Else costs up to that are lower bounds.
    bool isDoubtful(int32 corner, float cost) const { return !mDoubts.empty() && isDoubtSeen(corner, cost); }
    /// Whether some chain reaches the corner reached last.
    bool isReached() const { return mReached != NONE; }

private:
    /// Where more arrive, most of them take no part, and those that do follow each other.
    static constexpr uint32 FEW_ARRIVALS = 24;
    static constexpr float NEVER = std::numeric_limits<float>::infinity();

    /// The cheapest chain whose last side is an arrival, and the cheapest one of those up to that arrival at its
    /// corner; of equal ones the later.
    struct Chain
    {
        float mCost = NEVER; // of none
        uint32 mPrevious = NONE;
        float mBestCost = NEVER;
        uint32 mBest = NONE;
    };

    static constexpr int32 NO_CORNER = -1;

    /// What is known of a corner at which the table leaves something open: how far its sides have been gone through
    /// where turns are not in order.
    struct Progress
    {
        int32 mSearch = 0;
        uint32 mFirst = NONE; // chain to there
        uint32 mSide = 0;     // the next one
        uint32 mRun = 0;      // end of the arrivals that may go on along all those before
        int32 mOpener = 0;    // the side to there made it that long
    };

    /// What the cheapest chain over an arrival costs, of those that the closing corner sees.
    struct SeenPrice
    {
        int32 mPricing = 0; // that has found it
        float mCost = 0.0f;
    };

    /// A turn at a corner towards a later one, where fewer corners may let other chains go on. The same ones go on as
    /// long as opener and blocker take part.
    struct Doubt
    {
        float mLeast; ///< cost of any chain over the turn, at least
        int32 mAt;
        int32 mTo;
        int32 mOpener;   ///< a side to there lets all go on that do; NO_CORNER if it is not known whether any
        uint32 mBlocker; ///< the first chain that no side lets go on; NONE if all do
    };

    bool takesPart(int32 corner) const { return mPartOf[static_cast<size_t>(corner)] == mSearch; }
    void clear();
    /// The first arrival at a corner that is not the side from the first one.
    uint32 firstArrival(int32 corner) const
    {
        const uint32 arrival = mTable.openArrival(corner);
        return arrival + (mTable.arrivals()[arrival].mFrom == mFirst ? 1 : 0);
    }
    void reachAnyhow(int32 corner);
    bool isDoubtSeen(int32 corner, float cost) const;
    bool isWaySeen(uint32 chain, int32 corner) const;
    uint32 findConvex(int32 corner, const Vec2<float>& back) const;
    bool doAllTurn(uint32 chain, uint32 end, const Vec2<float>& onward) const;
    bool doesAnyTurn(uint32 chain, int32 from, int32 corner) const;
    uint32 findConvexEnd(int32 corner, const Vec2<float>& back) const;
    uint32 findFirstChain(uint32 arrival, uint32 end) const;
    uint32 findPrevious(uint32 arrival, int32 corner);
    void noteDoubt(uint32 arrival, int32 corner, uint32 run);
    int32 findOpener(uint32 arrival, int32 corner, uint32 run) const;
    uint32 findUnorderedBest(Progress& progress, int32 from, int32 corner);
    Progress& getProgress(int32 from, int32 corner);
    uint32 advance(uint32 run, uint32 end, const Vec2<float>& leaving) const;
    bool priceSeen(float& cost, uint32 chain, uint32 end);
    bool priceSeenChain(float& cost, uint32 chain);
    bool priceBySides(float& cost, uint32 chain);

    ChordTable& mTable;
    const bool mServes;
    int32 mFirst = 0;
    int32 mSearch = 0;
    bool mCleared = false;      // for the outline at hand
    uint32 mReached = NONE;     // the cheapest chain to the corner reached last
    uint32 mLastReached = NONE; // the last one
    int32 mClosing = 0;         // corner that others must see
    int32 mPricing = 0;         // number of the pricing of chains that do
    int32 mStepsLeft = 0;       // of that
    Vector<int32> mPartOf;      // the last search of each corner
    Vector<Chain> mChains;      // by arrival
    Vector<Doubt> mDoubts;      // of this search
    Vector<Progress> mProgress; // by corner, once it is asked for
    Vector<SeenPrice> mPrices;  // by arrival, once some are asked for
};

// The steps of a search are short and taken for each pair of corners: calls would cost as much as they do, and so would
// branches that follow no pattern.

inline void ChainSearch::begin(int32 first)
{
    if (!mCleared)
        clear();
    ++mSearch;
    mFirst = first;
    mDoubts.clear();
}

inline void ChainSearch::reach(int32 corner)
{
    const ChordTable::Arrival* const arrivals = mTable.arrivals();
    const int32* const partOf = mPartOf.data();
    const int32 search = mSearch;
    Chain* const chains = mChains.data();
    const uint32 end = mTable.arrivalsEnd(corner);
    uint32 arrival = firstArrival(corner);
    if (end > arrival + FEW_ARRIVALS)
        return reachAnyhow(corner);
    uint32 best = NONE;
    float bestCost = NEVER;
    uint32 last = NONE;
    uint32 missing = 0;
    for (; arrival < end; ++arrival)
    {
        const ChordTable::Arrival& side = arrivals[arrival];
        const uint32 taken = partOf[side.mFrom] == search ? 1 : 0;
        const uint32 mask = 0 - taken; // all bits, or none: those of NONE
        const Chain& before = chains[side.mRun & mask];
        const float cost = side.mCost + before.mBestCost;
        best = bestCost < cost ? best : arrival & mask;
        bestCost = std::min(cost, bestCost);
        last = std::max(last, arrival & mask);
        missing |= taken & (before.mBest == NONE ? 1 : 0);
        chains[arrival] = {cost, before.mBest, bestCost, best};
    }
    mReached = best;
    mLastReached = last;
    if (missing != 0)
        reachAnyhow(corner);
}

inline void ChainSearch::enter(int32 corner, uint32 arrival)
{
    mPartOf[static_cast<size_t>(corner)] = mSearch;
    const ChordTable::Arrival& side = mTable.arrivals()[arrival];
    if (side.mFrom != mFirst)
        return;
    Chain* const chains = mChains.data();
    const float cost = side.mCost;
    chains[arrival] = {cost, NONE, cost, arrival};
    const uint32 end = mTable.arrivalsEnd(corner);
    for (uint32 next = arrival + 1; next < end && chains[next].mBestCost > cost; ++next)
    {
        chains[next].mBestCost = cost;
        chains[next].mBest = arrival;
    }
}

inline bool ChainSearch::isChainSeen(uint32 chain, int32 corner) const
{
    const uint32 previous = mChains[chain].mPrevious; // the last side is one, so its corner sees the end
    return previous == NONE || isWaySeen(previous, corner);
}

/// Whether another corner sees all those of a chain but the last; it does see the first.
inline bool ChainSearch::isWaySeen(uint32 chain, int32 corner) const
{
    const ChordTable::Arrival* const arrivals = mTable.arrivals();
    for (; mChains[chain].mPrevious != NONE; chain = mChains[chain].mPrevious)
    {
        if (!mTable.sees(arrivals[chain].mFrom, corner))
            return false;
    }
    return true;
}

inline size_t ChainSearch::copyIfSeen(uint32* sides, uint32 chain, int32 corner) const
{
    const ChordTable::Arrival* const arrivals = mTable.arrivals();
    size_t size = 0;
    sides[size++] = chain;
    // the last side is one, so its corner sees the end; the first one starts at the first corner
    for (chain = mChains[chain].mPrevious; chain != NONE; chain = mChains[chain].mPrevious)
    {
        sides[size++] = chain;
        if (mChains[chain].mPrevious != NONE && !mTable.sees(arrivals[chain].mFrom, corner))
            return 0;
    }
    return size;
}
} // namespace KORV::NavMesh
