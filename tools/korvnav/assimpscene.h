#pragma once

#include "scene.h"

namespace KORV::Tool
{
/// Reads a scene file with Assimp: polygons cut into triangles, transforms applied, vertices at the same place joined.
/// Points and lines are left out. Throws Failure (BadInput).
Scene loadWithAssimp(const std::string& fileName);
} // namespace KORV::Tool
