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
        int32 mChain; ///< against it, or NO_CHAIN where it is not kept
    };

    struct Chord
    {
        int32 mFirst;
        int32 mLast;
        Vec2<float> mBack; ///< direction from the last to the first
    };

    static constexpr int32 NO_CHAIN = -1;

    void solveFrom(int32 i);
    void solveChord(const Chord& chord, ChordTable::Arrival& side);
    float priceOwn(const Chord& chord, ChordTable::Arrival& side);
    bool keepIfSeen(const Chord& chord, ChordTable::Arrival& side, const ChainSearch& search, uint32 chain);
    size_t copyIfSeen(const Chord& chord, const ChainSearch& search, uint32 chain);
    void growChains();
    int32 findChain(const Open& open);
    bool doAllSee(const Chord& chord) const;
    uint32 searchWindow(const Chord& chord);
    void openWindow(int32 i, const int32* start);
    uint32 closeInWindow(const Chord& chord);
    uint32 searchChord(const Chord& chord);
    bool haveDistance(int32 a, int32 b) const;
    void appendPiece(ConvexPieces& pieces, int32 current);
    int32 openPiece(const Open& piece);

    const PlaneOutline& mOutline;
    ChordTable mTable;
    ChainSearch mShared;                   // over all corners that the first one sees
    ChainSearch mWindow;                   // over those of them from one on
    ChainSearch mOwn;                      // over those that also see the last one
    const int32* mWindowStart = nullptr;   // among the corners that the first one sees; null: not open
    const int32* mWindowReached = nullptr; // the last of them that has been reached
    Vector<uint32> mChains;                // their sides, as arrivals; of each from the last to the first
    size_t mNumKept = 0;                   // of them that are in use
    size_t mRoom = 0;                      // as many may be kept
    Vector<Open> mOpen;                    // pieces found by extract, in their order
    ChordTable::Arrival mRoot{};           // the closing edge of the outline
    uint32 mNumOwnSearches = 0;
};
} // namespace KORV::NavMesh
