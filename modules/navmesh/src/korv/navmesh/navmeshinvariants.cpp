// Checks what a finished mesh promises, for any mesh, also one read from a broken document.
//
// Ids, classes and numbers are looked at first; a node's shape is looked at only where they are sound. The shape test
// works in the ground plane in double precision, on three questions:
//   - does the node have a negative area, beyond what rounding of its corners can make or hide;
//   - do its sides run once around the convex hull of its corners (those of a bow tie or a star do not);
//   - does a corner lie too deep inside the hull. Between two corners of the hull, in polygon order, the depth of the
//     others is measured from the line through those two.
//
// How deep is too deep: a generated piece is convex after every corner has been moved inwards by a quarter of a cube,
// and stored with its corners where they were. So a corner can lie a quarter cube too far inside and both ends of the
// hull side a quarter too far outside: half a cube, and up to 0.71 cubes where the corner lies beyond an end of that
// side. Tolerated are 0.75 cubes. The test of convexity that pieces have passed lets a corner turn the wrong way by
// 1e-4; 1e-3 of the hull side's length is added for several such corners in a row. At the tip
// of a needle, corners may also come in the wrong order, twice the tolerance apart along the hull.
//
// Cost: n log n for a node of n corners, because of the hull. No recursion.
//
// Source: the hull is the monotone chain of A. M. Andrew, "Another Efficient Algorithm for Convex Hulls in Two
// Dimensions", Information Processing Letters 9(5), 1979.

#include "korv/navmesh/navmeshcontainer.h"

#include "korv/common/debug/messagetext.h"

#include <algorithm>
#include <cmath>

namespace KORV::NavMesh
{
namespace
{
using Common::Debug::MessageText;
using NavNode = NavMeshContainer::NavNode;
using Violation = NavMeshContainer::Violation;
using Point = Vec2<double>;

/// The search packs a node id into 20 bits, of which the largest value is taken.
constexpr size_t MAX_NODES = 1048575 - 1;

/// Allowed error of lengths and dot products of the orientation vectors, which documents store as text.
constexpr double AXIS_TOLERANCE = 1e-3;
constexpr double DENT_IN_CUBES = 0.75;
constexpr double DENT_PER_LENGTH = 1e-3;
/// Rounding of a coordinate of type float and of its projection, relative to the largest coordinate.
constexpr double COORDINATE_ROUNDING = 2.4e-7;

bool isFinite(const Vec3<float>& v)
{
    return std::isfinite(v.mX) && std::isfinite(v.mY) && std::isfinite(v.mZ);
}

Vec3<double> widen(const Vec3<float>& v)
{
    return {v.mX, v.mY, v.mZ};
}

/// Whether the ground plane is good enough to project corners into it.
bool isFrameUsable(const NavMeshContainer& mesh)
{
    const Vec3<double> x = widen(mesh.mXAxis);
    const Vec3<double> y = widen(mesh.mYAxis);
    return isFinite(mesh.mXAxis) && isFinite(mesh.mYAxis) && cross(x, y).getLength() > 0.5;
}

/// The violations found so far, up to a limit.
class Findings
{
public:
    Findings(Common::Memory::Allocator* allocator, uint32 limit) : mList(allocator), mLimit(limit) {}

    bool isFull() const { return mList.size() >= mLimit; }
    void add(int32 node, int32 side, const MessageText& text)
    {
        if (isFull())
            return;
        const auto allocator = mList.get_allocator();
        mList.push_back(Violation{node, side, BasicString(text.c_str(), allocator)});
    }
    Vector<Violation> take() { return std::move(mList); }

private:
    Vector<Violation> mList;
    size_t mLimit;
};

/// Looks at the shape of one node after the other; keeps its memory between them.
class ShapeCheck
{
public:
    ShapeCheck(const NavMeshContainer& mesh, Findings& findings)
        : mMesh(mesh), mFindings(findings), mCorners(mesh.getMemory()), mOrder(mesh.getMemory()),
          mHull(mesh.getMemory()), mPosition(mesh.getMemory())
    {
        if (std::isfinite(mesh.mCubeSize) && mesh.mCubeSize > 0.0f)
            mDent = DENT_IN_CUBES * static_cast<double>(mesh.mCubeSize);
    }

    /// @param node  all corner ids are valid, all corners finite, and there are at least three.
    void check(int32 nodeID, const NavNode& node)
    {
        project(node);
        if (!checkArea(nodeID))
            return;
        findHull();
        checkWalk(nodeID);
    }

private:
    static constexpr double NOT_ON_HULL = -1.0;

    /// Corners are kept relative to the first one, so that far from the origin nothing more is lost.
    void project(const NavNode& node)
    {
        const Vec3<double> x = widen(mMesh.mXAxis);
        const Vec3<double> y = widen(mMesh.mYAxis);
        const Vec3<double> first = widen(mMesh.mVertices[node.mPolygon[0]]);
        double largest = 0.0;
        mCorners.clear();
        for (const uint32 id : node.mPolygon)
        {
            const Vec3<double> corner = widen(mMesh.mVertices[id]);
            largest = std::max({largest, std::abs(corner.mX), std::abs(corner.mY), std::abs(corner.mZ)});
            mCorners.push_back({dot(x, corner - first), dot(y, corner - first)});
        }
        mRounding = largest * COORDINATE_ROUNDING;
    }

    const Point& after(size_t i) const { return mCorners[i + 1 < mCorners.size() ? i + 1 : 0]; }

    bool checkArea(int32 nodeID)
    {
        double perimeter = 0.0;
        mArea = 0.0;
        for (size_t i = 0; i < mCorners.size(); ++i)
        {
            mArea += 0.5 * cross(mCorners[i], after(i));
            perimeter += (after(i) - mCorners[i]).getLength();
        }
        if (mArea > 0.5 * perimeter * mRounding)
            return true;
        // A piece without area is of no use, but it breaks nothing: the cut of an outline may leave one.
        if (mArea < -0.5 * perimeter * mRounding)
            mFindings.add(nodeID, -1, MessageText() << "the corners run clockwise: the area is " << mArea);
        return false;
    }

    double tolerance(double length) const { return mDent + DENT_PER_LENGTH * length + 4.0 * mRounding; }

    /// Finds the corners of the hull, counter-clockwise, and how far along it each of them lies.
    void findHull()
    {
        mOrder.clear();
        for (uint32 i = 0; i < mCorners.size(); ++i)
            mOrder.push_back(i);
        std::sort(mOrder.begin(), mOrder.end(),
                  [this](uint32 a, uint32 b)
                  {
                      const Point& p = mCorners[a];
                      const Point& q = mCorners[b];
                      return p.mX != q.mX ? p.mX < q.mX : p.mY != q.mY ? p.mY < q.mY : a < b;
                  });
        mHull.clear();
        appendChain(mOrder.begin(), mOrder.end());
        appendChain(mOrder.rbegin(), mOrder.rend());

        mPosition.assign(mCorners.size(), NOT_ON_HULL);
        mHullLength = 0.0;
        mHullArea = 0.0;
        for (size_t i = 0; i < mHull.size(); ++i)
        {
            const Point& corner = mCorners[mHull[i]];
            const Point& next = mCorners[mHull[i + 1 < mHull.size() ? i + 1 : 0]];
            mPosition[mHull[i]] = mHullLength;
            mHullLength += (next - corner).getLength();
            mHullArea += 0.5 * cross(corner, next);
        }
    }

    /// Appends one half of the hull, from corners in their order along it; the last one is left to the other half.
    template <class Iterator>
    void appendChain(Iterator begin, Iterator end)
    {
        const size_t base = mHull.size();
        for (Iterator it = begin; it != end; ++it)
        {
            const Point& next = mCorners[*it];
            while (mHull.size() >= base + 2 && !turnsLeft(mHull[mHull.size() - 2], mHull.back(), next))
                mHull.pop_back();
            mHull.push_back(*it);
        }
        mHull.pop_back();
    }

    bool turnsLeft(uint32 a, uint32 b, const Point& c) const
    {
        return cross(mCorners[b] - mCorners[a], c - mCorners[a]) > 0.0;
    }

    /// Follows the polygon from one corner of the hull to the next and looks at what lies between.
    void checkWalk(int32 nodeID)
    {
        const size_t count = mCorners.size();
        const size_t start = mHull[0];
        size_t from = start;
        double walked = 0.0;
        for (size_t step = 1; step <= count; ++step)
        {
            const size_t to = (start + step) % count;
            if (mPosition[to] == NOT_ON_HULL)
                continue;
            walked += getStep(from, to);
            checkPocket(nodeID, from, to);
            from = to;
        }
        if (mArea > 1.5 * mHullArea || std::abs(walked - mHullLength) > 0.5 * mHullLength)
            mFindings.add(nodeID, -1, MessageText() << "the sides cross each other or run around more than once");
    }

    /// The way along the hull from one of its corners to another: forwards, except for very short ways back.
    double getStep(size_t from, size_t to) const
    {
        const double longestBack = std::min(2.0 * tolerance(0.0), 0.25 * mHullLength);
        const double step = mPosition[to] - mPosition[from];
        if (step < -longestBack)
            return step + mHullLength;
        return step > mHullLength - longestBack ? step - mHullLength : step;
    }

    /// The corners between two neighbouring corners of the hull.
    void checkPocket(int32 nodeID, size_t from, size_t to)
    {
        const Point side = mCorners[to] - mCorners[from];
        const double length = side.getLength();
        for (size_t i = (from + 1) % mCorners.size(); i != to; i = (i + 1) % mCorners.size())
        {
            const Point corner = mCorners[i] - mCorners[from];
            const double depth = length > 0.0 ? cross(side, corner) / length : corner.getLength();
            if (depth > tolerance(length))
                mFindings.add(nodeID, static_cast<int32>(i),
                              MessageText() << "the node is not convex: the corner lies " << depth
                                            << " inside the line past it, which is more than " << tolerance(length));
        }
    }

    const NavMeshContainer& mMesh;
    Findings& mFindings;
    Vector<Point> mCorners;
    Vector<uint32> mOrder;
    Vector<uint32> mHull;
    Vector<double> mPosition; ///< of each corner along the hull
    double mArea = 0.0;
    double mHullArea = 0.0;
    double mHullLength = 0.0;
    double mDent = 0.0;
    double mRounding = 0.0;
};

void checkAxis(const char* name, const Vec3<float>& axis, Findings& findings)
{
    const double length = widen(axis).getLength();
    if (!(std::abs(length - 1.0) <= AXIS_TOLERANCE))
        findings.add(-1, -1,
                     MessageText() << name << " is not of length 1: " << axis.mX << ' ' << axis.mY << ' ' << axis.mZ);
}

void checkRightAngle(const char* names, const Vec3<float>& a, const Vec3<float>& b, Findings& findings)
{
    if (!(std::abs(dot(widen(a), widen(b))) <= AXIS_TOLERANCE))
        findings.add(-1, -1, MessageText() << names << " are not at right angles");
}

void checkMesh(const NavMeshContainer& mesh, Findings& findings)
{
    if (!(mesh.mCubeSize > 0.0f) || !std::isfinite(mesh.mCubeSize))
        findings.add(-1, -1, MessageText() << "the cube size is not above 0: " << mesh.mCubeSize);
    checkAxis("the up direction", mesh.mNormal, findings);
    checkAxis("the x axis", mesh.mXAxis, findings);
    checkAxis("the y axis", mesh.mYAxis, findings);
    checkRightAngle("the up direction and the x axis", mesh.mNormal, mesh.mXAxis, findings);
    checkRightAngle("the up direction and the y axis", mesh.mNormal, mesh.mYAxis, findings);
    checkRightAngle("the x axis and the y axis", mesh.mXAxis, mesh.mYAxis, findings);
    if (mesh.mNodes.size() > MAX_NODES)
        findings.add(-1, -1,
                     MessageText() << "there are " << mesh.mNodes.size() << " nodes, the search takes at most "
                                   << MAX_NODES);
    for (size_t i = 0; i < mesh.mHeight.size() && !findings.isFull(); ++i)
    {
        if (!std::isfinite(mesh.mHeight[i]))
            findings.add(-1, -1, MessageText() << "the height of class " << i << " is not finite");
    }
    for (size_t i = 0; i < mesh.mVertices.size() && !findings.isFull(); ++i)
    {
        const Vec3<float>& v = mesh.mVertices[i];
        if (!isFinite(v))
            findings.add(-1, -1,
                         MessageText() << "vertex " << i << " is not finite: " << v.mX << ' ' << v.mY << ' ' << v.mZ);
    }
}

/// @return whether the polygon can be projected.
bool checkCorners(const NavMeshContainer& mesh, int32 nodeID, const NavNode& node, Findings& findings)
{
    bool sound = node.mPolygon.size() >= 3;
    if (!sound)
        findings.add(nodeID, -1,
                     MessageText() << "the node has " << node.mPolygon.size()
                                   << " corners, a polygon takes at least 3");
    for (size_t i = 0; i < node.mPolygon.size(); ++i)
    {
        const uint32 id = node.mPolygon[i];
        const bool inRange = id < mesh.mVertices.size();
        if (!inRange)
            findings.add(nodeID, static_cast<int32>(i),
                         MessageText() << "the corner names vertex " << id << ", there are " << mesh.mVertices.size());
        // a vertex that is not finite has been reported with the mesh
        sound = sound && inRange && isFinite(mesh.mVertices[id]);
    }
    return sound;
}

void checkNeighbours(const NavMeshContainer& mesh, int32 nodeID, const NavNode& node, Findings& findings)
{
    if (node.mNeighbours.size() != node.mPolygon.size())
        findings.add(nodeID, -1,
                     MessageText() << "the node has " << node.mPolygon.size() << " sides, but "
                                   << node.mNeighbours.size() << " neighbour entries");
    for (size_t i = 0; i < node.mNeighbours.size(); ++i)
    {
        const int32 neighbour = node.mNeighbours[i];
        const int32 side = static_cast<int32>(i);
        if (neighbour == nodeID)
            findings.add(nodeID, side, MessageText() << "the neighbour is the node itself");
        else if (neighbour < -1)
            findings.add(nodeID, side, MessageText() << "the neighbour is " << neighbour << ", none is written as -1");
        else if (neighbour >= 0 && static_cast<size_t>(neighbour) >= mesh.mNodes.size())
            findings.add(nodeID, side,
                         MessageText() << "the neighbour is node " << neighbour << ", there are "
                                       << mesh.mNodes.size());
    }
}

void checkHeightClass(const NavMeshContainer& mesh, int32 nodeID, const NavNode& node, Findings& findings)
{
    if (node.mHeightClass < 0 || static_cast<size_t>(node.mHeightClass) >= mesh.mHeight.size())
        findings.add(nodeID, -1,
                     MessageText() << "the height class is " << node.mHeightClass << ", there are "
                                   << mesh.mHeight.size());
}
} // namespace

Vector<Violation> NavMeshContainer::checkInvariants(uint32 maxViolations) const
{
    Findings findings(getMemory(), maxViolations);
    checkMesh(*this, findings);
    ShapeCheck shapes(*this, findings);
    const bool frameUsable = isFrameUsable(*this);
    for (size_t i = 0; i < mNodes.size() && !findings.isFull(); ++i)
    {
        const int32 nodeID = static_cast<int32>(i);
        const NavNode& node = mNodes[i];
        checkNeighbours(*this, nodeID, node, findings);
        checkHeightClass(*this, nodeID, node, findings);
        if (checkCorners(*this, nodeID, node, findings) && frameUsable)
            shapes.check(nodeID, node);
    }
    return findings.take();
}
} // namespace KORV::NavMesh
