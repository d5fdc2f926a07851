#pragma once

#include "korv/common/types.h"

namespace KORV::NavMesh
{
/// Which rules a generation follows, see NavMeshBuilder::setRefined.
enum class Rules : uint8
{
    SPECIFIED,
    REFINED
};
} // namespace KORV::NavMesh
