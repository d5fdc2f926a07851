#pragma once

#include "korv/navmesh/types.h"

namespace KORV::NavMesh
{
/// A kind of ground, named by the host.
struct SurfaceType
{
    BasicString mName = "Default";
    uint16 mID = 65535;
};
} // namespace KORV::NavMesh
