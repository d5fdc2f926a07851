#pragma once

#include "korv/navmesh/navmeshcontainer.h"

#include <map>
#include <string>
#include <vector>

/// What can be counted and measured on a mesh. All of it holds up against a mesh from a broken document: ids out of
/// range are left out.
namespace KORV::Tool
{
enum class LinkKind
{
    Level,
    Up,
    Down
};

/// One neighbour entry of a node.
struct Link
{
    uint32 mNode = 0;
    uint32 mSide = 0;
    uint32 mNeighbour = 0;
    LinkKind mKind = LinkKind::Level;
    float mRise = 0.0f; ///< how much higher the neighbour is where they meet
};

struct LinkCounts
{
    uint64 mLevel = 0;
    uint64 mUp = 0;
    uint64 mDown = 0;
};

/// A position as the mesh is seen from above: x to the right, y to the top of the picture, z towards the eye.
using PlanPoint = NavMesh::Vec3<float>;

/// Shows a mesh from above, in a frame that is not mirrored, and tells what its links do.
class MeshView
{
public:
    explicit MeshView(const NavMesh::NavMeshContainer& mesh);

    const NavMesh::NavMeshContainer& getMesh() const { return mMesh; }
    PlanPoint project(const NavMesh::Vec3<float>& point) const;
    /// The corners of a node, those out of range left out.
    std::vector<PlanPoint> corners(uint32 node) const;
    /// Area in the ground plane. [square world units]
    double area(uint32 node) const;
    /// Every neighbour entry that leads somewhere.
    std::vector<Link> links() const;
    /// Names of the world axes that point right and up in the picture, such as "x" and "-z".
    std::string rightName() const { return mRightName; }
    std::string topName() const { return mTopName; }

private:
    float riseAt(uint32 node, uint32 side, uint32 neighbour) const;

    const NavMesh::NavMeshContainer& mMesh;
    NavMesh::Vec3<float> mRight;
    NavMesh::Vec3<float> mTop;
    NavMesh::Vec3<float> mUp;
    std::string mRightName;
    std::string mTopName;
};

/// Nodes of one surface type.
struct SurfaceFigures
{
    std::string mName; ///< empty when the mesh does not know the id
    uint64 mNodes = 0;
    double mArea = 0.0;
};

struct MeshFigures
{
    uint64 mNodes = 0;
    uint64 mVertices = 0;
    uint64 mSides = 0;
    uint64 mMostSides = 0;   ///< sides of the node that has most of them
    uint64 mWithoutArea = 0; ///< nodes that cover nothing: harmless leftovers of a cut
    LinkCounts mLinks;
    double mArea = 0.0;
    std::map<uint16, SurfaceFigures> mSurfaces;
    NavMesh::Vec3<float> mMinimum; ///< box of the vertices; zero without any
    NavMesh::Vec3<float> mMaximum;
};

MeshFigures measure(const NavMesh::NavMeshContainer& mesh);

/// What the path search can take.
constexpr uint64 MAX_SEARCH_NODES = 1'048'574;
constexpr uint64 MAX_SEARCH_SIDES = 4'094;
/// Why the path search cannot take the mesh, or nothing.
std::vector<std::string> searchLimitWarnings(const MeshFigures& figures);
} // namespace KORV::Tool
