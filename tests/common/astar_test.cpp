#include "korv/common/astar/astar.h"
#include "korv/common/astar/astargoal.h"
#include "korv/common/astar/astarmap.h"
#include "korv/common/astar/astarstoragefast.h"
#include "korv/common/interface.h"
#include "support/test.h"

#include <algorithm>
#include <list>
#include <random>
#include <utility>

using namespace KORV;
using namespace KORV::Common;
using namespace KORV::Common::Astar;

namespace
{
struct Random
{
    explicit Random(uint32 seed) : mEngine(seed) {}
    uint32 operator()() { return static_cast<uint32>(mEngine()); }

    std::mt19937 mEngine;
};

/// Records and open list with nothing but plain lists, step by step: what the fast one must equal.
class PlainStorage : public AStarStorage
{
public:
    explicit PlainStorage(AStarMap* map) : AStarStorage(Interface::getSharedAllocator()), mMap(map) {}

    void setGoal(AStarGoal* goal) override { mGoal = goal; }
    AStarNode* getBestNode() override
    {
        if (mFront.empty() && !mBack.empty())
            refill();
        return mFront.empty() ? nullptr : mFront.front();
    }
    AStarNode* popBestNode() override
    {
        AStarNode* best = getBestNode();
        if (best != nullptr)
            mFront.pop_front();
        return best;
    }
    void addOpenNode(uint32 edge, uint32 nodeID, float pathCost, float heuristic) override
    {
        mRecords[nodeID] = {pathCost + heuristic, pathCost, edge, 0, {}, false};
        push(&mRecords[nodeID]);
        mStates[nodeID] = 1;
    }
    void closeNode(AStarNode* node) override { mStates[getNodeID(node)] = 2; }
    void updateOpenNode(uint32 nodeID, uint32 edge, float pathCost) override
    {
        AStarNode* node = &mRecords[nodeID];
        if (!(pathCost < node->pathCost))
            return;
        improve(*node, edge, pathCost);
        const auto found = std::find(mFront.begin(), mFront.end(), node);
        if (found == mFront.end())
            return;
        mFront.erase(found);
        push(node);
    }
    void updateClosedNode(uint32 nodeID, uint32 edge, float pathCost) override
    {
        if (!(pathCost < mRecords[nodeID].pathCost))
            return;
        ++mPropagations;
        improve(mRecords[nodeID], edge, pathCost);
        for (std::list<uint32> queue{nodeID}; !queue.empty(); queue.pop_front())
        {
            Vector<uint32> edges;
            mMap->getOutEdges(edges, queue.front());
            for (const uint32 out : edges)
            {
                const uint32 target = mMap->getEdgeTarget(out);
                const float cost = mRecords[queue.front()].pathCost + mGoal->getCost(out);
                if (mStates[target] == 0 || !(cost < mRecords[target].pathCost))
                    continue;
                improve(mRecords[target], out, cost);
                queue.push_back(target);
            }
        }
    }
    bool isNodeOpen(uint32 nodeID) override { return mStates[nodeID] == 1; }
    bool isNodeClosed(uint32 nodeID) override { return mStates[nodeID] == 2; }
    void initStorage(uint32 maxNodeID) override
    {
        mRecords.assign(maxNodeID + 1, {});
        mStates.assign(maxNodeID + 1, 0);
        mFront.clear();
        mBack.clear();
    }
    uint32 getNodeID(const AStarNode* node) override { return static_cast<uint32>(node - mRecords.data()); }
    AStarNode* getNode(uint32 nodeID) override { return nodeID < mRecords.size() ? &mRecords[nodeID] : nullptr; }

    uint32 mPropagations = 0;
    uint32 mRefills = 0;

private:
    static void improve(AStarNode& node, uint32 edge, float pathCost)
    {
        node.totalCost = node.totalCost - node.pathCost + pathCost;
        node.pathCost = pathCost;
        node.inEdge = edge;
    }
    void push(AStarNode* node)
    {
        if (mFront.empty() || !(node->totalCost < mFront.back()->totalCost))
        {
            mBack.push_back(node);
            return;
        }
        mFront.insert(std::find_if(mFront.begin(), mFront.end(),
                                   [node](const AStarNode* other) { return other->totalCost > node->totalCost; }),
                      node);
    }
    void refill()
    {
        ++mRefills;
        mFront.push_back(mBack.front());
        mBack.pop_front();
        AStarNode* worst = mFront.front();
        uint32 count = 1;
        for (auto x = mBack.begin(); x != mBack.end();)
        {
            AStarNode* node = *x;
            if (count < 50)
            {
                mFront.push_front(node);
                ++count;
                if (worst->totalCost < node->totalCost)
                    worst = node;
                x = mBack.erase(x);
            }
            else if (node->totalCost < worst->totalCost)
            {
                mBack.push_front(worst);
                mFront.remove(worst);
                mFront.push_back(node);
                x = mBack.erase(x);
                worst = mFront.front();
                for (AStarNode* other : mFront)
                    worst = other->totalCost > worst->totalCost ? other : worst;
            }
            else
            {
                ++x;
            }
        }
        mFront.sort([](const AStarNode* a, const AStarNode* b) { return a->totalCost < b->totalCost; });
    }

    AStarMap* mMap;
    std::vector<AStarNode> mRecords;
    std::vector<int> mStates;
    std::list<AStarNode*> mFront;
    std::list<AStarNode*> mBack;
};

/// A directed graph with costs, which notes whose edges it was asked for.
struct Graph : public AStarMap, public CostFunc, public HeuristicFunc
{
    struct Edge
    {
        uint32 mSource;
        uint32 mTarget;
        float mCost;
    };

    void reset(uint32 numNodes)
    {
        mEdges.clear();
        mOut.assign(numNodes, {});
        mEstimates.assign(numNodes, 0.0f);
        mAsked.clear();
    }
    void add(uint32 source, uint32 target, float cost)
    {
        mOut[source].push_back(static_cast<uint32>(mEdges.size()));
        mEdges.push_back({source, target, cost});
    }
    void getOutEdges(Vector<uint32>& edges, uint32 nodeID) override
    {
        mAsked.push_back(nodeID);
        edges.insert(edges.end(), mOut[nodeID].begin(), mOut[nodeID].end());
    }
    uint32 getEdgeTarget(uint32 edge) override { return mEdges[edge].mTarget; }
    uint32 getEdgeSource(uint32 edge) override { return mEdges[edge].mSource; }
    uint32 getMaxNodeID() override { return static_cast<uint32>(mOut.size()) - 1; }
    float calcCost(uint32 edge) override { return mEdges[edge].mCost; }
    float calcHeuristic(uint32 nodeID, uint32) override { return mEstimates[nodeID]; }

    std::vector<Edge> mEdges;
    std::vector<std::vector<uint32>> mOut;
    std::vector<float> mEstimates;
    std::vector<uint32> mAsked;
};

/// A search on a graph with a storage of either kind.
template <class Storage>
struct Search
{
    template <class... Args>
    explicit Search(Graph& graph, Args&&... args)
        : mGraph(graph), mStorage(&graph, std::forward<Args>(args)...),
          mGoal(&graph, &graph, Interface::getSharedAllocator()),
          mEngine(&mStorage, nullptr, &graph, Interface::getSharedAllocator())
    {
    }
    void init(uint32 start, uint32 end)
    {
        mGoal.setStartEnd(start, end);
        mEngine.goal = &mGoal;
        mEngine.map = &mGraph;
        mEngine.initSearch();
    }
    int run(uint32 slice)
    {
        int result = AStar::UNFINISHED;
        while (result == AStar::UNFINISHED)
            result = mEngine.runSearch(slice);
        return result;
    }

    Graph& mGraph;
    Storage mStorage;
    ASGoalBase mGoal;
    AStar mEngine;
};

using FastSearch = Search<AStarStorageFast>;
using PlainSearch = Search<PlainStorage>;

/// Costs and estimates with few distinct values, so that ties abound, or with many; estimates that are often wrong, so
/// that closed nodes are reached by cheaper ways.
void fillAtRandom(Graph& graph, Random& random)
{
    const auto numNodes = static_cast<uint32>(graph.mOut.size());
    const uint32 numValues = random() % 2 == 0 ? 4 : 100000;
    const uint32 degree = 1 + random() % 12;
    const uint32 reach = random() % 2 == 0 ? numNodes : std::min(numNodes, 40u);
    const float greed = static_cast<float>(random() % 3);
    for (uint32 node = 0; node < numNodes; ++node)
    {
        graph.mEstimates[node] = greed * static_cast<float>(random() % numValues) / static_cast<float>(numValues);
        const uint32 numEdges = random() % 64 == 0 ? 20 * degree : random() % (2 * degree);
        for (uint32 i = 0; i < numEdges; ++i)
            graph.add(node, (node + random() % reach) % numNodes,
                      static_cast<float>(random() % numValues) / static_cast<float>(numValues));
    }
}

void expectEqualRecords(PlainStorage& plain, AStarStorageFast& fast, uint32 numNodes)
{
    for (uint32 node = 0; node < numNodes; ++node)
    {
        ASSERT_EQ(plain.isNodeOpen(node), fast.isNodeOpen(node)) << node;
        ASSERT_EQ(plain.isNodeClosed(node), fast.isNodeClosed(node)) << node;
        if (!plain.isNodeOpen(node) && !plain.isNodeClosed(node))
            continue;
        ASSERT_EQ(plain.getNode(node)->totalCost, fast.getNode(node)->totalCost) << node;
        ASSERT_EQ(plain.getNode(node)->pathCost, fast.getNode(node)->pathCost) << node;
        ASSERT_EQ(plain.getNode(node)->inEdge, fast.getNode(node)->inEdge) << node;
    }
}
void expectSamePath(PlainSearch& plain, FastSearch& fast)
{
    Vector<uint32> path;
    Vector<uint32> other;
    EXPECT_EQ(plain.mGoal.getPath(path), fast.mGoal.getPath(other));
    EXPECT_EQ(path, other);
}

/// What an engine does with the target of an edge.
void reach(AStarStorage& storage, uint32 nodeID, float cost)
{
    if (storage.isNodeOpen(nodeID))
        storage.updateOpenNode(nodeID, 1, cost);
    else if (storage.isNodeClosed(nodeID))
        storage.updateClosedNode(nodeID, 2, cost);
    else
        storage.addOpenNode(0, nodeID, cost, 1.0f);
}
} // namespace

KORV_TEST(AStar, expandsInTheOrderOfThePlainLists)
{
    uint32 numRefills = 0;
    uint32 numPropagations = 0;
    Random random(4711);
    Graph graph;
    // serves graphs of any size: it grows, and is used again for smaller ones
    FastSearch fast(graph, Interface::getSharedAllocator());
    for (uint32 round = 0; round < 400; ++round)
    {
        KORV_CONTEXT("round " << round);
        const uint32 numNodes = 1 + random() % (round % 10 == 0 ? 6000 : 300);
        graph.reset(numNodes);
        fillAtRandom(graph, random);
        const uint32 start = random() % numNodes;
        const uint32 end = random() % numNodes;
        const uint32 slice = 1 + random() % 50;

        PlainSearch plain(graph);
        plain.init(start, end);
        fast.init(start, end);
        for (const bool again : {false, true}) // after the goal was found, a search goes on
        {
            graph.mAsked.clear();
            const int result = again ? plain.mEngine.runSearch(slice) : plain.run(slice);
            const std::vector<uint32> asked = std::exchange(graph.mAsked, {});
            EXPECT_EQ(again ? fast.mEngine.runSearch(slice) : fast.run(slice), result);
            ASSERT_EQ(graph.mAsked, asked);
            expectEqualRecords(plain.mStorage, fast.mStorage, numNodes);
            if (result == AStar::FOUND)
                expectSamePath(plain, fast);
        }
        numRefills += plain.mStorage.mRefills;
        numPropagations += plain.mStorage.mPropagations;
    }
    // the graphs do reach the rare branches
    EXPECT_GT(numRefills, 1000u);
    EXPECT_GT(numPropagations, 1000u);
}

// Long lists, improved in place in both parts and out of order, come off in the order of the plain lists.
KORV_TEST(AStar, openListKeepsItsOrderUnderAnyUse)
{
    Random random(99);
    for (uint32 round = 0; round < 60; ++round)
    {
        KORV_CONTEXT("round " << round);
        const uint32 numNodes = 3000;
        Graph graph;
        graph.reset(numNodes);
        PlainStorage plain(&graph);
        AStarStorageFast fast(&graph, Interface::getSharedAllocator());
        plain.initStorage(numNodes - 1);
        fast.initStorage(numNodes - 1);
        const uint32 numCosts = round % 3 == 0 ? 7 : 1000000;
        const uint32 popShare = 1 + random() % 90;
        for (uint32 step = 0; step < 8000; ++step)
        {
            // first a long back in falling order, where every node is better than the 50 before it
            const bool fill = round % 2 == 0 && step < numNodes;
            const uint32 node = fill ? step : random() % numNodes;
            const float cost = static_cast<float>(fill ? numCosts + numNodes - step : random() % numCosts);
            if (!fill && random() % 100 < popShare)
            {
                AStarNode* popped = plain.popBestNode();
                AStarNode* other = fast.popBestNode();
                ASSERT_EQ(popped == nullptr, other == nullptr) << step;
                if (popped == nullptr)
                    continue;
                ASSERT_EQ(plain.getNodeID(popped), fast.getNodeID(other)) << step;
                plain.closeNode(popped);
                fast.closeNode(other);
            }
            else
            {
                reach(plain, node, cost);
                reach(fast, node, cost);
            }
        }
        expectEqualRecords(plain, fast, numNodes);
    }
}

KORV_TEST(AStar, slicesAndResults)
{
    Graph graph;
    graph.reset(4);
    graph.mEstimates = {2.5f, 1.0f, 0.5f, 0.0f};
    graph.add(0, 1, 1.0f);
    graph.add(1, 2, 1.0f);
    FastSearch search(graph, Interface::getSharedAllocator());
    Vector<uint32> path;

    search.init(0, 2);
    EXPECT_EQ(search.mEngine.runSearch(0), AStar::UNFINISHED);
    EXPECT_TRUE(graph.mAsked.empty());
    EXPECT_EQ(search.mEngine.runSearch(2), AStar::UNFINISHED);
    EXPECT_EQ(search.mEngine.runSearch(1), AStar::FOUND);
    EXPECT_EQ(search.mGoal.getPath(path), 2.5f);
    EXPECT_EQ(path, (Vector<uint32>{0, 1}));

    path.clear();
    search.init(0, 0);
    EXPECT_EQ(search.mEngine.runSearch(1), AStar::FOUND);
    EXPECT_EQ(search.mGoal.getPath(path), 2.5f);
    EXPECT_TRUE(path.empty());

    search.init(0, 3);
    EXPECT_EQ(search.mEngine.runSearch(9), AStar::NO_PATH);
    EXPECT_EQ(search.mEngine.runSearch(9), AStar::NO_PATH);
    EXPECT_TRUE(search.mStorage.isNodeClosed(2));
    EXPECT_EQ(search.mGoal.getPath(path), 0.0f);
    EXPECT_TRUE(path.empty());
    EXPECT_NE(search.mStorage.getNode(3), nullptr);
    EXPECT_EQ(search.mStorage.getNode(4), nullptr);
}

// The node in front of the open list after a search is not always the goal: here another one costs the same.
KORV_TEST(AStar, pathEndsAtTheGoalBehindAnEquallyGoodNode)
{
    Graph graph;
    graph.reset(3);
    graph.add(0, 2, 1.0f);
    graph.add(0, 1, 1.0f);
    FastSearch search(graph, Interface::getSharedAllocator());
    for (const uint32 goal : {1u, 2u})
    {
        Vector<uint32> path;
        search.init(0, goal);
        EXPECT_EQ(search.run(100), AStar::FOUND);
        EXPECT_EQ(search.mGoal.getPath(path), 1.0f);
        EXPECT_EQ(path, (Vector<uint32>{goal == 2 ? 0u : 1u}));
    }
}

KORV_TEST(AStar, memoryThatRunsOutLeavesAUsableEngine)
{
    Graph graph;
    Random random(3);
    for (int64 allowed = 0; allowed < 12; ++allowed)
    {
        graph.reset(4000);
        fillAtRandom(graph, random);
        FastSearch search(graph, Interface::getSharedAllocator());
        mMemory->mFailAfter = allowed;
        bool failed = false;
        try
        {
            search.init(0, 1);
            search.run(1000);
        }
        catch (Exceptions::Exception* error)
        {
            delete error;
            failed = true;
        }
        mMemory->mFailAfter = -1;
        dropReports(); // a pool of small blocks says so, too
        EXPECT_TRUE(failed || allowed > 0);
        search.init(0, 1);
        const int result = search.run(1000);
        PlainSearch plain(graph);
        plain.init(0, 1);
        EXPECT_EQ(result, plain.run(1000));
    }
}
