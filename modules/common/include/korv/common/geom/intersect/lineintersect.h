#pragma once

#include "korv/common/api.h"
#include "korv/common/math/vec2.h"

namespace KORV::Common::Geom::Intersect
{
/// Makes the report of a direction without length.
KORV_COMMON_API void reportZeroDirection();

/// Where a ray meets a segment. Parallel ones don't meet; the segment's ends count, up to 0.0001 of its length beyond.
/// @param t  distance along the ray in lengths of @p dir; written even when it turns out to be off the segment, but not
/// for parallel ones.
/// @param dir  any length but zero, which is reported.
inline bool LineRay(float& t, const Math::Vec2<float>& origin, const Math::Vec2<float>& dir, const Math::Vec2<float>& a,
                    const Math::Vec2<float>& b)
{
    if (dir.mX == 0.0f && dir.mY == 0.0f) [[unlikely]]
        reportZeroDirection();
    const Math::Vec2<float> d = origin - a;
    const Math::Vec2<float> edge = b - a;
    const float denominator = edge.mY * dir.mX - edge.mX * dir.mY;
    if (-0.0001f < denominator && denominator < 0.0001f)
        return false;
    t = (edge.mX * d.mY - edge.mY * d.mX) / denominator;
    const float s = (dir.mX * d.mY - dir.mY * d.mX) / denominator;
    if (t < 0.0f || s < -0.0001f)
        return false;
    return s <= 1.0001f;
}
} // namespace KORV::Common::Geom::Intersect
