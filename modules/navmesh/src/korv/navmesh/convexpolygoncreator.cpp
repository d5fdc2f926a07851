#include "korv/navmesh/convexpolygoncreator.h"

#include "korv/common/debug/assert.h"
#include "korv/common/geom/geomutility.h"
#include "korv/navmesh/pieces/flatpieces.h"
#include "korv/navmesh/pieces/trianglerescue.h"

#include <algorithm>
#include <cmath>

// Splits one outline into convex nodes.
//
// The outline is projected into the ground plane and drawn in by a quarter of a cube. All decisions are made on that,
// while the nodes use the corners themselves: so parts that only touch, such as the two halves of a bridge, come apart.
// The inset works in place, each corner beside one that has moved already. That bends straight lines a little, on some
// outlines by more than the solver tolerates; and its tolerances are absolute, so that they fail for small cubes and
// far from the origin. An outline without a solution is therefore tried again with an inset from the unmoved corners,
// in cubes from its first corner, and at last cut into triangles in exact arithmetic.

namespace KORV::NavMesh
{
namespace
{
/// Twice the area of a corner's triangle from which on it counts as reflex: nearly straight ones do.
constexpr float REFLEX_AREA = -0.0001f;
/// The inset moves a corner by a quarter of a cube against two neighbours that move as far; then the corner test of the
/// solver, whose tolerance grows with the length. [cubes]
constexpr double MAX_DENT = 0.75;
constexpr double MAX_DENT_PER_LENGTH = 1e-3;
/// A corner of a piece that is reflex on the drawn-in outline by more than both, as sine and as depth in insets, is one
/// that the solver took for want of another: its tolerance is a hundredth of that sine.
constexpr double MAX_WRONG_TURN = 0.01;
constexpr double MAX_WRONG_DEPTH = 0.5;
/// Rounding of an area of nothing. [squared cubes, twice]
constexpr double MIN_AREA = 0.01;

float area2(const Vec2<float>& a, const Vec2<float>& b, const Vec2<float>& c)
{
    return a.mX * (b.mY - c.mY) + b.mX * (c.mY - a.mY) + c.mX * (a.mY - b.mY);
}

/// How far the refined rules draw sides in: parts that only touch come apart, and nothing else changes. [cubes]
constexpr float REFINED_INSET = 1.0f / 64.0f;
/// At a sharp corner its way in is no longer than this many insets.
constexpr float MAX_MITRE = 4.0f;
/// A corner may miss the grid of half cubes by this, from rounding far from the origin. [cubes]
constexpr float GRID_TOLERANCE = 0.02f;
/// Added and taken away again it rounds a float to an integer, up to 2^22 in size: a call would take longer.
constexpr float ROUNDER = 12582912.0f;
/// A refined piece may have a dent of this (as sine), from the solver's tolerance.
constexpr double REFINED_DENT = 2e-4;
/// A piece of less height on the average has no area. [cubes]
constexpr double FLATNESS = 1e-3;

/// The way into the interior from a corner of an outline.
Vec2<float> inward(const Vec2<float>& before, const Vec2<float>& at, const Vec2<float>& after)
{
    const Vec2<float> sum = normalised(at - before) + normalised(after - at);
    return normalised(Vec2<float>(sum.mY, -sum.mX));
}

/// Differences and products of floats lose nothing that matters here.
Vec2<double> exactPlace(const Vec2<float>& point)
{
    return {static_cast<double>(point.mX), static_cast<double>(point.mY)};
}

/// Whether a test holds for every three corners in a row of a piece, beginning with its first ones.
template <class Test>
bool holdsAllAround(const Vector<Vec2<float>>& points, const int32* corners, size_t size, const Test& test)
{
    const auto following = [size](size_t at) { return at + 1 < size ? at + 1 : 0; };
    const auto place = [&points, corners](size_t at) { return exactPlace(points[static_cast<size_t>(corners[at])]); };
    size_t ahead = following(following(0));
    Vec2<double> here = place(0);
    Vec2<double> next = place(following(0));
    for (size_t at = 0; at < size; ++at)
    {
        const Vec2<double> afterNext = place(ahead);
        if (!test(here, next, afterNext))
            return false;
        here = next;
        next = afterNext;
        ahead = following(ahead);
    }
    return true;
}
} // namespace

ConvexPolygonCreator::ConvexPolygonCreator(float shrinkDistance, Rules rules)
    : mPolygon(getMemory()), mSolver(mPolygon, getMemory()), mBatch(getMemory()), mDrawnIn(getMemory()),
      mOutlines(getMemory()), mShrinkDistance(shrinkDistance), mRules(rules)
{
}

ConvexPolygonCreator::~ConvexPolygonCreator() = default;

void ConvexPolygonCreator::createConvexPolygons(Common::Threading::SpinLock& lock, NavMeshContainer& container,
                                                const SurfacePolygon& polygon, const Vec3<float>& axis)
{
    ConvexPieces pieces(getMemory());
    const std::atomic<bool> never{false};
    decompose(pieces, polygon, axis, never);
    const Common::Threading::ScopedLock guard(lock);
    pieces.appendTo(container, polygon);
}

ConvexPolygonCreator::Rescue ConvexPolygonCreator::decompose(ConvexPieces& pieces, const SurfacePolygon& polygon,
                                                             const Vec3<float>& axis, const std::atomic<bool>& stop)
{
    begin(Vector<const SurfacePolygon*>(1, &polygon, getMemory()), axis);
    return decomposeNext(pieces, stop);
}

void ConvexPolygonCreator::begin(const Vector<const SurfacePolygon*>& polygons, const Vec3<float>& axis)
{
    mBatch.assign(polygons.begin(), polygons.end());
    mAxis = axis;
    mNext = 0;
    if (mRules == Rules::SPECIFIED)
        drawIn();
}

ConvexPolygonCreator::Rescue ConvexPolygonCreator::decomposeNext(ConvexPieces& pieces, const std::atomic<bool>& stop)
{
    pieces.clear();
    clear();
    const SurfacePolygon& polygon = *mBatch[mNext];
    mN = static_cast<int32>(polygon.mPoints.size());
    Rescue rescue = Rescue::EMPTY;
    if (KORV_ASSERT(mN >= 3, "mN >= 3", "mPolygon cannot have less than 3 nodes"))
        rescue = mRules == Rules::REFINED ? decomposeRefined(pieces, polygon, mAxis, stop)
                                          : decomposeAsSpecified(pieces, polygon, mAxis, stop);
    clear();
    ++mNext;
    return pieces.size() > 0 ? rescue : Rescue::EMPTY;
}

/// Moves all outlines of the batch into their plane, and draws them in.
void ConvexPolygonCreator::drawIn()
{
    size_t numCorners = 0;
    for (const SurfacePolygon* polygon : mBatch)
        numCorners += polygon->mPoints.size();
    mDrawnIn.resize(numCorners);
    mOutlines.clear();
    Vec2<float>* place = mDrawnIn.data();
    for (const SurfacePolygon* polygon : mBatch)
    {
        project(place, polygon->mPoints);
        mOutlines.push_back({place, polygon->mPoints.size()});
        place += polygon->mPoints.size();
    }
    insetInPlace(mOutlines, mShrinkDistance);
}

/// Takes the next outline of the batch as it has been drawn in; one alone may be large and is not copied.
void ConvexPolygonCreator::takeDrawnIn()
{
    if (mBatch.size() == 1)
        return mPolygon.mPoints.swap(mDrawnIn);
    const CornerRange& outline = mOutlines[mNext];
    mPolygon.mPoints.assign(outline.mBegin, outline.mBegin + outline.mSize);
}

ConvexPolygonCreator::Rescue ConvexPolygonCreator::decomposeAsSpecified(ConvexPieces& pieces,
                                                                        const SurfacePolygon& polygon,
                                                                        const Vec3<float>& axis,
                                                                        const std::atomic<bool>& stop)
{
    takeDrawnIn();
    if (solve(pieces, stop) && arePiecesSound(pieces, polygon.mPoints, axis, mShrinkDistance))
        return Rescue::NONE;
    projectInCubes(polygon.mPoints, axis);
    const float inset = mShrinkDistance * cubeScale();
    insetFromUnmoved(inset);
    if (solve(pieces, stop) && arePiecesSound(pieces, polygon.mPoints, axis, inset))
        return Rescue::INSET;
    cutTriangles(pieces, polygon, axis, stop);
    return Rescue::TRIANGLES;
}

/// In cubes from the first corner: what sees what is decided on an outline whose sides have all moved in by the same
/// small distance, so that straight lines stay straight; turns and lengths are those of the unmoved one.
ConvexPolygonCreator::Rescue ConvexPolygonCreator::decomposeRefined(ConvexPieces& pieces, const SurfacePolygon& polygon,
                                                                    const Vec3<float>& axis,
                                                                    const std::atomic<bool>& stop)
{
    Rescue rescue = Rescue::NONE;
    projectInCubes(polygon.mPoints, axis);
    snapToHalfCubes();
    mPolygon.mUnmoved.assign(mPolygon.mPoints.begin(), mPolygon.mPoints.end());
    insetSides(REFINED_INSET);
    mPolygon.mClosed = true;
    if (!solve(pieces, stop) || !areAllConvex(pieces))
    {
        rescue = Rescue::TRIANGLES;
        cutTriangles(pieces, polygon, axis, stop);
    }
    mergeFlatPieces(pieces, mPolygon.mUnmoved, FLATNESS);
    return rescue;
}

void ConvexPolygonCreator::cutTriangles(ConvexPieces& pieces, const SurfacePolygon& polygon, const Vec3<float>& axis,
                                        const std::atomic<bool>& stop)
{
    projectInCubes(polygon.mPoints, axis);
    TriangleRescue(getMemory()).decompose(pieces, mPolygon.mPoints, stop);
}

void ConvexPolygonCreator::clear()
{
    mN = 0;
    mPolygon.mPoints.clear();
    mPolygon.mUnmoved.clear();
    mPolygon.mReflex.clear();
    mPolygon.mClosed = false;
}

void ConvexPolygonCreator::project(Vec2<float>* corners, const Vector<Vec3<float>>& points) const
{
    Vec3<float> u;
    Vec3<float> v;
    Common::Geom::computePlaneBasis(u, v, mAxis);
    std::transform(points.begin(), points.end(), corners,
                   [&](const Vec3<float>& point) { return Vec2<float>(dot(u, point), dot(v, point)); });
}

/// Relative to the first corner, where floats are densest, and in cubes, so that absolute tolerances become relative.
void ConvexPolygonCreator::projectInCubes(const Vector<Vec3<float>>& points, const Vec3<float>& axis)
{
    Vec3<float> u;
    Vec3<float> v;
    Common::Geom::computePlaneBasis(u, v, axis);
    const Vec3<float> first = points[0];
    const float scale = cubeScale();
    mPolygon.mPoints.resize(points.size());
    std::transform(points.begin(), points.end(), mPolygon.mPoints.begin(),
                   [&](const Vec3<float>& point)
                   {
                       const Vec3<float> relative = (point - first) * scale;
                       return Vec2<float>(dot(u, relative), dot(v, relative));
                   });
}

void ConvexPolygonCreator::insetFromUnmoved(float distance)
{
    Vector<Vec2<float>>& points = mPolygon.mPoints;
    const Vector<Vec2<float>> unmoved(points, getMemory());
    const size_t n = points.size();
    for (size_t i = 0; i < n; ++i)
    {
        const Vec2<float>& before = unmoved[i > 0 ? i - 1 : n - 1];
        const Vec2<float>& after = unmoved[i + 1 < n ? i + 1 : 0];
        points[i] = points[i] + inward(before, unmoved[i], after) * distance;
    }
}

/// Puts an outline that was made of voxels onto their grid, where its straight lines are straight exactly.
void ConvexPolygonCreator::snapToHalfCubes()
{
    Vector<Vec2<float>>& points = mPolygon.mPoints;
    const auto snapped = [](float x) { return (2.0f * x + ROUNDER - ROUNDER) * 0.5f; };
    const bool onGrid = std::all_of(points.begin(), points.end(),
                                    [&](const Vec2<float>& point)
                                    {
                                        return std::fabs(point.mX - snapped(point.mX)) < GRID_TOLERANCE &&
                                               std::fabs(point.mY - snapped(point.mY)) < GRID_TOLERANCE;
                                    });
    if (!onGrid)
        return;
    for (Vec2<float>& point : points)
        point = {snapped(point.mX), snapped(point.mY)};
}

/// Moves every side in by a distance, and each corner to where its sides meet then.
void ConvexPolygonCreator::insetSides(float distance)
{
    Vector<Vec2<float>>& points = mPolygon.mPoints;
    const Vector<Vec2<float>>& unmoved = mPolygon.mUnmoved;
    const size_t n = points.size();
    Vec2<float> arriving = normalised(unmoved[0] - unmoved[n - 1]);
    for (size_t i = 0; i < n; ++i)
    {
        const Vec2<float> leaving = normalised(unmoved[i + 1 < n ? i + 1 : 0] - unmoved[i]);
        const Vec2<float> sum = arriving + leaving;
        const float share = std::max(1.0f + dot(arriving, leaving), 1.0f / MAX_MITRE);
        points[i] = unmoved[i] + Vec2<float>(sum.mY, -sum.mX) * (distance / share);
        arriving = leaving;
    }
}

/// Whether pieces are convex in the outline itself, and have no negative area.
bool ConvexPolygonCreator::areAllConvex(const ConvexPieces& pieces) const
{
    for (size_t piece = 0; piece < pieces.size(); ++piece)
    {
        const size_t begin = pieces.begin(piece);
        if (!isConvex(pieces.mCorners.data() + begin, pieces.end(piece) - begin))
            return false;
    }
    return true;
}

bool ConvexPolygonCreator::isConvex(const int32* corners, size_t size) const
{
    const Vec2<double> first = exactPlace(mPolygon.mUnmoved[static_cast<size_t>(corners[0])]);
    double area = 0.0;
    const auto turnsRight = [&](const Vec2<double>& here, const Vec2<double>& next, const Vec2<double>& afterNext)
    {
        const Vec2<double> arriving = next - here;
        const Vec2<double> leaving = afterNext - next;
        const double turn = cross(arriving, leaving);
        area += cross(here - first, next - first);
        return !(turn < 0.0) || !(turn < -REFINED_DENT * arriving.getLength() * leaving.getLength());
    };
    return holdsAllAround(mPolygon.mUnmoved, corners, size, turnsRight) && area >= -MIN_AREA;
}

void ConvexPolygonCreator::markReflexCorners()
{
    const Vector<Vec2<float>>& points = mPolygon.mPoints;
    const size_t n = points.size();
    mPolygon.mReflex.resize(n);
    mHasReflex = false;
    mFinite = true;
    Vec2<float> before = points[n - 1];
    for (size_t i = 0; i < n; ++i)
    {
        const float area = area2(before, points[i], points[i + 1 < n ? i + 1 : 0]);
        const bool reflex = area >= REFLEX_AREA;
        mPolygon.mReflex[i] = reflex ? 1 : 0;
        mHasReflex = mHasReflex || reflex;
        mFinite = mFinite && std::isfinite(area);
        before = points[i];
    }
}

/// Whether pieces that were found on the drawn-in outline are convex there, and also in the outline itself, up to the
/// dents that the inset can cause. They are not where tolerances are of the order of a cube: even a single piece can
/// have a reflex corner then.
/// @param inset  by which the outline has been drawn in.
bool ConvexPolygonCreator::arePiecesSound(const ConvexPieces& pieces, const Vector<Vec3<float>>& points,
                                          const Vec3<float>& axis, float inset)
{
    for (size_t piece = 0; piece < pieces.size(); ++piece)
    {
        const size_t begin = pieces.begin(piece);
        if (!turnsOneWay(pieces.mCorners.data() + begin, pieces.end(piece) - begin, MAX_WRONG_DEPTH * inset))
            return false;
    }
    projectInCubes(points, axis);
    for (size_t piece = 0; piece < pieces.size(); ++piece)
    {
        if (!isPieceSound(pieces.mCorners.data() + pieces.begin(piece), pieces.end(piece) - pieces.begin(piece)))
            return false;
    }
    return true;
}

bool ConvexPolygonCreator::turnsOneWay(const int32* corners, size_t size, double maxDepth) const
{
    const auto turnsRight =
        [maxDepth](const Vec2<double>& here, const Vec2<double>& next, const Vec2<double>& afterNext)
    {
        const Vec2<double> arriving = next - here;
        const Vec2<double> leaving = afterNext - next;
        const double wrongTurn = -cross(arriving, leaving);
        // the first of these decides almost always, and needs no lengths
        return !(wrongTurn > 0.0) || !(wrongTurn > MAX_WRONG_TURN * arriving.getLength() * leaving.getLength()) ||
               !(wrongTurn > maxDepth * (afterNext - here).getLength());
    };
    return holdsAllAround(mPolygon.mPoints, corners, size, turnsRight);
}

bool ConvexPolygonCreator::isPieceSound(const int32* corners, size_t size) const
{
    const Vec2<double> first = exactPlace(mPolygon[corners[0]]);
    double area = 0.0;
    bool dented = false;
    const auto isInBounds = [&](const Vec2<double>& here, const Vec2<double>& next, const Vec2<double>& afterNext)
    {
        area += cross(here - first, next - first);
        const Vec2<double> across = afterNext - here;
        const double turn = cross(next - here, across);
        if (!(turn < 0.0))
            return true;
        const double length = across.getLength();
        dented = dented || turn < -length * MAX_DENT_PER_LENGTH;
        return !(turn < -length * (MAX_DENT + MAX_DENT_PER_LENGTH * length));
    };
    return holdsAllAround(mPolygon.mPoints, corners, size, isInBounds) && area >= -MIN_AREA &&
           !(dented && crossesItself(corners, size));
}

/// Two sides of a piece that cross: a dent that reaches the other side. Few pieces are looked at so closely.
bool ConvexPolygonCreator::crossesItself(const int32* corners, size_t size) const
{
    const auto apart = [this](int32 a, int32 b, int32 c, int32 d) { // c and d are not on different sides of a, b
        return cross(exactSide(a, b), exactSide(a, c)) * cross(exactSide(a, b), exactSide(a, d)) >= 0.0;
    };
    for (size_t first = 0; first < size; ++first)
    {
        const int32 a = corners[first];
        const int32 b = corners[(first + 1) % size];
        for (size_t second = first + 2; second < size; ++second)
        {
            const int32 c = corners[second];
            const int32 d = corners[(second + 1) % size];
            if (!apart(a, b, c, d) && !apart(c, d, a, b))
                return true;
        }
    }
    return false;
}

Vec2<double> ConvexPolygonCreator::exactSide(int32 from, int32 to) const
{
    return exactPlace(mPolygon[to]) - exactPlace(mPolygon[from]);
}

/// @return false when the outline has no decomposition, or the work was stopped.
bool ConvexPolygonCreator::solve(ConvexPieces& pieces, const std::atomic<bool>& stop)
{
    pieces.clear();
    markReflexCorners();
    if (!mFinite)
        return false;
    if (mHasReflex)
    {
        if (mSolver.solve(stop) != ChordSolver::Result::SOLVED)
            return false;
        mSolver.extract(pieces);
        return true;
    }
    // no corner hides another: the outline is one piece
    pieces.mStart.push_back(0);
    pieces.mCorners.reserve(static_cast<size_t>(mN));
    for (int32 corner = mN - 1; corner >= 0; --corner)
        pieces.mCorners.push_back(corner);
    pieces.mNeighbours.assign(static_cast<size_t>(mN), -1);
    return true;
}
} // namespace KORV::NavMesh
