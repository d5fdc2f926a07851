#include "korv/navmesh/navmeshpathsearch.h"

#include "korv/common/debug/assert.h"
#include "korv/navmesh/astarnavmesh.h"

namespace KORV::NavMesh
{
using Common::Astar::ASGoalBase;
using Common::Astar::AStar;
using Common::Astar::AStarStorageFast;
using Common::Memory::MemoryManaged;

namespace
{
/// What one search looks for.
struct SearchGoal : public MemoryManaged
{
    SearchGoal(const SharedPtr<NavMeshContainer>& navMesh, const Vec3<float>& start, int startNode,
               const Vec3<float>& end, int endNode)
        : mCostFunc(navMesh, start, end, startNode, endNode), mHeuristicFunc(navMesh, start, end, startNode, endNode),
          mGoal(&mCostFunc, &mHeuristicFunc, getAllocator())
    {
        mGoal.setStartEnd(static_cast<uint32>(startNode), static_cast<uint32>(endNode));
    }

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

    AStarMapNavMesh mMap;
    AStarStorageFast mStorage;
    AStarNavMesh mAStar;

private:
    void dropGoal()
    {
        mAStar.setGoal(nullptr, nullptr, nullptr);
        delete mGoal;
        mGoal = nullptr;
    }

    SearchGoal* mGoal = nullptr;
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

    mEngine->start(new (mNavMesh->getAllocator()) SearchGoal(mNavMesh, start, startNodeID, end, endNodeID));
    return true;
}

int NavMeshPathSearch::runSearch(unsigned int maxSteps)
{
    if (!KORV_ASSERT(mAStar != nullptr && mAStar->goal != nullptr, "mAStar->goal", NOT_INITIALIZED))
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

Vector<NavMeshPathChunk> NavMeshPathSearch::getPath() const
{
    Common::Memory::Allocator* memory =
        mNavMesh != nullptr ? mNavMesh->getMemory() : Common::Memory::getDefaultAllocator();
    Vector<NavMeshPathChunk> path(memory);
    if (!KORV_ASSERT(mAStar != nullptr && mAStar->goal != nullptr, "mAStar->goal", NOT_INITIALIZED))
        return path;
    Vector<uint32> edges(memory);
    mAStar->goal->getPath(edges);
    path.reserve(edges.size());
    for (const uint32 edge : edges)
        path.push_back({static_cast<int32>(AStarMapNavMesh::getNode(edge)), AStarMapNavMesh::getBorder(edge)});
    return path;
}
} // namespace KORV::NavMesh
