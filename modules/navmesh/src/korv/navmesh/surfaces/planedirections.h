#pragma once

#include "korv/navmesh/mainaxes.h"

namespace KORV::NavMesh
{
/// The grid directions that matter for one main surface axis. Side i + 1 is side i turned by 90 degrees
/// counter-clockwise, seen from above.
struct PlaneDirections
{
    static constexpr uint32 NUM_SIDES = 4;

    Vec3<int32> mSides[NUM_SIDES];
    Vec3<int32> mUp;
};

inline constexpr PlaneDirections PLANE_DIRECTIONS[NUM_MAIN_AXES] = {
    {{{0, -1, 0}, {0, 0, 1}, {0, 1, 0}, {0, 0, -1}}, {-1, 0, 0}},
    {{{0, -1, 0}, {1, 0, 0}, {0, 1, 0}, {-1, 0, 0}}, {0, 0, 1}},
    {{{0, -1, 0}, {0, 0, -1}, {0, 1, 0}, {0, 0, 1}}, {1, 0, 0}},
    {{{0, -1, 0}, {-1, 0, 0}, {0, 1, 0}, {1, 0, 0}}, {0, 0, -1}},
    {{{0, 0, 1}, {1, 0, 0}, {0, 0, -1}, {-1, 0, 0}}, {0, 1, 0}},
    {{{0, 0, -1}, {1, 0, 0}, {0, 0, 1}, {-1, 0, 0}}, {0, -1, 0}},
};

constexpr uint32 leftOf(uint32 side)
{
    return (side + 1) % 4;
}
constexpr uint32 rightOf(uint32 side)
{
    return (side + 3) % 4;
}
constexpr uint32 oppositeOf(uint32 side)
{
    return (side + 2) % 4;
}
} // namespace KORV::NavMesh
