#include "korv/navmesh/navmeshsearchgraph.h"

#include "korv/common/debug/assert.h"
#include "korv/navmesh/astarnavmesh.h"
#include "korv/navmesh/places/navmeshqueries.h"

#include <algorithm>

namespace KORV::NavMesh
{
NavMeshSearchGraph::NavMeshSearchGraph(const SharedPtr<NavMeshContainer>& navMesh)
    : mNavMesh(navMesh), mNodes(getMemory()), mLinks(getMemory())
{
    if (!KORV_ASSERT(navMesh != nullptr, "navMesh != NULL", "Navmesh container is a null pointer"))
        return;
    mNumNodes = AStarMapNavMesh::getNodeLimit(*navMesh);
    mNodes.reserve(size_t{mNumNodes} + 1);
    size_t numLinks = 0;
    for (uint32 id = 0; id < mNumNodes; ++id)
    {
        const NavMeshContainer::NavNode& node = navMesh->mNodes[id];
        mNodes.push_back({getMiddleOfCorners(navMesh->mVertices, node.mPolygon), 0});
        numLinks += static_cast<size_t>(std::count_if(node.mNeighbours.begin(), node.mNeighbours.end(),
                                                      [](int32 neighbour) { return neighbour >= 0; }));
    }
    mLinks.reserve(numLinks);
    for (uint32 id = 0; id < mNumNodes; ++id)
        measureLinks(id);
    mNodes.push_back({{}, static_cast<uint32>(mLinks.size())});
}

NavMeshSearchGraph::~NavMeshSearchGraph() = default;

void NavMeshSearchGraph::measureLinks(uint32 nodeID)
{
    mNodes[nodeID].mFirstLink = static_cast<uint32>(mLinks.size());
    const Vector<int32>& neighbours = mNavMesh->mNodes[nodeID].mNeighbours;
    for (size_t border = 0; border < neighbours.size(); ++border)
    {
        // negative entries are beyond the limit, too
        const auto target = static_cast<uint32>(neighbours[border]);
        if (target >= mNumNodes || !AStarMapNavMesh::checkBorder(border))
            continue;
        mLinks.push_back({AStarMapNavMesh::getEdge(target, static_cast<uint32>(border)),
                          (mNodes[target].mMiddlePoint - mNodes[nodeID].mMiddlePoint).getLength()});
    }
}

uint64 NavMeshSearchGraph::getMemoryUsage() const
{
    return sizeof(NavMeshSearchGraph) + mNodes.capacity() * sizeof(Node) + mLinks.capacity() * sizeof(Link);
}
} // namespace KORV::NavMesh
