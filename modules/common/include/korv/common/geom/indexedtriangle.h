#pragma once

#include "korv/common/types.h"

namespace KORV::Common::Geom
{
/// Three indices into a vertex list.
struct IndexedTriangle
{
    uint32 mVertices[3] = {0, 0, 0};

    friend bool operator==(const IndexedTriangle& a, const IndexedTriangle& b) = default;
};
} // namespace KORV::Common::Geom
