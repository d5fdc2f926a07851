#pragma once

#include "korv/navmesh/chordtable.h"

namespace KORV::NavMesh
{
/// Grows convex chains of corners from one first corner, and keeps the cheapest ways. One thread at a time.
class ConvexChains
{
public:
    static constexpr int32 NONE = -1;
    /// A cost from which on there is no cut.
    static constexpr float NO_CUT = 3.4028235e+38f;

    ConvexChains(const ChordTable& table, Common::Memory::Allocator* allocator);

    /// Starts anew.
    /// @param lowest  the lowest corner that may follow the first one.
    void start(int32 first, int32 lowest);
    int32 getLowest() const { return mLowest; }

    /// Extends the chains to a corner above all before; the side (first, corner) alone comes with finish.
    void extend(int32 corner);
    /// The best chain to the corner that closes with the side back to the first corner; NONE where there is none.
    int32 close(int32 corner) const;
    /// Makes the corner a predecessor of the corners to come.
    /// @param directCost  cost of the side (first, corner), used where that may bound a piece.
    void finish(int32 corner, float directCost);

    float getCost(int32 chain) const { return mRecords[static_cast<size_t>(chain)].mCost; }
    /// Calls @p visit with the inner corners of a chain, last to first, until it answers false.
    /// @return whether it never did.
    template <class Visit>
    bool allInnerCorners(int32 chain, const Visit& visit) const
    {
        for (const Record* record = &mRecords[static_cast<size_t>(chain)]; record->mFrom != mFirst;
             record = &mRecords[static_cast<size_t>(record->mChain)])
        {
            if (!visit(record->mFrom))
                return false;
        }
        return true;
    }

private:
    /// A chain to a corner, by its last side.
    struct Record
    {
        int32 mFrom;
        int32 mBelow; // next on the corner's stack
        int32 mChain; // the record of the chain up to mFrom
        float mCost;
    };
    /// What is known of a corner, while the stamp is the search's.
    struct State
    {
        uint32 mStamp = 0;
        int32 mStack = NONE;
        int32 mBest = NONE;
    };

    bool isActive(int32 corner) const { return mStates[static_cast<size_t>(corner)].mStamp == mStamp; }
    int32 push(int32 stack, int32 from, int32 corner, float sideCost);
    int32 findBest(int32 pivot, int32 target);
    bool isConvexCorner(int32 a, int32 b, int32 c) const;

    const ChordTable& mTable;
    int32 mFirst = 0;
    int32 mLowest = 0;
    uint32 mStamp = 0;
    Vector<State> mStates;
    Vector<Record> mRecords;
};
} // namespace KORV::NavMesh
