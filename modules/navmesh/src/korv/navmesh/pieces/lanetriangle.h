#pragma once

#include "korv/navmesh/floatlanes.h"
#include "korv/navmesh/types.h"

#include <cmath>

namespace KORV::NavMesh
{
/// A triangle that runs clockwise, for asking of eight points at once whether they lie in it.
class LaneTriangle
{
public:
    static constexpr size_t NUM_POINTS = 2 * NUM_LANES;

    /// @param depth  that a point inside has at least. [units; negative: outside too]
    LaneTriangle(const Vec2<float>& a, const Vec2<float>& b, const Vec2<float>& c, float depth)
        : mSides{Side(a, b, depth), Side(b, c, depth), Side(c, a, depth)}
    {
    }

    /// A bit for each of eight points inside.
    uint32 findInside(const float* x, const float* y) const
    {
        MaskLanes inside[2] = {~MaskLanes{}, ~MaskLanes{}};
        for (const Side& side : mSides)
        {
            for (size_t half = 0; half < 2; ++half)
            {
                const FloatLanes alongX = loadLanes(x + half * NUM_LANES) - side.mFrom.mX;
                const FloatLanes alongY = loadLanes(y + half * NUM_LANES) - side.mFrom.mY;
                inside[half] &= side.mWay.mX * alongY - side.mWay.mY * alongX <= side.mLimit;
            }
        }
        return gatherBits(inside[0], inside[1]);
    }

private:
    struct Side
    {
        Side(const Vec2<float>& from, const Vec2<float>& to, float depth)
            : mFrom(from), mWay(to - from), mLimit(-depth * (std::fabs(mWay.mX) + std::fabs(mWay.mY)))
        {
        }

        Vec2<float> mFrom;
        Vec2<float> mWay;
        float mLimit; // of the cross product of the side and the way to a point inside
    };

    Side mSides[3];
};
} // namespace KORV::NavMesh
