// Cuts one outline into convex nodes.
//
// The outline is projected into the ground plane and drawn in by a quarter of a cube; all decisions are made on that, the
// nodes use the corners themselves. Drawing in works in place, each corner beside one that has moved already. That bends
// straight lines a little, on some outlines by more than the solver's tolerances allow, and these tolerances are absolute,
// so they fail for small cubes and far from the origin. An outline that can't be cut is therefore tried again, drawn in
// from the unmoved corners and measured in cubes from its first corner, and at last cut into triangles in exact
// arithmetic. Nothing is lost and nothing covered twice on any of these ways.

#include "korv/navmesh/convexpolygoncreator.h"

#include "korv/common/debug/assert.h"
#include "korv/common/geom/geomutility.h"
#include "korv/navmesh/trianglerescue.h"

namespace KORV::NavMesh
{
namespace
{
/// Twice the area of a corner's triangle from which on the corner counts as reflex.
constexpr float REFLEX_AREA = -0.0001f;
/// The outline is drawn in by this share of a cube.
constexpr float SHRINK_SHARE = 0.25f;

/// Never abandons.
class PatientWatch : public WorkWatch
{
public:
    bool keepGoing() override { return true; }
};

float area2(const Vec2<float>& a, const Vec2<float>& b, const Vec2<float>& c)
{
    return a.mX * (b.mY - c.mY) + b.mX * (c.mY - a.mY) + c.mX * (a.mY - b.mY);
}
} // namespace

ConvexPolygonCreator::ConvexPolygonCreator(float shrinkDistance)
    : mPolygon(getMemory()), mReflex(getMemory()), mShrinkDistance(shrinkDistance)
{
}

ConvexPolygonCreator::~ConvexPolygonCreator() = default;

void ConvexPolygonCreator::createConvexPolygons(Common::Threading::SpinLock& lock, NavMeshContainer& container,
                                                const SurfacePolygon& polygon, const Vec3<float>& axis)
{
    PieceList pieces(getMemory());
    PatientWatch watch;
    if (decompose(pieces, polygon, axis, watch) == Rescue::EMPTY)
        return;
    const Common::Threading::ScopedLock guard(lock);
    pieces.appendTo(container, polygon);
}

ConvexPolygonCreator::Rescue ConvexPolygonCreator::decompose(PieceList& pieces, const SurfacePolygon& polygon,
                                                             const Vec3<float>& axis, WorkWatch& watch)
{
    pieces.clear();
    mN = static_cast<int32>(polygon.mPoints.size());
    if (!KORV_ASSERT(mN >= 3, "mN >= 3", "mPolygon cannot have less than 3 nodes"))
        return Rescue::EMPTY;

    project(polygon.mPoints, axis, Vec3<float>(), 1.0f);
    insetInPlace();
    Rescue rescue = Rescue::NONE;
    if (!cut(pieces, watch) && watch.keepGoing())
    {
        rescue = Rescue::INSET;
        project(polygon.mPoints, axis, polygon.mPoints[0], SHRINK_SHARE / mShrinkDistance);
        insetFromUnmoved(SHRINK_SHARE);
        if (!cut(pieces, watch) && watch.keepGoing())
        {
            project(polygon.mPoints, axis, polygon.mPoints[0], SHRINK_SHARE / mShrinkDistance);
            cutIntoTriangles(pieces, mPolygon, getMemory());
            rescue = pieces.size() > 0 ? Rescue::TRIANGLES : Rescue::EMPTY;
        }
    }
    clear();
    return rescue;
}

/// Ground-plane positions relative to an origin, scaled.
void ConvexPolygonCreator::project(const Vector<Vec3<float>>& points, const Vec3<float>& axis, const Vec3<float>& origin,
                                   float scale)
{
    Vec3<float> u;
    Vec3<float> v;
    Common::Geom::computePlaneBasis(u, v, axis);
    mPolygon.clear();
    mPolygon.reserve(points.size());
    for (const Vec3<float>& point : points)
        mPolygon.push_back({dot(u, point - origin) * scale, dot(v, point - origin) * scale});
}

Vec2<float> ConvexPolygonCreator::getInward(const Vec2<float>& before, const Vec2<float>& at,
                                            const Vec2<float>& after) const
{
    const Vec2<float> sum = normalised(at - before) + normalised(after - at);
    return normalised(Vec2<float>(sum.mY, -sum.mX));
}

void ConvexPolygonCreator::insetInPlace()
{
    const auto n = static_cast<size_t>(mN);
    for (size_t i = 0; i < n; ++i) // in place: the corner before has moved already, and later results depend on it
        mPolygon[i] = mPolygon[i] +
                      getInward(mPolygon[(i + n - 1) % n], mPolygon[i], mPolygon[(i + 1) % n]) * mShrinkDistance;
}

void ConvexPolygonCreator::insetFromUnmoved(float distance)
{
    const auto n = static_cast<size_t>(mN);
    const Vector<Vec2<float>> unmoved(mPolygon);
    for (size_t i = 0; i < n; ++i)
        mPolygon[i] = mPolygon[i] + getInward(unmoved[(i + n - 1) % n], unmoved[i], unmoved[(i + 1) % n]) * distance;
}

/// @return whether there is any.
bool ConvexPolygonCreator::markReflexCorners()
{
    const auto n = static_cast<size_t>(mN);
    mReflex.assign(n, 0);
    bool any = false;
    for (size_t i = 0; i < n; ++i)
    {
        if (!(area2(mPolygon[(i + n - 1) % n], mPolygon[i], mPolygon[(i + 1) % n]) >= REFLEX_AREA))
            continue;
        mReflex[i] = 1;
        any = true;
    }
    return any;
}

/// @return whether there is a cut.
bool ConvexPolygonCreator::cut(PieceList& pieces, WorkWatch& watch)
{
    pieces.clear();
    if (!markReflexCorners())
    {
        // No corner hides another: the outline is one piece.
        for (int32 corner = mN - 1; corner >= 0; --corner)
            pieces.mCorners.push_back(corner);
        pieces.mNeighbours.assign(static_cast<size_t>(mN), -1);
        pieces.mEnds.push_back(static_cast<uint32>(mN));
        return true;
    }
    ChordSolver solver(mPolygon, mReflex, getMemory());
    if (solver.solve(watch) < ChordSolver::NO_CUT && collectPieces(pieces, solver))
        return true;
    pieces.clear();
    return false;
}

/// Writes the pieces down, breadth first from the one at the closing edge.
bool ConvexPolygonCreator::collectPieces(PieceList& pieces, ChordSolver& solver) const
{
    struct Pending
    {
        int32 mFirst;
        int32 mLast;
        int32 mParent;
    };
    Vector<Pending> queue(getMemory());
    queue.push_back({0, mN - 1, -1});
    for (size_t current = 0; current < queue.size(); ++current)
    {
        const Pending pending = queue[current];
        const size_t begin = pieces.mCorners.size();
        if (!solver.appendPiece(pieces.mCorners, pending.mFirst, pending.mLast))
            return false;
        for (size_t side = begin; side + 1 < pieces.mCorners.size(); ++side)
        {
            const int32 q = pieces.mCorners[side];
            const int32 j = pieces.mCorners[side + 1];
            if (j + 1 == q)
            {
                pieces.mNeighbours.push_back(-1);
                continue;
            }
            pieces.mNeighbours.push_back(static_cast<int32>(queue.size()));
            queue.push_back({j, q, static_cast<int32>(current)});
        }
        pieces.mNeighbours.push_back(pending.mParent);
        pieces.mEnds.push_back(static_cast<uint32>(pieces.mCorners.size()));
        if (!KORV_ASSERT(queue.size() < static_cast<size_t>(mN), "(numPoly - startPoly) < mN",
                         "number of new polygons cannot be bigger than number of edges from the source polygon"))
            return false;
    }
    return true;
}

void ConvexPolygonCreator::clear()
{
    mN = 0;
    mPolygon.clear();
    mReflex.clear();
}
} // namespace KORV::NavMesh
