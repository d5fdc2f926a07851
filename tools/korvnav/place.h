#pragma once

#include "korv/navmesh/navmeshnodeindex.h"
#include "korv/navmesh/navmeshsearchfilter.h"

#include <string>

namespace KORV::Tool
{
/// "1.5 0 -2"
std::string placeText(const NavMesh::Vec3<float>& place);

/// The node that a place given on the command line stands on.
/// @param filter  what a nearest place must allow.
/// Throws Failure (BadInput) that names the nearest place when there is none.
int findNode(const NavMesh::NavMeshNodeIndex& index, const std::string& option, const NavMesh::Vec3<float>& place,
             const NavMesh::NavMeshSearchFilter& filter);
} // namespace KORV::Tool
