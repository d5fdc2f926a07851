#pragma once

#include "support/build.h"

/// The mesh builder of the peer, Recast/Detour, as installed (package librecast-dev).
namespace KORV::Benchmarks::Peer
{
/// Whether there was one when the benchmarks were built; without it nothing below does anything.
bool isAvailable();

/// Its solo build, from rasterisation to the polygon mesh: cells as wide and high as our cubes, an agent as tall as our
/// tallest character and without radius, regions by watershed, no detail mesh. One thread, as it comes.
BuildFigures buildSolo(const Scenes::Scene& scene, float cube);
} // namespace KORV::Benchmarks::Peer
