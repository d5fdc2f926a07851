#pragma once

#include "korv/navmesh/places/boxtree.h"
#include "korv/navmesh/types.h"

#include <cmath>

namespace KORV::NavMesh
{
/// Whether the inside test of a node rejects all places of a rectangle at one of its sides, from a to b. That test is
/// computed in float; how much it may be wrong is derived in nodeshape.cpp.
/// @param rectangle  only its extent in the ground plane counts.
inline bool isRightOfSide(const SearchBox& rectangle, const Vec2<float>& a, const Vec2<float>& b)
{
    constexpr double UNIT = 1.0 / (1 << 24);
    constexpr double TINY = 1e-40;
    constexpr double OWN_ROUNDING = 1e-14;
    const double lowX = double(rectangle.mLow[0]);
    const double lowY = double(rectangle.mLow[1]);
    const double highX = double(rectangle.mHigh[0]);
    const double highY = double(rectangle.mHigh[1]);
    const double ax = double(a.mX);
    const double ay = double(a.mY);
    const double dx = double(b.mX) - ax;
    const double dy = double(b.mY) - ay;
    // in the corner that is farthest to the left
    const double cross = dx * ((dx > 0.0 ? highY : lowY) - ay) - dy * ((dy > 0.0 ? lowX : highX) - ax);

    const double riseOfA = std::max(std::fabs(ay - lowY), std::fabs(ay - highY));
    const double runOfA = std::max(std::fabs(ax - lowX), std::fabs(ax - highX));
    const double riseOfB = riseOfA + std::fabs(dy);
    const double maxX = std::max(std::fabs(lowX), std::fabs(highX));
    const double error =
        UNIT * (2.1 * (riseOfA * std::fabs(double(b.mX)) + riseOfB * std::fabs(ax)) + 3.1 * std::fabs(dy) * maxX) +
        TINY;
    return cross < -error - OWN_ROUNDING * (std::fabs(dx) * riseOfA + std::fabs(dy) * runOfA);
}
} // namespace KORV::NavMesh
