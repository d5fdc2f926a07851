#include "korv/navmesh/navmeshoptimizer.h"

#include "korv/common/debug/assert.h"

#include <utility>

namespace KORV::NavMesh
{
namespace
{
using NodeVector = Vector<NavMeshContainer::NavNode>;

/// Breadth-first over the neighbour entries; ids that name no node are passed over.
/// @return a flag per node, set for those reached.
Vector<bool> markReachable(const NodeVector& nodes, const Vector<uint32>& startNodeIDs,
                           Common::Memory::Allocator* allocator)
{
    Vector<bool> visited(nodes.size(), false, allocator);
    // a node is marked when it joins the queue, so that the queue never holds more than all nodes
    Vector<uint32> queue(allocator);
    const auto enqueue = [&](uint64 id)
    {
        if (id >= nodes.size() || visited[id])
            return;
        visited[id] = true;
        queue.push_back(static_cast<uint32>(id));
    };
    for (const uint32 id : startNodeIDs)
        enqueue(id);
    for (size_t next = 0; next < queue.size(); ++next)
    {
        for (const int32 neighbour : nodes[queue[next]].mNeighbours)
        {
            if (neighbour >= 0)
                enqueue(static_cast<uint64>(neighbour));
        }
    }
    return visited;
}

/// Gives the marked nodes consecutive numbers in their order, the others -1.
/// @return how many are marked.
int32 numberMarked(const Vector<bool>& marked, Vector<int32>& newIDs)
{
    int32 count = 0;
    newIDs.reserve(marked.size());
    for (const bool kept : marked)
        newIDs.push_back(kept ? count++ : -1);
    return count;
}

void renumberNeighbours(NavMeshContainer::NavNode& node, const Vector<int32>& newIDs)
{
    for (int32& neighbour : node.mNeighbours)
    {
        const bool valid = neighbour >= 0 && static_cast<size_t>(neighbour) < newIDs.size();
        neighbour = valid ? newIDs[static_cast<size_t>(neighbour)] : -1;
    }
}
} // namespace

NavMeshOptimizer::NavMeshOptimizer() = default;

NavMeshOptimizer::NavMeshOptimizer(const NavMeshOptimizer& other) = default;

NavMeshOptimizer& NavMeshOptimizer::operator=(const NavMeshOptimizer& other) = default;

NavMeshOptimizer::~NavMeshOptimizer() = default;

Vector<uint32> NavMeshOptimizer::createNodeIDArray() const
{
    return Vector<uint32>(getMemory());
}

void NavMeshOptimizer::removeNotReachable(const Vector<Vec3<float>>& points, const SharedPtr<NavMeshContainer>& navMesh)
{
    Vector<uint32> startNodeIDs = createNodeIDArray();
    if (navMesh != nullptr)
    {
        for (const Vec3<float>& point : points)
        {
            const int id = navMesh->searchNode(point);
            if (id != -1)
                startNodeIDs.push_back(static_cast<uint32>(id));
        }
    }
    removeNotReachable(startNodeIDs, navMesh);
}

void NavMeshOptimizer::removeNotReachable(const Vector<uint32>& startNodeIDs,
                                          const SharedPtr<NavMeshContainer>& navMesh)
{
    if (!KORV_ASSERT(navMesh != nullptr, "navMesh != NULL", "Navmesh container is a null pointer !"))
        return;

    NodeVector& nodes = navMesh->mNodes;
    const Vector<bool> reachable = markReachable(nodes, startNodeIDs, getMemory());
    Vector<int32> newIDs(getMemory());
    const int32 numKept = numberMarked(reachable, newIDs);

    // the last allocation: from here on the mesh changes and nothing can fail
    NodeVector kept(nodes.get_allocator());
    kept.reserve(static_cast<size_t>(numKept));
    for (size_t i = 0; i < nodes.size(); ++i)
    {
        if (!reachable[i])
            continue;
        renumberNeighbours(nodes[i], newIDs);
        kept.push_back(std::move(nodes[i]));
    }
    nodes = std::move(kept);
}
} // namespace KORV::NavMesh
