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
    float getRootCost() const { return mRoot.mCost; }
    /// Writes the pieces of the cheapest decomposition, once it has been found.
    void extract(ConvexPieces& pieces);

    /// How many chords needed a search of their own; tells how well the shared searches work.
    uint32 getNumOwnSearches() const { return mNumOwnSearches; }

private:
    /// A piece that is still to be written.
    struct Open
    {
        int32 mFirst;
        int32 mLast;
        int32 mParent;
    };

    void solveFrom(int32 i);
    void solveChord(int32 i, ChordTable::Side& chord);
    float priceOwn(int32 i, ChordTable::Side& chord);
    float takeChain(ChordTable::Side& chord, const ChainSearch& search, int32 record);
    int32 appendChain(const ChainSearch& search, int32 record);
    void growChains();
    int32 findChain(int32 i, int32 k);
    bool isTrustworthy(const ChainSearch& search, int32 k) const;
    bool isUnorderedSeen(int32 k) const;
    bool doAllSee(int32 i, int32 k) const;
    int32 searchWindow(int32 i, int32 k, const Vec2<float>& back);
    void openWindow(int32 i, const int32* start);
    int32 closeInWindow(int32 i, int32 k, const Vec2<float>& back);
    int32 searchChord(int32 i, int32 k, const Vec2<float>& back);
    bool haveDistance(int32 a, int32 b) const;
    void appendPiece(ConvexPieces& pieces, int32 current);
    int32 openPiece(int32 first, int32 last, int32 parent);

    const PlaneOutline& mOutline;
    ChordTable mTable;
    ChainSearch mShared;                 // over all corners that the first one sees
    ChainSearch mWindow;                 // over those of them from one on
    ChainSearch mOwn;                    // over those that also see the last one
    const int32* mSeenEnd = nullptr;     // of corners that the first one sees, behind the last one with a chord
    const int32* mWindowStart = nullptr; // among the corners that the first one sees; null: not open
    const int32* mWindowNext = nullptr;  // the next to be passed
    const ChordTable::Side* mWindowSide = nullptr;
    Vector<int32> mUnordered; // corners that the first one sees where the answers depend on who takes part
    Vector<int32> mChains;    // corners of chains, each from the last to the first
    size_t mNumKept = 0;      // of them that are in use
    size_t mRoom = 0;         // as many may be kept
    Vector<int32> mCorners;   // scratch
    Vector<Open> mOpen;       // pieces found by extract, in their order
    ChordTable::Side mRoot{}; // the closing edge of the outline
    uint32 mNumOwnSearches = 0;
};
} // namespace KORV::NavMesh
