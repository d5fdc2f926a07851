#pragma once

#include "korv/navmesh/edgegrid.h"
#include "korv/navmesh/types.h"

namespace KORV::NavMesh
{
/// Finds which corners of an outline see each other, by two sweeps around each corner.
/// The outline runs clockwise, its interior lies to the right of each edge. Holds references to outline and flags.
class OutlineVisibility
{
public:
    /// @param reflex  a flag for each corner.
    OutlineVisibility(const Vector<Vec2<float>>& polygon, const Vector<uint8>& reflex,
                      Common::Memory::Allocator* allocator);

    /// Appends the corners after @p corner that see it, in increasing order.
    /// Cost: linear in the corners, and a ray for each one that hides others.
    void appendVisible(Vector<int32>& visible, int32 corner);

private:
    void sweepForward(int32 i);
    void sweepBackward(int32 i);
    void hide(int32 first, int32 count, uint8 mark);
    int32 castShadow(int32 i, int32 j, uint8 mark);
    int32 next(int32 k) const { return k + 1 < mN ? k + 1 : 0; }
    int32 previous(int32 k) const { return k > 0 ? k - 1 : mN - 1; }
    /// Steps from one corner forward to another.
    int32 stepsForward(int32 a, int32 b) const { return b >= a ? b - a : b - a + mN; }
    const Vec2<float>& point(int32 k) const { return mPolygon[static_cast<size_t>(k)]; }

    const Vector<Vec2<float>>& mPolygon;
    const Vector<uint8>& mReflex;
    int32 mN;
    EdgeGrid mGrid;
    Vector<uint8> mSide; // sweep that passed a corner last
    Vector<uint8> mSeen;
};
} // namespace KORV::NavMesh
