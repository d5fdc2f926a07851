#include "korv/navmesh/pieces/outlinetriangles.h"

#include "korv/navmesh/pieces/lanetriangle.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

// Ears are cut off in turns around the outline: an ear is a convex corner whose triangle no other corner lies in. Where
// one has been, the corner before often is the next one, so the search goes on there.
//
// Flat triangles make sight a matter of tolerances, so ears keep clear of other corners where they can. Where all that
// is left lies in a line there is no ear at all; then one is cut off that is one up to noise.
//
// Source: G. H. Meisters, "Polygons Have Ears", American Mathematical Monthly 82(6), 1975.

namespace KORV::NavMesh
{
namespace
{
/// Up to this many obstacles are all looked at; of more, those in boxes nearby.
constexpr size_t MAX_LISTED = 96;
/// Ears keep clear of other corners by as much noise.
constexpr float CLEARANCE = 4.0f;
/// After as many tries a corner the cutting is given up.
constexpr size_t MAX_TRIES = 64;
} // namespace

OutlineTriangles::OutlineTriangles(const Vector<Vec2<float>>& polygon, EdgeBoxes& boxes,
                                   Common::Memory::Allocator* allocator)
    : mPolygon(polygon), mBoxes(boxes), mSides(allocator), mSideAt(allocator), mLeft(allocator), mObstacles(allocator),
      mObstacleX(allocator), mObstacleY(allocator)
{
}

bool OutlineTriangles::build(float noise)
{
    begin();
    const size_t n = mPolygon.size();
    size_t numTries = 0;
    size_t numMisses = 0; // since the last cut
    float depth = -CLEARANCE * noise;
    int32 corner = 0;
    for (size_t numLeft = n; numLeft > 2;)
    {
        if (++numTries > MAX_TRIES * n)
            return false;
        if (isEar(corner, depth))
        {
            const int32 before = left(corner).mPrevious;
            cut(corner);
            corner = before;
            depth = std::min(depth, 0.0f);
            numMisses = 0;
            --numLeft;
            continue;
        }
        corner = left(corner).mNext;
        if (++numMisses < numLeft)
            continue;
        if (depth > 0.0f)
            return false;
        depth = depth < 0.0f ? 0.0f : noise; // for want of clear ears, all that there are
        forgetBlockers();
        numMisses = 0;
    }
    return true;
}

void OutlineTriangles::begin()
{
    const size_t n = mPolygon.size();
    mNumSides = 0;
    mSides.resize(std::max(mSides.size(), STRIDE * n));
    mSideAt.resize(std::max(mSideAt.size(), n));
    mLeft.resize(n);
    mObstacles.clear();
    Vec2<float> arriving = mPolygon[0] - mPolygon[n - 1];
    for (size_t at = 0; at < n; ++at)
    {
        const int32 corner = static_cast<int32>(at);
        const Vec2<float> leaving = mPolygon[at + 1 < n ? at + 1 : 0] - mPolygon[at];
        const bool isObstacle = cross(arriving, leaving) >= 0.0f;
        mLeft[at] = {corner - 1, corner + 1, NONE, isObstacle ? static_cast<int32>(mObstacles.size()) : NONE, NONE};
        if (isObstacle)
            mObstacles.push_back(corner);
        arriving = leaving;
    }
    mLeft[0].mPrevious = static_cast<int32>(n) - 1;
    mLeft[n - 1].mNext = 0;
    placeObstacles();
}

void OutlineTriangles::placeObstacles()
{
    const float nowhere = std::numeric_limits<float>::quiet_NaN();
    const size_t size =
        (mObstacles.size() + LaneTriangle::NUM_POINTS) / LaneTriangle::NUM_POINTS * LaneTriangle::NUM_POINTS;
    mObstacleX.assign(size, nowhere);
    mObstacleY.assign(size, nowhere);
    for (size_t at = 0; at < mObstacles.size(); ++at)
    {
        mObstacleX[at] = point(mObstacles[at]).mX;
        mObstacleY[at] = point(mObstacles[at]).mY;
    }
}

/// Twice the signed area of a corner of what is left and its neighbours; negative where it turns right.
float OutlineTriangles::turnAt(int32 corner) const
{
    const Vec2<float>& at = point(corner);
    return cross(at - point(left(corner).mPrevious), point(left(corner).mNext) - at);
}

/// @param depth  of another corner in the triangle, or of this one beyond the chord, from which on it is none.
bool OutlineTriangles::isEar(int32 corner, float depth)
{
    Corner& tip = mLeft[static_cast<size_t>(corner)];
    if (tip.mBlocker != NONE && isLeft(tip.mBlocker))
        return false;
    if (tip.mObstacle != NONE && depth <= 0.0f)
        return false;
    const Vec2<float> chord = point(tip.mNext) - point(tip.mPrevious);
    if (!(turnAt(corner) < depth * (std::fabs(chord.mX) + std::fabs(chord.mY))))
        return false;
    tip.mBlocker = findInside(tip.mPrevious, corner, tip.mNext, depth);
    return tip.mBlocker == NONE;
}

/// A corner in the triangle of three others; NONE for none.
int32 OutlineTriangles::findInside(int32 a, int32 b, int32 c, float depth)
{
    if (mObstacles.size() > MAX_LISTED)
        return mBoxes.findInside(a, b, c, depth);
    const LaneTriangle triangle(point(a), point(b), point(c), depth);
    for (size_t first = 0; first < mObstacles.size(); first += LaneTriangle::NUM_POINTS)
    {
        uint32 inside = triangle.findInside(mObstacleX.data() + first, mObstacleY.data() + first);
        for (; inside != 0; inside &= inside - 1)
        {
            const int32 corner = mObstacles[first + static_cast<size_t>(std::countr_zero(inside))];
            if (corner != a && corner != b && corner != c)
                return corner;
        }
    }
    return NONE;
}

void OutlineTriangles::forgetBlockers()
{
    for (Corner& corner : mLeft)
        corner.mBlocker = NONE;
}

/// Makes a triangle of a corner and those on both sides, which are neighbours from then on.
void OutlineTriangles::cut(int32 corner)
{
    const int32 before = left(corner).mPrevious;
    const int32 after = left(corner).mNext;
    const int32 side = mNumSides;
    mNumSides += STRIDE;
    Side* const sides = mSides.data() + side;
    sides[0] = {before, NONE, NONE};
    sides[1] = {corner, NONE, NONE};
    sides[2] = {after, NONE, NONE};
    join(side);
    join(side + 1);
    dropObstacle(corner);
    if (left(after).mNext == before) // all that was left
        return join(side + 2);
    mLeft[static_cast<size_t>(corner)].mNext = NONE;
    mLeft[static_cast<size_t>(before)].mNext = after;
    mLeft[static_cast<size_t>(before)].mCut = side + 2;
    mLeft[static_cast<size_t>(after)].mPrevious = before;
    for (const int32 neighbour : {before, after})
    {
        mLeft[static_cast<size_t>(neighbour)].mBlocker = NONE;
        if (turnAt(neighbour) < 0.0f)
            dropObstacle(neighbour);
    }
}

/// Joins a side of a new triangle to what lies beyond it, on the way from a corner of what is left to the next one.
void OutlineTriangles::join(int32 side)
{
    const int32 corner = from(side);
    const int32 beyond = left(corner).mCut;
    if (beyond == NONE)
    {
        mSideAt[static_cast<size_t>(corner)] = side;
        return;
    }
    Side& here = mSides[static_cast<size_t>(side)];
    Side& there = mSides[static_cast<size_t>(beyond)];
    here.mBeyond = beyond;
    here.mApexBeyond = from(previous(beyond));
    there.mBeyond = side;
    there.mApexBeyond = from(previous(side));
}

/// The last of the obstacles takes its place.
void OutlineTriangles::dropObstacle(int32 corner)
{
    const int32 place = left(corner).mObstacle;
    if (place == NONE)
        return;
    const size_t at = static_cast<size_t>(place);
    const size_t last = mObstacles.size() - 1;
    mLeft[static_cast<size_t>(mObstacles[last])].mObstacle = place;
    mLeft[static_cast<size_t>(corner)].mObstacle = NONE;
    mObstacles[at] = mObstacles[last];
    mObstacleX[at] = mObstacleX[last];
    mObstacleY[at] = mObstacleY[last];
    mObstacleX[last] = std::numeric_limits<float>::quiet_NaN();
    mObstacles.pop_back();
}
} // namespace KORV::NavMesh
