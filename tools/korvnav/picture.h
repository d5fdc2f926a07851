#pragma once

#include "korv/navmesh/navmeshcontainer.h"

#include <string>

namespace KORV::Tool
{
/// Draws a mesh from above as an SVG document that needs nothing else: nodes coloured by surface type and shaded by
/// height, jumps and drops as arrows, with scale bar and legend. Floors that lie over each other get panels of their
/// own.
std::string drawPicture(const NavMesh::NavMeshContainer& mesh, const std::string& title);
} // namespace KORV::Tool
