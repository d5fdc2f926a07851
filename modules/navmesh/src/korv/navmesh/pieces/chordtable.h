#pragma once

#include "korv/navmesh/pieces/outlinevisibility.h"

#include <atomic>
#include <optional>

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
    bool mClosed = false;         ///< whether lines of sight may touch it; those that do are no chords
    Vector<uint8> mReflex;        ///< 1: the interior angle is 180 degrees or more, or nearly so
};

/// The pairs of corners that see each other, with what the search for pieces needs to know about each.
/// Memory: 4 bytes for each pair that sees each other, 44 for each that may bound a piece, and a bit for any pair where
/// the corners are few. Fails with the allocator's exception only.
class ChordTable
{
public:
    /// More than any length that arithmetic on an outline is finite for; sums of many are finite, too.
    static constexpr float UNSOLVED = 1e30f;
    /// An arrival that there is not: chains never come by it.
    static constexpr uint32 NO_ARRIVAL = 0;

    /// A side of pieces, stored with its first corner: an edge of the outline or a chord with a reflex end.
    struct Side
    {
        int32 mTo;       ///< the later corner
        uint32 mArrival; ///< its place among the arrivals
    };

    /// The same, stored with its later corner; also an edge whose ends don't see each other.
    struct Arrival
    {
        int32 mFrom;  ///< the earlier corner
        float mCost;  ///< cheapest total chord length of the part it cuts off, itself included; of a chord that has
                      ///< not been priced its own length
        uint32 mRun;  ///< the last arrival at the earlier corner that may go on along it, those before may as well;
                      ///< where there is none, or it is not clear, the place before the first
        int32 mChain; ///< of the piece against it, as its owner keeps chains; negative for none
    };

    /// What is known about the turns at a corner, between sides that arrive from earlier corners and leave to later
    /// ones.
    enum class Turns : uint8
    {
        ALL,      ///< every turn is convex, also back to an earlier corner than that of arrival
        ORDERED,  ///< from the arrivals up to one which grows with the corner that is left for
        UNORDERED ///< float noise decides about some: the answers depend on which corners take part
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
    const Side* sidesBegin(int32 i) const { return mSides.data() + mSideStart[static_cast<size_t>(i)]; }
    const Side* sidesEnd(int32 i) const { return mSides.data() + mSideStart[static_cast<size_t>(i) + 1]; }
    size_t getNumSides() const { return mSideStart.back(); }

    /// Arrivals at one corner follow each other by increasing earlier corner; between those of two corners a place is
    /// left, which looks as if no chain came from there.
    Arrival* arrivals() { return mArrivals.data(); }
    size_t getNumArrivals() const { return mArrivalStart.back(); }
    uint32 arrivalsBegin(int32 k) const { return mArrivalStart[static_cast<size_t>(k)] + 1; }
    uint32 arrivalsEnd(int32 k) const { return mArrivalStart[static_cast<size_t>(k) + 1]; }
    /// Without the hidden edge, which is no side.
    uint32 arrivedSidesEnd(int32 k) const { return arrivalsEnd(k) - mEdgeHidden[static_cast<size_t>(k)]; }
    /// From the corner of an arrival back to where it comes from, of unit length.
    Vec2<float> back(uint32 arrival) const { return {mBackX[arrival], mBackY[arrival]}; }
    Vec2<float> arriving(uint32 arrival) const { return {-mBackX[arrival], -mBackY[arrival]}; }
    /// The first arrival from a corner or later ones.
    uint32 findArrival(int32 k, int32 from) const;
    /// The same for the last corner that has been opened; corners are opened from the last one down.
    uint32 openArrival(int32 k) const { return mOpenArrival[static_cast<size_t>(k)]; }
    void open(int32 i);

    /// The closing edge of the outline is no side, though it joins first and last corner.
    bool isRoot(int32 i, int32 k) const { return i == 0 && k == mOutline.size() - 1; }
    /// Whether the edge that ends at k joins corners that don't see each other: degenerate outlines have that.
    bool isEdgeHidden(int32 k) const { return mEdgeHidden[static_cast<size_t>(k)] != 0; }
    Turns getTurns(int32 p) const { return mTurns[static_cast<size_t>(p)]; }
    /// Whether a turn from any of the arrivals at a corner up to one of them, back to an earlier corner than all these
    /// come from, is certainly convex.
    /// @param back  direction of a side to that corner.
    bool areAllClosing(int32 p, uint32 last, const Vec2<float>& back) const
    {
        return mOneWay[static_cast<size_t>(p)] != 0 && cross(arriving(last), back) < CONVEX_LIMIT - CLEAR;
    }
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
    /// Of the cross product of directions at a convex turn.
    static constexpr float CONVEX_LIMIT = 0.0001f;
    /// From that limit; more than the noise of two directions and of the order of the others.
    static constexpr float CLEAR = 4e-6f;

    size_t seeingWord(int32 i, int32 k) const
    {
        return static_cast<size_t>(k) * mRowWords + static_cast<size_t>(i) / WORD_BITS;
    }
    bool isListed(int32 i, int32 k) const;
    void startOutline();
    bool findVisible(const std::atomic<bool>& stop);
    void releaseSight();
    void releaseWays();
    void listSides();
    template <bool CLOSED>
    size_t writeSides(size_t at, int32 i);
    void markSeen(int32 i);
    void measureSides();
    void startArrivals();
    void placeArrivals();
    void placeHiddenEdge(int32 i);
    void classifyCorners();
    void gatherFan(int32 p);
    Turns classifyTurns(int32 p);
    Turns giveUpOrder(int32 p);
    Spread findSpread() const;
    Spread findSteadySpread() const;
    void setRun(int32 p, size_t leaving, size_t run);
    void setRuns(int32 p, size_t run);
    bool findClearRuns(int32 p);
    bool findRuns(int32 p);

    const PlaneOutline& mOutline;
    Common::Memory::Allocator* mAllocator;
    std::optional<OutlineVisibility> mVisibility; // kept from one small outline to the next
    Vector<uint32> mLaterStart;
    Vector<int32> mLater;
    Vector<uint64> mSeeing; // the same as bits, a row for each later corner, for outlines that are not too large
    size_t mRowWords = 0;   // 0: no bits
    Vector<uint32> mSideStart;
    Vector<Side> mSides; // and room for more
    Vector<float> mWayX; // along sides, to the later corner; of unit length once they are measured
    Vector<float> mWayY;
    Vector<float> mLength;
    Vector<uint32> mArrivalStart; // the place before the first of each corner
    Vector<Arrival> mArrivals;
    Vector<float> mBackX; // from the later corner of each arrival to the earlier one; of unit length
    Vector<float> mBackY;
    Vector<uint32> mOpenArrival;
    Vector<uint8> mEdgeHidden;
    Vector<Turns> mTurns;
    Vector<uint8> mOneWay; // whether directions from a corner turn one way, by less than a full turn
    Fan mFan;              // of the corner at hand
};

/// Whether a turn is to the right, straight on, or to the left by no more than 0.0001 (as sine).
inline bool turnsConvex(const Vec2<float>& arriving, const Vec2<float>& leaving)
{
    return cross(arriving, leaving) <= 0.0001f;
}
} // namespace KORV::NavMesh
