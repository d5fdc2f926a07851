#pragma once

#include "korv/navmesh/navmeshcontainer.h"
#include "korv/navmesh/types.h"

namespace KORV::NavMesh
{
/// The point of a node that is nearest to some position, in space.
struct ClosestPoint
{
    Vec3<double> mPosition;
    double mDistance;
};

/// Finds the nearest point of a node's polygon, taken as a fan of triangles around its first corner.
/// @return false, and leaves @p closest as it is, for a node with fewer than three corners or with ids out of range.
bool findClosestPoint(ClosestPoint& closest, const NavMeshContainer& mesh, int32 nodeID, const Vec3<float>& point);

/// Rounds a point of a node to float so that NavMeshContainer::isPointInsideNode holds for it: where the rounding puts
/// it outside, it is moved towards the middle of the node by the order of a rounding error. Where that does not help,
/// as on a node without area, it is just rounded.
Vec3<float> roundIntoNode(const NavMeshContainer& mesh, int32 nodeID, const Vec3<double>& position);
} // namespace KORV::NavMesh
