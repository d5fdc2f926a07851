#include "korv/common/interface.h"
#include "korv/navmesh/astarnavmesh.h"
#include "korv/navmesh/navmeshpathsearch.h"
#include "support/test.h"

#include <algorithm>
#include <limits>
#include <queue>
#include <random>
#include <utility>

using namespace KORV;
using namespace KORV::NavMesh;

namespace
{
using MeshPtr = SharedPtr<NavMeshContainer>;
using NavNode = NavMeshContainer::NavNode;
using Chunks = std::vector<std::pair<int32, uint32>>;

constexpr float UNREACHED = std::numeric_limits<float>::infinity();

MeshPtr createMesh()
{
    MeshPtr mesh(new (Common::Interface::getSharedAllocator()) NavMeshContainer);
    mesh->mNormal = {0.0f, 0.0f, 1.0f};
    mesh->mXAxis = {1.0f, 0.0f, 0.0f};
    mesh->mYAxis = {0.0f, 1.0f, 0.0f};
    mesh->mCubeSize = 0.5f;
    mesh->mHeight.push_back(3.0f);
    return mesh;
}

/// A field of square cells with side 1, of which some are missing, some lean, and some sides lead one way only or to a
/// node far off.
MeshPtr createField(uint32 size, std::mt19937& random)
{
    MeshPtr mesh = createMesh();
    const auto chance = [&random](uint32 percent) { return random() % 100 < percent; };
    const auto offset = [&random] { return static_cast<float>(random() % 1000) / 3000.0f; };
    const bool regular = chance(30);
    for (uint32 i = 0; i < (size + 1) * (size + 1); ++i)
    {
        const Vec3<float> corner(static_cast<float>(i % (size + 1)), static_cast<float>(i / (size + 1)), 0.0f);
        mesh->mVertices.push_back(regular ? corner : corner + Vec3<float>(offset(), offset(), offset()));
    }
    std::vector<int32> ids(size_t{size} * size, -1);
    const auto missing = static_cast<uint32>(random() % 45);
    int32 numNodes = 0;
    for (int32& id : ids)
        id = chance(missing) ? -1 : numNodes++;
    const auto getID = [&](uint32 x, uint32 y) { return x < size && y < size && !chance(4) ? ids[y * size + x] : -1; };
    for (uint32 i = 0; i < ids.size(); ++i)
    {
        if (ids[i] < 0)
            continue;
        const uint32 x = i % size;
        const uint32 y = i / size;
        const uint32 corner = y * (size + 1) + x;
        NavNode node(mesh->getMemory());
        node.mPolygon = {corner, corner + 1, corner + size + 2, corner + size + 1};
        node.mNeighbours = {getID(x, y - 1), getID(x + 1, y), getID(x, y + 1), getID(x - 1, y)};
        if (chance(2))
            node.mNeighbours[random() % 4] = static_cast<int32>(random() % static_cast<uint32>(numNodes));
        node.mHeightClass = 0;
        mesh->mNodes.push_back(node);
    }
    return mesh;
}

/// A search as asked for.
struct Query
{
    int32 mStartNode;
    int32 mEndNode;
    Vec3<float> mStart;
    Vec3<float> mEnd;
};

float getCost(const NavMeshContainer& mesh, const Query& query, int32 from, int32 to)
{
    const Vec3<float> a = from == query.mStartNode ? query.mStart : mesh.getNodeMiddlePoint(from);
    const Vec3<float> b = to == query.mEndNode ? query.mEnd : mesh.getNodeMiddlePoint(to);
    return (b - a).getLength();
}

/// The cheapest way to the end, by a search that knows no estimates.
float getLeastCost(const NavMeshContainer& mesh, const Query& query)
{
    std::vector<float> costs(mesh.mNodes.size(), UNREACHED);
    std::priority_queue<std::pair<float, int32>> queue; // negated costs: the least comes first
    costs[static_cast<size_t>(query.mStartNode)] = 0.0f;
    queue.push({0.0f, query.mStartNode});
    while (!queue.empty())
    {
        const auto [cost, node] = queue.top();
        queue.pop();
        if (-cost > costs[static_cast<size_t>(node)])
            continue;
        for (const int32 next : mesh.mNodes[static_cast<size_t>(node)].mNeighbours)
        {
            if (next < 0 || !(getCost(mesh, query, node, next) - cost < costs[static_cast<size_t>(next)]))
                continue;
            costs[static_cast<size_t>(next)] = getCost(mesh, query, node, next) - cost;
            queue.push({-costs[static_cast<size_t>(next)], next});
        }
    }
    return costs[static_cast<size_t>(query.mEndNode)];
}

Chunks getChunks(const NavMeshPathSearch& search)
{
    Chunks chunks;
    for (const NavMeshPathChunk& chunk : search.getPath())
        chunks.emplace_back(chunk.mNodeID, chunk.mBorderID);
    return chunks;
}

SharedPtr<NavMeshSearchGraph> createGraph(const MeshPtr& mesh)
{
    return SharedPtr<NavMeshSearchGraph>(new (Common::Interface::getSharedAllocator()) NavMeshSearchGraph(mesh));
}

int runAll(NavMeshPathSearch& search, uint32 slice)
{
    int result = 1;
    while (result == 1)
        result = search.runSearch(slice);
    return result;
}

/// Squares in a row, linked both ways.
MeshPtr createRow(int32 numNodes)
{
    MeshPtr mesh = createMesh();
    for (int32 i = 0; i < numNodes; ++i)
    {
        const auto x = static_cast<float>(2 * i);
        const auto first = static_cast<uint32>(mesh->mVertices.size());
        NavNode node(mesh->getMemory());
        for (const Vec3<float>& corner : {Vec3<float>(x, 0, 0), {x + 2, 0, 0}, {x + 2, 2, 0}, {x, 2, 0}})
            mesh->mVertices.push_back(corner);
        node.mPolygon = {first, first + 1, first + 2, first + 3};
        node.mNeighbours = {-1, i + 1 < numNodes ? i + 1 : -1, -1, i - 1};
        node.mHeightClass = 0;
        mesh->mNodes.push_back(node);
    }
    return mesh;
}
} // namespace

KORV_TEST(PathSearch, findsWhatAnExhaustiveSearchFinds)
{
    std::mt19937 random(17);
    uint32 numBest = 0;
    uint32 numFound = 0;
    for (uint32 round = 0; round < 150; ++round)
    {
        KORV_CONTEXT("round " << round);
        const MeshPtr mesh = createField(2 + static_cast<uint32>(random() % 30), random);
        if (mesh->empty())
            continue;
        NavMeshPathSearch search(mesh);
        for (int i = 0; i < 5; ++i)
        {
            const auto anyNode = [&] { return static_cast<int32>(random() % mesh->mNodes.size()); };
            Query query{anyNode(), anyNode(), {}, {}};
            query.mStart = mesh->mVertices[mesh->mNodes[static_cast<size_t>(query.mStartNode)].mPolygon[0]];
            query.mEnd = mesh->mVertices[mesh->mNodes[static_cast<size_t>(query.mEndNode)].mPolygon[2]];
            ASSERT_TRUE(search.initSearch(query.mStart, query.mStartNode, query.mEnd, query.mEndNode));
            const int result = runAll(search, 1 + static_cast<uint32>(random() % 40));
            const float least = getLeastCost(*mesh, query);
            ASSERT_EQ(result, least < UNREACHED ? 0 : -1);
            if (result != 0)
                continue;

            int32 node = query.mStartNode;
            float cost = 0.0f;
            for (const auto& [from, border] : getChunks(search))
            {
                ASSERT_EQ(from, node);
                node = mesh->mNodes[static_cast<size_t>(from)].mNeighbours[border];
                cost += getCost(*mesh, query, from, node);
            }
            ASSERT_EQ(node, query.mEndNode);
            const auto* goal = search.mAStar->storage->getNode(static_cast<uint32>(node));
            EXPECT_NEAR(goal->pathCost, cost, 1e-3f);
            EXPECT_GE(cost, least - 1e-3f);
            ++numFound;
            numBest += cost <= least + 1e-3f ? 1 : 0;
        }
    }
    EXPECT_GT(numFound, 300u);
    EXPECT_GT(10 * numBest, 8 * numFound);
}

// The engine of a mesh skips calls and distances; its records and its order are those of the general one.
KORV_TEST(PathSearch, searchesLikeTheGeneralEngine)
{
    std::mt19937 random(23);
    for (uint32 round = 0; round < 60; ++round)
    {
        KORV_CONTEXT("round " << round);
        const MeshPtr mesh = createField(5 + static_cast<uint32>(random() % 60), random);
        const auto numNodes = static_cast<uint32>(mesh->mNodes.size());
        const auto start = static_cast<int>(random() % numNodes);
        const auto end = static_cast<int>(random() % numNodes);
        const Vec3<float> from = mesh->getNodeMiddlePoint(start) + Vec3<float>(0.2f, 0.1f, 0.0f);
        const Vec3<float> to = mesh->getNodeMiddlePoint(end) + Vec3<float>(0.1f, 0.3f, 0.0f);

        const auto& allocator = mesh->getAllocator();
        AStarMapNavMesh map(mesh);
        Common::Astar::AStarStorageFast storage(&map, allocator);
        NMCostFunc costFunc(mesh, from, to, start, end);
        NMHeuristicFunc heuristicFunc(mesh, from, to, start, end);
        Common::Astar::ASGoalBase goal(&costFunc, &heuristicFunc, allocator);
        goal.setStartEnd(static_cast<uint32>(start), static_cast<uint32>(end));
        Common::Astar::AStar general(&storage, &goal, &map, allocator);
        general.initSearch();

        NavMeshPathSearch search(mesh);
        ASSERT_TRUE(search.initSearch(from, start, to, end));
        for (int result = 1; result == 1;)
        {
            result = search.runSearch(7);
            ASSERT_EQ(general.runSearch(7), result == -1 ? 2 : result);
            Common::Astar::AStarStorage& own = *search.mAStar->storage;
            for (uint32 node = 0; node < numNodes; ++node)
            {
                ASSERT_EQ(own.isNodeClosed(node), storage.isNodeClosed(node)) << node;
                ASSERT_EQ(own.isNodeOpen(node), storage.isNodeOpen(node)) << node;
                if (!own.isNodeClosed(node) && !own.isNodeOpen(node))
                    continue;
                ASSERT_EQ(own.getNode(node)->totalCost, storage.getNode(node)->totalCost) << node;
                ASSERT_EQ(own.getNode(node)->inEdge, storage.getNode(node)->inEdge) << node;
            }
        }
    }
}

// A measured graph only saves time: state, order and costs are those of a search on the mesh, for a character, too.
KORV_TEST(PathSearch, searchesAlikeOnAGraph)
{
    std::mt19937 random(29);
    for (uint32 round = 0; round < 60; ++round)
    {
        KORV_CONTEXT("round " << round);
        const MeshPtr mesh = createField(5 + static_cast<uint32>(random() % 60), random);
        const auto anyNode = [&] { return static_cast<int>(random() % mesh->mNodes.size()); };
        NavMeshSearchFilter filter(mesh->getMemory());
        filter.setBodyRadius(0.45f);
        filter.setSurfaceCost(65535, 1.5f);
        NavMeshPathSearch plain(mesh);
        NavMeshPathSearch search(mesh);
        search.setGraph(createGraph(mesh));
        plain.setFilter(round % 3 == 0 ? &filter : nullptr);
        search.setFilter(round % 3 == 0 ? &filter : nullptr);
        for (int i = 0; i < 3; ++i)
        {
            const Vec3<float> from(static_cast<float>(random() % 9), 2.0f, 0.0f);
            const Vec3<float> to(static_cast<float>(random() % 50), 20.0f, 0.0f);
            const int start = anyNode();
            const int end = anyNode();
            ASSERT_TRUE(plain.initSearch(from, start, to, end));
            ASSERT_TRUE(search.initSearch(from, start, to, end));
            for (int result = 1; result == 1;)
            {
                result = plain.runSearch(11);
                ASSERT_EQ(search.runSearch(11), result);
                for (int node = 0; node < static_cast<int>(mesh->mNodes.size()); ++node)
                    ASSERT_EQ(search.getCost(node), plain.getCost(node)) << node;
            }
            EXPECT_EQ(getChunks(search), getChunks(plain));
        }
    }
}

KORV_TEST(PathSearch, graphOfAMeshThatHasChanged)
{
    const MeshPtr mesh = createRow(4);
    const SharedPtr<NavMeshSearchGraph> graph = createGraph(mesh);
    NavMeshPathSearch search(mesh);
    search.setGraph(graph);
    const Vec3<float> point(1.0f, 1.0f, 0.0f);

    // links of the graph until it has another number of nodes than the mesh, even in the middle of a search
    mesh->mNodes[1].mNeighbours[1] = -1;
    ASSERT_TRUE(search.initSearch(point, 0, point, 3));
    EXPECT_EQ(runAll(search, 1), 0);
    ASSERT_TRUE(search.initSearch(point, 0, point, 3));
    EXPECT_EQ(search.runSearch(1), 1);
    mesh->mNodes.resize(3);
    EXPECT_EQ(runAll(search, 1), -1);

    NavMeshPathSearch other(createRow(4));
    other.setGraph(graph);
    expectReports({"graph->getNavMesh() == mNavMesh\nError Message: Search graph belongs to another mesh"});
    ASSERT_TRUE(other.initSearch(point, 0, point, 3));
    EXPECT_EQ(runAll(other, 10), 0);
    EXPECT_EQ(createGraph(MeshPtr())->getNumNodes(), 0u);
    EXPECT_EQ(dropReports(), 1u);
}

KORV_TEST(PathSearch, edgesOfTheGraph)
{
    const MeshPtr mesh = createRow(10);
    mesh->mNodes[5].mNeighbours = {-1, 8, -1, 2};
    AStarMapNavMesh map(mesh);
    Vector<uint32> edges{99};
    map.getOutEdges(edges, 5);
    EXPECT_EQ(edges, (Vector<uint32>{99, (1u << 20) + 5, (3u << 20) + 5}));
    EXPECT_EQ(map.getEdgeTarget(edges[1]), 8u);
    EXPECT_EQ(map.getEdgeTarget(edges[2]), 2u);
    EXPECT_EQ(map.getEdgeSource(edges[2]), 5u);
    EXPECT_EQ(map.getMaxNodeID(), 9u);

    const Vec3<float> start(10.5f, 0.5f, 0.0f);
    const Vec3<float> end(18.5f, 0.5f, 0.0f);
    NMCostFunc cost(mesh, start, end, 5, 8);
    NMHeuristicFunc heuristic(mesh, start, end, 5, 8);
    EXPECT_FLOAT_EQ(cost.calcCost(edges[1]), 8.0f);
    EXPECT_FLOAT_EQ(cost.calcCost(edges[2]), (Vec3<float>(5, 1, 0) - start).getLength());
    EXPECT_FLOAT_EQ(heuristic.calcHeuristic(5, 8), 8.0f);
    EXPECT_FLOAT_EQ(heuristic.calcHeuristic(8, 8), (Vec3<float>(17, 1, 0) - end).getLength());

    map.getEdgeTarget(5);
    expectReports({"endNode >= 0\nError Message: getOutEdge has delivered a wrong set of out nodes"});
}

KORV_TEST(PathSearch, limitsOfTheGraphAreReported)
{
    const MeshPtr mesh = createRow(2);
    mesh->mNodes[0].mNeighbours.assign(4096, -1);
    mesh->mNodes[0].mNeighbours[4094] = 1;
    NavMeshPathSearch search(mesh);
    const Vec3<float> point(1.0f, 1.0f, 0.0f);
    ASSERT_TRUE(search.initSearch(point, 0, point, 1));
    EXPECT_EQ(runAll(search, 10), 0);
    EXPECT_EQ(getChunks(search), (Chunks{{0, 4094}}));

    mesh->mNodes[0].mNeighbours[4094] = -1;
    mesh->mNodes[0].mNeighbours[4095] = 1;
    ASSERT_TRUE(search.initSearch(point, 0, point, 1));
    EXPECT_EQ(runAll(search, 10), -1);
    expectReports({"i < (KORV::Common::Utility::BitMask<(32-KORV_ASTARMAP_NAVMESH_EDGEINDEX_NODEBITS)>::MASK)\n"
                   "Error Message: Number of borders in a navmesh node exceeds the available range of 4095"});

    const MeshPtr large = createMesh();
    large->mNodes.resize(STARTNODE_MASK - 1);
    AStarMapNavMesh fits(large);
    expectReports({});
    large->mNodes.emplace_back();
    AStarMapNavMesh tooLarge(large);
    expectReports({"navMesh->mNodes.size() < STARTNODE_MASK\nError Message: "
                   "Number of nodes in the navmesh exceed the available range of 1048575"});
}

KORV_TEST(PathSearch, statesOfASearch)
{
    const MeshPtr mesh = createRow(10);
    mesh->mNodes[4].mNeighbours = {-1, -1, 9, 3};
    NavMeshPathSearch search(mesh);
    EXPECT_EQ(search.runSearch(5), -1);
    EXPECT_TRUE(search.getPath().empty());
    const std::string notInitialized("mAStar->goal\nError Message: Search not initialized");
    expectReports({notInitialized, notInitialized});

    const auto inNode = [](int node) { return Vec3<float>(static_cast<float>(2 * node) + 1.5f, 0.5f, 0.0f); };
    EXPECT_TRUE(search.initSearch(inNode(4), inNode(9)));
    EXPECT_EQ(search.runSearch(0), 1);
    EXPECT_EQ(search.runSearch(100), 0);
    EXPECT_EQ(getChunks(search), (Chunks{{4, 2}}));

    EXPECT_TRUE(search.initSearch(inNode(3), inNode(3)));
    EXPECT_EQ(search.runSearch(1), 0);
    EXPECT_TRUE(search.getPath().empty());

    EXPECT_TRUE(search.initSearch(inNode(0), inNode(6)));
    EXPECT_EQ(runAll(search, 2), 0);
    EXPECT_EQ(getChunks(search).size(), 8u); // by way of 9, 8 and 7
    mesh->mNodes[9].mNeighbours[3] = -1;
    EXPECT_TRUE(search.initSearch(inNode(0), inNode(6)));
    EXPECT_EQ(runAll(search, 2), -1);

    // what fails leaves the search before as it was
    EXPECT_TRUE(search.initSearch(inNode(0), inNode(2)));
    EXPECT_EQ(search.runSearch(1), 1);
    EXPECT_FALSE(search.initSearch({1, 9, 0}, inNode(2)));
    EXPECT_FALSE(search.initSearch(inNode(1), 1, {1, 9, 0}, -1));
    EXPECT_FALSE(search.initSearch(inNode(1), -2, inNode(1), 1));
    EXPECT_FALSE(search.initSearch(inNode(1), 1, inNode(1), 10));
    expectReports({"(uint32)_startNodeID < mNavMesh->mNodes.size()\nError Message: startNodeID is out of range",
                   "(uint32)_endNodeID < mNavMesh->mNodes.size()\nError Message: endNodeID is out of range"});
    EXPECT_EQ(search.runSearch(10), 0);
    EXPECT_EQ(getChunks(search), (Chunks{{0, 1}, {1, 1}}));
}

KORV_TEST(PathSearch, copiesShareOneSearch)
{
    MeshPtr mesh = createRow(6);
    NavMeshPathSearch other(createRow(3));
    {
        NavMeshPathSearch search(mesh);
        const NavMeshPathSearch copy(search);
        EXPECT_EQ(copy.mAStar, search.mAStar);
        EXPECT_TRUE(search.initSearch({1, 1, 0}, {11, 1, 0}));
        EXPECT_EQ(search.runSearch(2), 1);
        other = copy;
        search = NavMeshPathSearch(createRow(2));
        const NavMeshPathSearch& self = other;
        other = self;
    }
    EXPECT_EQ(other.getNavMeshContainer(), mesh);
    mesh.release();
    EXPECT_EQ(runAll(other, 2), 0);
    EXPECT_EQ(getChunks(other).size(), 5u);
}

KORV_TEST(PathSearch, nullAndEmptyMeshesAreReported)
{
    NavMeshPathSearch none{MeshPtr()};
    expectReports({"mNavMesh != NULL\nError Message: Navmesh container must not be NULL"});
    EXPECT_FALSE(none.initSearch({}, {}));
    EXPECT_EQ(none.runSearch(1), -1);
    EXPECT_TRUE(none.getPath().empty());
    EXPECT_EQ(dropReports(), 2u);

    NavMeshPathSearch empty{createMesh()};
    expectReports({"navMesh->mNodes.size() != 0\nError Message: Navmesh container is empty"});
    EXPECT_FALSE(empty.initSearch({}, {}));
    EXPECT_FALSE(empty.initSearch({}, 0, {}, 0));
    EXPECT_EQ(dropReports(), 1u);

    AStarMapNavMesh map{MeshPtr()};
    expectReports({"navMesh != NULL\nError Message: Navmesh container is a null pointer"});
    Vector<uint32> edges;
    map.getOutEdges(edges, 0);
    EXPECT_TRUE(edges.empty());
}

// Random ids everywhere, corners that are no numbers, and a mesh that changes between two slices: every search ends,
// inside its bounds.
KORV_TEST(PathSearch, brokenMeshesAreSafe)
{
    std::mt19937 random(5);
    const auto breakMesh = [&random](NavMeshContainer& mesh)
    {
        const auto anyID = [&random] { return static_cast<int32>(random() % 40) - 5; };
        mesh.mVertices.resize(random() % 30, {1.0f, 1.0f, 0.0f});
        for (Vec3<float>& vertex : mesh.mVertices)
            vertex.mX = random() % 8 == 0 ? std::numeric_limits<float>::quiet_NaN() : static_cast<float>(random() % 9);
        mesh.mNodes.clear();
        mesh.mNodes.resize(1 + random() % 30);
        for (NavNode& node : mesh.mNodes)
        {
            for (auto i = random() % 5; i > 0; --i)
                node.mPolygon.push_back(static_cast<uint32>(anyID()));
            for (auto i = random() % 9; i > 0; --i)
                node.mNeighbours.push_back(anyID());
            if (random() % 10 == 0)
                node.mNeighbours.push_back(std::numeric_limits<int32>::max());
        }
    };
    for (uint32 round = 0; round < 1000; ++round)
    {
        const MeshPtr mesh = createMesh();
        breakMesh(*mesh);
        NavMeshPathSearch search(mesh);
        const auto anyNode = [&] { return static_cast<int>(random() % mesh->mNodes.size()); };
        NavMeshSearchFilter filter(mesh->getMemory());
        filter.setBodyRadius(0.1f);
        filter.setCharacter({});
        search.setFilter(round % 3 == 0 ? &filter : nullptr);
        search.setGraph(round % 5 == 0 ? createGraph(mesh) : nullptr);
        ASSERT_TRUE(search.initSearch({}, anyNode(), {5, 0, 0}, anyNode()));
        search.runSearch(static_cast<uint32>(random() % 6));
        if (round % 2 == 0)
            breakMesh(*mesh);
        EXPECT_LT(runAll(search, 3), 1);
        EXPECT_LE(search.getPath().size(), 30u);
        const NavMeshPlace place = search.getNearestReachable();
        if (place.isValid())
            search.getPathTo(place.mNodeID);
        dropReports(); // a changed mesh may be reported
    }
}

KORV_TEST(PathSearch, takesNoMemoryAfterTheFirstSearch)
{
    std::mt19937 random(31);
    const MeshPtr mesh = createField(60, random);
    NavMeshPathSearch search(mesh);
    const auto last = static_cast<int>(mesh->mNodes.size()) - 1;
    ASSERT_TRUE(search.initSearch({}, 0, {}, last));
    runAll(search, 100);
    ASSERT_TRUE(search.initSearch({}, 0, {}, last));
    const uint64 before = mMemory->mAllocations;
    mMemory->mFailAfter = 0;
    runAll(search, 100);
    mMemory->mFailAfter = -1;
    EXPECT_EQ(mMemory->mAllocations, before);
}
