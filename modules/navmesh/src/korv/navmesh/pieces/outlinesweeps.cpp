#include "korv/navmesh/pieces/outlinesweeps.h"

#include "korv/common/debug/assert.h"
#include "korv/navmesh/floatlanes.h"

#include <algorithm>
#include <bit>

// Only reflex corners can cast a shadow. Whether they do is asked for 64 at a time in a whole sweep, one bit each, and
// it goes from bit to bit. What a sweep has passed is a run of corners that begins at the eye, so a comparison of
// indices tells. Only corners after the eye are wanted, so the forward sweep ends with the outline; the backward one
// goes all the way round.

namespace KORV::NavMesh
{
namespace
{
constexpr size_t WORD = 64;
constexpr size_t STEP = 2 * NUM_LANES;
constexpr uint64 ALL = ~uint64(0);
constexpr size_t NO_WORD = ~size_t(0);
} // namespace

OutlineSweeps::OutlineSweeps(const Vector<Vec2<float>>& polygon, const Vector<uint8>& reflex, EdgeBoxes& boxes,
                             Common::Memory::Allocator* allocator)
    : mPolygon(polygon), mReflex(reflex), mBoxes(boxes), mForwardShadows(allocator), mBackwardShadows(allocator),
      mSeen(allocator), mCorners(allocator), mRanks(allocator), mPlaces(allocator), mForward(allocator),
      mBackward(allocator)
{
}

void OutlineSweeps::build(float reach)
{
    mReach = reach;
    mN = static_cast<int32>(mPolygon.size());
    mGathered = false;
    mForwardShadows.assign(mPolygon.size(), Shadow());
    mBackwardShadows.assign(mPolygon.size(), Shadow());
}

void OutlineSweeps::gatherCasters()
{
    mGathered = true;
    mSeen.resize((mPolygon.size() + WORD - 1) / WORD);
    mCorners.clear();
    mRanks.clear();
    for (int32 k = 0; k < mN; ++k)
    {
        mRanks.push_back(static_cast<int32>(mCorners.size()));
        if (mReflex[static_cast<size_t>(k)])
            mCorners.push_back(k);
    }
    mRanks.push_back(static_cast<int32>(mCorners.size()));

    const size_t size = (mCorners.size() + STEP - 1) / STEP * STEP;
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

bool OutlineSweeps::casts(Way way, int32 eye, int32 corner, float turn) const
{
    if (!mReflex[static_cast<size_t>(corner)])
        return false;
    const Vec2<float> d = point(corner) - point(eye);
    if (way == Way::FORWARD)
        return cross(d, point(next(corner)) - point(corner)) > turn;
    return cross(d, point(previous(corner)) - point(corner)) < -turn;
}

int32 OutlineSweeps::findHider(Way way, int32 eye, int32 from, int32 corner)
{
    const int32 step = way == Way::FORWARD ? 1 : -1;
    const int32 end = placeOf(corner, eye) * step;
    for (int32 place = placeOf(from, eye); place * step < end;)
    {
        const int32 caster = cornerAt(place);
        const int32 landing = casts(way, eye, caster) ? land(way, eye, caster) : place;
        if (landing == place)
        {
            place += step;
            continue;
        }
        if (end < landing * step)
            return caster;
        place = landing;
    }
    return NONE;
}

int32 OutlineSweeps::land(Way way, int32 eye, int32 corner)
{
    const bool forward = way == Way::FORWARD;
    Shadow& shadow = (forward ? mForwardShadows : mBackwardShadows)[static_cast<size_t>(corner)];
    if (shadow.mEye != eye)
        shadow = forward ? castForward(eye, corner) : castBackward(eye, corner);
    mDoubtful = mDoubtful || shadow.mDoubtful;
    return shadow.mEnd;
}

/// The edge that the shadow of a corner falls on; NONE for none.
/// @param direction  receives that from the eye to the corner, of unit length.
int32 OutlineSweeps::castRay(int32 eye, int32 corner, Vec2<float>& direction)
{
    direction = point(corner) - point(eye);
    const float len = direction.normalise();
    if (!KORV_ASSERT(len > 0, "len > 0", "the visible line cannot be of length zero"))
        return NONE;
    return mBoxes.findNearestEdge(corner, direction);
}

OutlineSweeps::Shadow OutlineSweeps::castForward(int32 eye, int32 corner)
{
    const int32 place = placeOf(corner, eye);
    Vec2<float> direction;
    int32 edge = castRay(eye, corner, direction);
    if (edge < 0 || (edge > eye && edge <= corner)) // passed already
        return {eye, place, edge < 0};
    bool doubtful = false;
    if (cross(direction, point(edge) - point(eye)) > 0.0f)
    {
        edge = next(edge);
        doubtful = cross(direction, point(edge) - point(eye)) > mReach;
    }
    // a shadow that would pass the eye itself comes from a degenerate outline and hides nothing
    const int32 hidden = stepsForward(corner, edge) - 1;
    return {eye, hidden > 0 && hidden < stepsForward(corner, eye) ? place + hidden + 1 : place, doubtful};
}

OutlineSweeps::Shadow OutlineSweeps::castBackward(int32 eye, int32 corner)
{
    const int32 place = placeOf(corner, eye);
    Vec2<float> direction;
    int32 edge = castRay(eye, corner, direction);
    if (edge < 0 || (edge != eye && stepsForward(edge, eye) <= stepsForward(corner, eye))) // passed already
        return {eye, place, edge < 0};
    bool doubtful = false;
    if (cross(direction, point(edge) - point(eye)) < -TURN_TOLERANCE)
    {
        edge = previous(edge);
        doubtful = cross(direction, point(edge) - point(eye)) < -mReach;
    }
    const int32 hidden = stepsForward(edge, corner) - 1;
    return {eye, hidden > 0 && hidden < stepsForward(eye, corner) ? place - hidden - 1 : place, doubtful};
}

void OutlineSweeps::appendVisible(Vector<int32>& visible, int32 eye)
{
    if (!mGathered)
        gatherCasters();
    showAll(eye);
    sweepForward(eye);
    sweepBackward(eye);
    for (size_t word = static_cast<size_t>(eye + 1) / WORD; word < mSeen.size(); ++word)
    {
        for (uint64 seen = mSeen[word]; seen != 0; seen &= seen - 1)
            visible.push_back(static_cast<int32>(word * WORD) + std::countr_zero(seen));
    }
}

void OutlineSweeps::sweepForward(int32 eye)
{
    mWord = NO_WORD;
    for (int32 corner = eye + 1; corner < mN;)
    {
        corner = nextCaster(mRanks[static_cast<size_t>(corner)], eye);
        if (corner < 0)
            return;
        const int32 landing = land(Way::FORWARD, eye, corner);
        if (landing == corner)
        {
            ++corner;
            continue;
        }
        hide(next(corner), landing - corner - 1, eye);
        corner = landing; // beyond the end for one before the eye
    }
}

void OutlineSweeps::sweepBackward(int32 eye)
{
    mWord = NO_WORD;
    for (int32 corner = previous(eye); corner != eye;)
    {
        // the corners up to that one in this part of the outline; behind its start the last one follows
        const int32 caster = previousCaster(mRanks[static_cast<size_t>(corner) + 1], eye);
        if (corner > eye && caster <= eye)
            return;
        if (caster < 0)
        {
            if (eye + 1 == mN)
                return;
            corner = mN - 1;
            continue;
        }
        const int32 place = placeOf(caster, eye);
        const int32 landing = land(Way::BACKWARD, eye, caster);
        corner = landing == place ? previous(caster) : cornerAt(landing);
        if (landing != place)
            hide(next(corner), place - landing - 1, eye);
    }
}

void OutlineSweeps::showAll(int32 eye)
{
    const size_t firstWord = static_cast<size_t>(eye + 1) / WORD;
    if (firstWord >= mSeen.size())
        return;
    std::fill(mSeen.begin() + static_cast<int64>(firstWord), mSeen.end(), ALL);
    mSeen[firstWord] &= ALL << (static_cast<size_t>(eye + 1) % WORD);
    if (mPolygon.size() % WORD != 0)
        mSeen.back() &= ALL >> (WORD - mPolygon.size() % WORD);
}

/// Marks a run of corners, which may pass the end of the outline, as hidden from the eye.
void OutlineSweeps::hide(int32 first, int32 count, int32 eye)
{
    const int32 untilEnd = std::min(count, mN - first);
    hideRun(std::max(first, eye + 1), first + untilEnd - 1);
    hideRun(eye + 1, count - untilEnd - 1);
}

void OutlineSweeps::hideRun(int32 first, int32 last)
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

/// A bit for each of 64 reflex corners that turns away from the eye along its edge onward.
uint64 OutlineSweeps::findCasters(size_t word, const Casters& onward, int32 eye, bool forward) const
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
            const FloatLanes x = loadLanes(mPlaces.mX.data() + lane) - point(eye).mX;
            const FloatLanes y = loadLanes(mPlaces.mY.data() + lane) - point(eye).mY;
            const FloatLanes turn = x * loadLanes(onward.mY.data() + lane) - loadLanes(onward.mX.data() + lane) * y;
            turning[half] = forward ? turn <= TURN_TOLERANCE : turn >= -TURN_TOLERANCE;
        }
        bits |= static_cast<uint64>(gatherBits(~turning[0], ~turning[1])) << (at - begin);
    }
    return bits;
}

/// The first reflex corner from that rank on which casts a shadow forward; -1 for none.
int32 OutlineSweeps::nextCaster(int32 rank, int32 eye)
{
    size_t at = static_cast<size_t>(rank);
    for (; at < mCorners.size(); at = (at / WORD + 1) * WORD)
    {
        if (mWord != at / WORD)
        {
            mWord = at / WORD;
            mTurning = findCasters(mWord, mForward, eye, true);
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
int32 OutlineSweeps::previousCaster(int32 rank, int32 eye)
{
    for (size_t end = static_cast<size_t>(rank); end > 0; end = (end - 1) / WORD * WORD)
    {
        const size_t last = end - 1;
        if (mWord != last / WORD)
        {
            mWord = last / WORD;
            mTurning = findCasters(mWord, mBackward, eye, false);
        }
        const uint64 left = mTurning & (ALL >> (WORD - 1 - last % WORD));
        if (left != 0)
            return mCorners[mWord * WORD + WORD - 1 - static_cast<size_t>(std::countl_zero(left))];
    }
    return -1;
}
} // namespace KORV::NavMesh
