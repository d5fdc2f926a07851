#pragma once

#include "korv/common/types.h"

#include <cmath>

namespace KORV::Common::Math
{
template <class T>
struct Vec2
{
    T mX{};
    T mY{};

    constexpr Vec2() = default;
    constexpr Vec2(T x, T y) : mX(x), mY(y) {}

    T getLength() const { return std::sqrt(mX * mX + mY * mY); }
    /// Divides by the length, which is returned; a vector of length 0 stays as it is.
    T normalise()
    {
        const T length = getLength();
        if (length > T(0))
        {
            mX /= length;
            mY /= length;
        }
        return length;
    }

    friend constexpr Vec2 operator+(const Vec2& a, const Vec2& b) { return {a.mX + b.mX, a.mY + b.mY}; }
    friend constexpr Vec2 operator-(const Vec2& a, const Vec2& b) { return {a.mX - b.mX, a.mY - b.mY}; }
    friend constexpr Vec2 operator*(const Vec2& a, T factor) { return {a.mX * factor, a.mY * factor}; }
    friend constexpr bool operator==(const Vec2& a, const Vec2& b) = default;
};

template <class T>
constexpr T dot(const Vec2<T>& a, const Vec2<T>& b)
{
    return a.mX * b.mX + a.mY * b.mY;
}

/// The third component of the 3D cross product: positive when b lies to the left of a.
template <class T>
constexpr T cross(const Vec2<T>& a, const Vec2<T>& b)
{
    return a.mX * b.mY - b.mX * a.mY;
}

template <class T>
Vec2<T> normalised(Vec2<T> v)
{
    v.normalise();
    return v;
}
} // namespace KORV::Common::Math
