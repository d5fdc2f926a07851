#pragma once

#include "korv/navmesh/pieces/chainsearch.h"
#include "korv/navmesh/pieces/convexpieces.h"

namespace KORV::NavMesh
{
/// Splits outlines into convex pieces of minimal total chord length.
class ChordSolver
{
public:
    /// @param outline  is referred to; it may change between two calls of solve.
    ChordSolver(const PlaneOutline& outline, Common::Memory::Allocator* allocator);

    enum class Result
    {
        SOLVED,
        UNSOLVABLE,
        STOPPED
    };

    /// Prices all chords of the outline as it is now.
    Result solve(const std::atomic<bool>& stop);
    /// Total chord length of the cheapest decomposition, the closing edge of the outline included.
    float getRootCost() const { return mRootCost; }
    /// Writes the pieces of the cheapest decomposition, once it has been found.
    void extract(ConvexPieces& pieces);

    /// How many chords needed a search of their own; tells how well the shared searches work.
    uint32 getNumOwnSearches() const { return mNumOwnSearches; }

private:
    void solveFrom(int32 i);
    float solveChord(int32 i, int32 k, const Vec2<float>& direction, int32& chain);
    float chordCost(int32 i, int32 k, float chainCost) const;
    float priceOwn(int32 i, int32 k, const Vec2<float>& direction, int32& chain);
    int32 appendChain(const ChainSearch& search, int32 record);
    int32 keepChain(const ChainSearch& search, int32 record);
    int32 findChain(int32 i, int32 k);
    bool isTrustworthy(const ChainSearch& search, int32 k) const;
    bool doAllSee(int32 i, int32 k) const;
    int32 searchWindow(int32 i, int32 k, const Vec2<float>& direction);
    void openWindow(int32 i, const int32* start);
    int32 closeInWindow(int32 i, int32 k, const Vec2<float>& direction);
    int32 searchChord(int32 i, int32 k, const Vec2<float>& direction);
    void appendPiece(ConvexPieces& pieces, int32 i, int32 k);

    const PlaneOutline& mOutline;
    ChordTable mTable;
    ChainSearch mShared;                 // over all corners that the first one sees
    ChainSearch mWindow;                 // over those of them from one on
    ChainSearch mOwn;                    // over those that also see the last one
    const int32* mWindowStart = nullptr; // among the corners that the first one sees; null: not open
    const int32* mWindowNext = nullptr;  // the next to be passed
    const ChordTable::Side* mWindowSide = nullptr;
    Vector<int32> mUnordered; // corners that the first one sees where the answers depend on who takes part
    Vector<int32> mChains;    // corners of chains, each from the last to the first
    Vector<int32> mCorners;   // scratch
    int32 mRootChain = ChainSearch::NONE;
    float mRootCost = ChordTable::UNSOLVED;
    uint32 mNumOwnSearches = 0;
};
} // namespace KORV::NavMesh
