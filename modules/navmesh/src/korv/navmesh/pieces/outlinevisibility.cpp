#include "korv/navmesh/pieces/outlinevisibility.h"

#include <algorithm>
#include <cmath>
#include <limits>

// The outline is cut into triangles. The eye looks from its own triangles through their far sides into the next ones,
// within a cone that gets narrower: the corner behind a side is beyond one of the two bounds of the cone, or it is
// seen and splits the cone. From left to right that gives the corners in their order. Sides with no wanted corner
// behind them are not looked through.
//
// What counts is what the sweeps find, with their tolerances. So where a corner is close to the bound of a cone, the
// sweep from the corner of that bound on tells whether it is hidden. Tolerances also make rays land where they should
// not, though seldom: a ray may pass between two edges, or be stopped by the end of one that it misses. For that a
// corner of the outline must be close to the ray: be it one that is in sight, or one just behind the bound, or one that
// only the ray itself passes, where nothing else is wanted. Then the ray is cast, and if it does not land on the right
// side, or hides what it should not, whole sweeps are done for that eye. They are done for all eyes where edges are not
// long against the tolerances.
//
// An outline that laps over itself is looked through sheet by sheet, where sweeps may pass from one to the other.
//
// Source: F. Bungiu, M. Hemmer, J. Hershberger, K. Huang, A. Kroeller, "Efficient Computation of Visibility Polygons",
// EuroCG 2014 (triangular expansion).

namespace KORV::NavMesh
{
namespace
{
/// Rays meet edges up to a share of their length beyond their ends. With room for several.
constexpr float END_ROOM = 0.0002f;
/// That of the side that the end of an edge lies on. [units]
constexpr float SIDE_ROOM = 0.0001f;
/// What rounding moves the end of a ray by, of its length.
constexpr float ROUNDING = 1e-6f;
/// What it moves a corner by, of the size of the outline.
constexpr float CORNER_ROUNDING = 2e-7f;
/// Tolerances above this share of the shortest edge leave nothing clear.
constexpr float SMALL = 0.5f;
/// Triangles may lap over each other by this share of the tolerances.
constexpr float NOISE = 0.25f;

/// Up to where the edges of a convex corner are met beyond it, but for END_ROOM: only next to the other edge, which is
/// met as well.
/// @param lengths  product of the lengths of both edges.
float convexReach(const Vec2<float>& arriving, const Vec2<float>& leaving, float lengths)
{
    const float bend = dot(arriving, leaving) > 0.0f ? -cross(arriving, leaving) : lengths;
    return bend > 0.0f ? lengths / bend : std::numeric_limits<float>::max();
}
} // namespace

OutlineVisibility::OutlineVisibility(const Vector<Vec2<float>>& polygon, const Vector<uint8>& reflex,
                                     Common::Memory::Allocator* allocator)
    : mPolygon(polygon), mReflex(reflex), mBoxes(polygon, allocator), mSweeps(polygon, reflex, mBoxes, allocator),
      mTriangles(polygon, mBoxes, allocator), mClosedSight(polygon, mTriangles, allocator), mOpen(allocator),
      mUnasked(allocator), mShown(allocator)
{
}

void OutlineVisibility::build(bool closed)
{
    mN = static_cast<int32>(mPolygon.size());
    mClosed = closed;
    mBoxes.build();
    mCut = mBoxes.isBounded() && measure() && mTriangles.build(NOISE * mReach);
    mSweeps.build(mReach);
    if (mClosed)
        return mClosedSight.build(mRounding);
    mShown.resize(std::max(mShown.size(), mPolygon.size()));
    mOpen.resize(mShown.size());
}

/// @return false when tolerances are not small against the edges.
bool OutlineVisibility::measure()
{
    float shortest = std::numeric_limits<float>::max();
    float farthest = 0.0f;
    Vec2<float> low = mPolygon[0];
    Vec2<float> high = mPolygon[0];
    Vec2<float> arriving = mPolygon[0] - mPolygon.back();
    float length = arriving.getLength();
    for (size_t k = 0; k < mPolygon.size(); ++k)
    {
        const Vec2<float> leaving = mPolygon[k + 1 < mPolygon.size() ? k + 1 : 0] - mPolygon[k];
        const float lengthBefore = length;
        length = leaving.getLength();
        shortest = std::min(shortest, length);
        float reach = std::max(lengthBefore, length); // edges are met beyond their ends as far as they are long
        if (reach > farthest && mReflex[k] == 0)
            reach = std::min(reach, convexReach(arriving, leaving, lengthBefore * length));
        farthest = std::max(farthest, reach);
        low = {std::min(low.mX, mPolygon[k].mX), std::min(low.mY, mPolygon[k].mY)};
        high = {std::max(high.mX, mPolygon[k].mX), std::max(high.mY, mPolygon[k].mY)};
        arriving = leaving;
    }
    const float size = high.mX - low.mX + high.mY - low.mY;
    mRounding = CORNER_ROUNDING * size;
    mReach = SIDE_ROOM + END_ROOM * farthest + ROUNDING * size;
    mSlope = 2.0f * mReach / shortest;
    return TURN_ROOM / shortest + mReach < SMALL * shortest; // false for what is not a number, too
}

void OutlineVisibility::appendVisible(Vector<int32>& visible, int32 corner)
{
    if (mClosed && mCut)
        return mClosedSight.appendVisible(visible, corner);
    mEye = corner;
    mSweeps.trust();
    mUnasked.clear();
    if (mCut && look() && areUnaskedSound() && !mSweeps.isDoubtful())
        visible.insert(visible.end(), mShown.begin(), mShown.begin() + mNumShown);
    else
        mSweeps.appendVisible(visible, corner);
}

/// Looks through all triangles of the eye, from one to the next. @return false where tolerances may decide otherwise.
bool OutlineVisibility::look()
{
    mNumShown = 0;
    int32 side = mTriangles.sideAt(mEye);
    Line first = lineTo(mTriangles.from(OutlineTriangles::next(side)));
    show(first.mCorner);
    for (; side != NONE; side = mTriangles.beyond(side))
    {
        const int32 far = OutlineTriangles::next(side);
        side = OutlineTriangles::next(far);
        const Line second = lineTo(mTriangles.from(side));
        const bool close = areClose(first, second);
        if (close && !areBothSeen(first, second))
            return false;
        if (first.mCorner > mEye)
        {
            if (mTriangles.beyond(far) != NONE && !lookThrough(far, first, second))
                return false;
            show(second.mCorner);
        }
        else if (!close) // no other one can hide the last bound
            return true;
        first = second;
    }
    return true;
}

/// Whether tolerances decide which of both corners of a triangle at the eye are seen.
bool OutlineVisibility::areClose(const Line& first, const Line& second) const
{
    const float turn = cross(first.mWay, second.mWay);
    return turn >= 0.0f || isClose(first, second, turn) || isClose(second, first, turn);
}

bool OutlineVisibility::areBothSeen(const Line& first, const Line& second)
{
    if (first.mSize >= second.mSize)
        return mSweeps.findHider(Way::BACKWARD, mEye, second.mCorner, first.mCorner) == NONE;
    if (second.mCorner > mEye)
        return mSweeps.findHider(Way::FORWARD, mEye, first.mCorner, second.mCorner) == NONE;
    land(Way::FORWARD, first.mCorner);
    return true;
}

/// Whether the corner of a bound surely casts the shadow, and another corner is clear of it: then the sweep need not be
/// asked, unless another corner makes it cast the ray.
bool OutlineVisibility::isShadowClear(Way way, const Line& bound, const Line& corner, float turn) const
{
    return !isClose(bound, corner, turn, 0.0f) && bound.mWay == point(bound.mCorner) - point(mEye) &&
           mSweeps.casts(way, mEye, bound.mCorner, TURN_ROOM) && !mSweeps.hasLanded(way, mEye, bound.mCorner);
}

/// Whether sweeps agree, as far as their rays have been cast meanwhile, with what they have not been asked.
bool OutlineVisibility::areUnaskedSound()
{
    return std::all_of(mUnasked.begin(), mUnasked.end(),
                       [this](const Unasked& question)
                       {
                           return !mSweeps.hasLanded(question.mWay, mEye, question.mBound.mCorner) ||
                                  askSweep(question.mWay, question.mBound, question.mCorner) == question.mHiding;
                       });
}

/// Whether a bound of a cone hides the corner behind its side: the first one as a forward sweep would have it, the
/// second one as a backward sweep.
template <OutlineSweeps::Way WAY>
inline OutlineVisibility::Hiding OutlineVisibility::findHiding(const Line& bound, const Line& corner)
{
    const float turn = cross(bound.mWay, corner.mWay);
    const bool close = isClose(bound, corner, turn);
    if (close && !isShadowClear(WAY, bound, corner, turn))
        return askSweep(WAY, bound, corner);
    const Hiding hiding = (WAY == Way::FORWARD ? turn > 0.0f : turn < 0.0f) ? Hiding::BY_BOUND : Hiding::NOT;
    if (close)
        mUnasked.push_back({WAY, hiding, bound, corner});
    return hiding;
}

/// Goes on where the first bound of a cone hides the corner behind. @return the side in sight.
inline int32 OutlineVisibility::passFirst(const Line& bound, int32 entry)
{
    const int32 nearer = OutlineTriangles::next(entry);
    if (mTriangles.from(nearer) == bound.mCorner && mTriangles.beyond(nearer) != NONE)
        lookBehind(Way::FORWARD, bound, nearer);
    return OutlineTriangles::previous(entry);
}

/// The same for the second bound.
inline int32 OutlineVisibility::passSecond(const Line& bound, int32 entry)
{
    const int32 farther = OutlineTriangles::previous(entry);
    if (mTriangles.from(entry) == bound.mCorner && mTriangles.beyond(farther) != NONE)
        lookBehind(Way::BACKWARD, bound, farther);
    return OutlineTriangles::next(entry);
}

/// Goes on to the earlier of the two sides behind that of a cone, or the only one in sight, where tolerances may
/// decide.
/// @param open  receives the cone behind the later one.
OutlineVisibility::Passage OutlineVisibility::goThrough(Cone& cone, Cone& open, int32 entry)
{
    const int32 farther = OutlineTriangles::previous(entry);
    Line corner = lineTo(mTriangles.from(farther));
    const Hiding first = findHiding<Way::FORWARD>(cone.mFirst, corner);
    if (first == Hiding::BY_BOUND)
    {
        cone.mSide = passFirst(cone.mFirst, entry);
        return Passage::NARROWER;
    }
    const Hiding second = findHiding<Way::BACKWARD>(cone.mSecond, corner);
    if (first == Hiding::UNCLEAR || second == Hiding::UNCLEAR)
        return Passage::UNCLEAR;
    if (second == Hiding::BY_BOUND)
    {
        cone.mSide = passSecond(cone.mSecond, entry);
        return Passage::NARROWER;
    }
    cone.mSide = OutlineTriangles::next(entry);
    if (first == Hiding::NOT && second == Hiding::NOT)
        open = {farther, corner, cone.mSecond, corner.mCorner};
    else
    {
        open = {farther, cone.mFirst, cone.mSecond, NONE};
        corner.mCorner = cone.mSecond.mCorner; // sweeps begin at one that is seen
    }
    cone.mSecond = corner;
    return Passage::SPLIT;
}

/// Looks through a side, and through those behind it that come into sight between two bounds. @return false when
/// unclear. The addresses of the bounds are not passed on, so that they stay in registers.
bool OutlineVisibility::lookThrough(int32 side, Line first, Line second)
{
    Cone* open = mOpen.data();
    while (true)
    {
        const int32 entry = mTriangles.beyond(side);
        if (entry == NONE || !isWantedBehind(mTriangles.from(side)))
        {
            if (entry != NONE)
                follow(first, entry);
            if (open == mOpen.data())
                return true;
            --open;
            show(open->mShown);
            side = open->mSide;
            first = open->mFirst;
            second = open->mSecond;
            continue;
        }
        const Line corner = lineTo(mTriangles.apexBeyond(side));
        const float turnFromFirst = cross(first.mWay, corner.mWay);
        const float turnFromSecond = cross(second.mWay, corner.mWay);
        if (isClose(first, corner, turnFromFirst) || isClose(second, corner, turnFromSecond))
        {
            Cone cone{side, first, second, NONE};
            const Passage passage = goThrough(cone, *open, entry);
            if (passage == Passage::UNCLEAR)
                return false;
            open += passage == Passage::SPLIT ? 1 : 0;
            side = cone.mSide;
            first = cone.mFirst;
            second = cone.mSecond;
        }
        else if (turnFromFirst > 0.0f)
            side = passFirst(first, entry);
        else if (turnFromSecond < 0.0f)
            side = passSecond(second, entry);
        else
        {
            *open++ = {OutlineTriangles::previous(entry), corner, second, corner.mCorner};
            side = OutlineTriangles::next(entry);
            second = corner;
        }
    }
}

OutlineVisibility::Hiding OutlineVisibility::askSweep(Way way, const Line& bound, const Line& corner)
{
    if (dot(bound.mWay, corner.mWay) <= 0.0f)
        return Hiding::UNCLEAR;
    if (way == Way::FORWARD && corner.mCorner < mEye)
    {
        land(way, bound.mCorner); // hides nothing there, but must land
        return Hiding::NOT;
    }
    const int32 hider = mSweeps.findHider(way, mEye, bound.mCorner, corner.mCorner);
    const float turn = cross(bound.mWay, corner.mWay);
    const float behind = way == Way::FORWARD ? turn : -turn;
    // its ray must have slipped past an edge
    if (hider == bound.mCorner ? behind < 0.0f : hider == NONE && behind > mReach * bound.mSize)
        return Hiding::UNCLEAR;
    return hider == NONE ? Hiding::NOT : hider == bound.mCorner ? Hiding::BY_BOUND : Hiding::BY_OTHER;
}

/// Makes sure that the shadow of the first bound lands, where it goes on behind a side that is not looked through.
void OutlineVisibility::follow(Line bound, int32 entry)
{
    if (bound.mCorner < mEye || !mSweeps.casts(Way::FORWARD, mEye, bound.mCorner))
        return;
    while (entry != NONE)
    {
        const int32 nearer = OutlineTriangles::next(entry);
        const int32 farther = OutlineTriangles::previous(entry);
        const Line corner = lineTo(mTriangles.from(farther));
        const float turn = cross(bound.mWay, corner.mWay);
        if (isClose(bound, corner, turn))
            return land(Way::FORWARD, bound.mCorner);
        if (turn > 0.0f && mTriangles.from(nearer) == bound.mCorner)
            lookBehind(Way::FORWARD, bound, nearer);
        entry = mTriangles.beyond(turn > 0.0f ? farther : nearer);
    }
}

/// Casts the shadow of a bound where a corner lies close behind it, from one triangle at its corner to the next.
/// @param side  the first one to look through.
void OutlineVisibility::lookBehind(Way way, Line bound, int32 side)
{
    for (int32 entry = mTriangles.beyond(side); entry != NONE;)
    {
        const int32 nearer = OutlineTriangles::next(entry);
        const int32 farther = OutlineTriangles::previous(entry);
        const Line corner = lineTo(mTriangles.from(farther));
        const float turn = cross(bound.mWay, corner.mWay);
        const float ahead = dot(bound.mWay, corner.mWay - bound.mWay);
        if (ahead <= 0.0f || std::fabs(turn) > mSlope * ahead)
            return;
        if (isClose(bound, corner, turn))
            return land(way, bound.mCorner);
        entry = mTriangles.beyond(way == Way::FORWARD ? nearer : farther);
    }
}

void OutlineVisibility::land(Way way, int32 corner)
{
    if ((way == Way::BACKWARD || corner > mEye) && mSweeps.casts(way, mEye, corner))
        mSweeps.land(way, mEye, corner);
}
} // namespace KORV::NavMesh
