#pragma once

#include "korv/common/api.h"
#include "korv/common/astar/astarnode.h"
#include "korv/common/memory/allocator.h"

namespace KORV::Common::Astar
{
class AStarGoal;

/// The records of the nodes and the open list of a search.
class KORV_COMMON_API AStarStorage
{
public:
    explicit AStarStorage(const Memory::AllocatorPtr& allocator);
    virtual ~AStarStorage();
    AStarStorage(const AStarStorage&) = delete;
    AStarStorage& operator=(const AStarStorage&) = delete;

    virtual void setGoal(AStarGoal* goal) = 0;
    /// Takes the best node off the open list; null when that is empty.
    virtual AStarNode* popBestNode() = 0;
    /// The best open node, null when there is none.
    virtual AStarNode* getBestNode() = 0;
    virtual void addOpenNode(uint32 edge, uint32 nodeID, float pathCost, float heuristic) = 0;
    virtual void closeNode(AStarNode* node) = 0;
    /// A closed or open node has been reached again; only a cheaper way changes anything.
    virtual void updateClosedNode(uint32 nodeID, uint32 edge, float pathCost) = 0;
    virtual void updateOpenNode(uint32 nodeID, uint32 edge, float pathCost) = 0;
    virtual bool isNodeOpen(uint32 nodeID) = 0;
    virtual bool isNodeClosed(uint32 nodeID) = 0;
    /// Forgets the search before and makes room for the nodes from 0 to @p maxNodeID.
    virtual void initStorage(uint32 maxNodeID) = 0;
    virtual uint32 getNodeID(const AStarNode* node) = 0;
    /// The record of a node, null for an id beyond the records. It means something only for an open or closed node.
    virtual AStarNode* getNode(uint32 nodeID) = 0;

protected:
    AStarGoal* mGoal = nullptr;
    Memory::AllocatorPtr mAllocator;

    /// For containers; never null.
    Memory::Allocator* getMemory() const;
};
} // namespace KORV::Common::Astar
