#pragma once

#include "korv/common/types.h"

namespace KORV::NavMesh
{
/// More levels do not fit the 32-bit grid positions.
inline constexpr uint32 MAX_OCTREE_DEPTH = 30;

/// Levels of an octree whose leaves are cubes of the given size: log2 of the cubes along the edge, rounded up (a
/// quotient up to 1.2e-7 levels above a power of two still counts as that power); 0 for an edge up to one cube.
/// @param edge  edge of the box to cover. [world units]
/// @param cubeSize  [world units]
/// Throws ArgumentException naming mCubeSize above MAX_OCTREE_DEPTH, also for a quotient that is not a number.
uint32 computeOctreeDepth(float edge, float cubeSize);
} // namespace KORV::NavMesh
