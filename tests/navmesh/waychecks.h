#pragma once

#include "korv/navmesh/navmeshway.h"
#include "korv/navmesh/places/linkgeometry.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <vector>

/// What must be true of a way, from the mesh and the path alone.
namespace KORV::Testing::Ways
{
using namespace KORV::NavMesh;
using Place = Vec2<double>;
using NavNode = NavMeshContainer::NavNode;

inline constexpr double INFINITE = std::numeric_limits<double>::infinity();

inline Place project(const NavMeshContainer& mesh, const Vec3<float>& p)
{
    const auto widen = [](const Vec3<float>& v) { return Vec3<double>(v.mX, v.mY, v.mZ); };
    return {dot(widen(mesh.mXAxis), widen(p)), dot(widen(mesh.mYAxis), widen(p))};
}

inline double segmentDistance(const Place& a, const Place& b, const Place& p)
{
    const Place along = b - a;
    const double squared = dot(along, along);
    const double share = squared > 0.0 ? std::clamp(dot(along, p - a) / squared, 0.0, 1.0) : 0.0;
    return (a + along * share - p).getLength();
}

/// Distance of a place from a node, 0 inside; the node need not be convex.
inline double nodeDistance(const NavMeshContainer& mesh, int32 nodeID, const Place& p)
{
    const NavNode& node = mesh.mNodes[static_cast<size_t>(nodeID)];
    double best = std::numeric_limits<double>::infinity();
    bool inside = false;
    for (size_t i = 0; i < node.mPolygon.size(); ++i)
    {
        const Place a = project(mesh, mesh.mVertices[node.mPolygon[i]]);
        const Place b = project(mesh, mesh.mVertices[node.mPolygon[(i + 1) % node.mPolygon.size()]]);
        best = std::min(best, segmentDistance(a, b, p));
        if ((a.mY > p.mY) != (b.mY > p.mY) && p.mX < a.mX + (b.mX - a.mX) * (p.mY - a.mY) / (b.mY - a.mY))
            inside = !inside;
    }
    return inside ? 0.0 : best;
}

inline double borderDistance(const NavMeshContainer& mesh, int32 nodeID, const Place& p)
{
    const NavNode& node = mesh.mNodes[static_cast<size_t>(nodeID)];
    double best = std::numeric_limits<double>::infinity();
    for (size_t i = 0; i < node.mPolygon.size(); ++i)
        best = std::min(
            best, segmentDistance(project(mesh, mesh.mVertices[node.mPolygon[i]]),
                                  project(mesh, mesh.mVertices[node.mPolygon[(i + 1) % node.mPolygon.size()]]), p));
    return best;
}

inline Vec3<float> sideMiddle(const NavMeshContainer& mesh, const NavMeshPathChunk& chunk)
{
    const NavNode& node = mesh.mNodes[static_cast<size_t>(chunk.mNodeID)];
    return (mesh.mVertices[node.mPolygon[chunk.mBorderID]] +
            mesh.mVertices[node.mPolygon[(chunk.mBorderID + 1) % node.mPolygon.size()]]) *
           0.5f;
}

/// Every place of a leg lies in a node of the path, and the nodes come in the order of the path.
inline void checkLeg(const NavMeshContainer& mesh, const std::vector<int32>& nodes, size_t& current, const Place& a,
                     const Place& b)
{
    const double tolerance = 0.02 * static_cast<double>(mesh.mCubeSize);
    const int steps = std::max(2, static_cast<int>((b - a).getLength() / static_cast<double>(mesh.mCubeSize) * 4.0));
    for (int i = 0; i <= steps; ++i)
    {
        const Place p = a + (b - a) * (static_cast<double>(i) / steps);
        size_t node = current;
        while (node < nodes.size() && nodeDistance(mesh, nodes[node], p) > tolerance)
            ++node;
        ASSERT_LT(node, nodes.size()) << "the leg leaves the corridor at " << p.mX << ' ' << p.mY << " after node "
                                      << nodes[current];
        current = node;
    }
}

inline void checkCrossings(const NavMeshContainer& mesh, const std::vector<NavMeshPathChunk>& path,
                           const NavMeshWay& way)
{
    const double tolerance = 0.02 * static_cast<double>(mesh.mCubeSize);
    ASSERT_EQ(way.mCrossings.size(), path.size());
    for (size_t i = 0; i < path.size(); ++i)
    {
        const NavMeshCrossing& crossing = way.mCrossings[i];
        const NavNode& node = mesh.mNodes[static_cast<size_t>(path[i].mNodeID)];
        ASSERT_EQ(crossing.mFromNode, path[i].mNodeID);
        ASSERT_EQ(crossing.mBorderID, path[i].mBorderID);
        ASSERT_EQ(crossing.mToNode, node.mNeighbours[path[i].mBorderID]);
        const Place leaving = project(mesh, crossing.mLeaving);
        const Place landing = project(mesh, crossing.mLanding);
        const Place a = project(mesh, mesh.mVertices[node.mPolygon[path[i].mBorderID]]);
        const Place b = project(mesh, mesh.mVertices[node.mPolygon[(path[i].mBorderID + 1) % node.mPolygon.size()]]);
        ASSERT_LE(segmentDistance(a, b, leaving), tolerance);
        ASSERT_LE(borderDistance(mesh, crossing.mToNode, landing), tolerance);
        ASSERT_LE((landing - leaving).getLength(), 0.3 * static_cast<double>(mesh.mCubeSize));
        // nodes of a generated mesh are level
        const auto height = [&mesh](int32 id)
        { return dot(mesh.mNormal, mesh.mVertices[mesh.mNodes[static_cast<size_t>(id)].mPolygon[0]]); };
        const float rise = height(crossing.mToNode) - height(crossing.mFromNode);
        EXPECT_NEAR(crossing.mHeight, rise, 1e-3f);
        const NavMeshMove expected = std::fabs(rise) <= mesh.mCubeSize * 1.01f ? NavMeshMove::WALK
                                     : rise > 0.0f                             ? NavMeshMove::JUMP_UP
                                                                               : NavMeshMove::DROP_DOWN;
        EXPECT_EQ(crossing.mMove, expected);
        EXPECT_GT(crossing.mWidth, 0.0f);
    }
}

/// Length of the line through the middles of the sides crossed; across a jump or drop, straight up or down there.
inline double middleLength(const NavMeshContainer& mesh, const std::vector<NavMeshPathChunk>& path,
                           const NavMeshWay& way)
{
    double length = 0.0;
    Vec3<float> last = way.mPoints.front().mPosition;
    const auto goTo = [&](const Vec3<float>& p)
    {
        length += static_cast<double>((p - last).getLength());
        last = p;
    };
    for (size_t i = 0; i < path.size(); ++i)
    {
        goTo(sideMiddle(mesh, path[i]));
        if (way.mCrossings[i].mMove != NavMeshMove::WALK)
            goTo(last + mesh.mNormal * way.mCrossings[i].mHeight);
    }
    goTo(way.mPoints.back().mPosition);
    return length;
}

/// All promises of a way with body radius 0 along a path over a generated mesh.
inline void checkWay(const NavMeshContainer& mesh, const std::vector<NavMeshPathChunk>& path, const NavMeshWay& way)
{
    checkCrossings(mesh, path, way);
    std::vector<int32> nodes;
    nodes.reserve(path.size() + 1);
    for (const NavMeshPathChunk& chunk : path)
        nodes.push_back(chunk.mNodeID);
    nodes.push_back(way.mPoints.back().mNodeID);

    size_t current = 0;
    size_t jumps = 0;
    double length = 0.0;
    for (size_t i = 0; i + 1 < way.mPoints.size() && !testing::Test::HasFatalFailure(); ++i)
    {
        const NavMeshWayPoint& from = way.mPoints[i];
        const NavMeshWayPoint& to = way.mPoints[i + 1];
        length += static_cast<double>((to.mPosition - from.mPosition).getLength());
        EXPECT_LE(nodeDistance(mesh, from.mNodeID, project(mesh, from.mPosition)),
                  0.02 * static_cast<double>(mesh.mCubeSize));
        if (from.mMove == NavMeshMove::WALK)
        {
            EXPECT_EQ(from.mHeight, 0.0f);
            checkLeg(mesh, nodes, current, project(mesh, from.mPosition), project(mesh, to.mPosition));
            continue;
        }
        EXPECT_EQ(from.mHeight > 0.0f, from.mMove == NavMeshMove::JUMP_UP);
        EXPECT_NEAR(from.mHeight, dot(mesh.mNormal, to.mPosition - from.mPosition), 1e-3f);
        ++jumps;
    }
    EXPECT_EQ(way.mPoints.back().mMove, NavMeshMove::WALK);
    EXPECT_EQ(jumps, static_cast<size_t>(std::count_if(way.mCrossings.begin(), way.mCrossings.end(),
                                                       [](const NavMeshCrossing& crossing)
                                                       { return crossing.mMove != NavMeshMove::WALK; })));
    EXPECT_NEAR(static_cast<double>(way.mLength), length, 1e-4 * length + 1e-4);
    EXPECT_GE(length,
              static_cast<double>((way.mPoints.back().mPosition - way.mPoints.front().mPosition).getLength()) - 1e-3);
    EXPECT_LE(length, middleLength(mesh, path, way) * (1.0 + 1e-5) + 1e-3);
}
/// The borders of a mesh that has one level, and the shortest lines that respect them.
class Walls
{
public:
    explicit Walls(const NavMeshContainer& mesh) : mMesh(mesh)
    {
        for (uint32 id = 0; id < mesh.mNodes.size(); ++id)
        {
            const NavNode& node = mesh.mNodes[id];
            for (uint32 side = 0; side < node.mPolygon.size(); ++side)
            {
                LinkGeometry link;
                if (measureLink(link, mesh, id, side) && std::fabs(link.mHeight) <= mesh.mCubeSize)
                    continue;
                mWalls.push_back({project(mesh, mesh.mVertices[node.mPolygon[side]]),
                                  project(mesh, mesh.mVertices[node.mPolygon[(side + 1) % node.mPolygon.size()]])});
            }
        }
    }

    /// Dijkstra over all ends of walls that see each other.
    double shortestLength(const Vec3<float>& start, const Vec3<float>& end) const
    {
        std::vector<Place> places = {project(mMesh, start)};
        for (const auto& wall : mWalls)
            places.push_back(wall[0]);
        places.push_back(project(mMesh, end));
        std::vector<double> lengths(places.size(), INFINITE);
        std::vector<bool> isDone(places.size(), false);
        lengths[0] = 0.0;
        while (!isDone.back())
        {
            size_t best = places.size() - 1;
            for (size_t i = 0; i < places.size(); ++i)
                best = !isDone[i] && lengths[i] < lengths[best] ? i : best;
            isDone[best] = true;
            for (size_t i = 0; i < places.size(); ++i)
            {
                const double length = lengths[best] + (places[i] - places[best]).getLength();
                if (length < lengths[i] && isVisible(places[best], places[i]))
                    lengths[i] = length;
            }
        }
        return lengths.back();
    }

private:
    bool isVisible(const Place& a, const Place& b) const
    {
        for (const auto& wall : mWalls)
        {
            if (separates(a, b, wall[0], wall[1]) && separates(wall[0], wall[1], a, b))
                return false;
        }
        for (const double share : {0.5, 0.01, 0.99})
        {
            const Place p = a + (b - a) * share;
            bool isInside = false;
            for (size_t node = 0; node < mMesh.mNodes.size() && !isInside; ++node)
                isInside = nodeDistance(mMesh, static_cast<int32>(node), p) < 1e-4;
            if (!isInside)
                return false;
        }
        return true;
    }

    /// Whether p and q lie on different sides of the line from a to b.
    static bool separates(const Place& a, const Place& b, const Place& p, const Place& q)
    {
        const double least = 1e-5 * (b - a).getLength();
        const double left = Common::Math::cross(b - a, p - a);
        const double right = Common::Math::cross(b - a, q - a);
        return (left > least && right < -least) || (left < -least && right > least);
    }

    const NavMeshContainer& mMesh;
    std::vector<std::array<Place, 2>> mWalls;
};
} // namespace KORV::Testing::Ways
