#include "korv/navmesh/pieces/chordtable.h"

#include "korv/navmesh/floatlanes.h"

#include <algorithm>
#include <bit>
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
/// So many directions that are nearly the same make no more than noise together.
constexpr int MAX_SAME = 8;
/// From the limit of convex turns; more than the noise of two directions and of the order of the others.
constexpr float CLEAR = 4e-6f;
/// Directions closer to a full turn than this (as sine), or beyond, are left to the long way.
constexpr float FULL_TURN = 3e-4f;
/// Less than the tolerance of convex turns.
constexpr float HALF_TURN = 5e-6f;
constexpr float CONVEX_LIMIT = 0.0001f;
/// Up to this many corners the pairs that see each other are kept as bits too: half a megabyte.
constexpr size_t MAX_BIT_ROWS = 2048;

uint64 laneBits(MaskLanes lanes)
{
    return gatherBits(lanes, MaskLanes{});
}
} // namespace

ChordTable::ChordTable(const PlaneOutline& outline, Common::Memory::Allocator* allocator)
    : mOutline(outline), mVisibility(outline.mPoints, outline.mReflex, allocator), mLaterStart(allocator),
      mLater(allocator), mSeeing(allocator), mSideStart(allocator), mSides(allocator), mArrivalStart(allocator),
      mBackX(allocator), mBackY(allocator), mEdgeHidden(allocator), mTurns(allocator), mNumChains(allocator),
      mFan(allocator)
{
}

bool ChordTable::build(const std::atomic<bool>& stop)
{
    startOutline();
    if (!findVisible(stop))
        return false;
    listSides();
    measureSides();
    transpose();
    classifyCorners();
    return !stop.load(std::memory_order_relaxed);
}

void ChordTable::startOutline()
{
    const size_t n = mOutline.mPoints.size();
    mLater.clear();
    mLaterStart.assign(1, 0);
    mEdgeHidden.assign(n + 1, 0);
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
                mEdgeHidden[static_cast<size_t>(i) + 1] = 1;
        }
        // the closing edge is there, whatever the sweep says
        if (i == 0 && (mLater.empty() || mLater.back() != n - 1))
            mLater.push_back(n - 1);
        mLaterStart.push_back(static_cast<uint32>(mLater.size()));
    }
    return true;
}

/// Lists the sides among the pairs that see each other, and marks the pairs as bits.
void ChordTable::listSides()
{
    const size_t n = mOutline.mPoints.size();
    mSideStart.resize(n + 1);
    size_t numSides = 0;
    for (size_t i = 0; i < n; ++i)
    {
        mSideStart[i] = static_cast<uint32>(numSides);
        const size_t room = numSides + (mLaterStart[i + 1] - mLaterStart[i]) + NUM_LANES;
        if (mSides.size() < room)
            mSides.resize(2 * room);
        numSides += writeSides(mSides.data() + numSides, static_cast<int32>(i));
        if (mRowWords > 0)
            markSeen(static_cast<int32>(i));
    }
    mSideStart[n] = static_cast<uint32>(numSides);
}

/// The sides that start at a corner, with the ways along them for directions. @return how many.
inline size_t ChordTable::writeSides(Side* sides, int32 i) const
{
    const Vec2<float>* const points = mOutline.measured().data();
    const uint8* const reflex = mOutline.mReflex.data();
    const Vec2<float> here = points[i];
    const bool fromReflex = reflex[i] != 0;
    const int32* const end = laterEnd(i);
    Side* side = sides;
    for (const int32* k = laterBegin(i); k != end; ++k)
    {
        if (i + 1 == *k || ((fromReflex || reflex[*k] != 0) && !isRoot(i, *k)))
            *side++ = {*k, 0.0f, points[*k] - here, -1};
    }
    return static_cast<size_t>(side - sides);
}

inline void ChordTable::markSeen(int32 i)
{
    const size_t rowWords = mRowWords;
    uint64* const seeing = mSeeing.data() + static_cast<size_t>(i) / WORD_BITS;
    const uint64 bit = uint64(1) << (static_cast<uint32>(i) % WORD_BITS);
    const int32* const end = laterEnd(i);
    for (const int32* k = laterBegin(i); k != end; ++k)
        seeing[static_cast<size_t>(*k) * rowWords] |= bit;
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

/// Lists the directions of sides, turned back, by their later corner, each list by increasing first corner.
void ChordTable::transpose()
{
    mArrivalStart.assign(mOutline.mPoints.size() + 2, 0);
    uint32* const start = mArrivalStart.data() + 1;
    const Side* const end = mSides.data() + getNumSides();
    for (const Side* side = mSides.data(); side != end; ++side)
        ++start[side->mTo + 1];
    std::partial_sum(mArrivalStart.begin(), mArrivalStart.end(), mArrivalStart.begin());
    mBackX.resize(getNumSides() + NUM_LANES);
    mBackY.resize(getNumSides() + NUM_LANES);
    for (const Side* side = mSides.data(); side != end; ++side) // moves each start to the one of the list behind
    {
        const uint32 place = start[side->mTo]++;
        mBackX[place] = -side->mDirection.mX;
        mBackY[place] = -side->mDirection.mY;
    }
}

bool ChordTable::isListed(int32 i, int32 k) const
{
    return std::binary_search(laterBegin(i), laterEnd(i), k);
}

void ChordTable::classifyCorners()
{
    mTurns.resize(mOutline.mPoints.size());
    mNumChains.resize(mOutline.mPoints.size());
    mFan.reserve(mOutline.mPoints.size() + 1); // a hidden edge comes in addition
    for (int32 p = 0; p < mOutline.size(); ++p)
    {
        const size_t at = static_cast<size_t>(p);
        const Turns turns = classifyTurns(p);
        mTurns[at] = turns;
        const uint32 numLast = mArrivalStart[at + 1] - mArrivalStart[at] + mEdgeHidden[at];
        mNumChains[at] = 1 + (turns == Turns::ALL ? 1 : numLast);
    }
}

void ChordTable::Fan::reserve(size_t size)
{
    mX.resize(std::max(mX.size(), size + 2 * NUM_LANES));
    mY.resize(std::max(mY.size(), size + 2 * NUM_LANES));
}

inline void ChordTable::gatherFan(int32 p)
{
    const Side* const leaving = sidesBegin(p);
    const size_t numLeaving = mSideStart[static_cast<size_t>(p) + 1] - mSideStart[static_cast<size_t>(p)];
    float* const x = mFan.mX.data();
    float* const y = mFan.mY.data();
    for (size_t at = 0; at < numLeaving; ++at)
    {
        x[at] = leaving[at].mDirection.mX;
        y[at] = leaving[at].mDirection.mY;
    }
    const size_t firstArrival = mArrivalStart[static_cast<size_t>(p)];
    const float* const backX = mBackX.data() + firstArrival;
    const float* const backY = mBackY.data() + firstArrival;
    size_t numArriving = mArrivalStart[static_cast<size_t>(p) + 1] - firstArrival;
    for (size_t at = 0; at < numArriving; at += NUM_LANES)
    {
        std::memcpy(x + numLeaving + at, backX + at, sizeof(FloatLanes));
        std::memcpy(y + numLeaving + at, backY + at, sizeof(FloatLanes));
    }
    if (isEdgeHidden(p))
    {
        const Vec2<float> edge = direction(p - 1, p);
        x[numLeaving + numArriving] = -edge.mX;
        y[numLeaving + numArriving] = -edge.mY;
        ++numArriving;
    }
    mFan.mNumLeaving = numLeaving;
    mFan.mNumArriving = numArriving;
}

ChordTable::Turns ChordTable::classifyTurns(int32 p)
{
    if (isEdgeHidden(p + 1))
        return Turns::UNORDERED;
    const bool reflex = mOutline.isReflex(p);
    gatherFan(p);
    const bool oneSided = mFan.mNumLeaving == 0 || mFan.mNumArriving == 0;
    const Spread spread = isEdgeHidden(p) ? Spread::UNKNOWN : findSpread();
    if (spread == Spread::HALF_TURN && !reflex)
        return Turns::ALL;
    if (spread == Spread::HALF_TURN && oneSided)
        return Turns::ORDERED;
    if (spread != Spread::UNKNOWN && reflex && isOrderClear())
        return Turns::ORDERED;
    if (!isOrdered())
        return Turns::UNORDERED;
    // at a convex corner every turn is convex, whichever arrivals there are
    const bool all = oneSided || turnsConvex(mFan.arriving(mFan.mNumArriving - 1), mFan.leaving(0));
    return reflex || all ? Turns::ORDERED : Turns::UNORDERED;
}

/// What the directions from the corner at hand span, if they turn clockwise up to noise.
ChordTable::Spread ChordTable::findSpread() const
{
    if (mFan.mNumLeaving == 0)
        return mFan.mNumArriving == 0 ? Spread::HALF_TURN : Spread::UNKNOWN;
    const Spread steady = findSteadySpread();
    if (steady != Spread::UNKNOWN)
        return steady;
    const Vec2<float> first = mFan.leaving(0);
    Vec2<float> farthest = first;
    bool pastQuarter = false;
    bool withinHalf = true;
    for (size_t at = 0; at < mFan.size(); ++at)
    {
        const Vec2<float> direction{mFan.mX[at], mFan.mY[at]};
        const float turn = cross(farthest, direction);
        if (turn > NOISE || (turn >= -NOISE && dot(farthest, direction) <= 0.0f))
            return Spread::UNKNOWN;
        if (turn < -NOISE)
            farthest = direction;
        const bool ahead = dot(first, direction) > 0.0f;
        const float turnOfAll = cross(first, direction);
        pastQuarter = pastQuarter || !ahead;
        if (ahead && pastQuarter && !(turnOfAll > FULL_TURN))
            return Spread::UNKNOWN;
        withinHalf = withinHalf && turnOfAll <= HALF_TURN;
    }
    return withinHalf ? Spread::HALF_TURN : Spread::FULL_TURN;
}

/// The same for few directions each of which clearly turns on by more than noise, as almost always, or is the one
/// before again, as along straight lines. Else UNKNOWN.
inline ChordTable::Spread ChordTable::findSteadySpread() const
{
    const size_t size = mFan.size();
    if (size > WORD_BITS)
        return Spread::UNKNOWN;
    const FloatLanes firstX = sameLanes(mFan.mX[0]);
    const FloatLanes firstY = sameLanes(mFan.mY[0]);
    uint64 turnsOn = uint64(1) << (size - 1);
    uint64 same = 0;
    uint64 ahead = 0;
    uint64 clear = 0;
    uint64 beyond = 0;
    for (size_t at = 0; at < size; at += NUM_LANES)
    {
        const FloatLanes x = loadLanes(mFan.mX.data() + at);
        const FloatLanes y = loadLanes(mFan.mY.data() + at);
        const FloatLanes nextX = loadLanes(mFan.mX.data() + at + 1);
        const FloatLanes nextY = loadLanes(mFan.mY.data() + at + 1);
        const FloatLanes turn = x * nextY - nextX * y;
        const FloatLanes turnOfAll = firstX * y - x * firstY;
        turnsOn |= laneBits(turn < -2.0f * NOISE) << at;
        same |= laneBits((absoluteLanes(turn) < NOISE / float{MAX_SAME}) & (x * nextX + y * nextY > 0.0f)) << at;
        ahead |= laneBits(firstX * x + firstY * y > 0.0f) << at;
        clear |= laneBits(turnOfAll > FULL_TURN) << at;
        beyond |= laneBits(turnOfAll > HALF_TURN) << at;
    }
    const uint64 all = ~uint64(0) >> (WORD_BITS - size);
    ahead &= all;
    const uint64 aheadAgain = ahead & (ahead + 1); // without those before the first one that is not
    if (((turnsOn | same) & all) != all || std::popcount(same & all) >= MAX_SAME || (ahead & 1) == 0 ||
        (aheadAgain & ~clear) != 0)
        return Spread::UNKNOWN;
    return (beyond & all) == 0 ? Spread::HALF_TURN : Spread::FULL_TURN;
}

/// Whether for each side that leaves, the last arrival that may go on and the first that may not are clear of the
/// limit. Directions must turn one way.
bool ChordTable::isOrderClear() const
{
    size_t run = 0;
    for (size_t at = 0; at < mFan.mNumLeaving; ++at)
    {
        const Vec2<float> leaving = mFan.leaving(at);
        while (run < mFan.mNumArriving && turnsConvex(mFan.arriving(run), leaving))
            ++run;
        if (run > 0 && !(cross(mFan.arriving(run - 1), leaving) < CONVEX_LIMIT - CLEAR))
            return false;
        if (run < mFan.mNumArriving && !(cross(mFan.arriving(run), leaving) > CONVEX_LIMIT + CLEAR))
            return false;
    }
    return true;
}

/// The same by asking for every pair.
bool ChordTable::isOrdered() const
{
    size_t run = 0; // arrivals that may go on along the side before
    for (size_t at = 0; at < mFan.mNumLeaving; ++at)
    {
        const Vec2<float> leaving = mFan.leaving(at);
        size_t end = 0;
        while (end < mFan.mNumArriving && turnsConvex(mFan.arriving(end), leaving))
            ++end;
        for (size_t later = end; later < mFan.mNumArriving; ++later)
        {
            if (turnsConvex(mFan.arriving(later), leaving))
                return false;
        }
        if (end < run)
            return false;
        run = end;
    }
    return true;
}
} // namespace KORV::NavMesh
