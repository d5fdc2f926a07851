#include "korv/common/astar/astargoal.h"

#include "korv/common/astar/astarmap.h"
#include "korv/common/astar/astarstorage.h"

#include <algorithm>

namespace KORV::Common::Astar
{
AStarMap::~AStarMap() = default;

CostFunc::~CostFunc() = default;

HeuristicFunc::~HeuristicFunc() = default;

AStarGoal::AStarGoal(const Memory::AllocatorPtr& allocator) : mAllocator(allocator) {}

AStarGoal::~AStarGoal() = default;

ASGoalBase::ASGoalBase(CostFunc* costFunc, HeuristicFunc* heuristicFunc, const Memory::AllocatorPtr& allocator)
    : AStarGoal(allocator), mCostFunc(costFunc), mHeuristicFunc(heuristicFunc)
{
}

ASGoalBase::~ASGoalBase() = default;

void ASGoalBase::setStartEnd(uint32 start, uint32 end)
{
    mStartNode = start;
    mEndNode = end;
}

void ASGoalBase::setStorage(AStarStorage* storage)
{
    mStorage = storage;
}

void ASGoalBase::setMap(AStarMap* map)
{
    mMap = map;
}

float ASGoalBase::getCost(uint32 edge)
{
    return mCostFunc->calcCost(edge);
}

float ASGoalBase::getHeuristic(uint32 nodeID)
{
    return mHeuristicFunc->calcHeuristic(nodeID, mEndNode);
}

bool ASGoalBase::isGoal(const AStarNode* node)
{
    return mStorage->getNodeID(node) == mEndNode;
}

float ASGoalBase::getPath(Vector<uint32>& edges)
{
    // The best open node need not be the goal, even right after it was found: another may cost the same, and one of the
    // back part that was improved may cost less.
    if (isReached(mEndNode))
        return getPathTo(mEndNode, edges);
    const AStarNode* best = mStorage->getBestNode();
    return best != nullptr ? getPathTo(mStorage->getNodeID(best), edges) : 0.0f;
}

bool ASGoalBase::isReached(uint32 nodeID)
{
    return mStorage->isNodeOpen(nodeID) || mStorage->isNodeClosed(nodeID);
}

float ASGoalBase::getPathTo(uint32 nodeID, Vector<uint32>& edges)
{
    const AStarNode* node = isReached(nodeID) ? mStorage->getNode(nodeID) : nullptr;
    if (node == nullptr)
        return 0.0f;

    const float cost = node->totalCost;
    const size_t first = edges.size();
    // a way never visits a node twice, unless negative costs have closed a ring
    const size_t maxEdges = mMap->getMaxNodeID();
    while (node != nullptr && node->inEdge != NO_EDGE && edges.size() - first < maxEdges)
    {
        edges.push_back(node->inEdge);
        node = mStorage->getNode(mMap->getEdgeSource(node->inEdge));
    }
    std::reverse(edges.begin() + static_cast<std::ptrdiff_t>(first), edges.end());
    return cost;
}

uint32 ASGoalBase::getStartNode()
{
    return mStartNode;
}

uint32 ASGoalBase::getEndNode()
{
    return mEndNode;
}
} // namespace KORV::Common::Astar
