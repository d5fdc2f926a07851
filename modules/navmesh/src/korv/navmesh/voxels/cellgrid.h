#pragma once

#include "korv/navmesh/floatlanes.h"
#include "korv/navmesh/types.h"

namespace KORV::NavMesh
{
/// Cells that a triangle's box reaches, along each axis from the first to the last.
struct CellRange
{
    Vec3<int32> getFirst() const { return {mFirst[0], mFirst[1], mFirst[2]}; }
    /// Whether the box is thinner than a cell along two axes at least.
    bool isRow() const { return (mLongAxes & (mLongAxes - 1)) == 0; }
    /// Levels of the smallest octant that all these cells lie in.
    uint32 getCommonLevels() const
    {
        const int32 differences = (mFirst[0] ^ mLast[0]) | (mFirst[1] ^ mLast[1]) | (mFirst[2] ^ mLast[2]);
        return static_cast<uint32>(std::bit_width(static_cast<uint32>(differences)));
    }

    int32 mFirst[3];
    int32 mLast[3];
    uint32 mLongAxes; ///< bit i: the box doesn't lie in one of them along axis i
    bool mIsInside;   ///< whether all of the box lies in the grid
};

/// An octant as a grid of its octants some levels below, each a little enlarged, as in ChildCubes: tells from a
/// triangle's box which of them the triangle touches, as far as that is certain, and what the tests on the way down to
/// them find.
class CellGrid
{
public:
    CellGrid() = default;
    /// @param centre,edge  of the octant. [world units]
    /// @param levels  below it.
    CellGrid(const Vec3<float>& centre, float edge, uint32 levels);

    /// How far off the centres of octants are at most, by rounding on the way down to them. [world units]
    float getDrift() const { return mDrift; }

    /// The cells that the box reaches; the triangle touches none else.
    /// @return whether that is certain. Then an octant that the whole box lies in is found touched all the way down,
    /// and none beside it.
    bool find(const Vec3<float> (&corners)[3], CellRange& range) const;
    /// @param range  cells found, with one long axis at most.
    /// @return whether it is certain that the triangle touches all of them, and the octants they lie in.
    bool touchesRow(const Vec3<float> (&corners)[3], const CellRange& range) const;

private:
    bool hasClearBox(const FloatLanes (&corners)[3]) const;
    bool hasClearNormal(FloatLanes ab, FloatLanes bc, FloatLanes ca) const;

    // lanes: x, y, z, and one that makes no difference
    FloatLanes mCentre;
    FloatLanes mScale; // cells per world unit
    FloatLanes mFirst; // from the centre to where the grid begins, less and more what cells are enlarged by [cells]
    FloatLanes mLast;
    FloatLanes mDimension; // [cells]
    float mReach = 0.0f;   // how far off a triangle may be [world units]
    float mDrift = 0.0f;
    float mErrors = 1.0f;     // all rounding errors together [cells]
    float mCubicShare = 0.0f; // how long a normal must be, see the numbers above
    float mLinearShare = 0.0f;
};
} // namespace KORV::NavMesh
