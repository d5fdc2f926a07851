#include "korv/navmesh/pieces/chordtable.h"

#include <algorithm>

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
} // namespace

ChordTable::ChordTable(const PlaneOutline& outline, Common::Memory::Allocator* allocator)
    : mOutline(outline), mVisibility(outline.mPoints, outline.mReflex, allocator), mLaterStart(allocator),
      mLater(allocator), mSeeing(allocator), mSideStart(allocator), mSides(allocator), mArrivalStart(allocator),
      mArrivals(allocator), mEdgeHidden(allocator), mTurns(allocator), mLeaving(allocator), mArriving(allocator)
{
}

bool ChordTable::build(const std::atomic<bool>& stop)
{
    if (!findVisible(stop))
        return false;
    transpose();
    mTurns.clear();
    for (int32 p = 0; p < mOutline.size(); ++p)
        mTurns.push_back(classifyTurns(p));
    return !stop.load(std::memory_order_relaxed);
}

bool ChordTable::findVisible(const std::atomic<bool>& stop)
{
    const int32 n = mOutline.size();
    mVisibility.build();
    mLater.clear();
    mLaterStart.assign(1, 0);
    mSides.clear();
    mSideStart.assign(1, 0);
    mEdgeHidden.assign(static_cast<size_t>(n) + 1, 0);
    mRowBits = mOutline.mPoints.size() <= MAX_BIT_ROWS ? mOutline.mPoints.size() : 0;
    mSeeing.assign(mRowBits * mRowBits / 64 + 1, 0);
    for (int32 i = 0; i < n; ++i)
    {
        if (stop.load(std::memory_order_relaxed))
            return false;
        const size_t start = mLater.size();
        if (i + 1 < n)
            mVisibility.appendVisible(mLater, i);
        if (i + 1 < n && (mLater.size() == start || mLater[start] != i + 1))
            mEdgeHidden[static_cast<size_t>(i) + 1] = 1;
        // the closing edge is there, whatever the sweep says
        if (i == 0 && (mLater.empty() || mLater.back() != n - 1))
            mLater.push_back(n - 1);
        mLaterStart.push_back(static_cast<uint32>(mLater.size()));
        for (size_t at = mRowBits > 0 ? start : mLater.size(); at < mLater.size(); ++at)
        {
            const size_t bit = static_cast<size_t>(i) * mRowBits + static_cast<size_t>(mLater[at]);
            mSeeing[bit / 64] |= uint64(1) << (bit % 64);
        }
        appendSides(i);
    }
    return true;
}

void ChordTable::appendSides(int32 i)
{
    const bool reflex = mOutline.isReflex(i);
    for (const int32* k = laterBegin(i); k != mLater.data() + mLater.size(); ++k)
    {
        if (i + 1 == *k)
            mSides.push_back({*k, 0.0f, direction(i, *k), -1});
        else if ((reflex || mOutline.isReflex(*k)) && !isRoot(i, *k))
            mSides.push_back({*k, UNSOLVED, direction(i, *k), -1});
    }
    mSideStart.push_back(static_cast<uint32>(mSides.size()));
}

/// Lists the sides by their later corner, each list by increasing first corner.
void ChordTable::transpose()
{
    const size_t n = mOutline.mPoints.size();
    mArrivalStart.assign(n + 2, 0);
    for (const Side& side : mSides)
        ++mArrivalStart[static_cast<size_t>(side.mTo) + 2];
    for (size_t k = 2; k < mArrivalStart.size(); ++k)
        mArrivalStart[k] += mArrivalStart[k - 1];
    mArrivals.resize(mSides.size());
    for (size_t side = 0; side < mSides.size(); ++side) // moves each start to the one of the list behind
        mArrivals[mArrivalStart[static_cast<size_t>(mSides[side].mTo) + 1]++] = static_cast<uint32>(side);
}

bool ChordTable::isListed(int32 i, int32 k) const
{
    return std::binary_search(laterBegin(i), laterEnd(i), k);
}

void ChordTable::gatherDirections(int32 p)
{
    mLeaving.clear();
    mArriving.clear();
    for (const Side* side = sidesBegin(p); side != sidesEnd(p); ++side)
        mLeaving.push_back(side->mDirection);
    for (uint32 at = mArrivalStart[static_cast<size_t>(p)]; at < mArrivalStart[static_cast<size_t>(p) + 1]; ++at)
        mArriving.push_back(mSides[mArrivals[at]].mDirection);
}

ChordTable::Turns ChordTable::classifyTurns(int32 p)
{
    if (isEdgeHidden(p + 1))
        return Turns::UNORDERED;
    gatherDirections(p);
    if (isEdgeHidden(p))
        mArriving.push_back(direction(p - 1, p));
    else if (turnOneWay())
    {
        if (turnWithinHalf())
        {
            if (!mOutline.isReflex(p))
                return Turns::ALL;
            if (mLeaving.empty() || mArriving.empty())
                return Turns::ORDERED;
        }
        if (mOutline.isReflex(p) && isOrderClear())
            return Turns::ORDERED;
    }
    if (!isOrdered())
        return Turns::UNORDERED;
    // at a convex corner every turn is convex, whichever arrivals there are
    const bool all = mArriving.empty() || mLeaving.empty() || turnsConvex(mArriving.back(), mLeaving.front());
    return mOutline.isReflex(p) || all ? Turns::ORDERED : Turns::UNORDERED;
}

/// Whether the directions from the corner at hand turn clockwise, up to noise, and by less than a full turn.
bool ChordTable::turnOneWay()
{
    if (mLeaving.empty())
        return mArriving.empty();
    const Vec2<float> first = mLeaving.front();
    Vec2<float> farthest = first;
    bool pastQuarter = false;
    const auto follow = [&](const Vec2<float>& direction)
    {
        const float turn = cross(farthest, direction);
        if (turn > NOISE || (turn >= -NOISE && dot(farthest, direction) <= 0.0f))
            return false;
        if (turn < -NOISE)
            farthest = direction;
        const bool ahead = dot(first, direction) > 0.0f;
        pastQuarter = pastQuarter || !ahead;
        return !ahead || !pastQuarter || cross(first, direction) > FULL_TURN;
    };
    for (const Vec2<float>& leaving : mLeaving)
    {
        if (!follow(leaving))
            return false;
    }
    for (const Vec2<float>& arriving : mArriving)
    {
        if (!follow({-arriving.mX, -arriving.mY}))
            return false;
    }
    return true;
}

/// Whether all directions lie within half a turn clockwise of the first.
bool ChordTable::turnWithinHalf() const
{
    if (mLeaving.empty())
        return true;
    const Vec2<float>& first = mLeaving.front();
    const auto isWithin = [&first](const Vec2<float>& direction) { return cross(first, direction) <= HALF_TURN; };
    return std::all_of(mLeaving.begin(), mLeaving.end(), isWithin) &&
           std::all_of(mArriving.begin(), mArriving.end(),
                       [&](const Vec2<float>& arriving) {
                           return isWithin({-arriving.mX, -arriving.mY});
                       });
}

/// Whether for each side that leaves, the last arrival that may go on and the first that may not are clear of the
/// limit. Directions must turn one way.
bool ChordTable::isOrderClear() const
{
    size_t run = 0;
    for (const Vec2<float>& leaving : mLeaving)
    {
        while (run < mArriving.size() && turnsConvex(mArriving[run], leaving))
            ++run;
        if (run > 0 && !(cross(mArriving[run - 1], leaving) < CONVEX_LIMIT - CLEAR))
            return false;
        if (run < mArriving.size() && !(cross(mArriving[run], leaving) > CONVEX_LIMIT + CLEAR))
            return false;
    }
    return true;
}

/// The same by asking for every pair.
bool ChordTable::isOrdered() const
{
    size_t run = 0; // arrivals that may go on along the side before
    for (const Vec2<float>& leaving : mLeaving)
    {
        size_t end = 0;
        while (end < mArriving.size() && turnsConvex(mArriving[end], leaving))
            ++end;
        for (size_t later = end; later < mArriving.size(); ++later)
        {
            if (turnsConvex(mArriving[later], leaving))
                return false;
        }
        if (end < run)
            return false;
        run = end;
    }
    return true;
}
} // namespace KORV::NavMesh
