#pragma once

#include "korv/common/container/nodecontainers.h"
#include "korv/navmesh/types.h"

namespace KORV::NavMesh
{
/// One walkable outline: a closed chain of positions, counter-clockwise seen from above, holes bridged in.
struct SurfacePolygon
{
    SurfacePolygon() = default;
    explicit SurfacePolygon(Common::Memory::Allocator* allocator) : mPoints(allocator) {}

    Vector<Vec3<float>> mPoints; ///< [world units]
    uint32 mHeightClass = 0;
    uint16 mSurfaceTypeID = 0;
};

using SurfacePolygonList = Common::Container::List<SurfacePolygon>;
} // namespace KORV::NavMesh
