// The box of the points that can pass the inside test of a node. That test is computed in float, and may let in points
// that lie outside the polygon; how far outside depends on its shape and on its distance from the origin.
//
// Let r(i) be corner i seen from a point, and u = 2^-24. The test of a side from a to b computes cross(r(a), r(b)) as a
// sum of three products of a difference and a coordinate. Its sign is that of a value which differs from the true one
// by at most
//     E = u * (2.01 * (|r(a).y| * |b.x| + |r(b).y| * |a.x|) + 3.01 * |a.y - b.y| * |point.x|) + 2^-147,
// the last term for products too small to be normal. So a point that passes has cross(r(a), r(b)) >= -E on every side.
//
// Take a point outside the box of the corners (W by H, K the larger, C the largest |x| of a corner, n corners, V the
// sum of |a.y - b.y| over the sides) by d in one coordinate, say x, and by no more in the other. All r(i).x have one
// sign and lie within d and d + K, the |r(i).y| below d + K. Seen from the point, corners are ordered by their slopes
// r.y / r.x; a side changes the slope by cross(r(a), r(b)) / (r(a).x * r(b).x). The polygon is closed, so on the way
// from the highest to the lowest slope (or back, depending on the coordinate) the slope falls by the whole spread,
// within n - 1 sides, while a point that passes lets it fall by at most E / d^2 on each. The spread is at least
// w / (d + K) for a polygon of width w (the least distance of two parallels that hold it): all corners lie on one side
// of the line of sight to the extreme one, and one of them at least w away from it. So a point is rejected when
//     w * d^2 > u * (d + K) * ((n - 1) * (4.02 * C * (d + K) + 2^-123) + 3.01 * V * (C + d)),
// and when that holds for some d it holds for every larger one: the left side over the right one grows with d. The
// least such d is the margin of the box. There is none when w is too small, of the order of (n - 1) * 4 * u * C: then
// rounding lets points pass at any distance, and a node whose corners all lie on one line has that whole line inside.
// Nothing here asks for a convex polygon, or for one wound in a certain way.

#include "korv/navmesh/places/nodeshape.h"

#include "korv/navmesh/places/navmeshqueries.h"

#include <cmath>
#include <limits>

namespace KORV::NavMesh
{
namespace
{
constexpr double UNIT = 1.0 / (1 << 24);
/// Relative errors of a difference, a product and two sums.
constexpr double HEIGHT_ERROR = 4.02 * UNIT;
constexpr double TINY = 1e-40;

bool isWithin(const Vec3<float>& v, float limit)
{
    return std::fabs(v.mX) <= limit && std::fabs(v.mY) <= limit && std::fabs(v.mZ) <= limit;
}

double distanceOf(const Vec2<float>& a, const Vec2<float>& b)
{
    return std::hypot(double(b.mX) - double(a.mX), double(b.mY) - double(a.mY));
}

double crossOf(const Vec2<float>& a, const Vec2<float>& b, const Vec2<float>& c)
{
    return (double(b.mX) - double(a.mX)) * (double(c.mY) - double(a.mY)) -
           (double(b.mY) - double(a.mY)) * (double(c.mX) - double(a.mX));
}

/// How far beyond the box of its corners a polygon can seem to reach; infinity for no limit.
double getMargin(double size, double width, double maxX, double numCorners, double sumOfRises)
{
    // the condition above as a * d^2 > b * d + c
    const double perDistance = UNIT * ((numCorners - 1.0) * 4.02 * maxX + 3.01 * sumOfRises);
    const double constant = UNIT * ((numCorners - 1.0) * (4.02 * maxX * size + 1e-37) + 3.01 * sumOfRises * maxX);
    const double a = width - perDistance;
    if (!(a > 1e-6 * width))
        return std::numeric_limits<double>::infinity();
    const double b = constant + perDistance * size;
    const double c = constant * size;
    return 1.001 * (b + std::sqrt(b * b + 4.0 * a * c)) / (2.0 * a);
}
} // namespace

float roundDown(double value)
{
    const auto nearest = static_cast<float>(value);
    return double(nearest) <= value ? nearest : std::nextafter(nearest, -std::numeric_limits<float>::infinity());
}

float roundUp(double value)
{
    return -roundDown(-value);
}

bool PlaneFrame::isRegular() const
{
    constexpr float MAX_COMPONENT = 1000.0f;
    return isWithin(mNormal, MAX_COMPONENT) && isWithin(mXAxis, MAX_COMPONENT) && isWithin(mYAxis, MAX_COMPONENT);
}

bool PlaneFrame::isRegular(const Vec3<float>& position, const Vec2<float>& place) const
{
    return isWithin(position, MAX_COORDINATE) && isWithin({place.mX, place.mY, 0.0f}, MAX_COORDINATE);
}

double PlaneFrame::getHeightError(const Vec3<float>& position) const
{
    const double sum = std::fabs(double(mNormal.mX) * double(position.mX)) +
                       std::fabs(double(mNormal.mY) * double(position.mY)) +
                       std::fabs(double(mNormal.mZ) * double(position.mZ));
    return HEIGHT_ERROR * sum + TINY;
}

bool NodeShape::assign(const NavMeshContainer& mesh, const PlaneFrame& frame, uint32 nodeID)
{
    const NavMeshContainer::NavNode& node = mesh.mNodes[nodeID];
    const auto heightClass = static_cast<size_t>(node.mHeightClass);
    if (node.mPolygon.empty() || node.mHeightClass < 0 || heightClass >= mesh.mHeight.size() ||
        std::isnan(mesh.mHeight[heightClass]))
        return false;
    mCorners.clear();
    mIsRegular = frame.isRegular();
    for (const uint32 id : node.mPolygon)
    {
        if (id >= mesh.mVertices.size())
            return false;
        mCorners.push_back(projectToPlane(mesh.mVertices[id], frame.mXAxis, frame.mYAxis));
        mIsRegular = mIsRegular && frame.isRegular(mesh.mVertices[id], mCorners.back());
    }
    mFirstCorner = mesh.mVertices[node.mPolygon[0]];
    mMaxHeight = mesh.mHeight[heightClass];
    mID = nodeID;
    return true;
}

bool NodeShape::hasArea() const
{
    double doubleArea = 0.0;
    for (size_t i = 2; i < mCorners.size(); ++i)
        doubleArea += crossOf(mCorners[0], mCorners[i - 1], mCorners[i]);
    return doubleArea > 0.0;
}

void NodeShape::measure(const NavMeshContainer& mesh, const PlaneFrame& frame)
{
    const double firstHeight = frame.getHeight(mFirstCorner);
    const double heightError = frame.getHeightError(mFirstCorner);
    double low[3] = {double(mCorners[0].mX), double(mCorners[0].mY), firstHeight - heightError};
    double high[3] = {low[0], low[1], firstHeight + heightError};
    const auto include = [&low, &high](int axis, double value)
    {
        low[axis] = std::min(low[axis], value);
        high[axis] = std::max(high[axis], value);
    };
    double sumOfRises = 0.0;
    for (size_t i = 0, before = mCorners.size() - 1; i < mCorners.size(); before = i++)
    {
        include(0, double(mCorners[i].mX));
        include(1, double(mCorners[i].mY));
        sumOfRises += std::fabs(double(mCorners[i].mY) - double(mCorners[before].mY));
    }
    const double margin =
        getMargin(std::max(high[0] - low[0], high[1] - low[1]), getWidth(),
                  std::max(std::fabs(low[0]), std::fabs(high[0])), double(mCorners.size()), sumOfRises);
    mIsBounded = margin < double(PlaneFrame::MAX_COORDINATE);
    for (int axis = 0; axis < 2 && mIsBounded; ++axis)
    {
        low[axis] -= margin;
        high[axis] += margin;
    }
    // where the polygon lies, without the rounding of projected corners
    for (const uint32 id : mesh.mNodes[mID].mPolygon)
    {
        include(0, PlaneFrame::getProduct(frame.mXAxis, mesh.mVertices[id]));
        include(1, PlaneFrame::getProduct(frame.mYAxis, mesh.mVertices[id]));
        include(2, frame.getHeight(mesh.mVertices[id]));
    }
    for (int axis = 0; axis < 3; ++axis)
    {
        mBox.mLow[axis] = roundDown(low[axis]);
        mBox.mHigh[axis] = roundUp(high[axis]);
    }
}

/// At most the width of the polygon: that of a large triangle of corners.
double NodeShape::getWidth() const
{
    const auto findFarthest = [this](auto measureCorner)
    {
        return *std::max_element(mCorners.begin(), mCorners.end(),
                                 [&](const Vec2<float>& a, const Vec2<float>& b)
                                 { return measureCorner(a) < measureCorner(b); });
    };
    const Vec2<float> start = mCorners[0];
    const Vec2<float> a = findFarthest([&](const Vec2<float>& corner) { return distanceOf(start, corner); });
    const Vec2<float> b = findFarthest([&](const Vec2<float>& corner) { return distanceOf(a, corner); });
    const Vec2<float> c = findFarthest([&](const Vec2<float>& corner) { return std::fabs(crossOf(a, b, corner)); });
    const double longest = std::max({distanceOf(a, b), distanceOf(b, c), distanceOf(c, a)});
    if (!(longest > 0.0))
        return 0.0;
    // less the rounding of this computation
    return std::max(0.0, std::fabs(crossOf(a, b, c)) / longest - 1e-14 * longest);
}
} // namespace KORV::NavMesh
