#pragma once

#include "korv/navmesh/floatlanes.h"
#include "korv/navmesh/geometryinfo.h"

namespace KORV::NavMesh
{
/// A triangle of the input: the world positions of its corners, and what its classifier says of it.
struct VoxelTriangle
{
    static constexpr uint32 NOT_FLAT = 3;

    /// @param ordinary  whether all octants it is tested against lie within ORDINARY_REACH.
    VoxelTriangle(const TriangleClass& triangleClass, const Vec3<float> (&corners)[3], bool ordinary);

    float mPositions[3][3]; ///< [axis][corner]
    float mMin[3];          ///< along each axis
    float mMax[3];
    float mExtent;    ///< largest of the three, infinite when the triangle isn't ordinary
    uint32 mFlatAxis; ///< along which all corners of an ordinary triangle have one position, or NOT_FLAT
    TriangleClass mClass;
};

/// What the edge of a cube is enlarged by, so that a triangle on a face never falls between two. [world units]
inline constexpr float OVERLAP_MARGIN = 0.0001f;

/// No product of the overlap tests overflows when coordinates are up to this. [world units]
inline constexpr float ORDINARY_REACH = 1e9f;

/// Whether all of an octant lies within ORDINARY_REACH. @param edge  of its cube. [world units]
bool isWithinReach(const Vec3<float>& centre, float edge);

/// The cubes of an octant's eight children, each a little enlarged, for testing which of them a triangle touches. The
/// answers are what TriangleBoxOverlap says of each cube, bit for bit.
class ChildCubes
{
public:
    /// Bit k of a mask stands for child k.
    struct Overlaps
    {
        uint32 mTouched;
        uint32 mCovered; ///< touched children that the triangle, a flat one, spans from side to side
    };

    /// @param edge  of the octant's cube. [world units]
    ChildCubes(const Vec3<float>& centre, float edge);

    Vec3<float> getCentre(uint32 child) const;

    /// @param covers  that the triangle is known to span the whole octant, see Overlaps.
    Overlaps find(const VoxelTriangle& triangle, bool covers)
    {
        if (covers)
            return findCovered(triangle);
        if (!mHasLanes)
            makeLanes();
        if (triangle.mExtent < mHalf)
        {
            const uint32 child = findOnlyChild(triangle);
            if (child != ALL_CHILDREN)
                return {child, 0};
        }
        return triangle.mFlatAxis != VoxelTriangle::NOT_FLAT ? findFlat(triangle) : Overlaps{findAny(triangle), 0};
    }

private:
    static constexpr uint32 ALL_CHILDREN = 255;

    void makeLanes();
    uint32 findAny(const VoxelTriangle& triangle) const;
    Overlaps findFlat(const VoxelTriangle& triangle) const;
    Overlaps findCovered(const VoxelTriangle& triangle) const;
    uint32 findOnlyChild(const VoxelTriangle& triangle) const;
    uint32 findHalf(const VoxelTriangle& triangle, int axis) const;

    // Along each axis the children's centres have two positions. A lane stands for a pair of positions on two axes:
    // on the outer axis the second comes after two lanes, on the inner axis after one.
    FloatLanes mOuter[2]; // x, y
    FloatLanes mInner[3]; // none, y, z
    float mCentres[3][2];
    float mHalf;            // half of an enlarged cube's edge
    float mReach;           // about the largest coordinate of the octant
    bool mHasLanes = false; // triangles that cover the octant need none
};
} // namespace KORV::NavMesh
