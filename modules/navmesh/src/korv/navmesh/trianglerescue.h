#pragma once

#include "korv/navmesh/piecelist.h"

namespace KORV::NavMesh
{
/// Cuts an outline into triangles and merges them to convex pieces, for outlines that have no cut of least length within
/// its tolerances. Works in integers: nothing is lost and nothing covered twice, whatever the outline.
/// @param pieces  receives the cut; stays empty when the outline has no area.
/// @param polygon  the outline, clockwise, not drawn in, measured in cubes from its first corner.
/// Cost: about quadratic in the corners.
void cutIntoTriangles(PieceList& pieces, const Vector<Vec2<float>>& polygon, Common::Memory::Allocator* allocator);
} // namespace KORV::NavMesh
