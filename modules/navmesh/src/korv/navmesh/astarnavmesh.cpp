#include "korv/navmesh/astarnavmesh.h"

#include "korv/common/debug/assert.h"
#include "korv/common/memory/stlallocator.h"

#include <algorithm>
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
} // namespace

NodeMiddlePoints::NodeMiddlePoints(Common::Memory::Allocator* allocator) : mKnown(allocator), mAllocator(allocator) {}

NodeMiddlePoints::~NodeMiddlePoints()
{
    freePoints();
}

void NodeMiddlePoints::reset(const NavMeshContainer& mesh)
{
    const auto numNodes = static_cast<uint32>(mesh.mNodes.size());
    mMesh = &mesh;
    mSize = 0;
    if (mCapacity < numNodes)
    {
        freePoints();
        mPoints = static_cast<Vec3<float>*>(
            Common::Memory::allocateAligned(*mAllocator, uint64{numNodes} * sizeof(Vec3<float>), alignof(Vec3<float>)));
        mCapacity = numNodes;
    }
    mKnown.assign(numNodes / 64 + 1, 0);
    mSize = numNodes;
}

void NodeMiddlePoints::compute(uint32 nodeID)
{
    mPoints[nodeID] = mMesh->getNodeMiddlePoint(static_cast<int>(nodeID));
    mKnown[nodeID / 64] |= uint64{1} << (nodeID % 64);
}

void NodeMiddlePoints::freePoints()
{
    mCapacity = 0;
    Common::Memory::deallocateAligned(*mAllocator, mPoints, alignof(Vec3<float>));
    mPoints = nullptr;
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
    if (mMiddlePoints != nullptr && nodeID < mMiddlePoints->size())
        return mMiddlePoints->get(nodeID);
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
    : mPoints{navMesh, startPos, endPos, startNode, endNode, nullptr}
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
    return (mPoints.getToPoint(target) - mPoints.getFromPoint(source)).getLength();
}

NMHeuristicFunc::NMHeuristicFunc(const SharedPtr<NavMeshContainer>& navMesh) : NMHeuristicFunc(navMesh, {}, {}, -1, -1)
{
}

NMHeuristicFunc::NMHeuristicFunc(const SharedPtr<NavMeshContainer>& navMesh, const Vec3<float>& startPos,
                                 const Vec3<float>& endPos, int startNode, int endNode)
    : mPoints{navMesh, startPos, endPos, startNode, endNode, nullptr}
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
class MeshSteps
{
public:
    MeshSteps(AStarStorageFast& storage, const NavMeshContainer& mesh, NodeMiddlePoints& middlePoints,
              const NMSearchPoints& costPoints, const NMSearchPoints& heuristicPoints, uint32 goalNode)
        : mStorage(storage), mNodes(mesh.mNodes.data()), mMiddlePoints(middlePoints), mStartPos(costPoints.mStartPos),
          mEndPos(costPoints.mEndPos), mStartNode(static_cast<uint32>(costPoints.mStartNode)),
          mEndNode(static_cast<uint32>(costPoints.mEndNode)), mGoalPoint(heuristicPoints.getToPoint(goalNode)),
          mGoalNode(goalNode),
          mNodeLimit(std::min({AStarMapNavMesh::getNodeLimit(mesh), storage.getNumNodes(), middlePoints.size()}))
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
        const Vec3<float> from = getFromPoint(source);
        const Vector<int32>& neighbours = mNodes[source].mNeighbours;
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
    void follow(const AStarNode& node, const Vec3<float>& from, uint32 edge, uint32 target)
    {
        const AStarStorageFast::State state = mStorage.getState(target);
        // no distance is negative: a node that is as near to the start as this one can't be reached cheaper through it
        if (state != AStarStorageFast::STATE_NEW && !(mStorage.getNode(target)->pathCost > node.pathCost))
            return;
        const Vec3<float>& middle = mMiddlePoints.get(target);
        const Vec3<float>& to = target == mEndNode ? mEndPos : middle;
        const float pathCost = (to - from).getLength() + node.pathCost;
        if (state == AStarStorageFast::STATE_NEW)
            mStorage.addOpenNode(edge, target, pathCost, (mGoalPoint - getFromPoint(target)).getLength());
        else if (state == AStarStorageFast::STATE_OPEN)
            mStorage.updateOpenNode(target, edge, pathCost);
        else
            mStorage.updateClosedNode(target, edge, pathCost);
    }

    const Vec3<float>& getFromPoint(uint32 nodeID)
    {
        return nodeID == mStartNode ? mStartPos : mMiddlePoints.get(nodeID);
    }

    AStarStorageFast& mStorage;
    const NavNode* mNodes;
    NodeMiddlePoints& mMiddlePoints;
    Vec3<float> mStartPos;
    Vec3<float> mEndPos;
    uint32 mStartNode;
    uint32 mEndNode;
    Vec3<float> mGoalPoint;
    uint32 mGoalNode;
    uint32 mNodeLimit;
};
} // namespace

AStarNavMesh::AStarNavMesh(AStarStorageFast* nodeStorage, AStarMapNavMesh* meshMap,
                           const Common::Memory::AllocatorPtr& allocator)
    : AStar(nodeStorage, nullptr, meshMap, allocator), mOwnStorage(nodeStorage), mOwnMap(meshMap),
      mMiddlePoints(mEdges.get_allocator().getAllocator())
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
    costFunc->mPoints.mMiddlePoints = &mMiddlePoints;
    heuristicFunc->mPoints.mMiddlePoints = &mMiddlePoints;
}

bool AStarNavMesh::isOwnSetup() const
{
    return storage == mOwnStorage && map == mOwnMap && goal == mOwnGoal && goal != nullptr &&
           mOwnMap->getNavMesh() != nullptr;
}

void AStarNavMesh::initSearch()
{
    if (mOwnMap->getNavMesh() != nullptr)
        mMiddlePoints.reset(*mOwnMap->getNavMesh());
    AStar::initSearch();
}

int AStarNavMesh::runSearch(uint32 maxSteps)
{
    if (!isOwnSetup())
        return AStar::runSearch(maxSteps);
    MeshSteps steps(*mOwnStorage, *mOwnMap->getNavMesh(), mMiddlePoints, mOwnCostFunc->mPoints,
                    mOwnHeuristicFunc->mPoints, mOwnGoal->getEndNode());
    return runSteps(*mOwnStorage, steps, maxSteps);
}
} // namespace KORV::NavMesh
