#include "korv/navmesh/places/navmeshqueries.h"

#include <algorithm>

namespace KORV::NavMesh
{
bool isPointInConvexPolygon(const Vec2<float>& point, const Vector<Vec3<float>>& vertices,
                            const Vector<uint32>& polygon, bool clockwise, const Vec3<float>& xAxis,
                            const Vec3<float>& yAxis)
{
    if (polygon.empty() ||
        !std::all_of(polygon.begin(), polygon.end(), [&vertices](uint32 id) { return id < vertices.size(); }))
        return false;
    const float sign = clockwise ? 1.0f : -1.0f;
    Vec2<float> a = projectToPlane(vertices[polygon.back()], xAxis, yAxis);
    for (const uint32 id : polygon)
    {
        const Vec2<float> b = projectToPlane(vertices[id], xAxis, yAxis);
        if (sign * orient(a, b, point) > 0.0f)
            return false;
        a = b;
    }
    return true;
}
} // namespace KORV::NavMesh
