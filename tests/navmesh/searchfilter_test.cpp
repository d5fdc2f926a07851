#include "korv/common/interface.h"
#include "korv/common/memory/memoryexception.h"
#include "korv/navmesh/navmeshpathsearch.h"
#include "korv/navmesh/places/linkgeometry.h"
#include "korv/navmesh/places/nodeplaces.h"
#include "support/generate.h"
#include "support/test.h"

#include <cstdio>
#include <limits>
#include <queue>
#include <random>

using namespace KORV;
using namespace KORV::NavMesh;

namespace
{
using MeshPtr = SharedPtr<NavMeshContainer>;
using NavNode = NavMeshContainer::NavNode;

constexpr float UNREACHED = std::numeric_limits<float>::infinity();

/// What one body may do, told in its own words.
struct Body
{
    const CharacterInfo* mCharacter = nullptr;
    float mRadius = 0.0f;
    std::vector<float> mFactors; ///< by surface type; 0: forbidden

    NavMeshSearchFilter createFilter() const
    {
        NavMeshSearchFilter filter(Common::Interface::getSharedAllocator().get());
        if (mCharacter != nullptr)
            filter.setCharacter(*mCharacter);
        filter.setBodyRadius(mRadius);
        // the order of the calls must not matter
        for (size_t i = mFactors.size(); i > 0; --i)
            filter.setSurfaceCost(static_cast<uint16>(i - 1), mFactors[i - 1]);
        return filter;
    }

    float getFactor(const NavNode& node) const
    {
        return node.mSurfaceTypeID < mFactors.size() ? mFactors[node.mSurfaceTypeID] : 1.0f;
    }
    bool mayStandOn(const NavNode& node) const
    {
        const auto heightClass = static_cast<int64>(mCharacter != nullptr ? mCharacter->mMaxHeightClassID : 0);
        return getFactor(node) > 0.0f && (mCharacter == nullptr || node.mHeightClass >= heightClass);
    }
    bool mayCross(const NavMeshContainer& mesh, int32 node, size_t border) const
    {
        if (!mayStandOn(mesh.mNodes[static_cast<size_t>(mesh.mNodes[static_cast<size_t>(node)].mNeighbours[border])]))
            return false;
        LinkGeometry link;
        const bool measured = measureLink(link, mesh, static_cast<uint32>(node), static_cast<uint32>(border));
        if (mCharacter == nullptr && mRadius == 0.0f)
            return true;
        constexpr float SLACK = 1e-4f;
        if (!measured || link.mWidth + SLACK < 2.0f * mRadius)
            return false;
        return mCharacter == nullptr ||
               (link.mHeight <= mCharacter->mJumpHeight + SLACK && -link.mHeight <= mCharacter->mFallHeight + SLACK);
    }
};

struct Query
{
    int32 mStartNode;
    int32 mEndNode;
    Vec3<float> mStart;
    Vec3<float> mEnd;
};

float getCost(const NavMeshContainer& mesh, const Body& body, const Query& query, int32 from, int32 to)
{
    const Vec3<float> a = from == query.mStartNode ? query.mStart : mesh.getNodeMiddlePoint(from);
    const Vec3<float> b = to == query.mEndNode ? query.mEnd : mesh.getNodeMiddlePoint(to);
    return (b - a).getLength() * body.getFactor(mesh.mNodes[static_cast<size_t>(to)]);
}

/// The cost of the cheapest way to every node, by a search that knows no estimates.
std::vector<float> getLeastCosts(const NavMeshContainer& mesh, const Body& body, const Query& query)
{
    std::vector<float> costs(mesh.mNodes.size(), UNREACHED);
    if (!body.mayStandOn(mesh.mNodes[static_cast<size_t>(query.mStartNode)]))
        return costs;
    std::priority_queue<std::pair<float, int32>> queue; // negated costs: the least comes first
    costs[static_cast<size_t>(query.mStartNode)] = 0.0f;
    queue.push({0.0f, query.mStartNode});
    while (!queue.empty())
    {
        const auto [cost, node] = queue.top();
        queue.pop();
        const auto& neighbours = mesh.mNodes[static_cast<size_t>(node)].mNeighbours;
        for (size_t i = 0; - cost <= costs[static_cast<size_t>(node)] && i < neighbours.size(); ++i)
        {
            if (neighbours[i] < 0 || !body.mayCross(mesh, node, i))
                continue;
            const float next = getCost(mesh, body, query, node, neighbours[i]) - cost;
            if (!(next < costs[static_cast<size_t>(neighbours[i])]))
                continue;
            costs[static_cast<size_t>(neighbours[i])] = next;
            queue.push({-next, neighbours[i]});
        }
    }
    return costs;
}

/// The cost of a path that starts where it should and crosses only what the body may.
float getPathCost(const NavMeshContainer& mesh, const Body& body, const Query& query,
                  const Vector<NavMeshPathChunk>& path, int32 endNode)
{
    int32 node = query.mStartNode;
    float cost = 0.0f;
    for (const NavMeshPathChunk& chunk : path)
    {
        EXPECT_EQ(chunk.mNodeID, node);
        EXPECT_TRUE(body.mayCross(mesh, node, chunk.mBorderID));
        node = mesh.mNodes[static_cast<size_t>(chunk.mNodeID)].mNeighbours[chunk.mBorderID];
        cost += getCost(mesh, body, query, chunk.mNodeID, node);
    }
    EXPECT_EQ(node, endNode);
    return cost;
}

/// How often the search found a way, and the cheapest one.
struct Tally
{
    uint32 mFound = 0;
    uint32 mBest = 0;
    uint32 mNone = 0;
};

void checkNearest(const NavMeshContainer& mesh, const Body& body, const NavMeshPathSearch& search, const Query& query,
                  const std::vector<float>& least)
{
    const NavMeshPlace place = search.getNearestReachable();
    double nearest = UNREACHED;
    int32 nearestNode = -1;
    for (int32 node = 0; static_cast<size_t>(node) < least.size(); ++node)
    {
        ClosestPoint closest{};
        ASSERT_EQ(search.isReached(node), least[static_cast<size_t>(node)] < UNREACHED) << node;
        if (!search.isReached(node) || !findClosestPoint(closest, mesh, node, query.mEnd) ||
            closest.mDistance >= nearest)
            continue;
        nearest = closest.mDistance;
        nearestNode = node;
    }
    ASSERT_EQ(place.mNodeID, nearestNode);
    if (!place.isValid())
        return;
    EXPECT_FLOAT_EQ(place.mDistance, static_cast<float>(nearest));
    EXPECT_NEAR((place.mPosition - query.mEnd).getLength(), place.mDistance, 1e-3f);
    const float cost = getPathCost(mesh, body, query, search.getPathTo(nearestNode), nearestNode);
    EXPECT_NEAR(search.getCost(nearestNode), cost, 1e-3f * (1.0f + cost));
}

void checkQuery(const NavMeshContainer& mesh, const Body& body, NavMeshPathSearch& search, const Query& query,
                Tally& tally)
{
    ASSERT_TRUE(search.initSearch(query.mStart, query.mStartNode, query.mEnd, query.mEndNode));
    int result = 1;
    while (result == 1)
        result = search.runSearch(100);
    const std::vector<float> costs = getLeastCosts(mesh, body, query);
    const float least = costs[static_cast<size_t>(query.mEndNode)];
    ASSERT_EQ(result, least < UNREACHED ? 0 : -1);
    if (result != 0)
    {
        ++tally.mNone;
        EXPECT_EQ(search.getCost(query.mEndNode), UNREACHED);
        checkNearest(mesh, body, search, query, costs);
        return;
    }
    const float cost = getPathCost(mesh, body, query, search.getPath(), query.mEndNode);
    const float tolerance = 1e-4f * (1.0f + cost);
    EXPECT_NEAR(search.getCost(query.mEndNode), cost, tolerance);
    EXPECT_GE(cost, least - tolerance);
    ++tally.mFound;
    tally.mBest += cost <= least + tolerance ? 1 : 0;
}

void checkScene(const char* name, Scenes::Scene scene, float cubeSize, uint32 numQueries)
{
    const MeshPtr mesh = Testing::SceneRun(std::move(scene), cubeSize).run();
    std::mt19937 random(41);
    for (NavNode& node : mesh->mNodes)
        node.mSurfaceTypeID = static_cast<uint16>(random() % 12 < 9 ? 0 : random() % 4);
    const auto anyNode = [&] { return static_cast<int32>(random() % mesh->mNodes.size()); };
    const CharacterInfo* human = mesh->getCharacter(1);
    const CharacterInfo* mouse = mesh->getCharacter(2);
    ASSERT_TRUE(human != nullptr && mouse != nullptr);
    const Body bodies[] = {{}, {human, 0.0f, {}}, {mouse, 0.0f, {}}, {human, 0.3f, {}}, {mouse, 0.05f, {1, 2, 5, 0}}};
    Tally total;
    for (const Body& body : bodies)
    {
        KORV_CONTEXT(name << ", body " << &body - bodies);
        NavMeshPathSearch search(mesh);
        const NavMeshSearchFilter filter = body.createFilter();
        search.setFilter(&body != bodies ? &filter : nullptr);
        for (uint32 i = 0; i < numQueries && !testing::Test::HasFatalFailure(); ++i)
        {
            Query query{anyNode(), anyNode(), {}, {}};
            query.mStart = mesh->getNodeMiddlePoint(query.mStartNode);
            query.mEnd = mesh->mVertices[mesh->mNodes[static_cast<size_t>(query.mEndNode)].mPolygon[1]];
            checkQuery(*mesh, body, search, query, total);
        }
    }
    std::printf("%s: %zu nodes, %u ways found, %u of them cheapest, %u times none\n", name, mesh->mNodes.size(),
                total.mFound, total.mBest, total.mNone);
    EXPECT_GT(total.mFound, numQueries / 2);
    EXPECT_GT(total.mNone, 0u);
    EXPECT_GT(10 * total.mBest, 8 * total.mFound);
}

/// Squares of side 2 in a row along x, linked both ways, at these heights.
MeshPtr createStairs(const std::vector<float>& heights)
{
    MeshPtr mesh(new (Common::Interface::getSharedAllocator()) NavMeshContainer);
    mesh->mNormal = {0.0f, 0.0f, 1.0f};
    mesh->mXAxis = {1.0f, 0.0f, 0.0f};
    mesh->mYAxis = {0.0f, 1.0f, 0.0f};
    mesh->mCubeSize = 0.5f;
    mesh->mHeight = {1.0f, 2.0f};
    for (int32 i = 0; static_cast<size_t>(i) < heights.size(); ++i)
    {
        const auto x = static_cast<float>(2 * i);
        const float z = heights[static_cast<size_t>(i)];
        const auto first = static_cast<uint32>(mesh->mVertices.size());
        NavNode node(mesh->getMemory());
        for (const Vec3<float>& corner : {Vec3<float>(x, 0, z), {x + 2, 0, z}, {x + 2, 2, z}, {x, 2, z}})
            mesh->mVertices.push_back(corner);
        node.mPolygon = {first, first + 1, first + 2, first + 3};
        node.mNeighbours = {-1, static_cast<size_t>(i) + 1 < heights.size() ? i + 1 : -1, -1, i - 1};
        node.mHeightClass = 1;
        node.mSurfaceTypeID = 0;
        mesh->mNodes.push_back(node);
    }
    return mesh;
}

CharacterInfo createCharacter(float jump, float fall, uint32 heightClass)
{
    CharacterInfo character;
    character.mJumpHeight = jump;
    character.mFallHeight = fall;
    character.mMaxHeightClassID = heightClass;
    return character;
}

int searchBetween(NavMeshPathSearch& search, int32 start, int32 end)
{
    const NavMeshContainer& mesh = *search.getNavMeshContainer();
    EXPECT_TRUE(search.initSearch(mesh.getNodeMiddlePoint(start), start, mesh.getNodeMiddlePoint(end), end));
    return search.runSearch(1000);
}
} // namespace

KORV_TEST(SearchFilter, findsWhatAnExhaustiveSearchFinds)
{
    checkScene("courtyard", Scenes::courtyard(), 0.25f, 60);
    checkScene("city", Scenes::city(3, 7), 0.5f, 40);
    checkScene("floors", Scenes::floors(3, 5), 0.25f, 40);
}

KORV_TEST(SearchFilter, heightsOfOneCharacter)
{
    // far from the origin, where coordinates are rounded: a jump as high as the step passes all the same
    const float base = 1000.1f;
    const MeshPtr mesh = createStairs({base, base + 0.3f, base + 0.3f, base - 0.7f});
    NavMeshPathSearch search(mesh);
    NavMeshSearchFilter filter(mesh->getMemory());
    const struct
    {
        const char* mWhat;
        float mJump;
        float mFall;
        uint32 mHeightClass;
        int mThere;
        int mBack;
    } rows[] = {
        {"reaches all", 1.0f, 1.0f, 1, 0, 0},
        {"jumps just so high, and drops one way", 0.3f, 1.0f, 1, 0, -1},
        {"jumps too low", 0.29f, 1.0f, 1, -1, -1},
        {"drops too low", 1.0f, 0.99f, 1, -1, 0},
        {"is too tall", 1.0f, 1.0f, 2, -1, -1},
        {"limits that are no numbers", std::numeric_limits<float>::quiet_NaN(), -1.0f, 1, -1, -1},
    };
    for (const auto& row : rows)
    {
        KORV_CONTEXT(row.mWhat);
        filter.setCharacter(createCharacter(row.mJump, row.mFall, row.mHeightClass));
        search.setFilter(&filter);
        EXPECT_EQ(searchBetween(search, 0, 3), row.mThere);
        EXPECT_EQ(searchBetween(search, 3, 0), row.mBack);
        EXPECT_EQ(searchBetween(search, 1, 2), row.mHeightClass < 2 ? 0 : -1);
    }

    mesh->mNodes[2].mHeightClass = -1;
    filter.setCharacter(createCharacter(1.0f, 1.0f, 0));
    search.setFilter(&filter);
    EXPECT_EQ(searchBetween(search, 0, 1), 0);
    EXPECT_EQ(searchBetween(search, 0, 2), -1);
    EXPECT_EQ(search.getNearestReachable().mNodeID, 1);
    EXPECT_EQ(searchBetween(search, 2, 2), -1); // not even where it stands
    EXPECT_FALSE(search.getNearestReachable().isValid());
    search.setFilter(nullptr);
    EXPECT_EQ(searchBetween(search, 0, 2), 0);
}

KORV_TEST(SearchFilter, surfacesAndWidths)
{
    const MeshPtr mesh = createStairs({0, 0, 0, 0, 0});
    mesh->mNodes[0].mNeighbours[0] = 4; // a way round, twice as long
    mesh->mNodes[1].mSurfaceTypeID = 7;
    mesh->mNodes[2].mSurfaceTypeID = 3;
    NavMeshPathSearch search(mesh);
    NavMeshSearchFilter filter(mesh->getMemory());
    const auto numSides = [&](float factor)
    {
        filter.setSurfaceCost(7, factor);
        search.setFilter(&filter);
        EXPECT_EQ(searchBetween(search, 0, 2), 0);
        return search.getPath().size();
    };
    EXPECT_EQ(numSides(1.0f), 2u);
    EXPECT_EQ(numSides(4.9f), 2u); // 2 * 4.9 + 2 against 8 + 2 + 2
    EXPECT_EQ(numSides(5.1f), 3u);
    EXPECT_FLOAT_EQ(search.getCost(2), 12.0f);
    EXPECT_EQ(numSides(0.0f), 3u);
    EXPECT_EQ(numSides(-2.0f), 3u);
    EXPECT_EQ(numSides(UNREACHED), 3u);
    EXPECT_EQ(numSides(0.5f), 2u);
    EXPECT_FLOAT_EQ(search.getCost(2), 4.0f);
    EXPECT_EQ(numSides(std::numeric_limits<float>::quiet_NaN()), 2u);
    filter.setSurfaceCost(3, 3.0f); // that of the node entered, not of the node left
    EXPECT_EQ(numSides(1.0f), 2u);
    EXPECT_FLOAT_EQ(search.getCost(2), 8.0f);
    EXPECT_EQ(dropReports(), 2u);

    filter.setBodyRadius(-1.0f);
    filter.setBodyRadius(UNREACHED);
    EXPECT_EQ(dropReports(), 2u);
    EXPECT_EQ(filter.getBodyRadius(), 0.0f);
    filter.setBodyRadius(1.0f);
    EXPECT_EQ(numSides(1.0f), 2u);
    filter.setBodyRadius(1.01f);
    search.setFilter(&filter);
    EXPECT_EQ(searchBetween(search, 0, 2), -1);
}

KORV_TEST(SearchFilter, belongsToTheSearchesToCome)
{
    const MeshPtr mesh = createStairs({0, 0, 1, 1});
    NavMeshPathSearch search(mesh);
    NavMeshPathSearch copy(search);
    EXPECT_FALSE(search.getNearestReachable().isValid());
    EXPECT_TRUE(search.getPathTo(0).empty());
    EXPECT_EQ(dropReports(), 2u);
    EXPECT_EQ(search.getCost(0), UNREACHED);
    {
        NavMeshSearchFilter filter(mesh->getMemory());
        filter.setCharacter(createCharacter(0.5f, 2.0f, 0));
        filter.setSurfaceCost(1, 2.0f);
        const Vec3<float> start = mesh->getNodeMiddlePoint(0);
        const Vec3<float> end = mesh->getNodeMiddlePoint(3);
        ASSERT_TRUE(search.initSearch(start, end));
        EXPECT_EQ(search.runSearch(1), 1);
        copy.setFilter(&filter);
        EXPECT_EQ(search.runSearch(9), 0); // the one that runs is as it was
    }
    EXPECT_EQ(searchBetween(search, 0, 3), -1); // a copy of the filter is all it needs
    EXPECT_EQ(search.getNearestReachable().mNodeID, 1);
    EXPECT_EQ(copy.getPathTo(1).size(), 1u);
    EXPECT_TRUE(copy.getPathTo(2).empty());
    EXPECT_TRUE(copy.getPathTo(-1).empty());
    expectReports({"isReached(nodeID)\nError Message: The search has not reached node 2",
                   "isReached(nodeID)\nError Message: The search has not reached node -1"});

    // no memory for a copy: all stays as it is
    NavMeshSearchFilter other(mesh->getMemory());
    other.setSurfaceCost(1, 2.0f);
    for (uint16 id = 2; id < 60000; ++id) // small blocks may come from what the allocator holds already
        other.setSurfaceCost(id, 2.0f);
    mMemory->mFailAfter = 0;
    Testing::expectThrow<Common::Memory::OutOfMemoryException>([&] { search.setFilter(&other); });
    mMemory->mFailAfter = -1;
    EXPECT_EQ(searchBetween(search, 0, 3), -1);
    search.setFilter(nullptr);
    EXPECT_EQ(searchBetween(copy, 0, 3), 0);
}
