#pragma once

#include "korv/common/types.h"

#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#ifdef __SSE__
#include <xmmintrin.h>
#endif

namespace KORV::NavMesh
{
/// Four floats that are worked on at once. Every lane rounds as a single float does, so that results are the same.
using FloatLanes = float __attribute__((vector_size(16)));
/// What comparing FloatLanes gives: all bits of a lane set, or none.
using MaskLanes = int32 __attribute__((vector_size(16)));

constexpr size_t NUM_LANES = 4;

inline FloatLanes loadLanes(const float* from)
{
    FloatLanes lanes;
    std::memcpy(&lanes, from, sizeof lanes);
    return lanes;
}

inline void storeLanes(float* to, FloatLanes lanes)
{
    std::memcpy(to, &lanes, sizeof lanes);
}

inline FloatLanes sameLanes(float value)
{
    return FloatLanes{value, value, value, value};
}

inline FloatLanes absoluteLanes(FloatLanes lanes)
{
    return std::bit_cast<FloatLanes>(std::bit_cast<MaskLanes>(lanes) & 0x7fffffff);
}

inline FloatLanes squareRoots(FloatLanes lanes)
{
#ifdef __SSE__
    return std::bit_cast<FloatLanes>(_mm_sqrt_ps(std::bit_cast<__m128>(lanes)));
#else
    return FloatLanes{std::sqrt(lanes[0]), std::sqrt(lanes[1]), std::sqrt(lanes[2]), std::sqrt(lanes[3])};
#endif
}

/// Turns vectors to unit length, but those of length 0. @return the lengths they had.
inline FloatLanes normaliseLanes(FloatLanes& x, FloatLanes& y)
{
    const FloatLanes length = squareRoots(x * x + y * y);
    const FloatLanes divisor = length > 0.0f ? length : sameLanes(1.0f);
    x /= divisor;
    y /= divisor;
    return length;
}

/// p where it is smaller, else q: also where one is not a number.
inline FloatLanes smallerLanes(FloatLanes p, FloatLanes q)
{
#ifdef __SSE__
    return _mm_min_ps(p, q);
#else
    return p < q ? p : q;
#endif
}

/// q where it is larger, else p.
inline FloatLanes largerLanes(FloatLanes p, FloatLanes q)
{
#ifdef __SSE__
    return _mm_max_ps(q, p);
#else
    return p < q ? q : p;
#endif
}

/// A bit for each lane, those of @p low first.
inline uint32 gatherBits(MaskLanes low, MaskLanes high)
{
#ifdef __SSE__
    return static_cast<uint32>(_mm_movemask_ps(std::bit_cast<__m128>(low)) |
                               _mm_movemask_ps(std::bit_cast<__m128>(high)) << NUM_LANES);
#else
    const MaskLanes marked = (low & MaskLanes{1, 2, 4, 8}) | (high & MaskLanes{16, 32, 64, 128});
    const auto halves = std::bit_cast<std::array<uint64, 2>>(marked);
    const uint64 both = halves[0] | halves[1];
    return static_cast<uint32>((both | both >> 32) & 0xff);
#endif
}
} // namespace KORV::NavMesh
