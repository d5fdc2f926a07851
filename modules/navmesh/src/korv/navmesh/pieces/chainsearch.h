#pragma once

#include "korv/navmesh/pieces/chordtable.h"

namespace KORV::NavMesh
{
/// Searches the cheapest convex chains from one corner of an outline over others, in the order of the outline.
/// The costs of all sides after the first corner must be known.
class ChainSearch
{
public:
    /// A chain that ends with the side from mFrom to the corner that holds the record.
    struct Record
    {
        Vec2<float> mDirection; ///< of that side
        float mCost;            ///< total chord length of everything on the chain's side
        int32 mFrom;
        int32 mPrevious; ///< record of the chain up to mFrom, or NONE
    };

    static constexpr int32 NONE = -1;

    ChainSearch(ChordTable& table, Common::Memory::Allocator* allocator);

    /// Forgets everything, for another outline in the table.
    void reset();

    /// Starts at a corner, over others in increasing order; what was found before is forgotten.
    void begin(int32 first, const int32* corners, const int32* end);
    /// Goes on from the next of the corners, to which all chains are known then, to all later ones.
    void pass(int32 corner);
    /// Makes the side from the first corner to another one a chain too, at that cost. Before that one is passed.
    void addFirstSide(const ChordTable::Side& side)
    {
        Pivot& pivot = mPivots[static_cast<size_t>(side.mTo)];
        mRecords[--pivot.mBegin] = {side.mDirection, side.mCost, mFirst, NONE};
    }

    /// The cheapest chain to a corner that closes a convex piece against the side back to the first corner; of equal
    /// ones the one with the later last side. NONE if there is none. Before that corner is passed.
    /// @param back  direction of that side.
    int32 findClosing(int32 corner, const Vec2<float>& back) const;
    /// Whether every corner of such a chain sees the corner it closes at.
    bool isChainSeen(int32 record, int32 corner) const;
    /// The cost of the cheapest of those chains of whose corners all see that corner, where a few steps find it. Turns
    /// at all these corners must be in order, and no chain forced.
    /// @return false when they don't.
    bool priceSeenChains(float& cost, int32 corner, const Vec2<float>& back);
    /// Writes the corners that the sides of a chain start at, from the last to the first. @return how many.
    size_t copyChain(int32* corners, int32 record) const;
    const Record& getRecord(int32 record) const { return mRecords[static_cast<size_t>(record)]; }
    /// Whether some chain had to take a corner that is not convex, for want of another.
    bool wasForced() const { return mForced; }
    /// Whether some chain reaches a corner.
    bool isReached(int32 corner) const { return getPivot(corner).mBegin < getPivot(corner).mEnd; }
    /// Whether a corner is one of those of this search.
    bool takesPart(int32 corner) const { return getPivot(corner).mSearch == mSearch; }

private:
    /// What is known about a corner. Its records follow each other by their mFrom; a place is left before them for the
    /// side from the first corner. Where all turns are convex only the cheapest of the others is kept.
    struct Pivot
    {
        int32 mSearch; // that it last took part in
        uint32 mBegin; // of its records
        uint32 mEnd;
        bool mAllTurns;
    };

    /// The leading records of a corner that may go on along a side.
    struct Run
    {
        uint32 mNext; // behind them
        uint32 mBest; // the cheapest of them, or the first record where there are none
        float mBestCost;
    };

    const Pivot& getPivot(int32 corner) const { return mPivots[static_cast<size_t>(corner)]; }
    bool priceSeen(float& cost, int32 corner, const Vec2<float>& leaving);
    bool priceSeenRecord(float& cost, int32 corner, uint32 record);
    Run advance(const Pivot& pivot, Run run, const Vec2<float>& leaving);
    Run passHiddenEdge(int32 corner, Run run);
    void extend(const Record& chain, Pivot& target);
    uint32 endWithoutHidden(int32 corner) const;

    ChordTable& mTable;
    int32 mFirst = 0;
    int32 mSearch = 0;
    bool mForced = false;
    int32 mClosing = 0;   // corner that others must see
    int32 mStepsLeft = 0; // of pricing chains that do
    Vector<Pivot> mPivots;
    Vector<Record> mRecords;
};

// The steps of a search are short and taken for each pair of corners: calls would cost as much as they do.

inline void ChainSearch::begin(int32 first, const int32* corners, const int32* end)
{
    ++mSearch;
    mFirst = first;
    mForced = false;
    uint32 place = 0;
    for (; corners != end; ++corners)
    {
        const bool allTurns = mTable.getTurns(*corners) == ChordTable::Turns::ALL;
        mPivots[static_cast<size_t>(*corners)] = {mSearch, place + 1, place + 1, allTurns};
        place += mTable.numChains(*corners);
    }
    if (mRecords.size() < place)
        mRecords.resize(place);
}

/// Goes on along the sides to later corners. They come in increasing order, so that a record which has been used once
/// needs no second look.
inline void ChainSearch::pass(int32 corner)
{
    const Pivot pivot = getPivot(corner);
    if (pivot.mBegin == pivot.mEnd)
        return; // no piece reaches it: it takes no part
    Run run{pivot.mBegin, pivot.mBegin, mRecords[pivot.mBegin].mCost};
    if (mTable.isEdgeHidden(corner + 1) && takesPart(corner + 1))
        run = passHiddenEdge(corner, run);
    const ChordTable::Side* const sidesEnd = mTable.sidesEnd(corner);
    for (const ChordTable::Side* side = mTable.sidesBegin(corner); side != sidesEnd; ++side)
    {
        Pivot& target = mPivots[static_cast<size_t>(side->mTo)];
        if (target.mSearch != mSearch)
            continue;
        run = advance(pivot, run, side->mDirection);
        extend({side->mDirection, side->mCost + run.mBestCost, corner, static_cast<int32>(run.mBest)}, target);
    }
}

/// Lets all records take part that may go on along a side.
inline ChainSearch::Run ChainSearch::advance(const Pivot& pivot, Run run, const Vec2<float>& leaving)
{
    const Record* const records = mRecords.data();
    for (; run.mNext < pivot.mEnd; ++run.mNext)
    {
        const Record& record = records[run.mNext];
        if (!pivot.mAllTurns && !turnsConvex(record.mDirection, leaving))
            break;
        if (run.mBestCost < record.mCost)
            continue;
        run.mBest = run.mNext;
        run.mBestCost = record.mCost;
    }
    if (run.mNext == pivot.mBegin)
        mForced = true;
    return run;
}

inline void ChainSearch::extend(const Record& chain, Pivot& target)
{
    Record* const records = mRecords.data();
    if (!target.mAllTurns || target.mBegin == target.mEnd)
        records[target.mEnd++] = chain;
    else if (records[target.mBegin].mCost >= chain.mCost)
        records[target.mBegin] = chain;
}

inline int32 ChainSearch::findClosing(int32 corner, const Vec2<float>& back) const
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
inline uint32 ChainSearch::endWithoutHidden(int32 corner) const
{
    const Pivot& pivot = getPivot(corner);
    const bool hidden =
        mTable.isEdgeHidden(corner) && isReached(corner) && mRecords[pivot.mEnd - 1].mFrom + 1 == corner;
    return pivot.mEnd - (hidden ? 1 : 0);
}

inline size_t ChainSearch::copyChain(int32* corners, int32 record) const
{
    const Record* const records = mRecords.data();
    size_t size = 0;
    for (; record != NONE; record = records[record].mPrevious)
        corners[size++] = records[record].mFrom;
    return size;
}

inline bool ChainSearch::isChainSeen(int32 record, int32 corner) const
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
} // namespace KORV::NavMesh
