#pragma once

#include "korv/navmesh/types.h"

namespace KORV::NavMesh
{
inline constexpr uint32 NUM_MAIN_AXES = 6;

/// The directions that "up" can have, by main surface axis.
inline constexpr Vec3<float> MAIN_AXES[NUM_MAIN_AXES] = {
    {-1.0f, 0.0f, 0.0f}, {0.0f, 0.0f, 1.0f}, {1.0f, 0.0f, 0.0f},
    {0.0f, 0.0f, -1.0f}, {0.0f, 1.0f, 0.0f}, {0.0f, -1.0f, 0.0f},
};

/// The vector component (0 x, 1 y, 2 z) that a main surface axis points along.
inline constexpr int32 MAIN_AXIS_COMPONENTS[NUM_MAIN_AXES] = {0, 2, 0, 2, 1, 1};
} // namespace KORV::NavMesh
