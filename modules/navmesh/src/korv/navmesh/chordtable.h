#pragma once

#include "korv/navmesh/types.h"

#include <atomic>

namespace KORV::NavMesh
{
/// An outline that has been moved into its plane: clockwise, interior to the right of each edge.
struct PlaneOutline
{
    explicit PlaneOutline(Common::Memory::Allocator* allocator) : mPoints(allocator), mReflex(allocator) {}

    int32 size() const { return static_cast<int32>(mPoints.size()); }
    const Vec2<float>& operator[](int32 corner) const { return mPoints[static_cast<size_t>(corner)]; }
    bool isReflex(int32 corner) const { return mReflex[static_cast<size_t>(corner)] != 0; }

    Vector<Vec2<float>> mPoints;
    Vector<uint8> mReflex; ///< 1: the interior angle is 180 degrees or more, or nearly so
};

/// Whether the way from a over b to c turns right, goes straight on, or turns left by no more than 0.0001 (as sine).
bool isConvexCorner(const PlaneOutline& outline, int32 a, int32 b, int32 c);

/// The pairs of corners that see each other, with what the search for pieces needs to know about each.
/// Memory: 20 bytes for each pair. Fails with the allocator's exception only.
class ChordTable
{
public:
    /// No corner makes it, in place of a limit.
    static constexpr int32 NONE = -1;
    /// The corners that make it are no leading run, so that each must be looked at.
    static constexpr int32 UNORDERED = -2;
    static constexpr float UNSOLVED = 3.4028235e+38f;

    /// A pair of corners i < k, stored with k.
    struct Chord
    {
        int32 mFrom;       ///< corner i
        float mCost;       ///< cheapest total chord length of the part it cuts off, itself included
        int32 mTurnLimit;  ///< last corner f before i from which the way over i to k is convex
        int32 mCloseLimit; ///< last corner f between i and k from which the way over k to i is convex, or UNORDERED
    };

    ChordTable(const PlaneOutline& outline, Common::Memory::Allocator* allocator);

    /// Fills the table. @return false when @p stop was raised; the table is then of no use.
    bool build(const std::atomic<bool>& stop);

    const PlaneOutline& getOutline() const { return mOutline; }
    /// Corners after i that see it, increasing.
    const int32* laterBegin(int32 i) const { return mLater.data() + mLaterStart[static_cast<size_t>(i)]; }
    const int32* laterEnd(int32 i) const { return mLater.data() + mLaterStart[static_cast<size_t>(i) + 1]; }
    /// Chords that end at k, by increasing first corner.
    const Chord* chordsBegin(int32 k) const { return mChords.data() + mChordStart[static_cast<size_t>(k)]; }
    const Chord* chordsEnd(int32 k) const { return mChords.data() + mChordStart[static_cast<size_t>(k) + 1]; }
    /// The chord from i to k, or the first one after its place; i < k.
    Chord* lowerBound(int32 i, int32 k);

    /// Whether the side from p to k, corners that see each other or neighbours, may bound a piece.
    bool isSide(int32 p, int32 k) const
    {
        return p + 1 == k || ((mOutline.isReflex(p) || mOutline.isReflex(k)) && !isRoot(p, k));
    }
    /// The closing edge of the outline is no chord, though it joins first and last corner.
    bool isRoot(int32 i, int32 k) const { return i == 0 && k == mOutline.size() - 1; }
    /// Whether the edge that ends at k joins corners that don't see each other: degenerate outlines have that.
    bool isEdgeHidden(int32 k) const { return mEdgeHidden[static_cast<size_t>(k)] != 0; }
    /// Whether the limits of the chords that start at p may be trusted whatever corners take part.
    bool isOrdered(int32 p) const { return mOrdered[static_cast<size_t>(p)] != 0; }

private:
    struct Arrival
    {
        int32 mFrom;
        Vec2<float> mDirection;
    };

    bool findVisible(const std::atomic<bool>& stop);
    void countChords();
    void gatherArrivals(int32 p);
    void computeCloseLimits(int32 p);
    void computeTurnLimits(int32 p);
    Vec2<float> direction(int32 a, int32 b) const { return normalised(mOutline[b] - mOutline[a]); }

    const PlaneOutline& mOutline;
    Vector<uint32> mLaterStart;
    Vector<int32> mLater;
    Vector<uint32> mChordStart;
    Vector<Chord> mChords;
    Vector<uint32> mFilled; // chords stored so far of each last corner
    Vector<uint8> mEdgeHidden;
    Vector<uint8> mOrdered;
    Vector<Arrival> mArrivals; // sides that may end at the corner at hand
};
} // namespace KORV::NavMesh
