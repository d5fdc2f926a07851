#pragma once

#include "korv/common/memory/memorymanaged.h"
#include "korv/navmesh/api.h"
#include "korv/navmesh/navmeshcontainer.h"
#include "korv/navmesh/types.h"

namespace KORV::NavMesh
{
class NavMeshSearchFilter;

/// The place on a mesh that is nearest to some position.
struct NavMeshPlace
{
    int32 mNodeID = -1;     ///< -1: there is none
    Vec3<float> mPosition;  ///< on that node, its border included [world units]
    float mDistance = 0.0f; ///< from the position asked for [world units]

    bool isValid() const { return mNodeID >= 0; }
};

/// Finds nodes by position, through a grid and a tree of boxes over the nodes of one mesh.
///
/// Built once; the host passes the node ids that it finds to NavMeshPathSearch::initSearch. Keeps the mesh alive. After
/// a change of the mesh the index must be built anew; until then searchNode finds what was there and nearestNode may
/// find anything, but nothing they do is unsafe as long as the mesh is not changed during a call. Thread use: const
/// operations may run at once on any threads; construction and destruction change the mesh's reference count, which is
/// not atomic.
class KORV_NAVMESH_API NavMeshNodeIndex : public Common::Memory::MemoryManaged, public Common::ReferenceCounted
{
public:
    /// @param navMesh  null is reported, and gives an index without nodes.
    /// Cost: n log n for n nodes; about 150 bytes a node. Throws OutOfMemoryException.
    explicit NavMeshNodeIndex(const SharedPtr<NavMeshContainer>& navMesh);
    ~NavMeshNodeIndex() override;
    NavMeshNodeIndex(const NavMeshNodeIndex&) = delete;
    NavMeshNodeIndex& operator=(const NavMeshNodeIndex&) = delete;

    /// The same node as NavMeshContainer::searchNode for every point: the lowest id of those that the point stands on.
    /// @return -1 where there is none. Cost: a few tests, on crowded ground about log n. Many nodes whose corners all
    /// lie on one line cost a little for each at that height. For positions beyond 1e18 linear, as for a mesh whose
    /// axes are no numbers.
    int searchNode(const Vec3<float>& point) const;

    /// The place nearest to a point, in space, on any node with area. Nodes that nobody can stand on (wound the wrong
    /// way, with ids out of range, or with corners beyond 1e18) are left out.
    /// @param maxDistance  places farther away do not count. [world units, >= 0; infinity for any] With a negative one
    ///                     nothing is found, and nothing for a point that is not finite.
    /// @param filter  null, or what the nodes must allow; only its rules for nodes matter here.
    /// @return the place; of places at the same distance that on the lowest node id. The position is moved towards the
    /// node's middle, by the order of a rounding error, where it would else fail isPointInsideNode.
    /// Cost: about log n when the place is near the point.
    NavMeshPlace nearestNode(const Vec3<float>& point, float maxDistance,
                             const NavMeshSearchFilter* filter = nullptr) const;

    const SharedPtr<NavMeshContainer>& getNavMesh() const { return mNavMesh; }
    /// Size of the index without the mesh. [bytes]
    uint64 getMemoryUsage() const;

private:
    class Finder;

    SharedPtr<NavMeshContainer> mNavMesh;
    Finder* mFinder = nullptr; // null without a mesh
};
} // namespace KORV::NavMesh
