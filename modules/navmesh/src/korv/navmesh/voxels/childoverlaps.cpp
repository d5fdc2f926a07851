// Which children of an octant a triangle touches, all eight tests at once.
//
// Idea: the separating-axis test of TriangleBoxOverlap, in lanes. Along each axis the centres of the eight cubes have
// two positions only, and a test whose axis is an edge times a coordinate axis looks at two coordinates: four lanes do
// it for all cubes. The operations of each lane are those of the scalar test in the same order, so that a triangle on
// a cube's face is decided alike, down to the last bit.
//
// Short ways, each of which follows from the literal test because rounding keeps order (x <= y gives f(x) <= f(y)) and
// nothing overflows within ORDINARY_REACH:
// - Corners that all lie within a cube make every projection of the triangle at most the cube's: it overlaps.
// - A flat triangle has all corners at one position t along an axis. The tests whose axis is not in its plane compare
//   f(|e| |t|) with f(|e| half) at most, so they separate only where t lies beyond the cube; three tests are left.
// - A flat triangle that spans an octant with more room than all rounding errors of these three can't be separated by
//   them anywhere inside, and t alone decides.

#include "korv/navmesh/voxels/childoverlaps.h"

#include "korv/navmesh/voxels/leafcursor.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace KORV::NavMesh
{
namespace
{
uint32 orLanes(MaskLanes bits)
{
    return static_cast<uint32>(bits[0] | bits[1] | bits[2] | bits[3]);
}

MaskLanes separates(FloatLanes p, FloatLanes q, FloatLanes radius)
{
    return (smallerLanes(p, q) > radius) | (largerLanes(p, q) < -radius);
}

MaskLanes extentSeparates(FloatLanes a, FloatLanes b, FloatLanes c, FloatLanes half)
{
    // for a not-a-number the order matters, and the scalar test has it as it stands here
    return (smallerLanes(c, smallerLanes(b, a)) > half) | (largerLanes(largerLanes(a, b), c) < -half);
}

/// A corner or an edge of the triangle, seen from the cubes' centres.
struct Lanes
{
    FloatLanes mOuterX;
    FloatLanes mOuterY;
    FloatLanes mInnerY;
    FloatLanes mInnerZ;

    friend Lanes operator-(const Lanes& p, const Lanes& q)
    {
        return {p.mOuterX - q.mOuterX, p.mOuterY - q.mOuterY, p.mInnerY - q.mInnerY, p.mInnerZ - q.mInnerZ};
    }
};

/// What separates the cubes: lanes are pairs of positions along the two axes named, outer axis first.
struct Separated
{
    MaskLanes mYZ;
    MaskLanes mXZ;
    MaskLanes mXY;
};

/// The three axes made of an edge and the coordinate axes.
void separateByEdge(Separated& result, const Lanes& edge, const Lanes& p, const Lanes& q, const Lanes& pForZ,
                    const Lanes& qForZ, FloatLanes half)
{
    const FloatLanes outerX = absoluteLanes(edge.mOuterX) * half;
    const FloatLanes outerY = absoluteLanes(edge.mOuterY) * half;
    const FloatLanes innerY = absoluteLanes(edge.mInnerY) * half;
    const FloatLanes innerZ = absoluteLanes(edge.mInnerZ) * half;
    result.mYZ |= separates(edge.mInnerZ * p.mOuterY - edge.mOuterY * p.mInnerZ,
                            edge.mInnerZ * q.mOuterY - edge.mOuterY * q.mInnerZ, innerZ + outerY);
    result.mXZ |= separates(-edge.mInnerZ * p.mOuterX + edge.mOuterX * p.mInnerZ,
                            -edge.mInnerZ * q.mOuterX + edge.mOuterX * q.mInnerZ, innerZ + outerX);
    result.mXY |= separates(edge.mInnerY * pForZ.mOuterX - edge.mOuterX * pForZ.mInnerY,
                            edge.mInnerY * qForZ.mOuterX - edge.mOuterX * qForZ.mInnerY, innerY + outerX);
}

/// One half of the children by position along x: lanes are pairs of positions along y and z.
template <int X>
MaskLanes joinSeparated(const Separated& separated)
{
    return separated.mYZ | __builtin_shufflevector(separated.mXZ, separated.mXZ, 2 * X, 2 * X + 1, 2 * X, 2 * X + 1) |
           __builtin_shufflevector(separated.mXY, separated.mXY, 2 * X, 2 * X, 2 * X + 1, 2 * X + 1);
}

/// The triangle's plane against the two corners of each cube that lie furthest along its normal.
class PlaneTest
{
public:
    PlaneTest(const Lanes& ab, const Lanes& bc, FloatLanes half)
        : mNormalX(ab.mOuterY * bc.mInnerZ - ab.mInnerZ * bc.mOuterY),
          mNormalY(ab.mInnerZ * bc.mOuterX - ab.mOuterX * bc.mInnerZ),
          mNormalZ(ab.mOuterX * bc.mInnerY - ab.mInnerY * bc.mOuterX), mHalf(half)
    {
    }

    /// For the children with position X along x.
    template <int X>
    MaskLanes separates(const Lanes& corner) const
    {
        const FloatLanes cornerX = __builtin_shufflevector(corner.mOuterX, corner.mOuterX, 2 * X, 2 * X, 2 * X, 2 * X);
        const FloatLanes y = __builtin_shufflevector(mNormalY, mNormalY, 2 * X, 2 * X + 1, 2 * X, 2 * X + 1);
        const FloatLanes z = __builtin_shufflevector(mNormalZ, mNormalZ, 2 * X, 2 * X, 2 * X + 1, 2 * X + 1);
        const FloatLanes reachX = reach(mNormalX);
        const FloatLanes reachY = reach(y);
        const FloatLanes reachZ = reach(z);
        const FloatLanes low =
            mNormalX * (-reachX - cornerX) + y * (-reachY - corner.mOuterY) + z * (-reachZ - corner.mInnerZ);
        const FloatLanes high =
            mNormalX * (reachX - cornerX) + y * (reachY - corner.mOuterY) + z * (reachZ - corner.mInnerZ);
        return (low > 0.0f) | ~(high >= 0.0f);
    }

private:
    FloatLanes reach(FloatLanes normal) const { return normal > 0.0f ? mHalf : -mHalf; }

    FloatLanes mNormalX; // lanes: y, z
    FloatLanes mNormalY; // x, z
    FloatLanes mNormalZ; // x, y
    FloatLanes mHalf;
};

/// A flat triangle's two axes, and where its children lie.
struct FlatAxes
{
    int mOuter;
    int mInner;
    bool mLaterPairs;       // the corners that stand for the triangle in the tests of the z axis
    MaskLanes mChildren[2]; // by position along the flat axis: bit k in the lane of child k
    uint32 mColumns[2];     // all children with that position
};

constexpr FlatAxes FLAT_AXES[3] = {
    {1, 2, false, {MaskLanes{1, 2, 8, 4}, MaskLanes{128, 64, 16, 32}}, {0x0F, 0xF0}},
    {0, 2, false, {MaskLanes{1, 2, 128, 64}, MaskLanes{8, 4, 16, 32}}, {0xC3, 0x3C}},
    {0, 1, true, {MaskLanes{1, 8, 128, 16}, MaskLanes{2, 4, 64, 32}}, {0x99, 0x66}},
};
} // namespace

VoxelTriangle::VoxelTriangle(const TriangleClass& triangleClass, const Vec3<float> (&corners)[3], bool ordinary)
    : mExtent(0.0f), mFlatAxis(NOT_FLAT), mClass(triangleClass)
{
    uint32 flatAxis = NOT_FLAT;
    for (uint32 axis = 0; axis < 3; ++axis)
    {
        const float p = corners[0][static_cast<int>(axis)];
        const float q = corners[1][static_cast<int>(axis)];
        const float r = corners[2][static_cast<int>(axis)];
        mPositions[axis][0] = p;
        mPositions[axis][1] = q;
        mPositions[axis][2] = r;
        ordinary = ordinary && std::fabs(p) <= ORDINARY_REACH && std::fabs(q) <= ORDINARY_REACH &&
                   std::fabs(r) <= ORDINARY_REACH;
        mMin[axis] = std::min(std::min(p, q), r);
        mMax[axis] = std::max(std::max(p, q), r);
        mExtent = std::max(mExtent, mMax[axis] - mMin[axis]);
        flatAxis = p == q && p == r ? axis : flatAxis;
    }
    if (ordinary)
        mFlatAxis = flatAxis;
    else
        mExtent = std::numeric_limits<float>::infinity();
}

bool isWithinReach(const Vec3<float>& centre, float edge)
{
    return std::max({std::fabs(centre.mX), std::fabs(centre.mY), std::fabs(centre.mZ)}) + edge <= ORDINARY_REACH;
}

ChildCubes::ChildCubes(const Vec3<float>& centre, float edge)
    : mHalf((edge / 2.0f + OVERLAP_MARGIN) * 0.5f),
      mReach(std::max({std::fabs(centre.mX), std::fabs(centre.mY), std::fabs(centre.mZ)}) + edge)
{
    const float quarter = edge / 4.0f;
    for (int axis = 0; axis < 3; ++axis)
    {
        mCentres[axis][0] = centre[axis] + -quarter;
        mCentres[axis][1] = centre[axis] + quarter;
    }
}

void ChildCubes::makeLanes()
{
    for (int axis = 0; axis < 3; ++axis)
    {
        const float low = mCentres[axis][0];
        const float high = mCentres[axis][1];
        if (axis < 2)
            mOuter[axis] = FloatLanes{low, low, high, high};
        mInner[axis] = FloatLanes{low, high, low, high};
    }
    mHasLanes = true;
}

Vec3<float> ChildCubes::getCentre(uint32 child) const
{
    const Vec3<int32>& corner = CHILD_CORNERS[child];
    return {mCentres[0][corner.mX], mCentres[1][corner.mY], mCentres[2][corner.mZ]};
}

uint32 ChildCubes::findAny(const VoxelTriangle& triangle) const
{
    const FloatLanes half = sameLanes(mHalf);
    const auto corner = [&](int i)
    {
        const FloatLanes x = sameLanes(triangle.mPositions[0][i]);
        const FloatLanes y = sameLanes(triangle.mPositions[1][i]);
        const FloatLanes z = sameLanes(triangle.mPositions[2][i]);
        return Lanes{x - mOuter[0], y - mOuter[1], y - mInner[1], z - mInner[2]};
    };
    const Lanes a = corner(0);
    const Lanes b = corner(1);
    const Lanes c = corner(2);
    const Lanes ab = b - a;
    const Lanes bc = c - b;
    Separated separated;
    separated.mXZ = extentSeparates(a.mOuterX, b.mOuterX, c.mOuterX, half);
    separated.mXY = extentSeparates(a.mInnerY, b.mInnerY, c.mInnerY, half);
    separated.mYZ = extentSeparates(a.mInnerZ, b.mInnerZ, c.mInnerZ, half);
    separateByEdge(separated, ab, a, c, b, c, half);
    separateByEdge(separated, bc, a, c, a, b, half);
    separateByEdge(separated, a - c, a, b, b, c, half);

    const PlaneTest plane(ab, bc, half);
    const MaskLanes low = joinSeparated<0>(separated) | plane.separates<0>(a);
    const MaskLanes high = joinSeparated<1>(separated) | plane.separates<1>(a);
    return orLanes((~low & FLAT_AXES[0].mChildren[0]) | (~high & FLAT_AXES[0].mChildren[1]));
}

ChildCubes::Overlaps ChildCubes::findFlat(const VoxelTriangle& triangle) const
{
    // Bounds the errors of a projection, in units of the last place of a product of two lengths. About 20 are needed.
    constexpr float ERROR_BOUND = 64.0f * 6e-8f;
    const FlatAxes& axes = FLAT_AXES[triangle.mFlatAxis];
    const float(&us)[3] = triangle.mPositions[axes.mOuter];
    const float(&vs)[3] = triangle.mPositions[axes.mInner];
    const FloatLanes half = sameLanes(mHalf);
    FloatLanes u[3];
    FloatLanes v[3];
    for (int i = 0; i < 3; ++i)
    {
        u[i] = sameLanes(us[i]) - mOuter[axes.mOuter];
        v[i] = sameLanes(vs[i]) - mInner[axes.mInner];
    }
    const FloatLanes lengthU = largerLanes(largerLanes(absoluteLanes(u[0]), absoluteLanes(u[1])), absoluteLanes(u[2]));
    const FloatLanes lengthV = largerLanes(largerLanes(absoluteLanes(v[0]), absoluteLanes(v[1])), absoluteLanes(v[2]));
    const FloatLanes length = largerLanes(lengthU, lengthV);
    const FloatLanes error = length * (length + mReach) * ERROR_BOUND + 1e-30f;

    MaskLanes separated = extentSeparates(u[0], u[1], u[2], half) | extentSeparates(v[0], v[1], v[2], half);
    MaskLanes isLeft = ~separated;
    MaskLanes isRight = ~separated;
    for (int i = 0; i < 3; ++i)
    {
        const int next = i < 2 ? i + 1 : 0;
        const int last = i > 0 ? i - 1 : 2;
        // the corner at the edge whose projection the scalar test takes
        const int at = i == 0             ? (axes.mLaterPairs ? 1 : 0)
                       : i == 1           ? (axes.mLaterPairs ? 1 : 2)
                       : axes.mLaterPairs ? 2
                                          : 0;
        const FloatLanes edgeU = u[next] - u[i];
        const FloatLanes edgeV = v[next] - v[i];
        const FloatLanes radius = absoluteLanes(edgeV) * half + absoluteLanes(edgeU) * half;
        const FloatLanes p = edgeV * u[at] - edgeU * v[at];
        const FloatLanes q = edgeV * u[last] - edgeU * v[last];
        separated |= separates(p, q, radius);
        isLeft &= p < -(radius + error);
        isRight &= p > radius + error;
    }

    Overlaps result = {0, 0};
    const MaskLanes covered = isLeft | isRight;
    for (int side = 0; side < 2; ++side)
    {
        const float t = triangle.mPositions[triangle.mFlatAxis][0] - mCentres[triangle.mFlatAxis][side];
        if (t > mHalf || t < -mHalf)
            continue;
        result.mTouched |= orLanes(~separated & axes.mChildren[side]);
        result.mCovered |= orLanes(covered & axes.mChildren[side]);
    }
    return result;
}

ChildCubes::Overlaps ChildCubes::findCovered(const VoxelTriangle& triangle) const
{
    uint32 touched = 0;
    for (int side = 0; side < 2; ++side)
    {
        const float t = triangle.mPositions[triangle.mFlatAxis][0] - mCentres[triangle.mFlatAxis][side];
        touched |= t > mHalf || t < -mHalf ? 0 : FLAT_AXES[triangle.mFlatAxis].mColumns[side];
    }
    return {touched, touched};
}

/// The children that a small ordinary triangle touches when there is one at most, ALL_CHILDREN when there may be more.
uint32 ChildCubes::findOnlyChild(const VoxelTriangle& triangle) const
{
    constexpr uint32 NOT_ONE = 2;
    constexpr uint8 CHILDREN[8] = {1 << 0, 1 << 1, 1 << 3, 1 << 2, 1 << 7, 1 << 6, 1 << 4, 1 << 5};
    uint32 child = 0;
    for (int axis = 0; axis < 3; ++axis)
    {
        const uint32 half = findHalf(triangle, axis);
        if (half == NOT_ONE)
            return ALL_CHILDREN;
        child = 2 * child + half;
    }
    return CHILDREN[child];
}

/// The half of the octant along an axis that the corners lie in, enlarged as the cubes are: 0 or 1, when all do and the
/// other half is out of their reach. Else 2.
uint32 ChildCubes::findHalf(const VoxelTriangle& triangle, int axis) const
{
    const float low = triangle.mMin[axis];
    const float high = triangle.mMax[axis];
    for (uint32 side = 0; side < 2; ++side)
    {
        const float centre = mCentres[axis][side];
        const float other = mCentres[axis][1 - side];
        const bool inside = low - centre >= -mHalf && high - centre <= mHalf;
        if (inside && (low - other > mHalf || high - other < -mHalf))
            return side;
    }
    return 2;
}
} // namespace KORV::NavMesh
