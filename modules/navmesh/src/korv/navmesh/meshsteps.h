#pragma once

#include "korv/common/platform/prefetch.h"
#include "korv/navmesh/astarnavmesh.h"
#include "korv/navmesh/navmeshsearchgraph.h"
#include "korv/navmesh/places/linkgeometry.h"
#include "korv/navmesh/places/navmeshqueries.h"

#include <limits>

namespace KORV::NavMesh
{
using Common::Astar::AStarNode;
using Common::Astar::AStarStorageFast;

/// Where a search finds links and middle points: in the mesh as it is at the moment. Middle points that have been
/// computed are kept in the records.
///
/// On a mesh beyond the cache most of the time of a search goes into waiting for nodes that it sees for the first time:
/// the node, its lists, its corners, its record. The open list knows which nodes will follow, so what their edges will
/// need is asked for while others are expanded. On a small mesh that would only be more to do.
class LinksOfMesh
{
public:
    static constexpr bool KNOWS_LENGTHS = false;

    LinksOfMesh(const NavMeshContainer& mesh, const AStarStorageFast& storage, uint32 nodeLimit)
        : mMesh(mesh), mNodes(mesh.mNodes.data()), mStorage(storage), mNodeLimit(nodeLimit)
    {
    }

    /// Calls follow(border, target, length) for the sides with a neighbour.
    template <class Follow>
    void forEach(uint32 nodeID, Follow&& follow) const
    {
        const Vector<int32>& neighbours = mNodes[nodeID].mNeighbours;
        const auto numBorders = static_cast<uint32>(neighbours.size());
        for (uint32 i = 0; i < numBorders; ++i)
        {
            // negative entries are beyond the limit, too
            const auto target = static_cast<uint32>(neighbours[i]);
            if (target < mNodeLimit && AStarMapNavMesh::checkBorder(i))
                follow(i, target, 0.0f);
        }
    }
    /// @param isReached  whether the record is one of the present search.
    Vec3<float> getMiddlePoint(uint32 nodeID, const AStarNode& record, bool isReached) const
    {
        if (isReached && record.hasPoint)
            return {record.point[0], record.point[1], record.point[2]};
        return getMiddleOfCorners(mMesh.mVertices, mNodes[nodeID].mPolygon);
    }
    static void keepMiddlePoint(AStarNode& record, const Vec3<float>& middle)
    {
        record.point[0] = middle.mX;
        record.point[1] = middle.mY;
        record.point[2] = middle.mZ;
        record.hasPoint = true;
    }

    /// One step further for each of the nodes that will probably be expanded next.
    /// @param nodeID  the one that is expanded now.
    void fetchAhead(uint32 nodeID) const
    {
        for (const int32 neighbour : mNodes[nodeID].mNeighbours)
        {
            if (static_cast<uint32>(neighbour) < mNodeLimit)
                Common::Platform::prefetch(mNodes[neighbour].mPolygon.data());
        }
        const uint32 first = mStorage.foreseeNode(0);
        const uint32 second = mStorage.foreseeNode(1);
        const uint32 third = mStorage.foreseeNode(2);
        if (third < mNodeLimit)
            fetchNode(third);
        if (second < mNodeLimit)
            Common::Platform::prefetch(mNodes[second].mNeighbours.data());
        if (first >= mNodeLimit)
            return;
        for (const int32 neighbour : mNodes[first].mNeighbours)
        {
            if (static_cast<uint32>(neighbour) < mNodeLimit)
                fetchNode(static_cast<uint32>(neighbour));
        }
    }

private:
    void fetchNode(uint32 nodeID) const
    {
        constexpr size_t LAST_BYTE = sizeof(NavMeshContainer::NavNode) - 1;
        Common::Platform::prefetch(mNodes + nodeID);
        Common::Platform::prefetch(reinterpret_cast<const char*>(mNodes + nodeID) + LAST_BYTE);
        Common::Platform::prefetch(mStorage.findNode(nodeID));
    }

    const NavMeshContainer& mMesh;
    const NavMeshContainer::NavNode* mNodes;
    const AStarStorageFast& mStorage;
    uint32 mNodeLimit;
};

/// The same from a graph that was measured before. Here, too, what the next nodes will need is asked for in advance.
class LinksOfGraph
{
public:
    static constexpr bool KNOWS_LENGTHS = true;

    LinksOfGraph(const NavMeshSearchGraph& graph, const AStarStorageFast& storage) : mGraph(graph), mStorage(storage) {}

    template <class Follow>
    void forEach(uint32 nodeID, Follow&& follow) const
    {
        const NavMeshSearchGraph::Link* end = mGraph.getLinksEnd(nodeID);
        for (const NavMeshSearchGraph::Link* link = mGraph.getLinks(nodeID); link != end; ++link)
            follow(AStarMapNavMesh::getBorder(link->mTargetAndBorder), AStarMapNavMesh::getNode(link->mTargetAndBorder),
                   link->mLength);
    }
    const Vec3<float>& getMiddlePoint(uint32 nodeID, const AStarNode&, bool) const
    {
        return mGraph.getMiddlePoint(nodeID);
    }
    static void keepMiddlePoint(AStarNode&, const Vec3<float>&) {}

    void fetchAhead(uint32) const
    {
        const uint32 numNodes = mGraph.getNumNodes();
        const uint32 first = mStorage.foreseeNode(0);
        const uint32 second = mStorage.foreseeNode(1);
        const uint32 fourth = mStorage.foreseeNode(3);
        if (fourth < numNodes)
            fetchNode(fourth);
        if (second < numNodes)
            Common::Platform::prefetch(mGraph.getLinks(second));
        if (first < numNodes)
            forEach(first, [this](uint32, uint32 target, float) { fetchNode(target); });
    }

private:
    void fetchNode(uint32 nodeID) const
    {
        Common::Platform::prefetch(mGraph.getAddress(nodeID));
        Common::Platform::prefetch(mStorage.findNode(nodeID));
    }

    const NavMeshSearchGraph& mGraph;
    const AStarStorageFast& mStorage;
};

/// Whether the body gets across a side with a neighbour.
bool isLinkAllowed(const NavMeshSearchFilter& filter, const NavMeshContainer& mesh, uint32 nodeID, uint32 border);

/// Expansion of mesh nodes, for the loop of a search. Node ids in links and records are below the node limit.
template <class Links, bool FILTERED>
class MeshSteps
{
public:
    MeshSteps(AStarStorageFast& storage, const NavMeshContainer& mesh, const Links& links, const NMCostFunc& costFunc,
              const Vec3<float>& goalPoint, uint32 goalNode, uint32 nodeLimit)
        : mStorage(storage), mMesh(mesh), mLinks(links), mFilter(costFunc.mFilter),
          mStartPos(costFunc.mPoints.mStartPos), mEndPos(costFunc.mPoints.mEndPos),
          mStartNode(static_cast<uint32>(costFunc.mPoints.mStartNode)),
          mEndNode(static_cast<uint32>(costFunc.mPoints.mEndNode)), mGoalPoint(goalPoint), mGoalNode(goalNode),
          mNodeLimit(nodeLimit), mFetchesAhead(nodeLimit > MAX_NODES_IN_CACHE)
    {
    }

    bool isGoal(const AStarNode* node) { return mStorage.getNodeID(node) == mGoalNode; }

    void putBack(const AStarNode* node)
    {
        mStorage.addOpenNode(node->inEdge, mStorage.getNodeID(node), node->pathCost, node->totalCost - node->pathCost);
    }

    void expand(const AStarNode* node)
    {
        const uint32 source = mStorage.getNodeID(node);
        if (source >= mNodeLimit)
            return;
        if (mFetchesAhead)
            mLinks.fetchAhead(source);
        const Vec3<float> from = getFromPoint(source, *node);
        mLinks.forEach(source, [&](uint32 border, uint32 target, float length)
                       { follow(*node, from, AStarMapNavMesh::getEdge(source, border), target, length); });
    }

private:
    /// About as many as a cache of a few megabytes holds, with their lists, corners and records.
    static constexpr uint32 MAX_NODES_IN_CACHE = 16384;

    void follow(const AStarNode& node, const Vec3<float>& from, uint32 edge, uint32 target, float length)
    {
        const AStarStorageFast::State state = mStorage.getState(target);
        const bool isNew = state == AStarStorageFast::STATE_NEW;
        AStarNode& record = *mStorage.getNode(target);
        // no distance is negative: a node that is as near to the start as this one can't be reached cheaper through it
        if (!isNew && !(record.pathCost > node.pathCost))
            return;
        if (FILTERED && !isAllowed(isNew, edge, target))
            return;
        const Vec3<float> middle = mLinks.getMiddlePoint(target, record, !isNew);
        const float pathCost = getCost(edge, from, target, middle, length) + node.pathCost;
        if (isNew)
            open(record, edge, target, pathCost, middle);
        else if (state == AStarStorageFast::STATE_OPEN)
            mStorage.updateOpenNode(target, edge, pathCost);
        else
            mStorage.updateClosedNode(target, edge, pathCost,
                                      [this](uint32 nodeID, auto&& reach) { this->passOn(nodeID, reach); });
    }

    void open(AStarNode& record, uint32 edge, uint32 target, float pathCost, const Vec3<float>& middle)
    {
        const Vec3<float>& from = target == mStartNode ? mStartPos : middle;
        mStorage.addOpenNode(edge, target, pathCost, (mGoalPoint - from).getLength());
        mLinks.keepMiddlePoint(record, middle);
    }

    /// Calls reach(edge, target, cost) for the allowed links to nodes that have been reached.
    template <class Reach>
    void passOn(uint32 nodeID, Reach& reach) const
    {
        const Vec3<float> from = getFromPoint(nodeID, *mStorage.findNode(nodeID));
        mLinks.forEach(nodeID,
                       [&](uint32 border, uint32 target, float length)
                       {
                           const uint32 edge = AStarMapNavMesh::getEdge(nodeID, border);
                           if (mStorage.getState(target) == AStarStorageFast::STATE_NEW ||
                               (FILTERED && !isAllowed(false, edge, target)))
                               return;
                           const Vec3<float> middle = mLinks.getMiddlePoint(target, *mStorage.findNode(target), true);
                           reach(edge, target, getCost(edge, from, target, middle, length));
                       });
    }

    Vec3<float> getFromPoint(uint32 nodeID, const AStarNode& record) const
    {
        return nodeID == mStartNode ? mStartPos : Vec3<float>(mLinks.getMiddlePoint(nodeID, record, true));
    }

    float getCost(uint32 edge, const Vec3<float>& from, uint32 target, const Vec3<float>& middle, float length) const
    {
        const bool isMeasured =
            Links::KNOWS_LENGTHS && target != mEndNode && AStarMapNavMesh::getNode(edge) != mStartNode;
        const float cost = isMeasured ? length : ((target == mEndNode ? mEndPos : middle) - from).getLength();
        return FILTERED ? cost * mFilter->getSurfaceFactor(mMesh.mNodes[target].mSurfaceTypeID) : cost;
    }

    bool isAllowed(bool isNew, uint32 edge, uint32 target) const
    {
        // what has been reached is allowed
        if (isNew && !mFilter->isNodeAllowed(mMesh.mNodes[target]))
            return false;
        return isLinkAllowed(*mFilter, mMesh, AStarMapNavMesh::getNode(edge), AStarMapNavMesh::getBorder(edge));
    }

    AStarStorageFast& mStorage;
    const NavMeshContainer& mMesh;
    const Links mLinks;
    const NavMeshSearchFilter* mFilter;
    Vec3<float> mStartPos;
    Vec3<float> mEndPos;
    uint32 mStartNode;
    uint32 mEndNode;
    Vec3<float> mGoalPoint;
    uint32 mGoalNode;
    uint32 mNodeLimit;
    bool mFetchesAhead;
};
} // namespace KORV::NavMesh
