#include "korv/navmesh/chainsearch.h"

#include "korv/common/debug/assert.h"

namespace KORV::NavMesh
{
ChainSearch::ChainSearch(ChordTable& table, Common::Memory::Allocator* allocator)
    : mTable(table), mOutline(table.getOutline()), mPivots(allocator), mRecords(allocator),
      mSlots(static_cast<size_t>(table.getOutline().size()), NONE, allocator),
      mSeenBy(static_cast<size_t>(table.getOutline().size()), NONE, allocator)
{
}

void ChainSearch::begin(int32 first)
{
    for (const Pivot& pivot : mPivots)
        mSlots[static_cast<size_t>(pivot.mCorner)] = NONE;
    mPivots.clear();
    mRecords.clear();
    mFirst = first;
    mForced = false;
}

int32 ChainSearch::extend(int32 corner)
{
    const size_t slot = mPivots.size();
    mPivots.push_back({corner, static_cast<uint32>(mRecords.size()), 0, 0, NONE});
    mMetUnordered = false;
    int32 seen = 0;
    const bool cornerReflex = mOutline.isReflex(corner);
    for (const ChordTable::Chord* chord = mTable.lowerBound(mFirst + 1, corner); chord != mTable.chordsEnd(corner);
         ++chord)
    {
        const int32 from = chord->mFrom;
        mSeenBy[static_cast<size_t>(from)] = corner;
        if (mSlots[static_cast<size_t>(from)] == NONE)
            continue;
        ++seen;
        mMetUnordered = mMetUnordered || !mTable.isOrdered(from);
        if (cornerReflex || mOutline.isReflex(from) || from + 1 == corner)
            appendChain(from, corner, chord->mCost, chord->mTurnLimit);
    }
    mLastEdgeHidden = false;
    if (mTable.isEdgeHidden(corner) && takesPart(corner - 1))
    {
        const size_t before = mRecords.size();
        appendChain(corner - 1, corner, 0.0f, ChordTable::UNORDERED);
        mLastEdgeHidden = mRecords.size() > before;
    }
    mPivots[slot].mNumRecords = static_cast<uint32>(mRecords.size()) - mPivots[slot].mFirstRecord;
    mSlots[static_cast<size_t>(corner)] = static_cast<int32>(slot);
    return seen;
}

void ChainSearch::appendChain(int32 from, int32 corner, float sideCost, int32 turnLimit)
{
    Pivot& pivot = mPivots[static_cast<size_t>(mSlots[static_cast<size_t>(from)])];
    if (pivot.mNumRecords == 0)
        return; // no piece reaches it: it takes no part
    const int32 best = takeBest(pivot, corner, turnLimit);
    if (!KORV_ASSERT(best >= 0, "bestFragment", "no best fragment found"))
        return;
    mRecords.push_back({from, sideCost + getRecord(best).mCost, best});
}

/// The cheapest chain to a pivot that may go on to a target. Targets come in increasing order, so that a record which
/// has been used once needs no second look.
int32 ChainSearch::takeBest(Pivot& pivot, int32 target, int32 turnLimit)
{
    const bool ordered = mTable.isOrdered(pivot.mCorner);
    while (pivot.mTaken < pivot.mNumRecords)
    {
        const int32 record = static_cast<int32>(pivot.mFirstRecord + pivot.mTaken);
        const int32 from = getRecord(record).mFrom;
        if (ordered ? from > turnLimit : !isConvexCorner(mOutline, from, pivot.mCorner, target))
            break;
        if (pivot.mTaken == 0 || getRecord(pivot.mBest).mCost >= getRecord(record).mCost)
            pivot.mBest = record;
        ++pivot.mTaken;
    }
    if (pivot.mTaken > 0)
        return pivot.mBest;
    if (!KORV_ASSERT(pivot.mNumRecords > 0, "pivot->mBestSoFar", "no best element"))
        return NONE;
    mForced = true;
    return static_cast<int32>(pivot.mFirstRecord);
}

void ChainSearch::addFirstSide(float cost)
{
    // in front of the others, which no chain refers to yet: the first corner comes before every other
    Pivot& pivot = mPivots.back();
    mRecords.insert(mRecords.begin() + pivot.mFirstRecord, {mFirst, cost, NONE});
    ++pivot.mNumRecords;
}

int32 ChainSearch::findClosing() const
{
    const Pivot& pivot = mPivots.back();
    const uint32 end = pivot.mFirstRecord + pivot.mNumRecords - (mLastEdgeHidden ? 1 : 0);
    const int32 limit = mTable.lowerBound(mFirst, pivot.mCorner)->mCloseLimit;
    int32 best = NONE;
    for (uint32 record = pivot.mFirstRecord; record < end; ++record)
    {
        const int32 from = mRecords[record].mFrom;
        if (limit == ChordTable::UNORDERED ? !isConvexCorner(mOutline, from, pivot.mCorner, mFirst) : from > limit)
            break;
        if (best == NONE || getRecord(best).mCost >= mRecords[record].mCost)
            best = static_cast<int32>(record);
    }
    // the closing edge of the outline takes what there is
    if (best == NONE && pivot.mFirstRecord < end && mTable.isRoot(mFirst, pivot.mCorner))
        best = static_cast<int32>(pivot.mFirstRecord);
    return best;
}

bool ChainSearch::seenByLast(int32 record) const
{
    const int32 last = mPivots.back().mCorner;
    for (; record != NONE; record = getRecord(record).mPrevious)
    {
        const int32 from = getRecord(record).mFrom;
        if (from != mFirst && mSeenBy[static_cast<size_t>(from)] != last)
            return false;
    }
    return true;
}
} // namespace KORV::NavMesh
