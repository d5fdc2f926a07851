#include "korv/navmesh/astarnavmesh.h"

#include "korv/common/debug/assert.h"
#include "korv/common/platform/prefetch.h"
#include "korv/navmesh/places/linkgeometry.h"
#include "korv/navmesh/places/navmeshqueries.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace KORV::NavMesh
{
namespace
{
using Common::Astar::AStarNode;
using Common::Astar::AStarStorageFast;
using Common::Astar::NO_NODE;
using NavNode = NavMeshContainer::NavNode;

/// The node across a side; NO_NODE where there is none.
uint32 getNeighbour(const NavMeshContainer& mesh, uint32 nodeID, uint32 border)
{
    if (nodeID >= mesh.mNodes.size() || border >= mesh.mNodes[nodeID].mNeighbours.size())
        return NO_NODE;
    const int32 neighbour = mesh.mNodes[nodeID].mNeighbours[border];
    return neighbour >= 0 && static_cast<uint32>(neighbour) < AStarMapNavMesh::getNodeLimit(mesh)
               ? static_cast<uint32>(neighbour)
               : NO_NODE;
}

/// By how much the height or width of a link may be wrong: it is a difference of rounded coordinates.
float getTolerance(const NavMeshContainer& mesh, const Vec3<float>& place)
{
    constexpr float CUBES = 1e-4f;
    constexpr float ROUNDING = 8.0f * std::numeric_limits<float>::epsilon();
    return CUBES * mesh.mCubeSize + ROUNDING * (std::abs(place.mX) + std::abs(place.mY) + std::abs(place.mZ));
}

/// Whether the body gets across a side with a neighbour.
bool isLinkAllowed(const NavMeshSearchFilter& filter, const NavMeshContainer& mesh, uint32 nodeID, uint32 border)
{
    if (!filter.measuresLinks())
        return true;
    LinkGeometry link;
    if (!measureLink(link, mesh, nodeID, border))
        return false;
    const float tolerance = getTolerance(mesh, link.mLeaving[0]);
    return filter.isWidthAllowed(link.mWidth, tolerance) && filter.isHeightAllowed(link.mHeight, tolerance);
}
} // namespace

AStarMapNavMesh::AStarMapNavMesh(const SharedPtr<NavMeshContainer>& navMesh) : mNavMesh(navMesh)
{
    if (!KORV_ASSERT(navMesh != nullptr, "navMesh != NULL", "Navmesh container is a null pointer"))
        return;
    KORV_ASSERT(!navMesh->mNodes.empty(), "navMesh->mNodes.size() != 0", "Navmesh container is empty");
    KORV_ASSERT(navMesh->mNodes.size() < STARTNODE_MASK, "navMesh->mNodes.size() < STARTNODE_MASK",
                "Number of nodes in the navmesh exceed the available range of " << STARTNODE_MASK);
}

AStarMapNavMesh::~AStarMapNavMesh() = default;

void AStarMapNavMesh::getOutEdges(Vector<uint32>& edges, uint32 nodeID)
{
    if (mNavMesh == nullptr || nodeID >= getNodeLimit(*mNavMesh))
        return;
    const Vector<int32>& neighbours = mNavMesh->mNodes[nodeID].mNeighbours;
    const uint32 limit = getNodeLimit(*mNavMesh);
    for (size_t i = 0; i < neighbours.size(); ++i)
    {
        if (neighbours[i] < 0 || static_cast<uint32>(neighbours[i]) >= limit || !checkBorder(i))
            continue;
        edges.push_back(getEdge(nodeID, static_cast<uint32>(i)));
    }
}

uint32 AStarMapNavMesh::getEdgeTarget(uint32 edge)
{
    const uint32 endNode = mNavMesh != nullptr ? getNeighbour(*mNavMesh, getNode(edge), getBorder(edge)) : NO_NODE;
    KORV_ASSERT(endNode != NO_NODE, "endNode >= 0", "getOutEdge has delivered a wrong set of out nodes");
    return endNode;
}

uint32 AStarMapNavMesh::getEdgeSource(uint32 edge)
{
    return getNode(edge);
}

uint32 AStarMapNavMesh::getMaxNodeID()
{
    return mNavMesh != nullptr ? static_cast<uint32>(mNavMesh->mNodes.size()) - 1 : NO_NODE;
}

uint32 AStarMapNavMesh::getNodeLimit(const NavMeshContainer& mesh)
{
    return static_cast<uint32>(std::min<size_t>(mesh.mNodes.size(), STARTNODE_MASK));
}

// out of line: a report's text takes 4 KB of stack
bool AStarMapNavMesh::reportBorder()
{
    return KORV_ASSERT(false,
                       "i < (KORV::Common::Utility::BitMask<(32-KORV_ASTARMAP_NAVMESH_EDGEINDEX_NODEBITS)>::MASK)",
                       "Number of borders in a navmesh node exceeds the available range of " << BORDER_MASK);
}

Vec3<float> NMSearchPoints::getMiddlePoint(uint32 nodeID) const
{
    if (mStorage != nullptr && mStorage->getState(nodeID) != AStarStorageFast::STATE_NEW)
    {
        const AStarNode& node = *mStorage->findNode(nodeID);
        if (node.hasPoint)
            return {node.point[0], node.point[1], node.point[2]};
    }
    return mNavMesh != nullptr ? mNavMesh->getNodeMiddlePoint(static_cast<int>(nodeID)) : Vec3<float>();
}

Vec3<float> NMSearchPoints::getFromPoint(uint32 nodeID) const
{
    return nodeID == static_cast<uint32>(mStartNode) ? mStartPos : getMiddlePoint(nodeID);
}

Vec3<float> NMSearchPoints::getToPoint(uint32 nodeID) const
{
    return nodeID == static_cast<uint32>(mEndNode) ? mEndPos : getMiddlePoint(nodeID);
}

NMCostFunc::NMCostFunc(const SharedPtr<NavMeshContainer>& navMesh) : NMCostFunc(navMesh, {}, {}, -1, -1) {}

NMCostFunc::NMCostFunc(const SharedPtr<NavMeshContainer>& navMesh, const Vec3<float>& startPos,
                       const Vec3<float>& endPos, int startNode, int endNode)
    : mPoints{navMesh, startPos, endPos, startNode, endNode}
{
}

NMCostFunc::~NMCostFunc() = default;

float NMCostFunc::calcCost(uint32 edge)
{
    const uint32 source = AStarMapNavMesh::getNode(edge);
    const uint32 target = mPoints.mNavMesh != nullptr
                              ? getNeighbour(*mPoints.mNavMesh, source, AStarMapNavMesh::getBorder(edge))
                              : NO_NODE;
    if (target == NO_NODE)
        return std::numeric_limits<float>::infinity();
    const float distance = (mPoints.getToPoint(target) - mPoints.getFromPoint(source)).getLength();
    if (mFilter == nullptr)
        return distance;
    const NavNode& node = mPoints.mNavMesh->mNodes[target];
    const bool isAllowed = mFilter->isNodeAllowed(node) &&
                           isLinkAllowed(*mFilter, *mPoints.mNavMesh, source, AStarMapNavMesh::getBorder(edge));
    return isAllowed ? distance * mFilter->getSurfaceFactor(node.mSurfaceTypeID)
                     : std::numeric_limits<float>::infinity();
}

NMHeuristicFunc::NMHeuristicFunc(const SharedPtr<NavMeshContainer>& navMesh) : NMHeuristicFunc(navMesh, {}, {}, -1, -1)
{
}

NMHeuristicFunc::NMHeuristicFunc(const SharedPtr<NavMeshContainer>& navMesh, const Vec3<float>& startPos,
                                 const Vec3<float>& endPos, int startNode, int endNode)
    : mPoints{navMesh, startPos, endPos, startNode, endNode}
{
}

NMHeuristicFunc::~NMHeuristicFunc() = default;

float NMHeuristicFunc::calcHeuristic(uint32 nodeID, uint32 goalNodeID)
{
    return (mPoints.getToPoint(goalNodeID) - mPoints.getFromPoint(nodeID)).getLength();
}

namespace
{
/// Expansion of mesh nodes. An edge's target is read where its side is, not looked up again from the edge id.
///
/// On a mesh beyond the cache most of the time of a search goes into waiting for nodes that it sees for the first time:
/// the node, its lists, its corners, its record. The open list knows which nodes will follow, so what their edges will
/// need is asked for while others are expanded. On a small mesh that would only be more to do.
template <bool FILTERED>
class MeshSteps
{
public:
    MeshSteps(AStarStorageFast& storage, const NavMeshContainer& mesh, const NMCostFunc& costFunc,
              const NMSearchPoints& heuristicPoints, uint32 goalNode)
        : mStorage(storage), mMesh(mesh), mNodes(mesh.mNodes.data()), mFilter(costFunc.mFilter),
          mStartPos(costFunc.mPoints.mStartPos), mEndPos(costFunc.mPoints.mEndPos),
          mStartNode(static_cast<uint32>(costFunc.mPoints.mStartNode)),
          mEndNode(static_cast<uint32>(costFunc.mPoints.mEndNode)), mGoalPoint(heuristicPoints.getToPoint(goalNode)),
          mGoalNode(goalNode), mNodeLimit(std::min(AStarMapNavMesh::getNodeLimit(mesh), storage.getNumNodes())),
          mFetchesAhead(mNodeLimit > MAX_NODES_IN_CACHE)
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
        const Vec3<float> from = source == mStartNode ? mStartPos
                                 : node->hasPoint     ? Vec3<float>(node->point[0], node->point[1], node->point[2])
                                                      : getMiddlePoint(source);
        const Vector<int32>& neighbours = mNodes[source].mNeighbours;
        if (mFetchesAhead)
            fetchAhead(neighbours);
        const auto numBorders = static_cast<uint32>(neighbours.size());
        for (uint32 i = 0; i < numBorders; ++i)
        {
            // negative entries are beyond the limit, too
            const auto target = static_cast<uint32>(neighbours[i]);
            if (target < mNodeLimit && AStarMapNavMesh::checkBorder(i))
                follow(*node, from, AStarMapNavMesh::getEdge(source, i), target);
        }
    }

private:
    /// About as many as a cache of a few megabytes holds, with their lists, corners and records.
    static constexpr uint32 MAX_NODES_IN_CACHE = 16384;

    void follow(const AStarNode& node, const Vec3<float>& from, uint32 edge, uint32 target)
    {
        const AStarStorageFast::State state = mStorage.getState(target);
        const bool isNew = state == AStarStorageFast::STATE_NEW;
        AStarNode& record = *mStorage.getNode(target);
        // no distance is negative: a node that is as near to the start as this one can't be reached cheaper through it
        if (!isNew && !(record.pathCost > node.pathCost))
            return;
        if (FILTERED && !isAllowed(state, edge, target))
            return;
        const Vec3<float> middle = !isNew && record.hasPoint
                                       ? Vec3<float>(record.point[0], record.point[1], record.point[2])
                                       : getMiddlePoint(target);
        float cost = ((target == mEndNode ? mEndPos : middle) - from).getLength();
        if (FILTERED)
            cost *= mFilter->getSurfaceFactor(mNodes[target].mSurfaceTypeID);
        const float pathCost = cost + node.pathCost;
        if (isNew)
            open(record, edge, target, pathCost, middle);
        else if (state == AStarStorageFast::STATE_OPEN)
            mStorage.updateOpenNode(target, edge, pathCost);
        else
            mStorage.updateClosedNode(target, edge, pathCost);
    }

    void open(AStarNode& record, uint32 edge, uint32 target, float pathCost, const Vec3<float>& middle)
    {
        const Vec3<float>& from = target == mStartNode ? mStartPos : middle;
        mStorage.addOpenNode(edge, target, pathCost, (mGoalPoint - from).getLength());
        record.point[0] = middle.mX;
        record.point[1] = middle.mY;
        record.point[2] = middle.mZ;
        record.hasPoint = true;
    }

    bool isAllowed(AStarStorageFast::State state, uint32 edge, uint32 target) const
    {
        // what has been reached is allowed
        if (state == AStarStorageFast::STATE_NEW && !mFilter->isNodeAllowed(mNodes[target]))
            return false;
        return isLinkAllowed(*mFilter, mMesh, AStarMapNavMesh::getNode(edge), AStarMapNavMesh::getBorder(edge));
    }

    Vec3<float> getMiddlePoint(uint32 nodeID) const
    {
        return getMiddleOfCorners(mMesh.mVertices, mNodes[nodeID].mPolygon);
    }

    /// One step further for each of the nodes that will probably be expanded next.
    /// @param neighbours  of the one that is expanded now.
    void fetchAhead(const Vector<int32>& neighbours) const
    {
        for (const int32 neighbour : neighbours)
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

    void fetchNode(uint32 nodeID) const
    {
        constexpr size_t LAST_BYTE = sizeof(NavNode) - 1;
        Common::Platform::prefetch(mNodes + nodeID);
        Common::Platform::prefetch(reinterpret_cast<const char*>(mNodes + nodeID) + LAST_BYTE);
        Common::Platform::prefetch(mStorage.findNode(nodeID));
    }
    AStarStorageFast& mStorage;
    const NavMeshContainer& mMesh;
    const NavNode* mNodes;
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
} // namespace

AStarNavMesh::AStarNavMesh(AStarStorageFast* nodeStorage, AStarMapNavMesh* meshMap,
                           const Common::Memory::AllocatorPtr& allocator)
    : AStar(nodeStorage, nullptr, meshMap, allocator), mOwnStorage(nodeStorage), mOwnMap(meshMap)
{
}

AStarNavMesh::~AStarNavMesh() = default;

void AStarNavMesh::setGoal(Common::Astar::ASGoalBase* searchGoal, NMCostFunc* costFunc, NMHeuristicFunc* heuristicFunc)
{
    goal = searchGoal;
    mOwnGoal = searchGoal;
    mOwnCostFunc = costFunc;
    mOwnHeuristicFunc = heuristicFunc;
    if (searchGoal == nullptr)
        return;
    costFunc->mPoints.mStorage = mOwnStorage;
    heuristicFunc->mPoints.mStorage = mOwnStorage;
}

bool AStarNavMesh::isOwnSetup() const
{
    return storage == mOwnStorage && map == mOwnMap && goal == mOwnGoal && goal != nullptr &&
           mOwnMap->getNavMesh() != nullptr;
}

bool AStarNavMesh::isStartAllowed() const
{
    const NavMeshSearchFilter* filter = mOwnCostFunc->mFilter;
    const NavMeshContainer& mesh = *mOwnMap->getNavMesh();
    const uint32 start = mOwnGoal->getStartNode();
    return filter == nullptr || start >= mesh.mNodes.size() || filter->isNodeAllowed(mesh.mNodes[start]);
}

void AStarNavMesh::initSearch()
{
    // with another storage in its place, it still holds the points of the search before
    if (storage != mOwnStorage)
        mOwnStorage->initStorage(0);
    AStar::initSearch();
    if (isOwnSetup() && !isStartAllowed())
        mOwnStorage->initStorage(map->getMaxNodeID());
}

int AStarNavMesh::runSearch(uint32 maxSteps)
{
    if (!isOwnSetup())
        return AStar::runSearch(maxSteps);
    return mOwnCostFunc->mFilter != nullptr ? runMeshSteps<true>(maxSteps) : runMeshSteps<false>(maxSteps);
}

template <bool FILTERED>
int AStarNavMesh::runMeshSteps(uint32 maxSteps)
{
    MeshSteps<FILTERED> steps(*mOwnStorage, *mOwnMap->getNavMesh(), *mOwnCostFunc, mOwnHeuristicFunc->mPoints,
                              mOwnGoal->getEndNode());
    return runSteps(*mOwnStorage, steps, maxSteps);
}
} // namespace KORV::NavMesh
