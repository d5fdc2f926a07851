#pragma once

#include "korv/navmesh/chainsearch.h"
#include "korv/navmesh/convexpieces.h"

namespace KORV::NavMesh
{
/// Splits an outline into convex pieces of minimal total chord length.
class ChordSolver
{
public:
    ChordSolver(const PlaneOutline& outline, Common::Memory::Allocator* allocator);

    enum class Result
    {
        SOLVED,
        UNSOLVABLE,
        STOPPED
    };

    /// Prices all chords.
    Result solve(const std::atomic<bool>& stop);
    /// Total chord length of the cheapest decomposition, the closing edge of the outline included.
    float getRootCost();
    /// Writes the pieces of the cheapest decomposition, once it has been found.
    void extract(ConvexPieces& pieces);

    /// How many chords needed a search of their own; tells how well the shared searches work.
    uint32 getNumOwnSearches() const { return mNumOwnSearches; }

private:
    float solveChord(int32 i, int32 k, int32 numBetween, int32 numSeen);
    float chordCost(int32 i, int32 k, float chainCost) const;
    int32 searchChord(int32 i, int32 k);
    void appendPiece(ConvexPieces& pieces, int32 i, int32 k);

    const PlaneOutline& mOutline;
    ChordTable mTable;
    ChainSearch mShared;     // over all corners that the first one sees
    ChainSearch mOwn;        // over those that also see the last one
    Vector<int32> mSeenFrom; // last first corner that was found to see it
    Vector<int32> mCorners;  // scratch
    uint32 mNumOwnSearches = 0;
};
} // namespace KORV::NavMesh
