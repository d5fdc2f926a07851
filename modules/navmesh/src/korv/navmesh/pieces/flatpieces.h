#pragma once

#include "korv/navmesh/pieces/convexpieces.h"

namespace KORV::NavMesh
{
/// Takes pieces without area out of a decomposition: each joins the neighbour across its longest side, whose side there
/// then has the piece's corners on it. Where that side is one of the outline the piece is left out, and its neighbours
/// have an open side there.
/// @param points  of the outline, clockwise in their plane.
/// @param flatness  mean height over its longest side up to which a piece counts as flat. [unit of the points]
/// Cost: linear in the pieces; nothing is allocated unless there is such a piece.
void mergeFlatPieces(ConvexPieces& pieces, const Vector<Vec2<float>>& points, double flatness);
} // namespace KORV::NavMesh
