#pragma once

#include "korv/navmesh/chordtable.h"
#include "korv/navmesh/convexchains.h"

#include <optional>

namespace KORV::NavMesh
{
/// Asked now and then during long work; false abandons it.
class WorkWatch
{
public:
    virtual ~WorkWatch() = default;
    virtual bool keepGoing() = 0;
};

/// Finds the cut of an outline into convex pieces with the least total length of chords.
/// Holds references to its arguments, which must not change. One thread at a time.
class ChordSolver
{
public:
    static constexpr float NO_CUT = ConvexChains::NO_CUT;

    /// @param polygon  the drawn-in outline, clockwise, of at least three corners.
    /// @param reflex  for each corner, whether it is reflex or nearly straight.
    ChordSolver(const Vector<Vec2<float>>& polygon, const Vector<uint8>& reflex, Common::Memory::Allocator* allocator);

    /// Prices every chord.
    /// @return the total length of the best cut's chords and of the closing edge; not below NO_CUT (or no number) where
    /// there is no cut, or where the work was abandoned.
    float solve(WorkWatch& watch);

    /// Appends the corners of the piece against the chord (first, last), from last down to first. After solve.
    /// @return whether there is such a piece.
    bool appendPiece(Vector<int32>& corners, int32 first, int32 last);

private:
    bool findChords(WorkWatch& watch);
    void buildIncoming();
    void priceChordsFrom(int32 first);
    float priceChord(int32 first, uint32 chord);
    int32 restart(int32 first, int32 lowest, uint32 chord);
    int32 searchLiterally(int32 first, uint32 chord);
    int32 markSeers(int32 first, int32 last);
    bool isSeenByAll(const ConvexChains& chains, int32 chain) const;
    bool sees(int32 corner) const { return mSeers[static_cast<size_t>(corner)] == mSeerMark; }

    ChordTable mTable;
    Common::Memory::Allocator* mAllocator;
    std::optional<ConvexChains> mChains;   // shared by all chords of a corner
    std::optional<ConvexChains> mLiteral;  // for one chord
    Vector<int32> mFan;                    // the corner that sees this one, as far as it is the one being worked on
    Vector<uint32> mSeers;
    uint32 mSeerMark = 0;
};
} // namespace KORV::NavMesh
