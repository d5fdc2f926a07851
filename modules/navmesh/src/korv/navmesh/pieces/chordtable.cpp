#include "korv/navmesh/pieces/chordtable.h"

#include "korv/navmesh/floatlanes.h"

#include <algorithm>
#include <cmath>
#include <numeric>

// The search for pieces asks again and again whether a chain that comes from f may go over p to t. Directions from p to
// the corners it sees turn clockwise with their index, beginning at p + 1: so the f that may are a leading run, and it
// grows with t. Where that holds, the answers don't depend on which other corners take part, and one search serves many
// chords. Float noise can break it (near-collinear corners, slits).
//
// Asking for every pair would be quadratic in the sides at p. Almost always less is enough: each direction lies
// clockwise of all before it, up to some noise, they don't reach around a full turn, and for each t the f next to the
// end of the run are clear of the limit by more than the noise. At a convex corner that does not reach around a half
// turn all turns are convex. Only where this is not clear, every pair is asked for.

namespace KORV::NavMesh
{
namespace
{
/// Rounding of a cross product of directions is below 3e-7.
constexpr float NOISE = 1e-6f;
/// From the limit of convex turns; more than the noise of two directions and of the order of the others.
constexpr float CLEAR = 4e-6f;
/// Directions closer to a full turn than this (as sine), or beyond, are left to the long way.
constexpr float FULL_TURN = 3e-4f;
/// Less than the tolerance of convex turns.
constexpr float HALF_TURN = 5e-6f;
constexpr float CONVEX_LIMIT = 0.0001f;
/// Up to this many corners the pairs that see each other are kept as bits too: half a megabyte.
constexpr size_t MAX_BIT_ROWS = 2048;

FloatLanes squareRoots(FloatLanes lanes)
{
#ifdef __SSE__
    return std::bit_cast<FloatLanes>(_mm_sqrt_ps(std::bit_cast<__m128>(lanes)));
#else
    return FloatLanes{std::sqrt(lanes[0]), std::sqrt(lanes[1]), std::sqrt(lanes[2]), std::sqrt(lanes[3])};
#endif
}
} // namespace

ChordTable::ChordTable(const PlaneOutline& outline, Common::Memory::Allocator* allocator)
    : mOutline(outline), mVisibility(outline.mPoints, outline.mReflex, allocator), mLaterStart(allocator),
      mLater(allocator), mSeeing(allocator), mSideStart(allocator), mSides(allocator), mArrivalStart(allocator),
      mArriving(allocator), mWithEdge(allocator), mEdgeHidden(allocator), mNumLastSides(allocator), mTurns(allocator)
{
}

bool ChordTable::build(const std::atomic<bool>& stop)
{
    startOutline();
    if (!findVisible(stop))
        return false;
    measureSides();
    transpose();
    mTurns.resize(mOutline.mPoints.size());
    for (int32 p = 0; p < mOutline.size(); ++p)
        mTurns[static_cast<size_t>(p)] = classifyTurns(p);
    return !stop.load(std::memory_order_relaxed);
}

void ChordTable::startOutline()
{
    const size_t n = mOutline.mPoints.size();
    mLater.clear();
    mLaterStart.assign(1, 0);
    mSideStart.assign(1, 0);
    mEdgeHidden.assign(n + 1, 0);
    mNumLastSides.assign(n, 1);
    mRowWords = n <= MAX_BIT_ROWS ? (n + WORD_BITS - 1) / WORD_BITS : 0;
    mSeeing.assign(mRowWords * n, 0);
}

bool ChordTable::findVisible(const std::atomic<bool>& stop)
{
    const int32 n = mOutline.size();
    mVisibility.build();
    for (int32 i = 0; i < n; ++i)
    {
        if (stop.load(std::memory_order_relaxed))
            return false;
        const size_t start = mLater.size();
        if (i + 1 < n)
        {
            mVisibility.appendVisible(mLater, i);
            if (mLater.size() == start || mLater[start] != i + 1)
            {
                mEdgeHidden[static_cast<size_t>(i) + 1] = 1;
                ++mNumLastSides[static_cast<size_t>(i) + 1];
            }
        }
        // the closing edge is there, whatever the sweep says
        if (i == 0 && (mLater.empty() || mLater.back() != n - 1))
            mLater.push_back(n - 1);
        appendSides(i, start);
    }
    return true;
}

/// Ends the list of corners after i that see it: marks them as bits, and lists the sides to them.
/// @param start  of the list.
void ChordTable::appendSides(int32 i, size_t start)
{
    const size_t room = mLater.size() - start + NUM_LANES;
    if (mSides.size() < mSideStart.back() + room)
        mSides.resize(2 * mSides.size() + room);
    Side* side = mSides.data() + mSideStart.back();
    uint64* const seeing = mSeeing.data() + static_cast<size_t>(i) / WORD_BITS;
    const uint64 bit = uint64(1) << (static_cast<uint32>(i) % WORD_BITS);
    const bool reflex = mOutline.isReflex(i);
    const int32* const end = mLater.data() + mLater.size();
    for (const int32* k = mLater.data() + start; k != end; ++k)
    {
        if (mRowWords > 0)
            seeing[static_cast<size_t>(*k) * mRowWords] |= bit;
        if (i + 1 == *k || ((reflex || mOutline.isReflex(*k)) && !isRoot(i, *k)))
            *side++ = {*k, 0.0f, mOutline.way(i, *k), -1};
    }
    mLaterStart.push_back(static_cast<uint32>(mLater.size()));
    mSideStart.push_back(static_cast<uint32>(side - mSides.data()));
}

/// Turns the ways along sides to directions, and sets their costs. Four at a time: each rounds as it does alone.
void ChordTable::measureSides()
{
    for (Side* side = mSides.data(); side < mSides.data() + getNumSides(); side += NUM_LANES)
    {
        FloatLanes x{side[0].mDirection.mX, side[1].mDirection.mX, side[2].mDirection.mX, side[3].mDirection.mX};
        FloatLanes y{side[0].mDirection.mY, side[1].mDirection.mY, side[2].mDirection.mY, side[3].mDirection.mY};
        const FloatLanes length = squareRoots(x * x + y * y);
        const FloatLanes divisor = length > 0.0f ? length : sameLanes(1.0f);
        x /= divisor;
        y /= divisor;
        for (size_t lane = 0; lane < NUM_LANES; ++lane)
        {
            side[lane].mCost = length[lane];
            side[lane].mDirection = {x[lane], y[lane]};
        }
    }
    for (int32 i = 0; i < mOutline.size(); ++i)
    {
        if (sidesBegin(i) != sidesEnd(i) && sidesBegin(i)->mTo == i + 1)
            sidesBegin(i)->mCost = 0.0f;
    }
}

/// Lists the directions of sides by their later corner, each list by increasing first corner.
void ChordTable::transpose()
{
    const std::span<const Side> sides(mSides.data(), getNumSides());
    mArrivalStart.assign(mOutline.mPoints.size() + 2, 0);
    uint32* const start = mArrivalStart.data() + 1;
    for (const Side& side : sides)
        ++start[static_cast<size_t>(side.mTo) + 1];
    std::partial_sum(mArrivalStart.begin(), mArrivalStart.end(), mArrivalStart.begin());
    mArriving.resize(sides.size());
    for (const Side& side : sides) // moves each start to the one of the list behind
        mArriving[start[static_cast<size_t>(side.mTo)]++] = side.mDirection;
}

bool ChordTable::isListed(int32 i, int32 k) const
{
    return std::binary_search(laterBegin(i), laterEnd(i), k);
}

ChordTable::Around ChordTable::gatherAround(int32 p)
{
    const Vec2<float>* const arriving = mArriving.data() + mArrivalStart[static_cast<size_t>(p)];
    const Vec2<float>* const end = mArriving.data() + mArrivalStart[static_cast<size_t>(p) + 1];
    if (!isEdgeHidden(p))
        return {{sidesBegin(p), sidesEnd(p)}, {arriving, end}};
    mWithEdge.assign(arriving, end);
    mWithEdge.push_back(direction(p - 1, p));
    return {{sidesBegin(p), sidesEnd(p)}, mWithEdge};
}

ChordTable::Turns ChordTable::classifyTurns(int32 p)
{
    if (isEdgeHidden(p + 1))
        return Turns::UNORDERED;
    const bool reflex = mOutline.isReflex(p);
    const Around around = gatherAround(p);
    const bool oneSided = around.mLeaving.empty() || around.mArriving.empty();
    const Spread spread = isEdgeHidden(p) ? Spread::UNKNOWN : findSpread(around);
    if (spread == Spread::HALF_TURN && !reflex)
        return Turns::ALL;
    if (spread == Spread::HALF_TURN && oneSided)
        return Turns::ORDERED;
    if (spread != Spread::UNKNOWN && reflex && isOrderClear(around))
        return Turns::ORDERED;
    if (!isOrdered(around))
        return Turns::UNORDERED;
    // at a convex corner every turn is convex, whichever arrivals there are
    const bool all = oneSided || turnsConvex(around.mArriving.back(), around.mLeaving.front().mDirection);
    return reflex || all ? Turns::ORDERED : Turns::UNORDERED;
}

/// What directions to the other ends of the sides span, if they turn clockwise up to noise.
ChordTable::Spread ChordTable::findSpread(const Around& around)
{
    if (around.mLeaving.empty())
        return around.mArriving.empty() ? Spread::HALF_TURN : Spread::UNKNOWN;
    const Vec2<float> first = around.mLeaving.front().mDirection;
    Vec2<float> farthest = first;
    bool pastQuarter = false;
    bool withinHalf = true;
    const auto follow = [&](const Vec2<float>& direction)
    {
        const float turn = cross(farthest, direction);
        if (turn > NOISE || (turn >= -NOISE && dot(farthest, direction) <= 0.0f))
            return false;
        if (turn < -NOISE)
            farthest = direction;
        const bool ahead = dot(first, direction) > 0.0f;
        const float turnOfAll = cross(first, direction);
        withinHalf = withinHalf && turnOfAll <= HALF_TURN;
        pastQuarter = pastQuarter || !ahead;
        return !ahead || !pastQuarter || turnOfAll > FULL_TURN;
    };
    for (const Side& leaving : around.mLeaving)
    {
        if (!follow(leaving.mDirection))
            return Spread::UNKNOWN;
    }
    for (const Vec2<float>& arriving : around.mArriving)
    {
        if (!follow({-arriving.mX, -arriving.mY}))
            return Spread::UNKNOWN;
    }
    return withinHalf ? Spread::HALF_TURN : Spread::FULL_TURN;
}

/// Whether for each side that leaves, the last arrival that may go on and the first that may not are clear of the
/// limit. Directions must turn one way.
bool ChordTable::isOrderClear(const Around& around)
{
    const std::span<const Vec2<float>> arriving = around.mArriving;
    size_t run = 0;
    for (const Side& leaving : around.mLeaving)
    {
        while (run < arriving.size() && turnsConvex(arriving[run], leaving.mDirection))
            ++run;
        if (run > 0 && !(cross(arriving[run - 1], leaving.mDirection) < CONVEX_LIMIT - CLEAR))
            return false;
        if (run < arriving.size() && !(cross(arriving[run], leaving.mDirection) > CONVEX_LIMIT + CLEAR))
            return false;
    }
    return true;
}

/// The same by asking for every pair.
bool ChordTable::isOrdered(const Around& around)
{
    const std::span<const Vec2<float>> arriving = around.mArriving;
    size_t run = 0; // arrivals that may go on along the side before
    for (const Side& leaving : around.mLeaving)
    {
        size_t end = 0;
        while (end < arriving.size() && turnsConvex(arriving[end], leaving.mDirection))
            ++end;
        for (size_t later = end; later < arriving.size(); ++later)
        {
            if (turnsConvex(arriving[later], leaving.mDirection))
                return false;
        }
        if (end < run)
            return false;
        run = end;
    }
    return true;
}
} // namespace KORV::NavMesh
