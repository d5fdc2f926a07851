// Which octants a small triangle touches, by its box alone.
//
// Idea: most triangles of a detailed scene lie in one voxel or in a row of voxels, and then the box tells them. A
// triangle is connected: where its box is thinner than a cell along two axes, it has a point in every cell that the box
// reaches along the third. What the literal test (childoverlaps) finds may differ from that by rounding only, so a box
// that ends next to a face, at less than all rounding errors, is not decided here.
//
// An octant that all corners lie in is found touched, whatever its size: see the short ways of childoverlaps. An octant
// that the box doesn't reach is found separated along an axis. For a cell of a row, which some corners may lie beyond,
// the test must find no separation along other axes either:
// - Take the triangle of the corners as the test sees them, rounded, and a point of it that lies within the cube by a
//   distance s along each axis. An axis made of an edge whose components add up to e has room s e. Its projections are
//   off by 3 u L e and the cube's by 3 u h e; rounding the corners takes u L of s.
// - The computed normal, whose components add up to n, is off by 8 u E^2 each, so the point's projection differs from
//   that of the first corner by 48 u E^3; the projections are off by 4 u (L + h) n, and there is room s n.
// - A flat triangle's normal has one component and separates only where the box does.
//
// Numbers: u is the unit roundoff 6e-8, L the largest distance along an axis from the centre of an octant to a corner,
// at most 2.5 times the grid's edge; h half the edge of an octant, E the largest component of an edge. How far
// off rounding takes the centres of octants is measured; places in the grid are off by 12 u times the grid's edge.
// With L at most 2.5 times the edge of a grid of 64 cells, that is 1430 u cells, and 23 u of the edge in general.
// Edges here are those of the corners as they stand, so that the normal, too, is off by up to 24 u L E. Products of
// components smaller than 1e-20 have few digits or none, which the above leaves out.

#include "korv/navmesh/voxels/cellgrid.h"

#include "korv/navmesh/voxels/childoverlaps.h"

#include <algorithm>
#include <cmath>

namespace KORV::NavMesh
{
namespace
{
constexpr float UNIT = 8e-8f;          // the unit roundoff, rounded up by a third
constexpr float LARGEST_ERRORS = 0.1f; // of a cell; with more, most boxes would be uncertain
constexpr float CLEAR = 1.0f / 64;     // room that a triangle which isn't flat must have [cells]
constexpr float TINY = 1e-20f;

bool holdsForAll(MaskLanes lanes)
{
    return gatherBits(lanes, lanes) == 0xFF;
}

uint32 gatherAxes(MaskLanes lanes)
{
    return gatherBits(lanes, lanes) & 7u;
}

FloatLanes toLanes(const Vec3<float>& corner)
{
    return FloatLanes{corner.mX, corner.mY, corner.mZ, 0.0f};
}

FloatLanes smallest(const FloatLanes (&lanes)[3])
{
    return smallerLanes(smallerLanes(lanes[0], lanes[1]), lanes[2]);
}

FloatLanes largest(const FloatLanes (&lanes)[3])
{
    return largerLanes(largerLanes(lanes[0], lanes[1]), lanes[2]);
}

/// Whether positions keep a distance from the faces of the cells. [cells]
MaskLanes areWithin(FloatLanes positions, MaskLanes cells, float distance)
{
    const FloatLanes fractions = positions - __builtin_convertvector(cells, FloatLanes);
    return (fractions >= distance) & (fractions <= 1.0f - distance);
}

FloatLanes rotate(FloatLanes lanes)
{
    return __builtin_shufflevector(lanes, lanes, 1, 2, 0, 3);
}

float sumOfAxes(FloatLanes lanes)
{
    return lanes[0] + lanes[1] + lanes[2];
}

float largestAxis(FloatLanes lanes)
{
    return std::max({lanes[0], lanes[1], lanes[2]});
}
/// How far rounding takes the centres of octants off, along an axis. @param ideal  where the octant's centre should be.
float measureDrift(double ideal, float centre, float edge, uint32 levels)
{
    if (levels == 0)
        return static_cast<float>(std::fabs(centre - ideal));
    const float quarter = edge / 4.0f;
    return std::max({static_cast<float>(std::fabs(centre - ideal)),
                     measureDrift(ideal - quarter, centre - quarter, edge / 2.0f, levels - 1),
                     measureDrift(ideal + quarter, centre + quarter, edge / 2.0f, levels - 1)});
}
} // namespace

CellGrid::CellGrid(const Vec3<float>& centre, float edge, uint32 levels)
{
    const float dimension = static_cast<float>(1u << levels);
    const float cell = edge / dimension;
    const float scale = 1.0f / cell;
    const float enlarged = OVERLAP_MARGIN / 2.0f * scale;
    mCentre = toLanes(centre);
    mScale = FloatLanes{scale, scale, scale, 0.0f};
    mFirst = sameLanes(dimension / 2.0f - enlarged);
    mLast = sameLanes(dimension / 2.0f + enlarged);
    mFirst[3] = mLast[3] = 0.5f;
    mDimension = sameLanes(dimension);
    for (int axis = 0; axis < 3; ++axis)
        mDrift = std::max(mDrift, measureDrift(centre[axis], centre[axis], edge, levels));
    mErrors = mDrift * scale + UNIT * 25.0f * dimension;
    mReach = mErrors < LARGEST_ERRORS && isWithinReach(centre, edge) ? 2.0f * edge : 0.0f;
    mCubicShare = UNIT * 96.0f / (CLEAR * cell / 2.0f);
    mLinearShare = UNIT * 60.0f * edge;
}

bool CellGrid::find(const Vec3<float> (&corners)[3], CellRange& range) const
{
    const FloatLanes offsets[3] = {toLanes(corners[0]) - mCentre, toLanes(corners[1]) - mCentre,
                                   toLanes(corners[2]) - mCentre};
    // also false for what is not a number
    if (!holdsForAll(absoluteLanes(offsets[0]) + absoluteLanes(offsets[1]) + absoluteLanes(offsets[2]) <= mReach))
        return false;
    FloatLanes low = smallest(offsets) * mScale + mFirst;
    FloatLanes high = largest(offsets) * mScale + mLast;
    const MaskLanes isBefore = low < -mErrors;
    const MaskLanes isBeyond = high > mDimension + mErrors;
    low = isBefore ? sameLanes(0.5f) : low;
    high = isBeyond ? mDimension - 0.5f : high;
    const MaskLanes first = __builtin_convertvector(low, MaskLanes);
    const MaskLanes last = __builtin_convertvector(high, MaskLanes);
    if (!holdsForAll(areWithin(low, first, mErrors) & areWithin(high, last, mErrors) & (first <= last)))
        return false;
    for (int axis = 0; axis < 3; ++axis)
    {
        range.mFirst[axis] = first[axis];
        range.mLast[axis] = last[axis];
    }
    range.mLongAxes = gatherAxes((first != last) | isBefore | isBeyond);
    range.mIsInside = gatherAxes(isBefore | isBeyond) == 0;
    return true;
}

bool CellGrid::touchesRow(const Vec3<float> (&corners)[3], const CellRange& range) const
{
    if (range.mLongAxes == 0)
        return true;
    const FloatLanes lanes[3] = {toLanes(corners[0]), toLanes(corners[1]), toLanes(corners[2])};
    const FloatLanes ab = lanes[1] - lanes[0];
    const FloatLanes bc = lanes[2] - lanes[1];
    const FloatLanes ca = lanes[0] - lanes[2];
    const auto isTiny = [](FloatLanes edge) { return (edge != 0.0f) & (absoluteLanes(edge) < TINY); };
    if (gatherAxes(isTiny(ab) | isTiny(bc) | isTiny(ca)) != 0)
        return false;
    if (gatherAxes((lanes[0] == lanes[1]) & (lanes[0] == lanes[2])) != 0)
        return true;
    return hasClearNormal(ab, bc, ca) && hasClearBox(lanes);
}

bool CellGrid::hasClearNormal(FloatLanes ab, FloatLanes bc, FloatLanes ca) const
{
    const FloatLanes edges = largerLanes(largerLanes(absoluteLanes(ab), absoluteLanes(bc)), absoluteLanes(ca));
    const float length = largestAxis(edges);
    const float normal = sumOfAxes(absoluteLanes(ab * rotate(bc) - rotate(ab) * bc));
    return normal >= length * (mCubicShare * length * length + mLinearShare);
}

/// Whether the box ends far enough from the faces of cells, also where that is outside the grid.
bool CellGrid::hasClearBox(const FloatLanes (&corners)[3]) const
{
    // beyond the grid the numbers of cells are negative or large, but the box isn't far off
    const FloatLanes toPositive = sameLanes(1024.0f);
    const FloatLanes low = (smallest(corners) - mCentre) * mScale + mFirst + toPositive;
    const FloatLanes high = (largest(corners) - mCentre) * mScale + mLast + toPositive;
    return holdsForAll(areWithin(low, __builtin_convertvector(low, MaskLanes), CLEAR) &
                       areWithin(high, __builtin_convertvector(high, MaskLanes), CLEAR));
}
} // namespace KORV::NavMesh
