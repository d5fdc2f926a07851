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
/// Tolerances above this share of the shortest edge leave nothing clear.
constexpr float SMALL = 0.5f;
/// Triangles may lap over each other by this share of the tolerances.
constexpr float NOISE = 0.25f;

/// How far the edges of a corner are met beyond it, but for END_ROOM: as far as they are long; at a convex corner only
/// next to the other edge, which is met as well.
float endReach(const Vec2<float>& arriving, const Vec2<float>& leaving, bool reflex)
{
    const float longer = std::max(arriving.getLength(), leaving.getLength());
    if (reflex)
        return longer;
    const float bend = dot(arriving, leaving) > 0.0f ? -cross(normalised(arriving), normalised(leaving)) : 1.0f;
    return bend * longer > 1.0f ? 1.0f / bend : longer;
}
} // namespace

OutlineVisibility::OutlineVisibility(const Vector<Vec2<float>>& polygon, const Vector<uint8>& reflex,
                                     Common::Memory::Allocator* allocator)
    : mPolygon(polygon), mReflex(reflex), mBoxes(polygon, allocator), mSweeps(polygon, reflex, mBoxes, allocator),
      mTriangles(polygon, mBoxes, allocator), mOpen(allocator)
{
}

void OutlineVisibility::build()
{
    mN = static_cast<int32>(mPolygon.size());
    mBoxes.build();
    mCut = mBoxes.isBounded() && measure() && mTriangles.build(NOISE * mReach);
    mSweeps.build(mReach);
}

/// @return false when tolerances are not small against the edges.
bool OutlineVisibility::measure()
{
    float shortest = std::numeric_limits<float>::max();
    float farthest = 0.0f;
    Vec2<float> low = mPolygon[0];
    Vec2<float> high = mPolygon[0];
    Vec2<float> arriving = mPolygon[0] - mPolygon.back();
    for (size_t k = 0; k < mPolygon.size(); ++k)
    {
        const Vec2<float> leaving = mPolygon[k + 1 < mPolygon.size() ? k + 1 : 0] - mPolygon[k];
        shortest = std::min(shortest, leaving.getLength());
        farthest = std::max(farthest, endReach(arriving, leaving, mReflex[k] != 0));
        low = {std::min(low.mX, mPolygon[k].mX), std::min(low.mY, mPolygon[k].mY)};
        high = {std::max(high.mX, mPolygon[k].mX), std::max(high.mY, mPolygon[k].mY)};
        arriving = leaving;
    }
    mReach = SIDE_ROOM + END_ROOM * farthest + ROUNDING * (high.mX - low.mX + high.mY - low.mY);
    mSlope = 2.0f * mReach / shortest;
    return TURN_ROOM / shortest + mReach < SMALL * shortest; // false for what is not a number, too
}

void OutlineVisibility::appendVisible(Vector<int32>& visible, int32 corner)
{
    mEye = corner;
    mSweeps.trust();
    const size_t start = visible.size();
    if (mCut && look(visible) && !mSweeps.isDoubtful())
        return;
    visible.resize(start);
    mSweeps.appendVisible(visible, corner);
}

/// Looks through all triangles of the eye, from one to the next. @return false where tolerances may decide otherwise.
bool OutlineVisibility::look(Vector<int32>& visible)
{
    int32 side = mTriangles.sideAt(mEye);
    Line first = lineTo(mTriangles.from(OutlineTriangles::next(side)));
    visible.push_back(first.mCorner);
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
            if (!lookThrough({far, first, second, NONE}, visible))
                return false;
            if (second.mCorner > mEye)
                visible.push_back(second.mCorner);
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

/// Whether a bound of a cone hides the corner behind its side: the first one as a forward sweep would have it, the
/// second one as a backward sweep.
template <OutlineSweeps::Way WAY>
inline OutlineVisibility::Hiding OutlineVisibility::findHiding(const Line& bound, const Line& corner)
{
    const float turn = cross(bound.mWay, corner.mWay);
    if (isClose(bound, corner, turn))
        return askSweep(WAY, bound, corner);
    return (WAY == Way::FORWARD ? turn > 0.0f : turn < 0.0f) ? Hiding::BY_BOUND : Hiding::NOT;
}

/// Goes on to the earlier of the two sides behind that of a cone, or the only one in sight. @return false when unclear.
inline bool OutlineVisibility::goThrough(Cone& cone, int32 entry)
{
    const int32 nearer = OutlineTriangles::next(entry);
    const int32 farther = OutlineTriangles::next(nearer);
    Line corner = lineTo(mTriangles.from(farther));
    const Hiding first = findHiding<Way::FORWARD>(cone.mFirst, corner);
    if (first == Hiding::BY_BOUND)
    {
        if (mTriangles.from(nearer) == cone.mFirst.mCorner)
            lookBehind(Way::FORWARD, cone.mFirst, nearer);
        cone.mSide = farther;
        return true;
    }
    const Hiding second = findHiding<Way::BACKWARD>(cone.mSecond, corner);
    cone.mSide = nearer;
    if (second == Hiding::BY_BOUND)
    {
        if (mTriangles.from(entry) == cone.mSecond.mCorner)
            lookBehind(Way::BACKWARD, cone.mSecond, farther);
        return first != Hiding::UNCLEAR;
    }
    if (first == Hiding::NOT && second == Hiding::NOT)
        mOpen.push_back({farther, corner, cone.mSecond, corner.mCorner > mEye ? corner.mCorner : NONE});
    else
    {
        mOpen.push_back({farther, cone.mFirst, cone.mSecond, NONE});
        corner.mCorner = cone.mSecond.mCorner; // sweeps begin at one that is seen
    }
    cone.mSecond = corner;
    return first != Hiding::UNCLEAR && second != Hiding::UNCLEAR;
}

bool OutlineVisibility::lookThrough(Cone cone, Vector<int32>& visible)
{
    mOpen.clear();
    while (true)
    {
        const int32 entry = mTriangles.beyond(cone.mSide);
        if (entry != NONE && isWantedBehind(mTriangles.from(cone.mSide)))
        {
            if (!goThrough(cone, entry))
                return false;
            continue;
        }
        if (entry != NONE)
            follow(cone.mFirst, entry);
        if (mOpen.empty())
            return true;
        cone = mOpen.back();
        mOpen.pop_back();
        if (cone.mShown != NONE)
            visible.push_back(cone.mShown);
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
void OutlineVisibility::follow(const Line& bound, int32 entry)
{
    if (bound.mCorner < mEye || !mSweeps.casts(Way::FORWARD, mEye, bound.mCorner))
        return;
    while (entry != NONE)
    {
        const int32 nearer = OutlineTriangles::next(entry);
        const int32 farther = OutlineTriangles::next(nearer);
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
void OutlineVisibility::lookBehind(Way way, const Line& bound, int32 side)
{
    for (int32 entry = mTriangles.beyond(side); entry != NONE;)
    {
        const int32 nearer = OutlineTriangles::next(entry);
        const int32 farther = OutlineTriangles::next(nearer);
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
