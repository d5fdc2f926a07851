#include "korv/navmesh/outlinevisibility.h"

#include "korv/common/debug/assert.h"

#include <algorithm>
#include <cstring>

namespace KORV::NavMesh
{
namespace
{
constexpr uint8 FORWARD = 1;
constexpr uint8 BACKWARD = 2;
/// A chain that turns away by less still counts as turning around the corner.
constexpr float TURN_TOLERANCE = 0.0001f;
} // namespace

OutlineVisibility::OutlineVisibility(const Vector<Vec2<float>>& polygon, const Vector<uint8>& reflex,
                                     Common::Memory::Allocator* allocator)
    : mPolygon(polygon), mReflex(reflex), mN(static_cast<int32>(polygon.size())), mGrid(polygon, allocator),
      mSide(polygon.size(), uint8(0), allocator), mSeen(polygon.size(), uint8(0), allocator)
{
}

void OutlineVisibility::appendVisible(Vector<int32>& visible, int32 corner)
{
    std::memset(mSide.data(), 0, mSide.size());
    std::memset(mSeen.data(), 1, mSeen.size());
    sweepForward(corner);
    sweepBackward(corner);
    const uint8* seen = mSeen.data();
    const uint8* end = seen + mN;
    for (const uint8* at = seen + corner + 1; at < end; ++at)
    {
        at = static_cast<const uint8*>(std::memchr(at, 1, static_cast<size_t>(end - at)));
        if (at == nullptr)
            break;
        visible.push_back(static_cast<int32>(at - seen));
    }
}

/// Marks a run of corners, which may pass the end of the outline, as passed and hidden.
void OutlineVisibility::hide(int32 first, int32 count, uint8 mark)
{
    const int32 untilEnd = std::min(count, mN - first);
    std::memset(mSide.data() + first, mark, static_cast<size_t>(untilEnd));
    std::memset(mSeen.data() + first, 0, static_cast<size_t>(untilEnd));
    std::memset(mSide.data(), mark, static_cast<size_t>(count - untilEnd));
    std::memset(mSeen.data(), 0, static_cast<size_t>(count - untilEnd));
}

/// The edge that the shadow of corner j, seen from corner i, falls on; -1 when it falls on none that lies ahead.
int32 OutlineVisibility::castShadow(int32 i, int32 j, uint8 mark)
{
    Vec2<float> direction = point(j) - point(i);
    const float len = direction.normalise();
    if (!KORV_ASSERT(len > 0, "len > 0", "the visible line cannot be of length zero"))
        return -1;
    const int32 edge = mGrid.findNearestEdge(j, direction);
    return edge >= 0 && mSide[static_cast<size_t>(edge)] != mark ? edge : -1;
}

void OutlineVisibility::sweepForward(int32 i)
{
    int32 j = next(i);
    while (j != i)
    {
        mSide[static_cast<size_t>(j)] = FORWARD;
        const Vec2<float> d = point(j) - point(i);
        int32 edge = -1;
        if (mReflex[static_cast<size_t>(j)] && !(cross(d, point(next(j)) - point(j)) <= TURN_TOLERANCE))
            edge = castShadow(i, j, FORWARD);
        if (edge >= 0 && cross(d, point(edge) - point(i)) > 0.0f)
            edge = next(edge);
        // a shadow that would pass corner i itself comes from a degenerate outline and hides nothing
        const int32 skipped = edge >= 0 ? stepsForward(j, edge) - 1 : 0;
        if (skipped <= 0 || skipped >= stepsForward(j, i))
        {
            j = next(j);
            continue;
        }
        hide(next(j), skipped, FORWARD);
        j = edge;
    }
}

void OutlineVisibility::sweepBackward(int32 i)
{
    int32 j = previous(i);
    while (j != i)
    {
        mSide[static_cast<size_t>(j)] = BACKWARD;
        const Vec2<float> d = point(j) - point(i);
        int32 edge = -1;
        if (mReflex[static_cast<size_t>(j)] && !(cross(d, point(previous(j)) - point(j)) >= -TURN_TOLERANCE))
            edge = castShadow(i, j, BACKWARD);
        if (edge >= 0 && cross(d, point(edge) - point(i)) < -TURN_TOLERANCE)
            edge = previous(edge);
        const int32 skipped = edge >= 0 ? stepsForward(edge, j) - 1 : 0;
        if (skipped <= 0 || skipped >= stepsForward(i, j))
        {
            j = previous(j);
            continue;
        }
        hide(next(edge), skipped, BACKWARD);
        j = edge;
    }
}
} // namespace KORV::NavMesh
