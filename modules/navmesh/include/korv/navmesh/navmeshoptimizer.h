#pragma once

#include "korv/common/memory/memorymanaged.h"
#include "korv/navmesh/api.h"
#include "korv/navmesh/navmeshcontainer.h"
#include "korv/navmesh/types.h"

namespace KORV::NavMesh
{
/// Removes what characters can never get to. The host gets the one optimizer from Interface; it has no state, so calls
/// for different meshes may run at once. A call needs its mesh for itself.
class KORV_NAVMESH_API NavMeshOptimizer : public Common::Memory::MemoryManaged, public Common::ReferenceCounted
{
public:
    NavMeshOptimizer();
    NavMeshOptimizer(const NavMeshOptimizer& other);
    NavMeshOptimizer& operator=(const NavMeshOptimizer& other);
    ~NavMeshOptimizer() override;

    /// An empty id list on the optimizer's allocator, for the host to fill.
    Vector<uint32> createNodeIDArray() const;

    /// Keeps the nodes that can be reached from the listed ones by crossing sides, in their order; none for an empty
    /// list. Ids beyond the node count are skipped. Neighbour entries are renumbered, those that name no node become
    /// -1. Vertices, heights, characters and surface types stay. A null mesh is reported.
    /// Cost: linear in the nodes and sides. When memory runs out the mesh is as it was.
    void removeNotReachable(const Vector<uint32>& startNodeIDs, const SharedPtr<NavMeshContainer>& navMesh);
    /// The same, from the nodes that the points stand on; a point on no node is skipped.
    /// @param points  [world units]
    void removeNotReachable(const Vector<Vec3<float>>& points, const SharedPtr<NavMeshContainer>& navMesh);
};
} // namespace KORV::NavMesh
