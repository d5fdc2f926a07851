#pragma once

#include "korv/common/debug/assert.h"
#include "korv/common/math/vec3.h"

#include <cmath>

namespace KORV::Common::Math
{
/// 4 × 4 matrix for affine transforms. Points are row vectors: p' = p × M, with the translation in entries 12 to 14,
/// so the product a * b applies a first, then b.
template <class T>
struct Matrix4
{
    T mEntries[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

    static Matrix4 getTranslationMatrix(const Vec3<T>& offset)
    {
        Matrix4 result;
        result.mEntries[12] = offset.mX;
        result.mEntries[13] = offset.mY;
        result.mEntries[14] = offset.mZ;
        return result;
    }

    static Matrix4 getScaleMatrix(const Vec3<T>& scale)
    {
        Matrix4 result;
        result.mEntries[0] = scale.mX;
        result.mEntries[5] = scale.mY;
        result.mEntries[10] = scale.mZ;
        return result;
    }

    /// Right-handed rotation about an axis of length 1.
    /// @param angle  [radians]
    /// Another length is reported, and the matrix is built from the axis as it is.
    static Matrix4 getRotationMatrix(const Vec3<T>& axis, T angle)
    {
        const T squared = dot(axis, axis);
        [[maybe_unused]] const bool normalised = KORV_COMMON_ASSERT(
            "KORV::Common::Math::Matrix4::getRotationMatrix", squared > T(0.9999f) && squared < T(1.0001f),
            "axis.isNormalized()", "rotation axis must be normalized");
        const T c = std::cos(angle);
        const T s = std::sin(angle);
        const T k = T(1) - c;
        Matrix4 result;
        T* m = result.mEntries;
        m[0] = c + k * axis.mX * axis.mX;
        m[1] = k * axis.mX * axis.mY + s * axis.mZ;
        m[2] = k * axis.mX * axis.mZ - s * axis.mY;
        m[4] = k * axis.mX * axis.mY - s * axis.mZ;
        m[5] = c + k * axis.mY * axis.mY;
        m[6] = k * axis.mY * axis.mZ + s * axis.mX;
        m[8] = k * axis.mX * axis.mZ + s * axis.mY;
        m[9] = k * axis.mY * axis.mZ - s * axis.mX;
        m[10] = c + k * axis.mZ * axis.mZ;
        return result;
    }

    /// The point as a row vector times this matrix; no division by w.
    Vec3<T> transformPoint(const Vec3<T>& p) const
    {
        const T* m = mEntries;
        return {p.mX * m[0] + p.mY * m[4] + p.mZ * m[8] + m[12], p.mX * m[1] + p.mY * m[5] + p.mZ * m[9] + m[13],
                p.mX * m[2] + p.mY * m[6] + p.mZ * m[10] + m[14]};
    }

    friend Matrix4 operator*(const Matrix4& a, const Matrix4& b)
    {
        Matrix4 result;
        for (int row = 0; row < 4; ++row)
        {
            for (int column = 0; column < 4; ++column)
            {
                T sum = T(0);
                for (int k = 0; k < 4; ++k)
                    sum += a.mEntries[4 * row + k] * b.mEntries[4 * k + column];
                result.mEntries[4 * row + column] = sum;
            }
        }
        return result;
    }
};
} // namespace KORV::Common::Math
