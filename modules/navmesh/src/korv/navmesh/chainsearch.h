#pragma once

#include "korv/navmesh/chordtable.h"

namespace KORV::NavMesh
{
/// Searches the cheapest convex chains from one corner of an outline over others, in the order of the outline.
/// The side costs of all chords after the first corner must be known.
class ChainSearch
{
public:
    /// A chain that ends with the side from mFrom to the corner that holds the record.
    struct Record
    {
        int32 mFrom;
        float mCost;     ///< total chord length of everything on the chain's side
        int32 mPrevious; ///< record of the chain up to mFrom, or NONE
    };

    static constexpr int32 NONE = -1;

    ChainSearch(ChordTable& table, Common::Memory::Allocator* allocator);

    /// Starts at a corner; what was found before is forgotten.
    void begin(int32 first);
    /// Prices the chains to a corner that the first one sees. Corners come in increasing order.
    /// @return how many of the corners so far it sees, the first not counted.
    int32 extend(int32 corner);
    /// Makes the side from the first corner to the corner extended last a chain too, at that cost.
    void addFirstSide(float cost);
    /// Whether the last extension met a corner whose answers depend on which corners take part.
    bool metUnordered() const { return mMetUnordered; }
    /// Whether some chain had to take a corner that is not convex, for want of another.
    bool wasForced() const { return mForced; }

    /// The cheapest chain to the corner extended last that closes a convex piece against the side back to the first
    /// corner; of equal ones the one with the later last side. NONE if there is none.
    int32 findClosing() const;
    const Record& getRecord(int32 record) const { return mRecords[static_cast<size_t>(record)]; }
    /// Whether some chain reaches the corner extended last.
    bool isLastReached() const { return mPivots.back().mNumRecords > 0; }
    /// Whether every corner of a chain sees the corner extended last.
    bool seenByLast(int32 record) const;
    /// Whether a corner has been given to this search and has chains.
    bool takesPart(int32 corner) const { return mSlots[static_cast<size_t>(corner)] != NONE; }

private:
    struct Pivot
    {
        int32 mCorner;
        uint32 mFirstRecord;
        uint32 mNumRecords;
        uint32 mTaken; // records that have been used: a leading run
        int32 mBest;   // cheapest of them
    };

    int32 takeBest(Pivot& pivot, int32 target, int32 turnLimit);
    void appendChain(int32 from, int32 corner, float sideCost, int32 turnLimit);

    ChordTable& mTable;
    const PlaneOutline& mOutline;
    int32 mFirst = 0;
    bool mMetUnordered = false;
    bool mForced = false;
    bool mLastEdgeHidden = false; // the last record's side is no side of a piece against the last corner
    Vector<Pivot> mPivots;
    Vector<Record> mRecords;
    Vector<int32> mSlots;  // pivot of each corner of the outline
    Vector<int32> mSeenBy; // last corner that was found to see it
};
} // namespace KORV::NavMesh
