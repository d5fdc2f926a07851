#include "korv/common/astar/astar.h"

#include "korv/common/astar/astargoal.h"
#include "korv/common/astar/astarmap.h"
#include "korv/common/astar/astarstorage.h"

namespace KORV::Common::Astar
{
namespace
{
/// Expansion through the abstract classes, for whatever is plugged in.
class PluggedSteps
{
public:
    PluggedSteps(AStar& engine, Vector<uint32>& edges) : mEngine(engine), mEdges(edges) {}

    bool isGoal(const AStarNode* node) { return mEngine.goal->isGoal(node); }

    void putBack(const AStarNode* node)
    {
        const uint32 nodeID =
            node->inEdge != NO_EDGE ? mEngine.map->getEdgeTarget(node->inEdge) : mEngine.goal->getEndNode();
        mEngine.storage->addOpenNode(node->inEdge, nodeID, node->pathCost, node->totalCost - node->pathCost);
    }

    void expand(const AStarNode* node)
    {
        mEdges.clear();
        mEngine.map->getOutEdges(mEdges, mEngine.storage->getNodeID(node));
        for (const uint32 edge : mEdges)
            follow(edge, mEngine.goal->getCost(edge) + node->pathCost);
    }

private:
    void follow(uint32 edge, float pathCost)
    {
        const uint32 target = mEngine.map->getEdgeTarget(edge);
        AStarStorage& storage = *mEngine.storage;
        if (storage.isNodeOpen(target))
            storage.updateOpenNode(target, edge, pathCost);
        else if (storage.isNodeClosed(target))
            storage.updateClosedNode(target, edge, pathCost);
        else
            storage.addOpenNode(edge, target, pathCost, mEngine.goal->getHeuristic(target));
    }

    AStar& mEngine;
    Vector<uint32>& mEdges;
};
} // namespace

AStar::AStar(AStarStorage* nodeStorage, AStarGoal* searchGoal, AStarMap* edgeMap, const Memory::AllocatorPtr& allocator)
    : storage(nodeStorage), goal(searchGoal), map(edgeMap), mAllocator(allocator),
      mEdges(allocator != nullptr ? allocator.get() : Memory::getDefaultAllocator())
{
}

AStar::~AStar() = default;

void AStar::initSearch()
{
    storage->initStorage(map->getMaxNodeID());
    goal->setStorage(storage);
    goal->setMap(map);
    storage->setGoal(goal);
    const uint32 start = goal->getStartNode();
    storage->addOpenNode(NO_EDGE, start, 0.0f, goal->getHeuristic(start));
}

int AStar::runSearch(uint32 maxSteps)
{
    PluggedSteps steps(*this, mEdges);
    return runSteps(*storage, steps, maxSteps);
}
} // namespace KORV::Common::Astar
