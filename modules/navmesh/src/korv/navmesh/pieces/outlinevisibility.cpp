#include "korv/navmesh/pieces/outlinevisibility.h"

#include "korv/common/debug/assert.h"
#include "korv/navmesh/floatlanes.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

// A sweep walks around the outline from corner i. A reflex corner at which the outline turns away from i casts a
// shadow: what lies between it and the edge that its ray meets is hidden, and the sweep goes on there.
//
// Only reflex corners can cast one. Whether they do is asked for 64 at a time, one bit each, and the sweep goes from
// bit to bit. What a sweep has passed is a run of corners that begins at i, so a comparison of indices tells. Only
// corners after i are wanted, so the forward sweep ends with the outline; the backward one goes all the way round.
//
// Three things save most rays. The first two rest on what rays that go away from i have in common: two of them never
// cross, nor does one cross the line of sight from i to a corner.
// - What a ray cuts off on the far side is hidden as a whole, even where the ray begins at a hidden corner itself. No
//   ray that begins in there leaves it, so sweeps pass over it: the backward sweep over the shadows of the forward one,
//   and the forward sweep over those that are cast by the corners which cast the longest ones backward before.
// - No shadow of a corner between a and i hides a from i, when they see each other. What lies there is not wanted, so
//   the backward sweep begins at the first such a, unless some corner comes too close to the line of sight for floats.
// - Most shadows are those of steps: they hide one corner, and fall on the edge behind it. Where nothing else reaches
//   into the triangle of such a step, offsets from the ray tell as much.
//
// Tolerances are absolute. Where they are not small against the edges, sweeps are done at length; and again where a ray
// has met nothing at all, so that floats must have let it slip through.

namespace KORV::NavMesh
{
namespace
{
/// A chain that turns away by less still counts as turning around the corner.
constexpr float TURN_TOLERANCE = 0.0001f;
/// Rays meet edges up to this share of their length beyond their ends.
constexpr float END_TOLERANCE = 0.0001f;
/// What is less than this share of the shortest edge is small.
constexpr float SMALL = 0.25f;
/// A shadow of as many corners is worth a ray in advance.
constexpr int32 LONG_SHADOW = 8;
constexpr size_t WORD = 64;
constexpr size_t STEP = 2 * NUM_LANES;
constexpr uint64 ALL = ~uint64(0);
constexpr size_t NO_WORD = ~size_t(0);
} // namespace

OutlineVisibility::OutlineVisibility(const Vector<Vec2<float>>& polygon, const Vector<uint8>& reflex,
                                     Common::Memory::Allocator* allocator)
    : mPolygon(polygon), mReflex(reflex), mBoxes(polygon, allocator), mSeen(allocator), mCorners(allocator),
      mRanks(allocator), mPlaces(allocator), mForward(allocator), mBackward(allocator), mFirstSeer(allocator),
      mEars(allocator), mLongCasters(allocator), mForwardShadows(allocator), mBackwardShadows(allocator)
{
}

void OutlineVisibility::build()
{
    mN = static_cast<int32>(mPolygon.size());
    mBoxes.build();
    measureTolerances();
    mSeen.resize((mPolygon.size() + WORD - 1) / WORD);
    mLongCasters.clear();
    mFirstSeer.assign(mPolygon.size(), -1);
    mEars.assign(mPolygon.size(), Ear::UNKNOWN);
    mCorners.clear();
    mRanks.clear();
    for (int32 k = 0; k < mN; ++k)
    {
        mRanks.push_back(static_cast<int32>(mCorners.size()));
        if (mReflex[static_cast<size_t>(k)])
            mCorners.push_back(k);
    }
    mRanks.push_back(static_cast<int32>(mCorners.size()));

    const size_t size = (mCorners.size() + STEP - 1) / STEP * STEP + STEP; // lanes may begin at the last one
    for (Casters* casters : {&mPlaces, &mForward, &mBackward})
    {
        casters->mX.assign(size, 0.0f);
        casters->mY.assign(size, 0.0f);
    }
    for (size_t rank = 0; rank < mCorners.size(); ++rank)
    {
        const int32 k = mCorners[rank];
        const Vec2<float> forward = point(next(k)) - point(k);
        const Vec2<float> backward = point(previous(k)) - point(k);
        mPlaces.mX[rank] = point(k).mX;
        mPlaces.mY[rank] = point(k).mY;
        mForward.mX[rank] = forward.mX;
        mForward.mY[rank] = forward.mY;
        mBackward.mX[rank] = backward.mX;
        mBackward.mY[rank] = backward.mY;
    }
}

/// Corners at a distance d that turn away by no more than the tolerance over d are taken for seen, and rays meet edges
/// that they miss by a share of their length. Twice that is the clearance that a line of sight needs. What lies beyond
/// a convex corner no ray gets to see.
void OutlineVisibility::measureTolerances()
{
    float shortest = std::numeric_limits<float>::max();
    float longest = 0.0f;
    for (int32 k = 0; k < mN; ++k)
    {
        const float length = (point(next(k)) - point(k)).getLength();
        shortest = std::min(shortest, length);
        if (mReflex[static_cast<size_t>(k)] || mReflex[static_cast<size_t>(next(k))])
            longest = std::max(longest, length);
    }
    mClearance = 2.0f * (TURN_TOLERANCE / shortest + END_TOLERANCE * longest);
    mCoarse = mClearance < SMALL * shortest; // false for what is not a number, too
}

void OutlineVisibility::appendVisible(Vector<int32>& visible, int32 corner)
{
    findVisible(corner);
    for (size_t word = static_cast<size_t>(corner + 1) / WORD; word < mSeen.size(); ++word)
    {
        for (uint64 seen = mSeen[word]; seen != 0; seen &= seen - 1)
        {
            const int32 k = static_cast<int32>(word * WORD) + std::countr_zero(seen);
            visible.push_back(k);
            if (!mRayLost && mFirstSeer[static_cast<size_t>(k)] < 0)
                mFirstSeer[static_cast<size_t>(k)] = corner;
        }
    }
}

/// Leaves a bit for each corner after i that sees it.
void OutlineVisibility::findVisible(int32 i)
{
    mRayLost = false;
    if (mCoarse)
    {
        showAll(i);
        castKnown(i);
        sweepForward(i);
        sweepBackward(i, startBackward(i));
        if (!mRayLost)
            return;
    }
    showAll(i);
    mBackwardShadows.clear();
    sweepForward(i);
    mForwardShadows.clear();
    sweepBackward(i, previous(i));
    mLongCasters.clear();
}

void OutlineVisibility::showAll(int32 i)
{
    const size_t firstWord = static_cast<size_t>(i + 1) / WORD;
    if (firstWord >= mSeen.size())
        return;
    std::fill(mSeen.begin() + static_cast<int64>(firstWord), mSeen.end(), ALL);
    mSeen[firstWord] &= ALL << (static_cast<size_t>(i + 1) % WORD);
    if (mPolygon.size() % WORD != 0)
        mSeen.back() &= ALL >> (WORD - mPolygon.size() % WORD);
}

/// Marks a run of corners, which may pass the end of the outline, as hidden from corner i.
void OutlineVisibility::hide(int32 first, int32 count, int32 i)
{
    const int32 untilEnd = std::min(count, mN - first);
    hideRun(std::max(first, i + 1), first + untilEnd - 1);
    hideRun(i + 1, count - untilEnd - 1);
}

void OutlineVisibility::hideRun(int32 first, int32 last)
{
    if (first > last)
        return;
    const size_t firstWord = static_cast<size_t>(first) / WORD;
    const size_t lastWord = static_cast<size_t>(last) / WORD;
    const uint64 before = ~(ALL << (static_cast<size_t>(first) % WORD));
    const uint64 behind = ~(ALL >> (WORD - 1 - static_cast<size_t>(last) % WORD));
    if (firstWord == lastWord)
    {
        mSeen[firstWord] &= before | behind;
        return;
    }
    mSeen[firstWord] &= before;
    std::fill(mSeen.begin() + static_cast<int64>(firstWord) + 1, mSeen.begin() + static_cast<int64>(lastWord), 0);
    mSeen[lastWord] &= behind;
}

/// A bit for each of 64 reflex corners that turns away from corner i along its edge onward.
uint64 OutlineVisibility::findCasters(size_t word, const Casters& onward, int32 i, bool forward) const
{
    const size_t begin = word * WORD;
    const size_t end = std::min(begin + WORD, mPlaces.mX.size());
    uint64 bits = 0;
    for (size_t at = begin; at < end; at += STEP)
    {
        MaskLanes turning[2];
        for (size_t half = 0; half < 2; ++half)
        {
            const size_t lane = at + half * NUM_LANES;
            const FloatLanes x = loadLanes(mPlaces.mX.data() + lane) - point(i).mX;
            const FloatLanes y = loadLanes(mPlaces.mY.data() + lane) - point(i).mY;
            const FloatLanes turn = x * loadLanes(onward.mY.data() + lane) - loadLanes(onward.mX.data() + lane) * y;
            turning[half] = forward ? turn <= TURN_TOLERANCE : turn >= -TURN_TOLERANCE;
        }
        bits |= static_cast<uint64>(gatherBits(~turning[0], ~turning[1])) << (at - begin);
    }
    return bits;
}

/// The first reflex corner from that rank on which casts a shadow forward; -1 for none.
int32 OutlineVisibility::nextCaster(int32 rank, int32 i)
{
    size_t at = static_cast<size_t>(rank);
    for (; at < mCorners.size(); at = (at / WORD + 1) * WORD)
    {
        if (mWord != at / WORD)
        {
            mWord = at / WORD;
            mTurning = findCasters(mWord, mForward, i, true);
        }
        const uint64 left = mTurning & (ALL << (at % WORD));
        if (left == 0)
            continue;
        at = mWord * WORD + static_cast<size_t>(std::countr_zero(left));
        return at < mCorners.size() ? mCorners[at] : -1;
    }
    return -1;
}

/// The last reflex corner before that rank which casts a shadow backward; -1 for none.
int32 OutlineVisibility::previousCaster(int32 rank, int32 i)
{
    for (size_t end = static_cast<size_t>(rank); end > 0; end = (end - 1) / WORD * WORD)
    {
        const size_t last = end - 1;
        if (mWord != last / WORD)
        {
            mWord = last / WORD;
            mTurning = findCasters(mWord, mBackward, i, false);
        }
        const uint64 left = mTurning & (ALL >> (WORD - 1 - last % WORD));
        if (left != 0)
            return mCorners[mWord * WORD + WORD - 1 - static_cast<size_t>(std::countl_zero(left))];
    }
    return -1;
}

/// The edge that the shadow of corner j, seen from corner i, falls on; -1 for none.
/// @param direction  receives that from i to j, of unit length.
int32 OutlineVisibility::castShadow(int32 i, int32 j, Vec2<float>& direction)
{
    direction = point(j) - point(i);
    const float len = direction.normalise();
    if (!KORV_ASSERT(len > 0, "len > 0", "the visible line cannot be of length zero"))
        return -1;
    const int32 edge = mBoxes.findNearestEdge(j, direction);
    mRayLost = mRayLost || edge < 0;
    return edge;
}

/// The corner that the forward sweep goes on at, behind the shadow of corner j; -1 when there is no shadow.
int32 OutlineVisibility::castForward(int32 i, int32 j)
{
    if (isStep(i, j, next(j), next(next(j))))
        return next(next(j));
    Vec2<float> direction;
    const int32 edge = castShadow(i, j, direction);
    if (edge < 0 || (edge > i && edge <= j))
        return -1; // passed already
    return cross(direction, point(edge) - point(i)) > 0.0f ? next(edge) : edge;
}

/// The corner that the backward sweep goes on at, likewise.
int32 OutlineVisibility::castBackward(int32 i, int32 j)
{
    if (isStep(i, j, previous(j), previous(previous(j))))
        return previous(previous(j));
    Vec2<float> direction;
    const int32 edge = castShadow(i, j, direction);
    if (edge < 0 || (edge != i && stepsForward(edge, i) <= stepsForward(j, i)))
        return -1; // passed already
    return cross(direction, point(edge) - point(i)) < -TURN_TOLERANCE ? previous(edge) : edge;
}

/// Whether the shadow of corner j clearly falls on the second edge from there and hides the corner in the middle only:
/// that takes no ray, and most shadows are such.
bool OutlineVisibility::isStep(int32 i, int32 j, int32 middle, int32 end)
{
    if (!mCoarse || middle == i || end == i)
        return false;
    const Vec2<float> d = point(j) - point(i);
    const float middleOffset = cross(d, point(middle) - point(i));
    const float endOffset = cross(d, point(end) - point(i));
    const float clear = mClearance * (std::fabs(d.mX) + std::fabs(d.mY));
    return std::min(std::fabs(middleOffset), std::fabs(endOffset)) > clear &&
           (middleOffset > 0.0f) != (endOffset > 0.0f) && isEar(middle);
}

/// Whether a corner is convex, its neighbours keep away from its edges, and no other corner is near.
bool OutlineVisibility::isEar(int32 middle)
{
    Ear& ear = mEars[static_cast<size_t>(middle)];
    if (ear == Ear::UNKNOWN)
    {
        const Vec2<float> arriving = point(middle) - point(previous(middle));
        const Vec2<float> leaving = point(next(middle)) - point(middle);
        const float longer = std::max(arriving.getLength(), leaving.getLength());
        const bool convex = cross(arriving, leaving) < -mClearance * longer;
        ear = convex && mBoxes.areAlone(middle, mClearance) ? Ear::YES : Ear::NO;
    }
    return ear == Ear::YES;
}

/// Whether the outline turns away from corner i at corner j, coming from behind.
bool OutlineVisibility::castsBackward(int32 i, int32 j) const
{
    const Vec2<float> d = point(j) - point(i);
    return cross(d, point(previous(j)) - point(j)) < -TURN_TOLERANCE;
}

/// Casts the shadows of those corners whose backward shadows were long for the corner before.
void OutlineVisibility::castKnown(int32 i)
{
    mBackwardShadows.clear();
    for (const int32 caster : mLongCasters)
    {
        if (caster == i || !castsBackward(i, caster))
            continue;
        const int32 last = caster > i ? caster : caster + mN;
        const int32 begin = castBackward(i, caster);
        if (begin <= i || begin + 1 >= last)
            continue;
        hide(next(begin), last - begin - 1, i);
        if (mBackwardShadows.empty() || last <= mBackwardShadows.back().mBegin)
            mBackwardShadows.push_back({begin, last});
        else
            mBackwardShadows.back().mBegin = std::min(mBackwardShadows.back().mBegin, begin);
    }
    mLongCasters.clear();
}

/// Where a forward sweep that has come to corner k goes on: behind the shadow that the corner lies in. Drops the
/// shadows that are passed.
int32 OutlineVisibility::leaveForward(Vector<Shadow>& shadows, int32 k)
{
    while (!shadows.empty() && shadows.back().mEnd <= k)
        shadows.pop_back();
    return !shadows.empty() && k > shadows.back().mBegin ? shadows.back().mEnd : k;
}

/// The same for a backward sweep, whose shadows decrease.
int32 OutlineVisibility::leaveBackward(Vector<Shadow>& shadows, int32 k)
{
    while (!shadows.empty() && shadows.back().mBegin >= k)
        shadows.pop_back();
    return !shadows.empty() && k < shadows.back().mEnd ? shadows.back().mBegin : k;
}

void OutlineVisibility::sweepForward(int32 i)
{
    mWord = NO_WORD;
    mForwardShadows.clear();
    int32 j = i + 1;
    while (j < mN)
    {
        j = nextCaster(mRanks[static_cast<size_t>(j)], i);
        if (j < 0)
            return;
        if (const int32 behind = leaveForward(mBackwardShadows, j); behind != j)
        {
            j = behind;
            continue;
        }
        const int32 edge = castForward(i, j);
        // a shadow that would pass corner i itself comes from a degenerate outline and hides nothing
        const int32 skipped = edge >= 0 ? stepsForward(j, edge) - 1 : 0;
        if (skipped <= 0 || skipped >= stepsForward(j, i))
        {
            ++j;
            continue;
        }
        hide(next(j), skipped, i);
        mForwardShadows.push_back({j, j + skipped + 1});
        if (edge <= i)
            return; // what is left lies before corner i
        j = edge;
    }
}

/// The corner that the backward sweep begins at.
int32 OutlineVisibility::startBackward(int32 i) const
{
    const int32 seer = mFirstSeer[static_cast<size_t>(i)];
    return seer >= 0 && isClearOf(i, seer) ? seer : previous(i);
}

/// Whether all reflex corners between a and i keep away from their line of sight.
bool OutlineVisibility::isClearOf(int32 i, int32 a) const
{
    const Vec2<float> way = point(a) - point(i);
    const FloatLanes least = sameLanes(mClearance * (std::fabs(way.mX) + std::fabs(way.mY)));
    const int32 end = mRanks[static_cast<size_t>(i)];
    for (int32 rank = mRanks[static_cast<size_t>(a) + 1]; rank < end; rank += static_cast<int32>(NUM_LANES))
    {
        const FloatLanes x = loadLanes(mPlaces.mX.data() + rank) - point(i).mX;
        const FloatLanes y = loadLanes(mPlaces.mY.data() + rank) - point(i).mY;
        const FloatLanes offset = absoluteLanes(way.mX * y - way.mY * x);
        const MaskLanes close = offset <= least + mClearance * (absoluteLanes(x) + absoluteLanes(y));
        const uint32 behindEnd = ~0u << std::min(end - rank, static_cast<int32>(NUM_LANES));
        if ((gatherBits(close, MaskLanes{}) & ~behindEnd) != 0)
            return false;
    }
    return true;
}

void OutlineVisibility::sweepBackward(int32 i, int32 start)
{
    mWord = NO_WORD;
    int32 j = start;
    while (j != i)
    {
        j = leaveBackward(mForwardShadows, j > i ? j : j + mN) % mN;
        // the corners up to j in this part of the outline; behind its start the last one follows
        const int32 caster = previousCaster(mRanks[static_cast<size_t>(j) + 1], i);
        if (j > i && caster <= i)
            return;
        if (caster < 0)
        {
            if (i + 1 == mN)
                return;
            j = mN - 1;
            continue;
        }
        j = caster;
        const int32 place = j > i ? j : j + mN;
        if (leaveBackward(mForwardShadows, place) != place)
            continue;
        const int32 edge = castBackward(i, j);
        const int32 skipped = edge >= 0 ? stepsForward(edge, j) - 1 : 0;
        if (skipped <= 0 || skipped >= stepsForward(i, j))
        {
            j = previous(j);
            continue;
        }
        hide(next(edge), skipped, i);
        if (edge > i && skipped >= LONG_SHADOW)
            mLongCasters.push_back(j);
        j = edge;
    }
}
} // namespace KORV::NavMesh
