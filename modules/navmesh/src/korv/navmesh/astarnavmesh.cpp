#include "korv/navmesh/astarnavmesh.h"

#include "korv/common/debug/assert.h"
#include "korv/navmesh/meshsteps.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace KORV::NavMesh
{
namespace
{
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
} // namespace

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
    const NavMeshContainer& mesh = *mOwnMap->getNavMesh();
    AStarStorageFast& nodes = *mOwnStorage;
    const uint32 goalNode = mOwnGoal->getEndNode();
    const Vec3<float> goalPoint = mOwnHeuristicFunc->mPoints.getToPoint(goalNode);
    const uint32 nodeLimit = std::min(AStarMapNavMesh::getNodeLimit(mesh), nodes.getNumNodes());
    if (mGraph != nullptr && mGraph->getNumNodes() == nodeLimit)
    {
        MeshSteps<LinksOfGraph, FILTERED> steps(nodes, mesh, {*mGraph, nodes}, *mOwnCostFunc, goalPoint, goalNode,
                                                nodeLimit);
        return runSteps(nodes, steps, maxSteps);
    }
    MeshSteps<LinksOfMesh, FILTERED> steps(nodes, mesh, {mesh, nodes, nodeLimit}, *mOwnCostFunc, goalPoint, goalNode,
                                           nodeLimit);
    return runSteps(nodes, steps, maxSteps);
}
} // namespace KORV::NavMesh
