#pragma once

#include "korv/common/api.h"
#include "korv/common/container/vector.h"
#include "korv/common/math/vec2.h"
#include "korv/common/math/vec3.h"
#include "korv/common/types.h"

#include <cmath>

namespace KORV::Common::Geom
{
using Math::Vec2;
using Math::Vec3;

/// The two axes of the plane that a vector stands on, of unit length and at right angles.
/// @param normal  any length but zero, which is reported and leaves the axes at zero.
KORV_COMMON_API void computePlaneBasis(Vec3<float>& xAxis, Vec3<float>& yAxis, const Vec3<float>& normal);

/// Removes the corners of a closed outline at which it turns by no more than an angle, in one walk around.
/// The cyclic order stays; the outline may start at another corner. One that has fewer than three corners left becomes
/// empty, one that has fewer from the start is reported and stays.
/// @param angle  [radians]
/// Cost: linear in the corners.
KORV_COMMON_API void RemoveCollinearPoints(Container::Vector<Vec3<float>>& outline, float angle);

/// Whether a triangle and an axis-aligned cube share a point. Touching counts.
/// @param edgeLength  edge of the cube around @p centre. [same unit as the corners, > 0]
/// Source: T. Akenine-Moeller, "Fast 3D Triangle-Box Overlap Testing", Journal of Graphics Tools 6(1), 2001.
/// The box here is always a cube, so one half edge replaces the three of the paper.
KORV_COMMON_API bool TriangleBoxOverlap(const Vec3<float>& v0, const Vec3<float>& v1, const Vec3<float>& v2,
                                        const Vec3<float>& centre, float edgeLength);

/// Whether a point lies within a tolerance of the line through a segment, and no further than that beyond its ends.
/// False for a segment of length 0.
inline bool IsPointOnSegment(const Vec2<float>& a, const Vec2<float>& b, const Vec2<float>& point, float tolerance)
{
    const Vec2<float> edge = b - a;
    const float length = edge.getLength();
    const float distance = std::fabs(cross(edge, a - point)) / length;
    if (!(distance <= tolerance)) // also for the not-a-number of a segment of length 0
        return false;
    const float position = dot(edge, point - a) / dot(edge, edge);
    const float slack = tolerance / length;
    return -slack <= position && position <= 1.0f + slack;
}

/// Distance of a point from a segment, which may have length 0. [same unit as the points]
KORV_COMMON_API float PointSegmentDistance(const Vec2<float>& a, const Vec2<float>& b, const Vec2<float>& point);

namespace Utility
{
/// Appends the cells of a unit grid that a segment passes, from the cell of @p a to that of @p b. Where it passes an
/// edge of cells it steps along z before y before x.
/// Each component must lie in [0, 4294967295); others are reported and moved into that range.
/// Cost: linear in the cells passed.
/// Source: J. Amanatides, A. Woo, "A Fast Voxel Traversal Algorithm for Ray Tracing", Eurographics 1987.
KORV_COMMON_API void ComputeVoxelOnLine3D(Container::Vector<Vec3<uint32>>& voxels, const Vec3<float>& a,
                                          const Vec3<float>& b);

/// Cuts a convex polygon into triangles whose perimeters have the smallest sum, and appends three vertex ids for each.
/// The triangles keep the polygon's orientation.
/// @param polygon  ids into @p vertices, in boundary order. Fewer than three, an id out of range or too little memory
/// for the tables (12 bytes for each pair of corners) are reported; nothing is then appended.
/// Cost: cubic in the corners.
KORV_COMMON_API void CreateTrianglesFromConvexPolygon(Container::Vector<uint32>& triangles,
                                                      const Container::Vector<uint32>& polygon,
                                                      const Container::Vector<Vec3<float>>& vertices);
} // namespace Utility
} // namespace KORV::Common::Geom
