// Visibility between the corners of an outline.
//
// Idea: seen from a corner, the outline is walked once in each direction. A reflex corner at which the walk turns back
// casts a shadow: the ray through it meets a first edge behind it, and all corners up to that edge are hidden. The walk
// goes on there.
//
// Numbers: directions within 0.0001 of each other count as the same. Cost: linear in the corners for each corner, plus
// one ray for each shadow.

#include "korv/navmesh/outlinevisibility.h"

#include "korv/common/debug/assert.h"

#include <algorithm>

namespace KORV::NavMesh
{
namespace
{
constexpr float TURN_TOLERANCE = 0.0001f;
constexpr uint8 FORWARD = 1;
constexpr uint8 BACKWARD = 2;
} // namespace

OutlineVisibility::OutlineVisibility(const Vector<Vec2<float>>& polygon, const Vector<uint8>& reflex,
                                     Common::Memory::Allocator* allocator)
    : mPolygon(polygon), mReflex(reflex), mN(static_cast<int32>(polygon.size())), mEdges(polygon, allocator),
      mSide(polygon.size(), 0, allocator), mSeen(polygon.size(), 1, allocator)
{
}

void OutlineVisibility::appendVisible(Vector<int32>& visible, int32 from)
{
    std::fill(mSide.begin(), mSide.end(), uint8{0});
    std::fill(mSeen.begin(), mSeen.end(), uint8{1});
    sweep(from, true);
    sweep(from, false);
    for (int32 k = from + 1; k < mN; ++k)
    {
        if (mSeen[static_cast<size_t>(k)] != 0)
            visible.push_back(k);
    }
}

void OutlineVisibility::sweep(int32 from, bool forward)
{
    const uint8 mark = forward ? FORWARD : BACKWARD;
    const auto step = [this, forward](int32 corner) { return forward ? next(corner) : previous(corner); };
    for (int32 j = step(from); j != from;)
    {
        mSide[static_cast<size_t>(j)] = mark;
        Vec2<float> ray = mPolygon[static_cast<size_t>(j)] - mPolygon[static_cast<size_t>(from)];
        if (mReflex[static_cast<size_t>(j)] == 0 || !hidesOthers(j, ray, forward))
        {
            j = step(j);
            continue;
        }
        const bool hasLength = KORV_ASSERT(ray.normalise() > 0.0f, "len > 0", "the visible line cannot be of length zero");
        const int32 end = hasLength ? findShadowEnd(j, ray, from, forward) : -1;
        j = step(j);
        if (end < 0)
            continue;
        // A shadow that would reach past the corner we look from ends there: the walk comes around only once.
        for (; j != end && j != from; j = step(j))
        {
            mSide[static_cast<size_t>(j)] = mark;
            mSeen[static_cast<size_t>(j)] = 0;
        }
    }
}

/// Whether the walk turns back at a reflex corner.
bool OutlineVisibility::hidesOthers(int32 corner, const Vec2<float>& ray, bool forward) const
{
    const Vec2<float>& here = mPolygon[static_cast<size_t>(corner)];
    if (forward)
        return cross(ray, mPolygon[static_cast<size_t>(next(corner))] - here) > TURN_TOLERANCE;
    return cross(ray, mPolygon[static_cast<size_t>(previous(corner))] - here) < -TURN_TOLERANCE;
}

/// The first corner behind the shadow, or -1 where there is none.
int32 OutlineVisibility::findShadowEnd(int32 corner, const Vec2<float>& ray, int32 from, bool forward)
{
    const int32 edge = mEdges.findNearestEdge(corner, ray);
    if (edge < 0 || mSide[static_cast<size_t>(edge)] == (forward ? FORWARD : BACKWARD))
        return -1;
    const float turn = cross(ray, mPolygon[static_cast<size_t>(edge)] - mPolygon[static_cast<size_t>(from)]);
    if (forward)
        return turn > 0.0f ? next(edge) : edge;
    return turn < -TURN_TOLERANCE ? previous(edge) : edge;
}
} // namespace KORV::NavMesh
