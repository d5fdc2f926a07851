#pragma once

#include "korv/common/api.h"
#include "korv/common/astar/astarnode.h"
#include "korv/common/container/vector.h"
#include "korv/common/memory/memorymanaged.h"

namespace KORV::Common::Astar
{
class AStarMap;
class AStarStorage;

/// What it costs to follow an edge.
class KORV_COMMON_API CostFunc : public Memory::MemoryManaged
{
public:
    ~CostFunc() override;

    virtual float calcCost(uint32 edge) = 0;
};

/// An estimate of the cost from a node to the goal. The search finds a cheapest way only if no estimate is too high.
class KORV_COMMON_API HeuristicFunc : public Memory::MemoryManaged
{
public:
    ~HeuristicFunc() override;

    virtual float calcHeuristic(uint32 nodeID, uint32 goalNodeID) = 0;
};

/// What a search looks for, and the costs on the way there.
class KORV_COMMON_API AStarGoal
{
public:
    explicit AStarGoal(const Memory::AllocatorPtr& allocator);
    virtual ~AStarGoal();
    AStarGoal(const AStarGoal&) = delete;
    AStarGoal& operator=(const AStarGoal&) = delete;

    virtual void setStorage(AStarStorage* storage) = 0;
    virtual void setMap(AStarMap* map) = 0;
    virtual float getCost(uint32 edge) = 0;
    virtual float getHeuristic(uint32 nodeID) = 0;
    virtual bool isGoal(const AStarNode* node) = 0;
    /// Appends the edges of the path found, from the start to the goal.
    /// @return the cost of the path.
    virtual float getPath(Vector<uint32>& edges) = 0;
    virtual uint32 getStartNode() = 0;
    virtual uint32 getEndNode() = 0;

protected:
    AStarStorage* mStorage = nullptr;
    AStarMap* mMap = nullptr;
    Memory::AllocatorPtr mAllocator;
};

/// A search from one node to another. Owns neither of the two functions.
class KORV_COMMON_API ASGoalBase : public AStarGoal
{
public:
    ASGoalBase(CostFunc* costFunc, HeuristicFunc* heuristicFunc, const Memory::AllocatorPtr& allocator);
    ~ASGoalBase() override;

    /// Call it before the search is set up.
    void setStartEnd(uint32 start, uint32 end);
    /// Appends the edges of the way found to a node, from the start on.
    /// @return the total cost in the node's record; 0 for a node that the search has not reached.
    float getPathTo(uint32 nodeID, Vector<uint32>& edges);
    CostFunc* getCostFunc() const { return mCostFunc; }
    HeuristicFunc* getHeuristicFunc() const { return mHeuristicFunc; }

    void setStorage(AStarStorage* storage) override;
    void setMap(AStarMap* map) override;
    float getCost(uint32 edge) override;
    float getHeuristic(uint32 nodeID) override;
    bool isGoal(const AStarNode* node) override;
    /// Appends the edges of the best way known to the end node or, while that has not been reached, to the best open
    /// node; none where there is no open node either.
    /// @return the total cost of that node: path cost and estimate.
    float getPath(Vector<uint32>& edges) override;
    uint32 getStartNode() override;
    uint32 getEndNode() override;

private:
    bool isReached(uint32 nodeID);

    uint32 mStartNode = NO_NODE;
    uint32 mEndNode = NO_NODE;
    CostFunc* mCostFunc;
    HeuristicFunc* mHeuristicFunc;
};
} // namespace KORV::Common::Astar
