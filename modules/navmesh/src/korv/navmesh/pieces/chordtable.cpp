#include "korv/navmesh/pieces/chordtable.h"

#include "korv/navmesh/floatlanes.h"
#include "korv/navmesh/trim.h"

#include <algorithm>
#include <bit>
#include <cmath>

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
/// Directions closer to a full turn than this (as sine), or beyond, are left to the long way.
constexpr float FULL_TURN = 3e-4f;
/// Less than the tolerance of convex turns.
constexpr float HALF_TURN = 5e-6f;
constexpr int32 NO_CORNER = -1;
/// Up to this many corners the pairs that see each other are kept as bits too: half a megabyte.
constexpr size_t MAX_BIT_ROWS = 2048;
/// Beside the work on an outline of so many corners it is nothing to get memory anew.
constexpr size_t LARGE_OUTLINE = 160;

uint64 laneBits(MaskLanes lanes)
{
    return gatherBits(lanes, MaskLanes{});
}

/// Copies some more than that, up to full lanes.
void copyLanes(float* to, const float* from, size_t size)
{
    for (size_t at = 0; at < size; at += NUM_LANES)
        storeLanes(to + at, loadLanes(from + at));
}

/// Makes a list that long at least, but not twice as long, as a growing list would be. It is written anew.
template <class T>
void makeRoom(Vector<T>& list, size_t size)
{
    if (list.size() >= size)
        return;
    list.clear();
    list.reserve(size);
    list.resize(size);
}
} // namespace

ChordTable::ChordTable(const PlaneOutline& outline, Common::Memory::Allocator* allocator)
    : mOutline(outline), mAllocator(allocator), mLaterStart(allocator), mLater(allocator), mSeeing(allocator),
      mSideStart(allocator), mSides(allocator), mWayX(allocator), mWayY(allocator), mLength(allocator),
      mArrivalStart(allocator), mArrivals(allocator), mBackX(allocator), mBackY(allocator), mOpenArrival(allocator),
      mEdgeHidden(allocator), mTurns(allocator), mOneWay(allocator), mFan(allocator)
{
}

bool ChordTable::build(const std::atomic<bool>& stop)
{
    const bool isLarge = mOutline.mPoints.size() >= LARGE_OUTLINE;
    startOutline();
    if (!findVisible(stop))
        return false;
    if (isLarge)
        releaseSight();
    listSides();
    measureSides();
    startArrivals();
    placeArrivals();
    classifyCorners();
    if (isLarge)
        releaseWays();
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
    if (!mVisibility)
        mVisibility.emplace(mOutline.mPoints, mOutline.mReflex, mAllocator);
    mVisibility->build(mOutline.mClosed);
    for (int32 i = 0; i < n; ++i)
    {
        if (stop.load(std::memory_order_relaxed))
            return false;
        const size_t start = mLater.size();
        if (i + 1 < n)
        {
            mVisibility->appendVisible(mLater, i);
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

/// Gives back what only finding the pairs needs.
void ChordTable::releaseSight()
{
    mVisibility.reset();
    trim(mLater);
}

/// Gives back what the arrivals have been made from. The search for pieces takes about as much.
void ChordTable::releaseWays()
{
    for (Vector<float>* const list : {&mWayX, &mWayY, &mLength})
        Vector<float>(mAllocator).swap(*list);
}

/// Lists the sides among the pairs that see each other, with the ways along them, and counts those that arrive. Marks
/// the pairs as bits.
void ChordTable::listSides()
{
    const size_t n = mOutline.mPoints.size();
    mSideStart.resize(n + 1);
    mArrivalStart.assign(n + 1, 0);
    const size_t room = mLater.size() + NUM_LANES;
    makeRoom(mSides, room);
    makeRoom(mWayX, room);
    makeRoom(mWayY, room);
    makeRoom(mLength, room);
    size_t numSides = 0;
    for (size_t i = 0; i < n; ++i)
    {
        mSideStart[i] = static_cast<uint32>(numSides);
        const int32 corner = static_cast<int32>(i);
        numSides += mOutline.mClosed ? writeSides<true>(numSides, corner) : writeSides<false>(numSides, corner);
        if (mRowWords > 0)
            markSeen(corner);
    }
    mSideStart[n] = static_cast<uint32>(numSides);
}

/// The sides that start at a corner. What sight in a closed outline has marked is no side, and is not marked any more.
/// @return how many.
template <bool CLOSED>
inline size_t ChordTable::writeSides(size_t at, int32 i)
{
    const Vec2<float>* const points = mOutline.measured().data();
    const uint8* const reflex = mOutline.mReflex.data();
    uint32* const numArrivals = mArrivalStart.data() + 1;
    const Vec2<float> here = points[i];
    Side* const sides = mSides.data() + at;
    float* const x = mWayX.data() + at;
    float* const y = mWayY.data() + at;
    size_t size = 0;
    const int32* const end = laterEnd(i) - (i == 0 ? 1 : 0); // without the closing edge
    for (int32* seen = mLater.data() + mLaterStart[static_cast<size_t>(i)]; seen != end; ++seen)
    {
        const uint32 isTouching = CLOSED && (*seen & ClosedSight::TOUCHING) != 0 ? 1 : 0;
        if constexpr (CLOSED)
            *seen &= ~ClosedSight::TOUCHING;
        const int32 k = *seen;
        // written in any case: which are sides follows no pattern
        sides[size].mTo = k;
        x[size] = points[k].mX - here.mX;
        y[size] = points[k].mY - here.mY;
        const uint32 isSide = ((reflex[i] | reflex[k]) & (isTouching ^ 1u)) | (i + 1 == k ? 1u : 0u);
        numArrivals[k] += isSide;
        size += isSide;
    }
    return size;
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

/// Turns the ways along sides to directions, and takes their lengths. Four at a time: each rounds as it does alone.
void ChordTable::measureSides()
{
    const size_t numSides = getNumSides();
    for (size_t at = 0; at < numSides; at += NUM_LANES)
    {
        FloatLanes x = loadLanes(mWayX.data() + at);
        FloatLanes y = loadLanes(mWayY.data() + at);
        storeLanes(mLength.data() + at, normaliseLanes(x, y));
        storeLanes(mWayX.data() + at, x);
        storeLanes(mWayY.data() + at, y);
    }
}

/// Turns the numbers of arrivals to where they begin.
void ChordTable::startArrivals()
{
    const size_t n = mOutline.mPoints.size();
    mOpenArrival.resize(n);
    uint32 place = 0;
    for (size_t k = 0; k < n; ++k)
    {
        const uint32 numArrivals = mArrivalStart[k + 1] + mEdgeHidden[k];
        mArrivalStart[k] = place;
        mOpenArrival[k] = ++place;
        place += numArrivals;
    }
    mArrivalStart[n] = place;
    const size_t room = place + NUM_LANES;
    makeRoom(mArrivals, room);
    makeRoom(mBackX, room);
    makeRoom(mBackY, room);
    for (const uint32 before : mArrivalStart)
        mArrivals[before].mFrom = NO_CORNER;
}

/// Lists sides by their later corner, and leaves no arrival open but hidden edges.
void ChordTable::placeArrivals()
{
    const float* const x = mWayX.data();
    const float* const y = mWayY.data();
    size_t at = 0;
    for (int32 i = 0; i < mOutline.size(); ++i)
    {
        for (const size_t end = mSideStart[static_cast<size_t>(i) + 1]; at < end; ++at)
        {
            Side& side = mSides[at];
            const uint32 place = mOpenArrival[static_cast<size_t>(side.mTo)]++;
            side.mArrival = place;
            mArrivals[place] = {i, i + 1 == side.mTo ? 0.0f : mLength[at], NO_ARRIVAL, -1};
            mBackX[place] = -x[at];
            mBackY[place] = -y[at];
        }
        if (isEdgeHidden(i + 1))
            placeHiddenEdge(i);
    }
}

void ChordTable::placeHiddenEdge(int32 i)
{
    const uint32 place = arrivalsEnd(i + 1) - 1;
    const Vec2<float> way = direction(i, i + 1);
    mArrivals[place] = {i, 0.0f, mArrivalStart[static_cast<size_t>(i)], -1};
    mBackX[place] = -way.mX;
    mBackY[place] = -way.mY;
}

void ChordTable::open(int32 i)
{
    const Side* const end = sidesEnd(i);
    for (const Side* side = sidesBegin(i); side != end; ++side)
        mOpenArrival[static_cast<size_t>(side->mTo)] = side->mArrival;
}

uint32 ChordTable::findArrival(int32 k, int32 from) const
{
    const Arrival* const begin = mArrivals.data() + arrivalsBegin(k);
    const Arrival* const end = mArrivals.data() + arrivalsEnd(k);
    const Arrival* const found =
        std::lower_bound(begin, end, from, [](const Arrival& a, int32 first) { return a.mFrom < first; });
    return static_cast<uint32>(found - mArrivals.data());
}

bool ChordTable::isListed(int32 i, int32 k) const
{
    return std::binary_search(laterBegin(i), laterEnd(i), k);
}

void ChordTable::classifyCorners()
{
    mTurns.resize(mOutline.mPoints.size());
    mOneWay.resize(mOutline.mPoints.size());
    mFan.reserve(mOutline.mPoints.size() + 1); // a hidden edge comes in addition
    for (int32 p = 0; p < mOutline.size(); ++p)
        mTurns[static_cast<size_t>(p)] = classifyTurns(p);
}

void ChordTable::Fan::reserve(size_t size)
{
    mX.resize(std::max(mX.size(), size + 2 * NUM_LANES));
    mY.resize(std::max(mY.size(), size + 2 * NUM_LANES));
}

inline void ChordTable::gatherFan(int32 p)
{
    const size_t firstSide = mSideStart[static_cast<size_t>(p)];
    const size_t firstArrival = arrivalsBegin(p);
    mFan.mNumLeaving = mSideStart[static_cast<size_t>(p) + 1] - firstSide;
    mFan.mNumArriving = arrivalsEnd(p) - firstArrival;
    copyLanes(mFan.mX.data(), mWayX.data() + firstSide, mFan.mNumLeaving);
    copyLanes(mFan.mY.data(), mWayY.data() + firstSide, mFan.mNumLeaving);
    copyLanes(mFan.mX.data() + mFan.mNumLeaving, mBackX.data() + firstArrival, mFan.mNumArriving);
    copyLanes(mFan.mY.data() + mFan.mNumLeaving, mBackY.data() + firstArrival, mFan.mNumArriving);
}

/// Tells what turns at a corner are like, and how far the run of arrivals goes for each side that leaves.
ChordTable::Turns ChordTable::classifyTurns(int32 p)
{
    if (isEdgeHidden(p + 1))
        return giveUpOrder(p);
    const bool reflex = mOutline.isReflex(p);
    gatherFan(p);
    const size_t numArriving = mFan.mNumArriving;
    const bool oneSided = mFan.mNumLeaving == 0 || numArriving == 0;
    const Spread spread = isEdgeHidden(p) ? Spread::UNKNOWN : findSpread();
    mOneWay[static_cast<size_t>(p)] = spread != Spread::UNKNOWN ? 1 : 0;
    if (spread == Spread::HALF_TURN && (oneSided || !reflex))
    {
        setRuns(p, numArriving);
        return reflex ? Turns::ORDERED : Turns::ALL;
    }
    if (spread != Spread::UNKNOWN && reflex && findClearRuns(p))
        return Turns::ORDERED;
    if (findRuns(p))
        return Turns::ORDERED;
    mOneWay[static_cast<size_t>(p)] = 0;
    return Turns::UNORDERED;
}

/// Where the edge from a corner to the next one is hidden, which is no side.
ChordTable::Turns ChordTable::giveUpOrder(int32 p)
{
    mOneWay[static_cast<size_t>(p)] = 0;
    setRuns(p, 0);
    return Turns::UNORDERED;
}

inline void ChordTable::setRun(int32 p, size_t leaving, size_t run)
{
    mArrivals[sidesBegin(p)[leaving].mArrival].mRun = mArrivalStart[static_cast<size_t>(p)] + static_cast<uint32>(run);
}

/// The same run for all sides that leave.
inline void ChordTable::setRuns(int32 p, size_t run)
{
    const uint32 last = mArrivalStart[static_cast<size_t>(p)] + static_cast<uint32>(run);
    const Side* const end = sidesEnd(p);
    for (const Side* side = sidesBegin(p); side != end; ++side)
        mArrivals[side->mArrival].mRun = last;
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
    const uint64 last = uint64(1) << (size - 1);
    uint64 turnsOn = last;
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
    const uint64 all = last | (last - 1);
    ahead &= all;
    const uint64 aheadAgain = ahead & (ahead + 1); // without those before the first one that is not
    same &= all;
    if ((turnsOn | same | ~all) != ~uint64(0) || (same != 0 && std::popcount(same) >= MAX_SAME) || (ahead & 1) == 0 ||
        (aheadAgain & ~clear) != 0)
        return Spread::UNKNOWN;
    return (beyond & all) == 0 ? Spread::HALF_TURN : Spread::FULL_TURN;
}

/// Finds the arrivals that may go on along each side that leaves. @return whether all the last ones of them and the
/// first others are clear of the limit. Directions must turn one way.
bool ChordTable::findClearRuns(int32 p)
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
        setRun(p, at, run);
    }
    return true;
}

/// The same by asking for every pair. The run of a side is clear where no arrival behind it turns convex to that side
/// or to one before, so that whatever takes part, the run is as far as a search gets. At a convex corner the side from
/// the first corner may be missing, which else begins every run; there all arrivals must be in it.
/// @return whether all are clear; the others have no run.
bool ChordTable::findRuns(int32 p)
{
    bool areAllClear = true;
    size_t reached = 0; // end of the arrivals that may go on along some side so far
    for (size_t at = 0; at < mFan.mNumLeaving; ++at)
    {
        const Vec2<float> leaving = mFan.leaving(at);
        size_t run = 0;
        while (run < mFan.mNumArriving && turnsConvex(mFan.arriving(run), leaving))
            ++run;
        reached = std::max(reached, run);
        for (size_t later = mFan.mNumArriving; later > reached; --later)
        {
            if (turnsConvex(mFan.arriving(later - 1), leaving))
                reached = later;
        }
        const bool isClear = run == reached && (mOutline.isReflex(p) || run == mFan.mNumArriving);
        setRun(p, at, isClear ? run : 0);
        areAllClear = areAllClear && isClear;
    }
    return areAllClear;
}
} // namespace KORV::NavMesh
