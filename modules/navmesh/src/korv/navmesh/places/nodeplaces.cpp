#include "korv/navmesh/places/nodeplaces.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace KORV::NavMesh
{
namespace
{
Vec3<double> widen(const Vec3<float>& v)
{
    return {double(v.mX), double(v.mY), double(v.mZ)};
}

Vec3<float> narrow(const Vec3<double>& v)
{
    return {static_cast<float>(v.mX), static_cast<float>(v.mY), static_cast<float>(v.mZ)};
}

bool isBefore(const Vec3<double>& a, const Vec3<double>& b)
{
    if (a.mX != b.mX)
        return a.mX < b.mX;
    return a.mY != b.mY ? a.mY < b.mY : a.mZ < b.mZ;
}

/// Keeps the point nearest to the origin.
class Nearest
{
public:
    void add(const Vec3<double>& candidate)
    {
        const double square = dot(candidate, candidate);
        if (!(square < mSquare))
            return;
        mSquare = square;
        mPoint = candidate;
    }

    /// A side is taken from the same end whichever node it belongs to, so that neighbours find the same distance.
    void addSegment(Vec3<double> a, Vec3<double> b)
    {
        if (isBefore(b, a))
            std::swap(a, b);
        const Vec3<double> side = b - a;
        const double along = -dot(a, side);
        const double length = dot(side, side);
        if (!(along > 0.0))
            add(a);
        else if (along >= length)
            add(b);
        else
            add(a + side * (along / length));
    }

    void addTriangle(const Vec3<double>& a, const Vec3<double>& b, const Vec3<double>& c)
    {
        const Vec3<double> normal = cross(b - a, c - a);
        const double square = dot(normal, normal);
        const auto isInside = [&normal](const Vec3<double>& from, const Vec3<double>& to)
        { return dot(cross(from, to), normal) >= 0.0; };
        if (square > 0.0 && isInside(a, b) && isInside(b, c) && isInside(c, a))
        {
            add(normal * (dot(a, normal) / square));
            return;
        }
        addSegment(a, b);
        addSegment(b, c);
        addSegment(c, a);
    }

    double mSquare = std::numeric_limits<double>::infinity();
    Vec3<double> mPoint;
};
} // namespace

bool findClosestPoint(ClosestPoint& closest, const NavMeshContainer& mesh, int32 nodeID, const Vec3<float>& point)
{
    if (nodeID < 0 || static_cast<size_t>(nodeID) >= mesh.mNodes.size())
        return false;
    const Vector<uint32>& polygon = mesh.mNodes[static_cast<size_t>(nodeID)].mPolygon;
    if (polygon.size() < 3 ||
        std::any_of(polygon.begin(), polygon.end(), [&mesh](uint32 id) { return id >= mesh.mVertices.size(); }))
        return false;
    // seen from the point: what is near it keeps its precision
    const Vec3<double> origin = widen(point);
    const auto getCorner = [&](size_t i) { return widen(mesh.mVertices[polygon[i]]) - origin; };
    Nearest nearest;
    const Vec3<double> first = getCorner(0);
    Vec3<double> before = getCorner(1);
    for (size_t i = 2; i < polygon.size(); ++i)
    {
        const Vec3<double> corner = getCorner(i);
        nearest.addTriangle(first, before, corner);
        before = corner;
    }
    if (!std::isfinite(nearest.mSquare))
        return false;
    closest.mPosition = origin + nearest.mPoint;
    closest.mDistance = std::sqrt(nearest.mSquare);
    return true;
}

Vec3<float> roundIntoNode(const NavMeshContainer& mesh, int32 nodeID, const Vec3<double>& position)
{
    const Vec3<float> rounded = narrow(position);
    if (mesh.isPointInsideNode(rounded, nodeID))
        return rounded;
    const Vec3<double> inwards = widen(mesh.getNodeMiddlePoint(nodeID)) - position;
    const double length = inwards.getLength();
    // from half a unit in the last place, doubled: the inside test is wrong by a few of them, more where corners are
    // sharp
    constexpr int MAX_TRIES = 10;
    double step = std::max({std::fabs(position.mX), std::fabs(position.mY), std::fabs(position.mZ)}) / (1 << 24);
    for (int i = 0; i < MAX_TRIES && step < length; ++i, step *= 2.0)
    {
        const Vec3<float> moved = narrow(position + inwards * (step / length));
        if (mesh.isPointInsideNode(moved, nodeID))
            return moved;
    }
    return rounded;
}
} // namespace KORV::NavMesh
