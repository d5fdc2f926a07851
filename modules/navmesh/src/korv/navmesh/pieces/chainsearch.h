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

    const Pivot& getPivot(int32 corner) const { return mPivots[static_cast<size_t>(corner)]; }
    bool priceSeen(float& cost, int32 corner, const Vec2<float>& leaving);
    bool priceSeenRecord(float& cost, int32 corner, uint32 record);
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
} // namespace KORV::NavMesh
