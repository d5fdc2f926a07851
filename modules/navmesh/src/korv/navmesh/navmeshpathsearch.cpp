#include "korv/navmesh/navmeshpathsearch.h"

#include "korv/common/debug/assert.h"
#include "korv/navmesh/astarnavmesh.h"
#include "korv/navmesh/places/nodeplaces.h"

#include <limits>
#include <optional>

namespace KORV::NavMesh
{
using Common::Astar::ASGoalBase;
using Common::Astar::AStar;
using Common::Astar::AStarStorageFast;
using Common::Memory::MemoryManaged;

namespace
{
using Filter = std::optional<NavMeshSearchFilter>;

/// What one search looks for, and for whom.
struct SearchGoal : public MemoryManaged
{
    SearchGoal(const SharedPtr<NavMeshContainer>& navMesh, const Vec3<float>& start, int startNode,
               const Vec3<float>& end, int endNode, const Filter& filter)
        : mCostFunc(navMesh, start, end, startNode, endNode), mHeuristicFunc(navMesh, start, end, startNode, endNode),
          mGoal(&mCostFunc, &mHeuristicFunc, getAllocator())
    {
        mGoal.setStartEnd(static_cast<uint32>(startNode), static_cast<uint32>(endNode));
        if (!filter)
            return;
        mFilter.emplace(*filter, navMesh->getMemory());
        mCostFunc.mFilter = &*mFilter;
    }

    Filter mFilter;
    NMCostFunc mCostFunc;
    NMHeuristicFunc mHeuristicFunc;
    ASGoalBase mGoal;
};

const char* const NOT_INITIALIZED = "Search not initialized";
} // namespace

/// All that the copies of a search share, in one block of the mesh's allocator.
class NavMeshPathSearch::Engine : public MemoryManaged, public Common::ReferenceCounted
{
public:
    explicit Engine(const SharedPtr<NavMeshContainer>& navMesh)
        : mMap(navMesh), mStorage(&mMap, getAllocator()), mAStar(&mStorage, &mMap, getAllocator())
    {
    }
    ~Engine() override { dropGoal(); }

    /// Takes the goal over and starts a search for it. When memory runs out, no search is set up.
    void start(SearchGoal* goal)
    {
        dropGoal();
        mGoal = goal;
        mAStar.setGoal(&goal->mGoal, &goal->mCostFunc, &goal->mHeuristicFunc);
        mUsedGraph = mGraph;
        mAStar.setGraph(mUsedGraph.get());
        try
        {
            mAStar.initSearch();
        }
        catch (...)
        {
            dropGoal();
            throw;
        }
    }

    SearchGoal* getGoal() const { return mGoal; }
    bool isReached(uint32 nodeID) const { return mStorage.getState(nodeID) != AStarStorageFast::STATE_NEW; }

    AStarMapNavMesh mMap;
    AStarStorageFast mStorage;
    AStarNavMesh mAStar;
    Filter mFilter;                       // of the searches to come
    SharedPtr<NavMeshSearchGraph> mGraph; // the same

private:
    void dropGoal()
    {
        mAStar.setGoal(nullptr, nullptr, nullptr);
        delete mGoal;
        mGoal = nullptr;
    }

    SearchGoal* mGoal = nullptr;
    SharedPtr<NavMeshSearchGraph> mUsedGraph; // by the present search
};

NavMeshPathSearch::NavMeshPathSearch(const SharedPtr<NavMeshContainer>& navMesh) : mNavMesh(navMesh)
{
    if (!KORV_ASSERT(mNavMesh != nullptr, "mNavMesh != NULL", "Navmesh container must not be NULL"))
        return;
    if (!mNavMesh->isNodeSearchInitialized())
        mNavMesh->initNodeSearch();
    mEngine = EnginePtr(new (mNavMesh->getAllocator()) Engine(mNavMesh));
    mAStar = &mEngine->mAStar;
}

NavMeshPathSearch::NavMeshPathSearch(const NavMeshPathSearch& other) = default;

// NOLINTNEXTLINE(bugprone-unhandled-self-assignment): every member handles it
NavMeshPathSearch& NavMeshPathSearch::operator=(const NavMeshPathSearch& other)
{
    // the engine's memory is the mesh's allocator's: it must go before the mesh
    mEngine = other.mEngine;
    mAStar = other.mAStar;
    mNavMesh = other.mNavMesh;
    return *this;
}

NavMeshPathSearch::~NavMeshPathSearch() = default;

SharedPtr<NavMeshContainer> NavMeshPathSearch::getNavMeshContainer() const
{
    return mNavMesh;
}

bool NavMeshPathSearch::initSearch(const Vec3<float>& start, const Vec3<float>& end)
{
    return initSearch(start, -1, end, -1);
}

bool NavMeshPathSearch::initSearch(const Vec3<float>& start, int startNodeID, const Vec3<float>& end, int endNodeID)
{
    if (mEngine == nullptr)
        return false;
    const size_t numNodes = mNavMesh->mNodes.size();
    if (startNodeID == -1)
        startNodeID = mNavMesh->searchNode(start);
    else if (!KORV_ASSERT(static_cast<uint32>(startNodeID) < numNodes, "(uint32)_startNodeID < mNavMesh->mNodes.size()",
                          "startNodeID is out of range"))
        return false;
    if (startNodeID == -1)
        return false;
    if (endNodeID == -1)
        endNodeID = mNavMesh->searchNode(end);
    else if (!KORV_ASSERT(static_cast<uint32>(endNodeID) < numNodes, "(uint32)_endNodeID < mNavMesh->mNodes.size()",
                          "endNodeID is out of range"))
        return false;
    if (endNodeID == -1)
        return false;

    mEngine->start(new (mNavMesh->getAllocator())
                       SearchGoal(mNavMesh, start, startNodeID, end, endNodeID, mEngine->mFilter));
    return true;
}

void NavMeshPathSearch::setFilter(const NavMeshSearchFilter* filter)
{
    if (mEngine == nullptr)
        return;
    Filter copy;
    if (filter != nullptr)
        copy.emplace(*filter, mNavMesh->getMemory());
    mEngine->mFilter = std::move(copy);
}

void NavMeshPathSearch::setGraph(const SharedPtr<NavMeshSearchGraph>& graph)
{
    if (mEngine != nullptr && KORV_ASSERT(graph == nullptr || graph->getNavMesh() == mNavMesh,
                                          "graph->getNavMesh() == mNavMesh", "Search graph belongs to another mesh"))
        mEngine->mGraph = graph;
}

int NavMeshPathSearch::runSearch(unsigned int maxSteps)
{
    if (!isInitialized())
        return -1;
    switch (mAStar->runSearch(maxSteps))
    {
    case AStar::FOUND:
        return 0;
    case AStar::UNFINISHED:
        return 1;
    case AStar::NO_PATH:
        return -1;
    default:
        KORV_FAIL("AStar search returned unknown search state");
        return 2;
    }
}

bool NavMeshPathSearch::isInitialized() const
{
    return KORV_ASSERT(mAStar != nullptr && mAStar->goal != nullptr, "mAStar->goal", NOT_INITIALIZED);
}

Vector<NavMeshPathChunk> NavMeshPathSearch::createPath(const Vector<uint32>& edges)
{
    Vector<NavMeshPathChunk> path(edges.get_allocator());
    path.reserve(edges.size());
    for (const uint32 edge : edges)
        path.push_back({static_cast<int32>(AStarMapNavMesh::getNode(edge)), AStarMapNavMesh::getBorder(edge)});
    return path;
}

Vector<uint32> NavMeshPathSearch::createEdges() const
{
    return Vector<uint32>(mNavMesh != nullptr ? mNavMesh->getMemory() : Common::Memory::getDefaultAllocator());
}

Vector<NavMeshPathChunk> NavMeshPathSearch::getPath() const
{
    Vector<uint32> edges = createEdges();
    if (isInitialized())
        mAStar->goal->getPath(edges);
    return createPath(edges);
}

Vector<NavMeshPathChunk> NavMeshPathSearch::getPathTo(int nodeID) const
{
    Vector<uint32> edges = createEdges();
    if (isInitialized() &&
        KORV_ASSERT(isReached(nodeID), "isReached(nodeID)", "The search has not reached node " << nodeID))
        mEngine->getGoal()->mGoal.getPathTo(static_cast<uint32>(nodeID), edges);
    return createPath(edges);
}

bool NavMeshPathSearch::isReached(int nodeID) const
{
    return mEngine != nullptr && mEngine->getGoal() != nullptr && mEngine->isReached(static_cast<uint32>(nodeID));
}

float NavMeshPathSearch::getCost(int nodeID) const
{
    return isReached(nodeID) ? mEngine->mStorage.getNode(static_cast<uint32>(nodeID))->pathCost
                             : std::numeric_limits<float>::infinity();
}

NavMeshPlace NavMeshPathSearch::getNearestReachable() const
{
    NavMeshPlace place;
    if (!isInitialized() || mEngine->getGoal() == nullptr) // a host may have set another goal
        return place;
    const Vec3<float>& end = mEngine->getGoal()->mCostFunc.mPoints.mEndPos;
    ClosestPoint best{};
    const auto numNodes = static_cast<int32>(mEngine->mStorage.getNumNodes());
    for (int32 nodeID = 0; nodeID < numNodes; ++nodeID)
    {
        ClosestPoint closest{};
        if (!mEngine->isReached(static_cast<uint32>(nodeID)) || !findClosestPoint(closest, *mNavMesh, nodeID, end) ||
            (place.isValid() && !(closest.mDistance < best.mDistance)))
            continue;
        best = closest;
        place.mNodeID = nodeID;
    }
    if (!place.isValid())
        return place;
    place.mPosition = roundIntoNode(*mNavMesh, place.mNodeID, best.mPosition);
    place.mDistance = static_cast<float>(best.mDistance);
    return place;
}
} // namespace KORV::NavMesh
