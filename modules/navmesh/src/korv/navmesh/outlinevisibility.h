#pragma once

#include "korv/navmesh/edgegrid.h"
#include "korv/navmesh/types.h"

namespace KORV::NavMesh
{
/// Tells which corners of a drawn-in outline see each other, by two sweeps around the outline for each corner.
/// Holds references to its arguments, which must not change. One thread at a time.
class OutlineVisibility
{
public:
    OutlineVisibility(const Vector<Vec2<float>>& polygon, const Vector<uint8>& reflex,
                      Common::Memory::Allocator* allocator);

    /// Appends every corner above @p from that sees it, ascending.
    /// Cost: linear in the corners, and a ray for each reflex corner that hides others.
    void appendVisible(Vector<int32>& visible, int32 from);

private:
    void sweep(int32 from, bool forward);
    bool hidesOthers(int32 corner, const Vec2<float>& ray, bool forward) const;
    int32 findShadowEnd(int32 corner, const Vec2<float>& ray, int32 from, bool forward);

    int32 next(int32 corner) const { return corner + 1 < mN ? corner + 1 : 0; }
    int32 previous(int32 corner) const { return corner > 0 ? corner - 1 : mN - 1; }

    const Vector<Vec2<float>>& mPolygon;
    const Vector<uint8>& mReflex;
    int32 mN;
    EdgeGrid mEdges;
    Vector<uint8> mSide; // the sweep that passed a corner last: 1 forward, 2 backward, 0 none
    Vector<uint8> mSeen;
};
} // namespace KORV::NavMesh
