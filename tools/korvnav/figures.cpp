#include "figures.h"

#include "text.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace KORV::Tool
{
namespace
{
/// Share of a voxel's face up to which an area is rounding.
constexpr double NO_AREA = 1e-3;

using Vector3 = NavMesh::Vec3<float>;

struct Frame
{
    Vector3 mRight;
    Vector3 mTop;
    const char* mRightName;
    const char* mTopName;
};

// By main axis, so that maps look the way people expect: x to the right, and right x top = up.
Frame frameFor(const Vector3& up)
{
    const float x = std::abs(up.mX);
    const float y = std::abs(up.mY);
    const float z = std::abs(up.mZ);
    if (y >= x && y >= z)
        return up.mY >= 0 ? Frame{{1, 0, 0}, {0, 0, -1}, "x", "-z"} : Frame{{1, 0, 0}, {0, 0, 1}, "x", "z"};
    if (z >= x)
        return up.mZ >= 0 ? Frame{{1, 0, 0}, {0, 1, 0}, "x", "y"} : Frame{{1, 0, 0}, {0, -1, 0}, "x", "-y"};
    return up.mX >= 0 ? Frame{{0, 1, 0}, {0, 0, 1}, "y", "z"} : Frame{{0, 0, 1}, {0, 1, 0}, "z", "y"};
}

/// Height of the nearest point of a polygon's border, seen from above.
float borderHeightAt(const std::vector<PlanPoint>& polygon, const PlanPoint& point)
{
    float best = std::numeric_limits<float>::max();
    float height = point.mZ;
    for (std::size_t corner = 0; corner < polygon.size(); ++corner)
    {
        const PlanPoint& a = polygon[corner];
        const PlanPoint side = polygon[(corner + 1) % polygon.size()] - a;
        const PlanPoint offset = point - a;
        const float squared = side.mX * side.mX + side.mY * side.mY;
        const float along =
            squared > 0 ? std::clamp((offset.mX * side.mX + offset.mY * side.mY) / squared, 0.0f, 1.0f) : 0;
        const PlanPoint nearest = a + side * along;
        const float distance = std::hypot(nearest.mX - point.mX, nearest.mY - point.mY);
        if (distance < best)
        {
            best = distance;
            height = nearest.mZ;
        }
    }
    return height;
}

void count(LinkCounts& counts, LinkKind kind)
{
    uint64& counter = kind == LinkKind::Level ? counts.mLevel : kind == LinkKind::Up ? counts.mUp : counts.mDown;
    ++counter;
}

void measureBox(MeshFigures& figures, const NavMesh::NavMeshContainer& mesh)
{
    if (mesh.mVertices.empty())
        return;
    figures.mMinimum = figures.mMaximum = mesh.mVertices[0];
    for (const Vector3& vertex : mesh.mVertices)
    {
        for (int axis = 0; axis < 3; ++axis)
        {
            figures.mMinimum[axis] = std::min(figures.mMinimum[axis], vertex[axis]);
            figures.mMaximum[axis] = std::max(figures.mMaximum[axis], vertex[axis]);
        }
    }
}
} // namespace

MeshView::MeshView(const NavMesh::NavMeshContainer& mesh) : mMesh(mesh)
{
    const Frame frame = frameFor(mesh.mNormal);
    mRight = frame.mRight;
    mTop = frame.mTop;
    mUp = cross(mRight, mTop);
    mRightName = frame.mRightName;
    mTopName = frame.mTopName;
}

PlanPoint MeshView::project(const Vector3& point) const
{
    return {dot(mRight, point), dot(mTop, point), dot(mUp, point)};
}

std::vector<PlanPoint> MeshView::corners(uint32 node) const
{
    std::vector<PlanPoint> result;
    for (const uint32 vertex : mMesh.mNodes[node].mPolygon)
        if (vertex < mMesh.mVertices.size())
            result.push_back(project(mMesh.mVertices[vertex]));
    return result;
}

double MeshView::area(uint32 node) const
{
    const std::vector<PlanPoint> polygon = corners(node);
    double twice = 0.0;
    for (std::size_t corner = 2; corner < polygon.size(); ++corner) // about the first corner, for the sake of digits
    {
        const PlanPoint a = polygon[corner - 1] - polygon[0];
        const PlanPoint b = polygon[corner] - polygon[0];
        twice += static_cast<double>(a.mX) * static_cast<double>(b.mY) -
                 static_cast<double>(a.mY) * static_cast<double>(b.mX);
    }
    return std::abs(twice) * 0.5;
}

std::vector<Link> MeshView::links() const
{
    std::vector<Link> result;
    const float level = 0.5f * mMesh.mCubeSize;
    for (uint32 node = 0; node < mMesh.mNodes.size(); ++node)
    {
        const auto& neighbours = mMesh.mNodes[node].mNeighbours;
        for (uint32 side = 0; side < neighbours.size(); ++side)
        {
            if (neighbours[side] < 0 || static_cast<uint32>(neighbours[side]) >= mMesh.mNodes.size())
                continue;
            Link link{node, side, static_cast<uint32>(neighbours[side])};
            link.mRise = riseAt(node, side, link.mNeighbour);
            link.mKind = std::abs(link.mRise) <= level ? LinkKind::Level
                         : link.mRise > 0              ? LinkKind::Up
                                                       : LinkKind::Down;
            result.push_back(link);
        }
    }
    return result;
}

float MeshView::riseAt(uint32 node, uint32 side, uint32 neighbour) const
{
    const auto& polygon = mMesh.mNodes[node].mPolygon;
    if (side >= polygon.size())
        return 0.0f;
    const uint32 first = polygon[side];
    const uint32 second = polygon[(side + 1) % polygon.size()];
    if (first >= mMesh.mVertices.size() || second >= mMesh.mVertices.size())
        return 0.0f;
    const PlanPoint crossing = (project(mMesh.mVertices[first]) + project(mMesh.mVertices[second])) * 0.5f;
    return borderHeightAt(corners(neighbour), crossing) - crossing.mZ;
}

MeshFigures measure(const NavMesh::NavMeshContainer& mesh)
{
    const MeshView view(mesh);
    MeshFigures figures;
    figures.mNodes = mesh.mNodes.size();
    figures.mVertices = mesh.mVertices.size();
    for (const NavMesh::SurfaceType& type : mesh.mSurfaceTypes)
        figures.mSurfaces[type.mID].mName = std::string(type.mName.data(), type.mName.size());
    for (uint32 node = 0; node < mesh.mNodes.size(); ++node)
    {
        const uint64 sides = mesh.mNodes[node].mPolygon.size();
        const double area = view.area(node);
        figures.mSides += sides;
        figures.mMostSides = std::max(figures.mMostSides, sides);
        figures.mArea += area;
        figures.mWithoutArea += area <= NO_AREA * mesh.mCubeSize * mesh.mCubeSize ? 1 : 0;
        SurfaceFigures& surface = figures.mSurfaces[mesh.mNodes[node].mSurfaceTypeID];
        ++surface.mNodes;
        surface.mArea += area;
    }
    for (const Link& link : view.links())
        count(figures.mLinks, link.mKind);
    measureBox(figures, mesh);
    return figures;
}

std::vector<std::string> searchLimitWarnings(const MeshFigures& figures)
{
    std::vector<std::string> warnings;
    if (figures.mNodes > MAX_SEARCH_NODES)
        warnings.push_back("the mesh has " + grouped(figures.mNodes) + " nodes, and the path search takes at most " +
                           grouped(MAX_SEARCH_NODES) + "; use a larger cube, or build the scene in parts.");
    if (figures.mMostSides > MAX_SEARCH_SIDES)
        warnings.push_back("a node has " + grouped(figures.mMostSides) + " sides, and the path search takes at most " +
                           grouped(MAX_SEARCH_SIDES) + "; use a larger cube, or a larger split depth.");
    return warnings;
}
} // namespace KORV::Tool
