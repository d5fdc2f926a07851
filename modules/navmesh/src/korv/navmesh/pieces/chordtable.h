#pragma once

#include "korv/navmesh/pieces/outlinevisibility.h"

#include <atomic>

namespace KORV::NavMesh
{
/// An outline that has been moved into its plane: clockwise, interior to the right of each edge.
struct PlaneOutline
{
    explicit PlaneOutline(Common::Memory::Allocator* allocator)
        : mPoints(allocator), mUnmoved(allocator), mReflex(allocator)
    {
    }

    int32 size() const { return static_cast<int32>(mPoints.size()); }
    const Vec2<float>& operator[](int32 corner) const { return mPoints[static_cast<size_t>(corner)]; }
    /// What lengths and turns are measured between.
    const Vector<Vec2<float>>& measured() const { return mUnmoved.empty() ? mPoints : mUnmoved; }
    /// From one corner to another, as lengths and turns are measured.
    Vec2<float> way(int32 from, int32 to) const
    {
        return measured()[static_cast<size_t>(to)] - measured()[static_cast<size_t>(from)];
    }
    bool isReflex(int32 corner) const { return mReflex[static_cast<size_t>(corner)] != 0; }

    Vector<Vec2<float>> mPoints;  ///< decide what sees what
    Vector<Vec2<float>> mUnmoved; ///< lengths and turns are those of these, unless there are none
    Vector<uint8> mReflex;        ///< 1: the interior angle is 180 degrees or more, or nearly so
};

/// The pairs of corners that see each other, with what the search for pieces needs to know about each.
/// Memory: 4 bytes for each pair that sees each other, 28 for each that may bound a piece, and a bit for any pair where
/// the corners are few. Fails with the allocator's exception only.
class ChordTable
{
public:
    static constexpr float UNSOLVED = 3.4028235e+38f;

    /// A side of pieces, stored with its first corner: an edge of the outline or a chord with a reflex end.
    struct Side
    {
        int32 mTo;              ///< the later corner
        float mCost;            ///< cheapest total chord length of the part it cuts off, itself included; of a chord
                                ///< that has not been priced its own length
        Vec2<float> mDirection; ///< of unit length
        int32 mChain;           ///< of the piece against it, as its owner keeps chains; negative for none
    };

    /// What is known about the turns at a corner, between sides that arrive from earlier corners and leave to later
    /// ones.
    enum class Turns : uint8
    {
        ALL,      ///< every turn is convex, also back to an earlier corner than that of arrival
        ORDERED,  ///< from the arrivals up to one which grows with the corner that is left for
        UNORDERED ///< float noise decides: the answers depend on which corners take part
    };

    /// @param outline  is referred to; it may change between two calls of build.
    ChordTable(const PlaneOutline& outline, Common::Memory::Allocator* allocator);

    /// Fills the table for the outline as it is now. @return false when @p stop was raised; the table is then of no
    /// use.
    bool build(const std::atomic<bool>& stop);

    const PlaneOutline& getOutline() const { return mOutline; }
    /// Corners after i that see it, increasing.
    const int32* laterBegin(int32 i) const { return mLater.data() + mLaterStart[static_cast<size_t>(i)]; }
    const int32* laterEnd(int32 i) const { return mLater.data() + mLaterStart[static_cast<size_t>(i) + 1]; }
    /// Whether corner k, which comes after i, sees it.
    bool sees(int32 i, int32 k) const
    {
        if (mRowWords == 0)
            return isListed(i, k);
        return (mSeeing[seeingWord(i, k)] >> (static_cast<uint32>(i) % WORD_BITS) & 1) != 0;
    }
    /// Sides that start at i, by increasing later corner.
    Side* sidesBegin(int32 i) { return mSides.data() + mSideStart[static_cast<size_t>(i)]; }
    Side* sidesEnd(int32 i) { return mSides.data() + mSideStart[static_cast<size_t>(i) + 1]; }
    size_t getNumSides() const { return mSideStart.back(); }
    /// So many chains to corner k may have to be kept by a search that passes it: one for each side that ends there,
    /// one for a hidden edge, and one from the first corner of the search. Where all turns are convex the cheapest will
    /// do.
    uint32 numChains(int32 k) const { return mNumChains[static_cast<size_t>(k)]; }

    /// The closing edge of the outline is no side, though it joins first and last corner.
    bool isRoot(int32 i, int32 k) const { return i == 0 && k == mOutline.size() - 1; }
    /// Whether the edge that ends at k joins corners that don't see each other: degenerate outlines have that.
    bool isEdgeHidden(int32 k) const { return mEdgeHidden[static_cast<size_t>(k)] != 0; }
    Turns getTurns(int32 p) const { return mTurns[static_cast<size_t>(p)]; }
    /// Of unit length, unless the corners coincide.
    Vec2<float> direction(int32 a, int32 b) const { return normalised(mOutline.way(a, b)); }

private:
    /// Directions from a corner to the other ends of its sides: of those that leave, then of those that arrive, each by
    /// increasing corner.
    struct Fan
    {
        explicit Fan(Common::Memory::Allocator* allocator) : mX(allocator), mY(allocator) {}
        Vec2<float> leaving(size_t at) const { return {mX[at], mY[at]}; }
        /// On its way to the corner.
        Vec2<float> arriving(size_t at) const { return {-mX[mNumLeaving + at], -mY[mNumLeaving + at]}; }
        size_t size() const { return mNumLeaving + mNumArriving; }
        /// Makes room for so many directions, and for lanes that begin at any of them.
        void reserve(size_t size);

        Vector<float> mX;
        Vector<float> mY;
        size_t mNumLeaving = 0;
        size_t mNumArriving = 0;
    };

    /// What directions from a corner span, from the first one clockwise.
    enum class Spread : uint8
    {
        HALF_TURN, ///< up to noise
        FULL_TURN, ///< less than that
        UNKNOWN    ///< more, or they don't turn one way
    };

    static constexpr size_t WORD_BITS = 64;

    size_t seeingWord(int32 i, int32 k) const
    {
        return static_cast<size_t>(k) * mRowWords + static_cast<size_t>(i) / WORD_BITS;
    }
    bool isListed(int32 i, int32 k) const;
    void startOutline();
    bool findVisible(const std::atomic<bool>& stop);
    void listSides();
    size_t writeSides(Side* sides, int32 i) const;
    void markSeen(int32 i);
    void measureSides();
    void transpose();
    void classifyCorners();
    void gatherFan(int32 p);
    Turns classifyTurns(int32 p);
    Spread findSpread() const;
    Spread findSteadySpread() const;
    bool isOrderClear() const;
    bool isOrdered() const;

    const PlaneOutline& mOutline;
    OutlineVisibility mVisibility;
    Vector<uint32> mLaterStart;
    Vector<int32> mLater;
    Vector<uint64> mSeeing; // the same as bits, a row for each later corner, for outlines that are not too large
    size_t mRowWords = 0;   // 0: no bits
    Vector<uint32> mSideStart;
    Vector<Side> mSides; // and room for more
    Vector<uint32> mArrivalStart;
    Vector<float> mBackX; // from the later corners of sides to their first ones, by the later one; of unit length
    Vector<float> mBackY;
    Vector<uint8> mEdgeHidden;
    Vector<Turns> mTurns;
    Vector<uint32> mNumChains;
    Fan mFan; // of the corner at hand
};

/// Whether a turn is to the right, straight on, or to the left by no more than 0.0001 (as sine).
inline bool turnsConvex(const Vec2<float>& arriving, const Vec2<float>& leaving)
{
    return cross(arriving, leaving) <= 0.0001f;
}
} // namespace KORV::NavMesh
