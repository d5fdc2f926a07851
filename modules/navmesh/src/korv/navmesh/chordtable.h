#pragma once

#include "korv/navmesh/types.h"

namespace KORV::NavMesh
{
/// Which corners of an outline see each other, and what the stretch between two of them costs.
/// Holds references to the outline, which must not change.
struct ChordTable
{
    /// A chord, seen from its lower corner.
    struct Chord
    {
        int32 mTo;
        float mCost; ///< total length of the chords in the stretch that it cuts off, its own included
    };
    /// The same chord, seen from its upper corner.
    struct Incoming
    {
        int32 mFrom;
        uint32 mChord;
    };

    ChordTable(const Vector<Vec2<float>>& polygon, const Vector<uint8>& reflex, Common::Memory::Allocator* allocator)
        : mPolygon(polygon), mReflex(reflex), mN(static_cast<int32>(polygon.size())), mChords(allocator),
          mChordStart(allocator), mIncoming(allocator), mIncomingStart(allocator)
    {
    }

    /// Whether a chord may be the side of a piece: one of its ends is reflex, and it is not the closing edge.
    bool mayBoundPiece(int32 a, int32 b) const
    {
        return (mReflex[static_cast<size_t>(a)] != 0 || mReflex[static_cast<size_t>(b)] != 0) && (a != 0 || b != mN - 1);
    }

    const Vector<Vec2<float>>& mPolygon;
    const Vector<uint8>& mReflex;
    int32 mN;
    Vector<Chord> mChords;          ///< by lower corner, then by upper
    Vector<uint32> mChordStart;     ///< first chord of each corner, one more at the end
    Vector<Incoming> mIncoming;     ///< by upper corner, then by lower
    Vector<uint32> mIncomingStart;  ///< first entry of each corner, one more at the end
};
} // namespace KORV::NavMesh
