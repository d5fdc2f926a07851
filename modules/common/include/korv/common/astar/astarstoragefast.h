#pragma once

#include "korv/common/astar/astarstorage.h"
#include "korv/common/astar/openlist.h"
#include "korv/common/container/vector.h"

namespace KORV::Common::Astar
{
class AStarMap;

/// Records addressed by node id, two bits of state a node. Arrays serve search after search and only grow, so that a
/// new search costs no more than clearing the states: a byte for every four nodes.
class KORV_COMMON_API AStarStorageFast final : public AStarStorage
{
public:
    /// What the two bits of a node say.
    enum State : uint32
    {
        STATE_NEW = 0,
        STATE_OPEN = 1,
        STATE_CLOSED = 2
    };

    /// @param edgeMap  is asked for edges when a closed node is reached by a cheaper way; not owned.
    AStarStorageFast(AStarMap* edgeMap, const Memory::AllocatorPtr& allocator);
    ~AStarStorageFast() override;

    void setGoal(AStarGoal* goal) override;
    AStarNode* popBestNode() override
    {
        const uint32 nodeID = mOpenList.popBest();
        return nodeID != NO_NODE ? mRecords + nodeID : nullptr;
    }
    AStarNode* getBestNode() override
    {
        const uint32 nodeID = mOpenList.getBest();
        return nodeID != NO_NODE ? mRecords + nodeID : nullptr;
    }
    void addOpenNode(uint32 edge, uint32 nodeID, float pathCost, float heuristic) override
    {
        if (nodeID >= mNumNodes)
            return;
        AStarNode& node = mRecords[nodeID];
        node.inEdge = edge;
        node.totalCost = pathCost + heuristic;
        node.pathCost = pathCost;
        node.hasPoint = false;
        mOpenList.push(nodeID);
        setState(nodeID, STATE_OPEN);
    }
    void closeNode(AStarNode* node) override { setState(getNodeID(node), STATE_CLOSED); }
    /// The node stays closed. The saving is passed on to all nodes that have been reached through it.
    /// Cost: grows with the number of those nodes.
    void updateClosedNode(uint32 nodeID, uint32 edge, float pathCost) override;
    /// The same with other links than those of map and goal.
    /// @param forEachLink  called as forEachLink(nodeID, reach), calls reach(edge, target, cost) for the links of the
    ///                     node to nodes that have been reached, all of them ids below getNumNodes.
    template <class ForEachLink>
    void updateClosedNode(uint32 nodeID, uint32 edge, float pathCost, ForEachLink&& forEachLink)
    {
        if (nodeID >= mNumNodes || !(pathCost < mRecords[nodeID].pathCost))
            return;
        improve(mRecords[nodeID], edge, pathCost);
        mQueue.clear();
        mQueue.push_back(nodeID);
        for (size_t next = 0; next < mQueue.size(); ++next)
        {
            const uint32 source = mQueue[next];
            forEachLink(source,
                        [this, source](uint32 link, uint32 target, float cost) { passOn(source, link, target, cost); });
        }
    }
    void updateOpenNode(uint32 nodeID, uint32 edge, float pathCost) override;
    bool isNodeOpen(uint32 nodeID) override { return (getState(nodeID) & STATE_OPEN) != 0; }
    bool isNodeClosed(uint32 nodeID) override { return (getState(nodeID) & STATE_CLOSED) != 0; }
    /// Throws OutOfMemoryException; the storage then has room for no node.
    void initStorage(uint32 maxNodeID) override;
    uint32 getNodeID(const AStarNode* node) override { return static_cast<uint32>(node - mRecords); }
    AStarNode* getNode(uint32 nodeID) override { return nodeID < mCapacity ? mRecords + nodeID : nullptr; }

    const AStarNode* findNode(uint32 nodeID) const { return nodeID < mCapacity ? mRecords + nodeID : nullptr; }

    /// The state of a node; an id beyond the search is that of a new node.
    State getState(uint32 nodeID) const
    {
        return nodeID < mNumNodes ? static_cast<State>((mStates[nodeID / 4] >> (2 * (nodeID % 4))) & 3u) : STATE_NEW;
    }
    /// Nodes that the present search may reach; ids beyond are ignored.
    uint32 getNumNodes() const { return mNumNodes; }
    /// The node that is popped next but @p ahead others, unless what happens until then puts better ones before it.
    /// @return NO_NODE where that is not known yet.
    uint32 foreseeNode(uint32 ahead) const { return mOpenList.foresee(ahead); }

private:
    void setState(uint32 nodeID, State state)
    {
        uint8& four = mStates[nodeID / 4];
        const uint32 shift = 2 * (nodeID % 4);
        four = static_cast<uint8>((four & ~(3u << shift)) | (static_cast<uint32>(state) << shift));
    }
    static void improve(AStarNode& node, uint32 edge, float pathCost)
    {
        node.totalCost = node.totalCost - node.pathCost + pathCost;
        node.pathCost = pathCost;
        node.inEdge = edge;
    }
    void passOn(uint32 source, uint32 edge, uint32 target, float cost);
    void freeArrays();

    AStarMap* mMap;
    uint8* mStates = nullptr;
    AStarNode* mRecords = nullptr;
    uint32 mCapacity = 0; // records
    uint32 mNumNodes = 0; // of them, those of the present search
    OpenList mOpenList;
    Vector<uint32> mQueue; // nodes whose saving has yet to be passed on
    Vector<uint32> mEdges;
};
} // namespace KORV::Common::Astar
