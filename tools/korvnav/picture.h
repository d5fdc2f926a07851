#pragma once

#include "korv/navmesh/navmeshcontainer.h"
#include "korv/navmesh/navmeshway.h"

#include <string>

namespace KORV::Tool
{
/// Draws a mesh from above as an SVG document that needs nothing else: nodes coloured by surface type and shaded by
/// height, jumps and drops as arrows, with scale bar and legend. Floors that lie over each other get panels of their
/// own.
/// @param way  drawn over the nodes, null for none.
std::string drawPicture(const NavMesh::NavMeshContainer& mesh, const std::string& title,
                        const NavMesh::NavMeshWay* way = nullptr);
} // namespace KORV::Tool
