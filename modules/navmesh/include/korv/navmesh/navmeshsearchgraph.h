#pragma once

#include "korv/common/memory/memorymanaged.h"
#include "korv/navmesh/api.h"
#include "korv/navmesh/navmeshcontainer.h"
#include "korv/navmesh/types.h"

namespace KORV::NavMesh
{
/// The middle points and links of a mesh, measured once and laid out side by side, for searches on a mesh that stays as
/// it is: they find the same ways in less time.
///
/// Any number of searches can share one, see NavMeshPathSearch::setGraph. Keeps the mesh alive. After a change of the
/// mesh it must be built anew; until then searches find ways on the mesh that was there, which is harmless. Thread use:
/// const operations may run at once on any threads; construction and destruction change the mesh's reference count,
/// which is not atomic.
class KORV_NAVMESH_API NavMeshSearchGraph : public Common::Memory::MemoryManaged, public Common::ReferenceCounted
{
public:
    /// A side that leads to a neighbour.
    struct Link
    {
        uint32 mTargetAndBorder; ///< as in an edge id of the search, but with the node it leads to
        float mLength;           ///< between the middle points of both nodes [world units]
    };

    /// @param navMesh  null is reported, and gives a graph without nodes; so is a side that is beyond what a search can
    ///                 take, which is then left out.
    /// Cost: linear in the mesh; 16 bytes a node and 8 bytes a link. Throws OutOfMemoryException.
    explicit NavMeshSearchGraph(const SharedPtr<NavMeshContainer>& navMesh);
    ~NavMeshSearchGraph() override;
    NavMeshSearchGraph(const NavMeshSearchGraph&) = delete;
    NavMeshSearchGraph& operator=(const NavMeshSearchGraph&) = delete;

    const SharedPtr<NavMeshContainer>& getNavMesh() const { return mNavMesh; }
    uint32 getNumNodes() const { return mNumNodes; }
    /// Size of the graph without the mesh. [bytes]
    uint64 getMemoryUsage() const;

    // for a node id below getNumNodes
    const Vec3<float>& getMiddlePoint(uint32 nodeID) const { return mNodes[nodeID].mMiddlePoint; }
    const Link* getLinks(uint32 nodeID) const { return mLinks.data() + mNodes[nodeID].mFirstLink; }
    const Link* getLinksEnd(uint32 nodeID) const { return getLinks(nodeID + 1); }
    /// Where getMiddlePoint and getLinks will look, to ask for it in advance.
    const void* getAddress(uint32 nodeID) const { return &mNodes[nodeID]; }

private:
    struct Node
    {
        Vec3<float> mMiddlePoint;
        uint32 mFirstLink;
    };

    void measureLinks(uint32 nodeID);

    SharedPtr<NavMeshContainer> mNavMesh;
    uint32 mNumNodes = 0;
    Vector<Node> mNodes; // and one more, for the end of the links
    Vector<Link> mLinks; // node by node, in the order of the sides
};
} // namespace KORV::NavMesh
