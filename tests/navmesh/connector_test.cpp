#include "korv/common/callback/callbackallocator.h"
#include "korv/common/interface.h"
#include "korv/common/memory/memoryexception.h"
#include "korv/navmesh/navmeshconnector.h"
#include "support/test.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <random>

using namespace KORV;
using namespace KORV::NavMesh;
using Common::Threading::ThreadPool;

namespace
{
constexpr float OVERLAP = 0.5f;
constexpr float DISTANCE = 0.25f;

using MeshPtr = SharedPtr<NavMeshContainer>;
using Corners = std::vector<Vec2<float>>;

struct Rectangle
{
    float mX0, mY0, mX1, mY1;
    float mHeight = 0.0f;
};

/// A mesh with up along z, whose nodes have all sides open.
struct Scene
{
    explicit Scene(const Common::Memory::AllocatorPtr& allocator = Common::Interface::getSharedAllocator())
        : mMesh(new (allocator) NavMeshContainer), mAllocator(allocator)
    {
    }
    Scene(std::initializer_list<Rectangle> rectangles) : Scene()
    {
        for (const Rectangle& rectangle : rectangles)
            add(rectangle);
    }

    void add(const Rectangle& r) { add({{r.mX0, r.mY0}, {r.mX1, r.mY0}, {r.mX1, r.mY1}, {r.mX0, r.mY1}}, r.mHeight); }
    void add(const Corners& corners, float height)
    {
        mMesh->mNodes.emplace_back(mMesh->getMemory());
        for (const Vec2<float>& corner : corners)
        {
            mMesh->mNodes.back().mPolygon.push_back(static_cast<uint32>(mMesh->mVertices.size()));
            mMesh->mNodes.back().mNeighbours.push_back(-1);
            mMesh->mVertices.push_back({corner.mX, corner.mY, height});
        }
    }
    void connect(float jump = 1.0f, float fall = 1.0f, ProgressReceiver* receiver = nullptr)
    {
        connectAs(OVERLAP, jump, fall, 1.0f, 2, receiver);
    }
    void connectAs(float overlap, float jump, float fall, float axisValue, int32 vertComp,
                   ProgressReceiver* receiver = nullptr, Rules rules = Rules::SPECIFIED)
    {
        NavMeshBuilder::Statistics statistics;
        const std::unique_ptr<NavMeshConnector> connector(new (mAllocator) NavMeshConnector(overlap, DISTANCE, rules));
        const std::unique_ptr<ThreadPool> pool(ThreadPool::createOnDemand(mAllocator, 2, 0));
        MeshDraft draft(*mMesh, mAllocator.get());
        fill(draft);
        connector->buildConnections(draft, jump, fall, axisValue, vertComp, *pool, RunControl(receiver, statistics));
        mMesh->mNodes.clear();
        draft.moveNodes(RunControl(nullptr, statistics), "Build Vertical Connections", 0.0f);
    }
    /// Hands the nodes over, several to a block. The draft counts corners and neighbours from what it holds so far.
    void fill(MeshDraft& draft) const
    {
        constexpr size_t NODES_PER_BLOCK = 5;
        const auto numVertices = static_cast<int32>(mMesh->mVertices.size());
        for (size_t first = 0; first < mMesh->mNodes.size(); first += NODES_PER_BLOCK)
        {
            ConvexPieces pieces(mAllocator.get());
            for (size_t id = first; id < std::min(first + NODES_PER_BLOCK, mMesh->mNodes.size()); ++id)
            {
                const NavMeshContainer::NavNode& node = mMesh->mNodes[id];
                pieces.mStart.push_back(static_cast<uint32>(pieces.mCorners.size()));
                for (const uint32 corner : node.mPolygon)
                    pieces.mCorners.push_back(static_cast<int32>(corner) - numVertices);
                for (const int32 neighbour : node.mNeighbours)
                    pieces.mNeighbours.push_back(neighbour < 0 ? -1 : neighbour - static_cast<int32>(first));
            }
            const auto numPieces = static_cast<uint32>(pieces.size());
            draft.appendBlock(std::move(pieces));
            draft.appendOutline(SurfacePolygon(mAllocator.get()), numPieces);
        }
    }

    Vec2<float> corner(const NavMeshContainer::NavNode& node, size_t side) const
    {
        const Vec3<float>& v = mMesh->mVertices[node.mPolygon[side % node.mPolygon.size()]];
        return {v.mX, v.mY};
    }
    /// Length of the sides of a node that lead to another, -1 for the open ones.
    float linkedLength(size_t from, int32 to) const
    {
        const NavMeshContainer::NavNode& node = mMesh->mNodes[from];
        float length = 0.0f;
        for (size_t side = 0; side < node.mPolygon.size(); ++side)
        {
            if (node.mNeighbours[side] == to)
                length += (corner(node, side + 1) - corner(node, side)).getLength();
        }
        return length;
    }
    std::vector<int32> neighbours(size_t node) const
    {
        return {mMesh->mNodes[node].mNeighbours.begin(), mMesh->mNodes[node].mNeighbours.end()};
    }
    size_t numVertices() const { return mMesh->mVertices.size(); }

    MeshPtr mMesh;
    Common::Memory::AllocatorPtr mAllocator;
};

/// Length of the border that two rectangles share.
float sharedLength(const Rectangle& a, const Rectangle& b)
{
    const float overlapX = std::min(a.mX1, b.mX1) - std::max(a.mX0, b.mX0);
    const float overlapY = std::min(a.mY1, b.mY1) - std::max(a.mY0, b.mY0);
    if (overlapX == 0.0f && overlapY > 0.0f)
        return overlapY;
    return overlapY == 0.0f && overlapX > 0.0f ? overlapX : 0.0f;
}

/// Cuts a rectangle into smaller ones at whole numbers, at random.
void cutUp(std::vector<Rectangle>& pieces, const Rectangle& whole, std::mt19937& random)
{
    const float width = whole.mX1 - whole.mX0;
    const float depth = whole.mY1 - whole.mY0;
    if (std::max(width, depth) < 2.0f || (std::max(width, depth) < 6.0f && random() % 4 == 0))
    {
        pieces.push_back(whole);
        return;
    }
    const bool alongX = width >= depth;
    const auto sizes = static_cast<unsigned>(alongX ? width : depth) - 1;
    const float cut = 1.0f + static_cast<float>(random() % sizes);
    Rectangle low = whole;
    Rectangle high = whole;
    (alongX ? low.mX1 : low.mY1) = (alongX ? whole.mX0 : whole.mY0) + cut;
    (alongX ? high.mX0 : high.mY0) = alongX ? low.mX1 : low.mY1;
    cutUp(pieces, low, random);
    cutUp(pieces, high, random);
}

class StopAt : public ProgressReceiver
{
public:
    explicit StopAt(int call) : mCallsLeft(call) {}
    bool onProgress(const char* stage, float fraction) override
    {
        EXPECT_STREQ(stage, "Build Vertical Connections");
        EXPECT_TRUE(fraction >= mFraction && fraction <= 1.0f);
        mFraction = fraction;
        return mCallsLeft-- > 0;
    }

    int mCallsLeft;
    float mFraction = 0.0f;
};
} // namespace

KORV_TEST(Connector, fullySharedSidesLinkWithoutANewVertex)
{
    Scene scene{{0, 0, 2, 2}, {2, 0, 4, 2}};
    scene.connect();
    EXPECT_EQ(scene.neighbours(0), (std::vector<int32>{-1, 1, -1, -1}));
    EXPECT_EQ(scene.neighbours(1), (std::vector<int32>{-1, -1, -1, 0}));
    EXPECT_EQ(scene.numVertices(), 8u);
}

KORV_TEST(Connector, sidesAreSplitWhereTheyArePartlyMet)
{
    // The first node's right side runs from y 0 to 6.
    const struct
    {
        const char* mWhat;
        float mFrom;
        float mTo;
        std::vector<int32> mNeighbours;
        std::vector<float> mCuts; // on the right side
    } rows[] = {
        {"in the middle", 2, 4, {-1, -1, 1, -1, -1, -1}, {2, 4}},
        {"from the start", 0, 4, {-1, 1, -1, -1, -1}, {4}},
        {"from before the start", -3, 4, {-1, 1, -1, -1, -1}, {4}},
        {"to the end", 2, 6, {-1, -1, 1, -1, -1}, {2}},
        {"all but less than the tolerance", 0.4f, 5.6f, {-1, 1, -1, -1}, {}},
        {"too little", -4, 0.4f, {-1, -1, -1, -1}, {}},
        {"just enough", -4, 0.6f, {-1, 1, -1, -1, -1}, {0.6f}},
    };
    for (const auto& row : rows)
    {
        KORV_CONTEXT(row.mWhat);
        Scene scene{{0, 0, 4, 6}, {4, row.mFrom, 8, row.mTo}};
        scene.connect();
        EXPECT_EQ(scene.neighbours(0), row.mNeighbours);
        ASSERT_GE(scene.numVertices(), 8 + row.mCuts.size());
        for (size_t i = 0; i < row.mCuts.size(); ++i)
        {
            EXPECT_NEAR(scene.mMesh->mVertices[8 + i].mX, 4.0f, 1e-6f);
            EXPECT_NEAR(scene.mMesh->mVertices[8 + i].mY, row.mCuts[i], 1e-6f);
            EXPECT_EQ(scene.mMesh->mNodes[0].mPolygon[2 + i], 8 + i);
        }
    }
}

KORV_TEST(Connector, heightsDecideWhichWayALinkGoes)
{
    const struct
    {
        const char* mWhat;
        float mHeight; // of the second node
        bool mToSecond;
        bool mToFirst;
    } rows[] = {
        {"a step", 0.5f, true, true},
        {"too high to jump", 0.6f, false, true},
        {"a long drop", -2.0f, true, false},
        {"too deep", -2.1f, false, false},
        {"too high for both", 2.1f, false, false},
    };
    for (const auto& row : rows)
    {
        KORV_CONTEXT(row.mWhat);
        Scene scene{{0, 0, 2, 2}, {2, 0, 4, 2, row.mHeight}};
        scene.connect(0.5f, 2.0f);
        EXPECT_EQ(scene.linkedLength(0, 1), row.mToSecond ? 2.0f : 0.0f);
        EXPECT_EQ(scene.linkedLength(1, 0), row.mToFirst ? 2.0f : 0.0f);
    }

    // Up along -y: the lower number is the higher place.
    Scene scene{{0, 0, 2, 2}, {2, 0, 4, 2, 1.0f}};
    for (Vec3<float>& vertex : scene.mMesh->mVertices)
        vertex = {vertex.mX, vertex.mZ, vertex.mY};
    scene.connectAs(OVERLAP, 0.5f, 2.0f, -1.0f, 1);
    EXPECT_EQ(scene.neighbours(0), (std::vector<int32>{-1, 1, -1, -1}));
    EXPECT_EQ(scene.neighbours(1), (std::vector<int32>{-1, -1, -1, -1}));
}

KORV_TEST(Connector, sideRefusedForItsHeightIsStillFoundByOthers)
{
    // The ledge in the middle is too high; the lower node's whole side stays open, yet both can be dropped to.
    Scene scene{{0, 0, 2, 6}, {2, 2, 4, 4, 1.5f}, {2, 4, 4, 6}};
    scene.connect(0.5f, 2.0f);
    EXPECT_EQ(scene.linkedLength(1, 0), 2.0f);
    EXPECT_EQ(scene.linkedLength(2, 0), 2.0f);
    EXPECT_EQ(scene.linkedLength(0, 1), 0.0f);
}

KORV_TEST(Connector, refinedRulesGoOnPastALedgeAndNeverThroughTheFloor)
{
    for (const Rules rules : {Rules::SPECIFIED, Rules::REFINED})
    {
        KORV_CONTEXT("refined: " << (rules == Rules::REFINED));
        Scene ledge{{0, 0, 2, 2}, {2, 0, 4, 2, 1.5f}, {2, 0, 4, 2}}; // under the ledge there is ground on the level
        ledge.connectAs(OVERLAP, 0.5f, 2.0f, 1.0f, 2, nullptr, rules);
        EXPECT_EQ(ledge.linkedLength(0, 2), rules == Rules::REFINED ? 2.0f : 0.0f);
        EXPECT_EQ(ledge.linkedLength(2, 0), 2.0f);

        Scene above{{0, 0, 2, 2, 1.0f}, {0, 0, 2, 2}}; // ground that ends right under the edge of a floor
        above.connectAs(OVERLAP, 0.5f, 2.0f, 1.0f, 2, nullptr, rules);
        EXPECT_EQ(above.linkedLength(0, 1), rules == Rules::REFINED ? 0.0f : 8.0f);
    }
}

KORV_TEST(Connector, sidesThatLieApartOrTurnAwayStayOpen)
{
    const struct
    {
        const char* mWhat;
        Corners mSecond; // beside the square from (0, 0) to (4, 4)
        bool mLinked;
    } rows[] = {
        {"close enough", {{4.24f, 0}, {8, 0}, {8, 4}, {4.24f, 4}}, true},
        {"too far", {{4.26f, 0}, {8, 0}, {8, 4}, {4.26f, 4}}, false},
        {"a small turn", {{4, 0}, {8, 0}, {8, 4}, {4.5f, 4}}, true},
        {"a turn beyond cosine 0.99", {{4, 0}, {8, 0}, {8, 4}, {4.7f, 4}}, false},
    };
    for (const auto& row : rows)
    {
        KORV_CONTEXT(row.mWhat);
        Scene scene{{0, 0, 4, 4}};
        scene.add(row.mSecond, 0.0f);
        scene.connect();
        EXPECT_EQ(scene.linkedLength(0, 1) > 0.0f, row.mLinked);
    }
}

KORV_TEST(Connector, tiledGroundIsLinkedAcrossEveryBorder)
{
    for (uint32 seed = 0; seed < 60; ++seed)
    {
        KORV_CONTEXT("seed " << seed);
        std::mt19937 random(seed);
        std::vector<Rectangle> tiles;
        const float origin = seed % 2 == 0 ? 0.0f : -4000.0f;
        cutUp(tiles, {origin, origin, origin + 24, origin + 17}, random);
        Scene scene;
        for (const Rectangle& tile : tiles)
            scene.add(tile);
        scene.connect();
        for (size_t a = 0; a < tiles.size(); ++a)
        {
            for (size_t b = 0; b < tiles.size(); ++b)
            {
                if (a != b)
                {
                    ASSERT_NEAR(scene.linkedLength(a, static_cast<int32>(b)), sharedLength(tiles[a], tiles[b]), 0.01f)
                        << a << " to " << b;
                }
            }
            EXPECT_EQ(scene.mMesh->mNodes[a].mNeighbours.size(), scene.mMesh->mNodes[a].mPolygon.size());
        }
    }
}

KORV_TEST(Connector, linksAlwaysLeadAcrossASharedBorderWithinReach)
{
    for (uint32 seed = 0; seed < 60; ++seed)
    {
        KORV_CONTEXT("seed " << seed);
        std::mt19937 random(seed);
        std::vector<Rectangle> tiles;
        cutUp(tiles, {0, 0, 20, 20}, random);
        Scene scene;
        for (Rectangle& tile : tiles)
        {
            tile.mHeight = 0.5f * static_cast<float>(random() % 6);
            scene.add(tile);
        }
        scene.connect(0.5f, 1.5f);
        for (size_t a = 0; a < tiles.size(); ++a)
        {
            for (const int32 b : scene.neighbours(a))
            {
                if (b < 0)
                    continue;
                const Rectangle& other = tiles[static_cast<size_t>(b)];
                const float step = other.mHeight - tiles[a].mHeight;
                EXPECT_TRUE(step <= 0.5f && step >= -1.5f) << a << " to " << b;
                EXPECT_NEAR(scene.linkedLength(a, b), sharedLength(tiles[a], other), 0.01f + OVERLAP);
            }
        }
    }
}

// Short sides far apart: a table of all cells would have 10^15 entries.
KORV_TEST(Connector, cellsTakeMemoryOnlyWhereThereAreSides)
{
    Scene scene;
    for (const float x : {-8000000.0f, 0.0f, 8000000.0f})
    {
        for (const float y : {-8000000.0f, 0.0f, 8000000.0f})
        {
            scene.add({x, y, x + 2, y + 2});
            scene.add({x + 2, y, x + 4, y + 2});
            scene.add({{x + 4, y}, {x + 6, y + 2}, {x + 4, y + 4}, {x + 2, y + 2}}, 0.0f);
        }
    }
    scene.connect();
    for (size_t node = 0; node < scene.mMesh->mNodes.size(); node += 3)
    {
        EXPECT_EQ(scene.linkedLength(node, static_cast<int32>(node + 1)), 2.0f);
        EXPECT_EQ(scene.linkedLength(node + 1, static_cast<int32>(node)), 2.0f);
    }
}

// A cut that falls on an end of the side leaves the side itself over, for ever.
KORV_TEST(Connector, coarseCoordinatesDoNotSplitForEver)
{
    std::mt19937 random(1);
    for (int round = 0; round < 200; ++round)
    {
        Scene scene;
        const float far = 16777216.0f; // coordinates are two apart
        const auto place = [&] { return far + static_cast<float>(random() % 20); };
        for (int node = 0; node < 8; ++node)
            scene.add({{place(), place()}, {place(), place()}, {place(), place()}}, 0.0f);
        scene.connect();
        EXPECT_LT(scene.numVertices(), 2000u);
    }
    Scene scene{{0, 0, 4, 6}, {4, -2, 8, 0}, {4, 2, 8, 4}};
    // No overlap needed: touching at a corner is enough
    scene.connectAs(0.0f, 1.0f, 1.0f, 1.0f, 2);
    EXPECT_LT(scene.numVertices(), 40u);
}

KORV_TEST(Connector, unusableSidesAreHarmless)
{
    using Limits = std::numeric_limits<float>;
    const float values[] = {Limits::quiet_NaN(), Limits::infinity(), 3e38f, 1e-30f};
    for (const float value : values)
    {
        KORV_CONTEXT(value);
        Scene scene{{0, 0, 2, 2}, {2, 0, 4, 2}};
        scene.add({{0, 4}, {value, 4}, {2, value}}, 0.0f);
        scene.add({{0, 0}, {0, 0}, {value, value}}, value);
        scene.add({{2, 2}, {2, 0}, {2, 0}, {2, 2}}, 0.0f);
        scene.connect();
        EXPECT_EQ(scene.mMesh->mNodes.size(), 5u);
    }

    Scene broken{{0, 0, 2, 2}, {2, 0, 4, 2}};
    broken.mMesh->mNodes[0].mPolygon[3] = 77;
    broken.mMesh->mNodes.emplace_back(broken.mMesh->getMemory()); // no corners
    broken.connect();
    expectReports({"border[edgeID] < navMesh->mVertices.size()"});
    EXPECT_EQ(broken.neighbours(0)[1], 1);

    Scene closed{{0, 0, 2, 2}};
    closed.mMesh->mNodes[0].mNeighbours.assign(4, 0);
    closed.connect();
    EXPECT_EQ(closed.neighbours(0), std::vector<int32>(4, 0));
    Scene().connect();
}

KORV_TEST(Connector, verticalComponentOutsideTheVectorIsReported)
{
    Scene scene{{0, 0, 2, 2}, {2, 0, 4, 2}};
    scene.connectAs(OVERLAP, 1.0f, 1.0f, 1.0f, 3);
    expectReports({"mVertComp == 0 || mVertComp == 1 || mVertComp == 2\n"
                   "Error Message: vertical component must be in range of [0 .. 2]"});
    EXPECT_EQ(scene.neighbours(0)[1], 1);
}

KORV_TEST(Connector, hostMayStopAnyReport)
{
    constexpr int MANY = 1000;
    int numReports = MANY; // that the run before has made
    for (int call = MANY; call >= 0; call = std::min(call, numReports) - 1)
    {
        Scene scene;
        for (int i = 0; i < 9000; ++i) // several reports for each of the three passes
            scene.add({2.0f * static_cast<float>(i), 0, 2.0f * static_cast<float>(i) + 2, 2});
        StopAt receiver(call);
        bool stopped = false;
        try
        {
            scene.connect(1.0f, 1.0f, &receiver);
        }
        catch (RunCancelled*)
        {
            stopped = true;
        }
        EXPECT_EQ(stopped, call != MANY);
        EXPECT_EQ(scene.linkedLength(8999, 8998), stopped ? 0.0f : 2.0f);
        numReports = call - receiver.mCallsLeft;
        EXPECT_GE(numReports, stopped ? 1 : 9);
    }
}

KORV_TEST(Connector, nothingIsLostWhereverMemoryRunsOut)
{
    bool complete = false;
    for (int64 allowed = 0; !complete && allowed < 1000; ++allowed)
    {
        KORV_CONTEXT("allocations allowed: " << allowed);
        Testing::CountingMemory* memory = new Testing::CountingMemory;
        const SharedPtr<Common::Callback::MemoryCallback> callback(memory);
        Scene scene{Common::Memory::AllocatorPtr(new (callback) Common::Callback::CallbackAllocator)};
        for (const Rectangle& tile : {Rectangle{0, 0, 4, 6}, {4, 1, 8, 2}, {4, 3, 8, 4}, {4, 5, 8, 9}})
            scene.add(tile);
        memory->mFailAfter = allowed;
        try
        {
            scene.connect();
            complete = true;
        }
        catch (Common::Memory::OutOfMemoryException* error)
        {
            delete error;
        }
        memory->mFailAfter = -1;
    }
    EXPECT_TRUE(complete);
}
