#pragma once

#include "korv/navmesh/types.h"

namespace KORV::NavMesh
{
/// The corners of an outline in their plane; it runs clockwise.
struct CornerRange
{
    Vec2<float>* mBegin;
    size_t mSize;
};

/// Draws outlines in by a distance, in place: each corner moves along the middle of its edges, beside one that has
/// moved already. So each has to wait for the one before, which takes far longer than the work; that is why several
/// outlines move side by side. The results are those of each alone.
void insetInPlace(const Vector<CornerRange>& outlines, float distance);
} // namespace KORV::NavMesh
