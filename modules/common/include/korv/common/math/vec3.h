#pragma once

#include "korv/common/types.h"

#include <cmath>

namespace KORV::Common::Math
{
template <class T>
struct Vec3
{
    T mX{};
    T mY{};
    T mZ{};

    constexpr Vec3() = default;
    constexpr Vec3(T x, T y, T z) : mX(x), mY(y), mZ(z) {}

    /// Component 0 (x), 1 (y) or 2 (z).
    constexpr T& operator[](int component) { return component == 0 ? mX : component == 1 ? mY : mZ; }
    constexpr const T& operator[](int component) const { return component == 0 ? mX : component == 1 ? mY : mZ; }

    auto getLength() const { return std::sqrt(mX * mX + mY * mY + mZ * mZ); }
    /// Divides by the length, which is returned; a vector of length 0 stays as it is.
    T normalise()
    {
        const T length = getLength();
        if (length > T(0))
        {
            mX /= length;
            mY /= length;
            mZ /= length;
        }
        return length;
    }

    friend constexpr Vec3 operator+(const Vec3& a, const Vec3& b) { return {a.mX + b.mX, a.mY + b.mY, a.mZ + b.mZ}; }
    friend constexpr Vec3 operator-(const Vec3& a, const Vec3& b) { return {a.mX - b.mX, a.mY - b.mY, a.mZ - b.mZ}; }
    friend constexpr Vec3 operator*(const Vec3& a, T factor) { return {a.mX * factor, a.mY * factor, a.mZ * factor}; }
    friend constexpr bool operator==(const Vec3& a, const Vec3& b) = default;
};

template <class T>
constexpr T dot(const Vec3<T>& a, const Vec3<T>& b)
{
    return a.mX * b.mX + a.mY * b.mY + a.mZ * b.mZ;
}

template <class T>
constexpr Vec3<T> cross(const Vec3<T>& a, const Vec3<T>& b)
{
    return {a.mY * b.mZ - a.mZ * b.mY, a.mZ * b.mX - a.mX * b.mZ, a.mX * b.mY - a.mY * b.mX};
}

template <class T>
Vec3<T> normalised(Vec3<T> v)
{
    v.normalise();
    return v;
}
} // namespace KORV::Common::Math
