#pragma once

#include "korv/navmesh/types.h"

namespace KORV::NavMesh
{
/// A point's place in the ground plane.
inline Vec2<float> projectToPlane(const Vec3<float>& point, const Vec3<float>& xAxis, const Vec3<float>& yAxis)
{
    return {dot(xAxis, point), dot(yAxis, point)};
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
