#include "korv/navmesh/pieces/outlinetriangles.h"

#include "korv/navmesh/pieces/lanetriangle.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

// Ears are cut off in turns around the outline: an ear is a convex corner whose triangle no other corner lies in. A
// turn leaves out the corner behind each ear, so that triangles stay compact. Where ears are few, as in a spiral, each
// comes up beside the one before, and the search goes on there.
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
/// After as many tries a corner, ears are few.
constexpr size_t PATIENCE = 8;
/// After as many the cutting is given up.
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
            cut(corner);
            corner = numTries < PATIENCE * n ? left(left(corner).mNext).mNext : left(corner).mPrevious;
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
        numMisses = 0;
    }
    return true;
}

void OutlineTriangles::begin()
{
    const int32 n = static_cast<int32>(mPolygon.size());
    mSides.clear();
    mSides.reserve(STRIDE * mPolygon.size());
    mSideAt.assign(mPolygon.size(), NONE);
    mLeft.clear();
    for (int32 corner = 0; corner < n; ++corner)
        mLeft.push_back({corner > 0 ? corner - 1 : n - 1, corner + 1 < n ? corner + 1 : 0, NONE, NONE});
    mObstacles.clear();
    for (int32 corner = 0; corner < n; ++corner)
    {
        if (turnAt(corner) >= 0.0f)
        {
            mLeft[static_cast<size_t>(corner)].mObstacle = static_cast<int32>(mObstacles.size());
            mObstacles.push_back(corner);
        }
    }
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
    const int32 before = left(corner).mPrevious;
    const int32 after = left(corner).mNext;
    const Vec2<float> chord = point(after) - point(before);
    return turnAt(corner) < depth * (std::fabs(chord.mX) + std::fabs(chord.mY)) &&
           isEmpty(before, corner, after, depth);
}

bool OutlineTriangles::isEmpty(int32 a, int32 b, int32 c, float depth)
{
    if (mObstacles.size() > MAX_LISTED)
        return mBoxes.isEmpty(a, b, c, depth);
    const LaneTriangle triangle(point(a), point(b), point(c), depth);
    for (size_t first = 0; first < mObstacles.size(); first += LaneTriangle::NUM_POINTS)
    {
        uint32 inside = triangle.findInside(mObstacleX.data() + first, mObstacleY.data() + first);
        for (; inside != 0; inside &= inside - 1)
        {
            const int32 corner = mObstacles[first + static_cast<size_t>(std::countr_zero(inside))];
            if (corner != a && corner != b && corner != c)
                return false;
        }
    }
    return true;
}

/// Makes a triangle of a corner and those on both sides, which are neighbours from then on.
void OutlineTriangles::cut(int32 corner)
{
    const int32 before = left(corner).mPrevious;
    const int32 after = left(corner).mNext;
    const int32 side = static_cast<int32>(mSides.size());
    for (const int32 from : {before, corner, after, NONE}) // four places, see STRIDE
        mSides.push_back({from, NONE});
    join(side);
    join(side + 1);
    dropObstacle(corner);
    if (left(after).mNext == before) // all that was left
        return join(side + 2);
    mLeft[static_cast<size_t>(before)].mNext = after;
    mLeft[static_cast<size_t>(before)].mCut = side + 2;
    mLeft[static_cast<size_t>(after)].mPrevious = before;
    for (const int32 neighbour : {before, after})
    {
        if (turnAt(neighbour) < 0.0f)
            dropObstacle(neighbour);
    }
}

/// Joins a side of a new triangle to what lies beyond it, on the way from a corner of what is left to the next one.
void OutlineTriangles::join(int32 side)
{
    const int32 corner = from(side);
    const int32 beyond = left(corner).mCut;
    mSides[static_cast<size_t>(side)].mBeyond = beyond;
    if (beyond == NONE)
        mSideAt[static_cast<size_t>(corner)] = side;
    else
        mSides[static_cast<size_t>(beyond)].mBeyond = side;
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
