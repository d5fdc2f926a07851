#pragma once

#include "korv/navmesh/types.h"

namespace KORV::NavMesh
{
/// A point's place in the ground plane.
inline Vec2<float> projectToPlane(const Vec3<float>& point, const Vec3<float>& xAxis, const Vec3<float>& yAxis)
{
    return {dot(xAxis, point), dot(yAxis, point)};
}

/// The mean of a polygon's corners, summed up in their order; ids out of range are left out.
inline Vec3<float> getMiddleOfCorners(const Vector<Vec3<float>>& vertices, const Vector<uint32>& polygon)
{
    Vec3<float> sum;
    uint32 numCorners = 0;
    for (const uint32 id : polygon)
    {
        if (id >= vertices.size())
            continue;
        sum = sum + vertices[id];
        ++numCorners;
    }
    if (numCorners == 0)
        return {};
    const auto divisor = static_cast<float>(numCorners);
    return {sum.mX / divisor, sum.mY / divisor, sum.mZ / divisor};
}

/// Twice the area of the triangle: positive when c lies to the left of the line from a to b, zero on it.
inline float orient(const Vec2<float>& a, const Vec2<float>& b, const Vec2<float>& c)
{
    return (b.mY - c.mY) * a.mX + (c.mY - a.mY) * b.mX + (a.mY - b.mY) * c.mX;
}

/// Whether a point of the ground plane lies in a convex polygon, corners and sides included. On a polygon wound the
/// other way every inner point fails.
/// @param point  projected with the same axes.
/// @param vertices,polygon  positions, and the ids of the corners in order; an id out of range makes the answer false.
/// @param clockwise  how the corners run in the frame of the axes.
bool isPointInConvexPolygon(const Vec2<float>& point, const Vector<Vec3<float>>& vertices,
                            const Vector<uint32>& polygon, bool clockwise, const Vec3<float>& xAxis,
                            const Vec3<float>& yAxis);
} // namespace KORV::NavMesh
