#include "korv/navmesh/navmeshway.h"
#include "navmesh/corridors.h"
#include "support/generate.h"
#include "support/test.h"

#include <array>
#include <random>
#include <string>

using namespace KORV;
using namespace KORV::NavMesh;
using namespace KORV::Testing;
using namespace KORV::Testing::Ways;

namespace
{
using MeshPtr = SharedPtr<NavMeshContainer>;
using Path = std::vector<NavMeshPathChunk>;

MeshPtr createMesh()
{
    MeshPtr mesh(new (Common::Interface::getSharedAllocator()) NavMeshContainer);
    mesh->mNormal = {0.0f, 0.0f, 1.0f};
    mesh->mXAxis = {1.0f, 0.0f, 0.0f};
    mesh->mYAxis = {0.0f, 1.0f, 0.0f};
    mesh->mCubeSize = 0.25f;
    mesh->mHeight.push_back(3.0f);
    return mesh;
}

/// Adds a node without neighbours, with corners of its own.
int32 addNode(NavMeshContainer& mesh, const std::vector<Vec3<float>>& corners)
{
    NavNode node(mesh.getMemory());
    for (const Vec3<float>& corner : corners)
    {
        node.mPolygon.push_back(static_cast<uint32>(mesh.mVertices.size()));
        node.mNeighbours.push_back(-1);
        mesh.mVertices.push_back(corner);
    }
    node.mHeightClass = 0;
    mesh.mNodes.push_back(node);
    return static_cast<int32>(mesh.mNodes.size()) - 1;
}

/// Adds an upright rectangle at a height; sides are south, east, north, west.
int32 addRectangle(NavMeshContainer& mesh, float x0, float y0, float x1, float y1, float z = 0.0f)
{
    return addNode(mesh, {{x0, y0, z}, {x1, y0, z}, {x1, y1, z}, {x0, y1, z}});
}

void linkSide(NavMeshContainer& mesh, int32 from, uint32 side, int32 to)
{
    mesh.mNodes[static_cast<size_t>(from)].mNeighbours[side] = to;
}

Vector<NavMeshPathChunk> toVector(const NavMeshContainer& mesh, const Path& path)
{
    return Vector<NavMeshPathChunk>(path.begin(), path.end(), mesh.getMemory());
}

NavMeshWay findWay(const MeshPtr& mesh, const Vec3<float>& start, const Vec3<float>& end, const Path& path,
                   float radius = 0.0f)
{
    NavMeshWayFinder finder(mesh);
    finder.setBodyRadius(radius);
    NavMeshWay way(mesh->getMemory());
    EXPECT_TRUE(finder.findWay(way, start, end, toVector(*mesh, path)));
    return way;
}

/// The corridor as a mesh in a turned frame, and the path through it.
MeshPtr createMesh(const Corridor& corridor, Path& path, Vec3<float>& start, Vec3<float>& end)
{
    MeshPtr mesh = createMesh();
    mesh->mNormal = normalised(Vec3<float>(1.0f, 2.0f, 3.0f));
    mesh->mXAxis = normalised(cross(mesh->mNormal, Vec3<float>(1.0f, 0.0f, 0.0f)));
    mesh->mYAxis = cross(mesh->mNormal, mesh->mXAxis);
    const auto toSpace = [&mesh](const Place& p)
    { return mesh->mXAxis * static_cast<float>(p.mX) + mesh->mYAxis * static_cast<float>(p.mY); };
    for (const Place& p : corridor.mPlaces)
        mesh->mVertices.push_back(toSpace(p));
    start = toSpace(corridor.mStart);
    end = toSpace(corridor.mEnd);
    for (size_t i = 0; i < corridor.mTriangles.size(); ++i)
    {
        auto ids = corridor.mTriangles[i];
        const Place a = corridor.mPlaces[ids[0]];
        if (Common::Math::cross(corridor.mPlaces[ids[1]] - a, corridor.mPlaces[ids[2]] - a) < 0.0)
            std::swap(ids[1], ids[2]);
        NavNode node(mesh->getMemory());
        for (uint32 side = 0; side < 3; ++side)
        {
            const auto isEnd = [&](uint32 id)
            { return id == corridor.mPortals[i][0] || id == corridor.mPortals[i][1]; };
            const bool isExit = i < corridor.mPortals.size() && isEnd(ids[side]) && isEnd(ids[(side + 1) % 3]);
            node.mPolygon.push_back(ids[side]);
            node.mNeighbours.push_back(isExit ? static_cast<int32>(i) + 1 : -1);
            if (isExit)
                path.push_back({static_cast<int32>(i), side});
        }
        node.mHeightClass = 0;
        mesh->mNodes.push_back(node);
    }
    return mesh;
}

/// Finds ways between places picked at random on a generated mesh.
class Walker
{
public:
    Walker(const MeshPtr& mesh, uint32 seed) : mMesh(mesh), mRandom(seed), mSearch(mesh), mFinder(mesh) {}

    /// Goes to another place. @return false when there is no way between the places picked.
    bool findNext(NavMeshWay& way)
    {
        const auto from = static_cast<int>(mRandom() % mMesh->mNodes.size());
        const auto to = static_cast<int>(mRandom() % mMesh->mNodes.size());
        const Vec3<float> start = pickPlace(from);
        const Vec3<float> end = pickPlace(to);
        if (from == to || !mSearch.initSearch(start, from, end, to) || mSearch.runSearch(1000000) != 0)
            return false;
        const Vector<NavMeshPathChunk> path = mSearch.getPath();
        mPath.assign(path.begin(), path.end());
        EXPECT_TRUE(mFinder.findWay(way, start, end, path));
        return true;
    }

    MeshPtr mMesh;
    std::mt19937 mRandom;
    NavMeshPathSearch mSearch;
    NavMeshWayFinder mFinder;
    Path mPath;

private:
    Vec3<float> pickPlace(int node)
    {
        const Vec3<float> middle = mMesh->getNodeMiddlePoint(node);
        const NavNode& polygon = mMesh->mNodes[static_cast<size_t>(node)];
        const Vec3<float> corner = mMesh->mVertices[polygon.mPolygon[mRandom() % polygon.mPolygon.size()]];
        return middle + (corner - middle) * (0.9f * static_cast<float>(mRandom() % 100) / 100.0f);
    }
};
} // namespace

// Along straight corridors, spirals, and with corners that many portals share.
KORV_TEST(Way, isTheShortestLineThroughTheCorridor)
{
    std::mt19937 random(5);
    for (uint32 round = 0; round < 1500; ++round)
    {
        KORV_CONTEXT("round " << round);
        const uint32 numTriangles = 1 + static_cast<uint32>(random() % 60);
        Corridor corridor = createCorridor(numTriangles, 0.5 * static_cast<double>(random() % 8), random);
        const double expected = shortestLength(corridor);
        for (uint32 folds = static_cast<uint32>(random() % 3); folds > 0 && !corridor.mPortals.empty(); --folds)
            foldCorridor(corridor, random() % corridor.mPortals.size());
        Path path;
        Vec3<float> start;
        Vec3<float> end;
        const MeshPtr mesh = createMesh(corridor, path, start, end);
        const NavMeshWay way = findWay(mesh, start, end, path);
        ASSERT_NEAR(static_cast<double>(way.mLength), expected, 1e-4 * expected);
        for (const NavMeshCrossing& crossing : way.mCrossings)
            ASSERT_EQ(crossing.mMove, NavMeshMove::WALK);
    }
}

// A node may be left by the side it was entered through, or entered twice.
KORV_TEST(Way, turnsBackAtTheSideItCrosses)
{
    const MeshPtr mesh = createMesh();
    addRectangle(*mesh, 0, 0, 2, 2);
    addRectangle(*mesh, 2, 0, 4, 2);
    addRectangle(*mesh, 0, 0, 2, 2, -1.0f); // right below the first
    linkSide(*mesh, 0, 1, 1);
    linkSide(*mesh, 1, 3, 0);
    const NavMeshWay back = findWay(mesh, {0.5f, 0.5f, 0.0f}, {0.5f, 1.5f, 0.0f}, {{0, 1}, {1, 3}});
    ASSERT_EQ(back.mPoints.size(), 3u);
    EXPECT_NEAR(back.mLength, std::sqrt(10.0f), 1e-5f);
    EXPECT_EQ(back.mPoints[1].mPosition, Vec3<float>(2, 1, 0));

    linkSide(*mesh, 0, 1, 2);
    const NavMeshWay below = findWay(mesh, {0.5f, 0.5f, 0.0f}, {0.5f, 1.5f, -1.0f}, {{0, 1}});
    ASSERT_EQ(below.mPoints.size(), 4u);
    EXPECT_EQ(below.mPoints[1].mMove, NavMeshMove::DROP_DOWN);
    EXPECT_EQ(below.mPoints[1].mHeight, -1.0f);
    EXPECT_EQ(below.mPoints[2].mPosition, Vec3<float>(2, 1, -1));
    EXPECT_NEAR(below.mLength, std::sqrt(10.0f) + 1.0f, 1e-5f);
}

// Which way a line turns that goes back along itself is up to rounding; the portals decide.
KORV_TEST(Way, followsWallsInLineWithThePortals)
{
    for (const float off : {0.0f, 3e-7f, -3e-7f})
    {
        const MeshPtr mesh = createMesh();
        addRectangle(*mesh, 0, -2, 2, 0);
        addRectangle(*mesh, 2, -2, 4, off);
        addRectangle(*mesh, 0, 0, 4, 0.1f);
        linkSide(*mesh, 0, 1, 1);
        linkSide(*mesh, 1, 2, 2);
        const NavMeshWay back = findWay(mesh, {0.5f, -off, 0}, {0.25f, 0.05f, 0}, {{0, 1}, {1, 2}});
        EXPECT_NEAR(back.mLength, 1.5f + std::sqrt(1.75f * 1.75f + 0.05f * 0.05f), 1e-5f) << off;

        addNode(*mesh, {{0, 0, 0}, {2, off, 0}, {4, 0, 0}, {4, 2, 0}, {0, 2, 0}});
        addRectangle(*mesh, 2, -1, 4, 0);
        linkSide(*mesh, 3, 1, 4);
        const NavMeshWay out = findWay(mesh, {0.5f, off, 0}, {2.5f, -0.5f, 0}, {{3, 1}});
        EXPECT_NEAR(out.mLength, 1.5f + std::sqrt(0.5f), 1e-5f) << off;
    }
}

// The kind of a crossing is a question of the step height; a jump has a point on each border also on a straight line,
// and lands across the gap.
KORV_TEST(Way, saysWhereItJumpsAndDrops)
{
    const MeshPtr mesh = createMesh();
    addRectangle(*mesh, 0, 0, 2, 2);
    addRectangle(*mesh, 2.05f, 0.5f, 4, 3, 0.5f);
    addRectangle(*mesh, 4, 0, 6, 2, 0.25000003f);
    addRectangle(*mesh, 6, 0, 8, 2, -0.6f);
    for (int32 i = 0; i < 3; ++i)
        linkSide(*mesh, i, 1, i + 1);
    const Path path = {{0, 1}, {1, 1}, {2, 1}};
    NavMeshWay way = findWay(mesh, {1, 1, 0}, {7, 1, -0.6f}, path);
    ASSERT_EQ(way.mPoints.size(), 6u);
    const NavMeshMove moves[] = {NavMeshMove::WALK,      NavMeshMove::JUMP_UP, NavMeshMove::WALK,
                                 NavMeshMove::DROP_DOWN, NavMeshMove::WALK,    NavMeshMove::WALK};
    const int32 nodes[] = {0, 0, 1, 2, 3, 3};
    for (size_t i = 0; i < 6; ++i)
    {
        EXPECT_EQ(way.mPoints[i].mMove, moves[i]) << i;
        EXPECT_EQ(way.mPoints[i].mNodeID, nodes[i]) << i;
    }
    EXPECT_EQ(way.mPoints[1].mPosition, Vec3<float>(2, 1, 0));
    EXPECT_EQ(way.mPoints[2].mPosition, Vec3<float>(2.05f, 1, 0.5f));
    EXPECT_FLOAT_EQ(way.mPoints[1].mHeight, 0.5f);
    EXPECT_EQ(way.mCrossings[1].mMove, NavMeshMove::WALK);
    EXPECT_FLOAT_EQ(way.mCrossings[0].mWidth, 1.5f); // what the two sides share

    NavMeshWayFinder finder(mesh);
    finder.setStepHeight(1.0f);
    ASSERT_TRUE(finder.findWay(way, {1, 1, 0}, {7, 1, -0.6f}, toVector(*mesh, path)));
    EXPECT_EQ(way.mPoints.size(), 2u);
    finder.setStepHeight(0.1f);
    ASSERT_TRUE(finder.findWay(way, {1, 1, 0}, {7, 1, -0.6f}, toVector(*mesh, path)));
    EXPECT_EQ(way.mCrossings[1].mMove, NavMeshMove::DROP_DOWN);
    EXPECT_EQ(way.mPoints.size(), 8u);
}

// A corner that sticks into a node is gone around, on either border.
KORV_TEST(Way, goesAroundDents)
{
    for (const bool isMirrored : {false, true})
    {
        const MeshPtr mesh = createMesh();
        const float y = isMirrored ? 0.0f : 2.0f;
        addRectangle(*mesh, 0, 0, 2, 2);
        if (isMirrored)
            addNode(*mesh, {{2, 0, 0}, {3, 0.15f, 0}, {4, 0, 0}, {4, 2, 0}, {2, 2, 0}});
        else
            addNode(*mesh, {{2, 0, 0}, {4, 0, 0}, {4, 2, 0}, {3, 1.85f, 0}, {2, 2, 0}});
        addRectangle(*mesh, 4, 0, 6, 2);
        linkSide(*mesh, 0, 1, 1);
        linkSide(*mesh, 1, isMirrored ? 2 : 1, 2);
        const NavMeshWay way = findWay(mesh, {0, y, 0}, {6, y, 0}, {{0, 1}, {1, isMirrored ? 2u : 1u}});
        ASSERT_EQ(way.mPoints.size(), 3u);
        EXPECT_EQ(way.mPoints[1].mNodeID, 1);
        EXPECT_FLOAT_EQ(way.mPoints[1].mPosition.mX, 3.0f);

        // a finder that has been there knows the dent, but not when it is another mesh by now
        NavMeshWayFinder finder(mesh);
        NavMeshWay again(mesh->getMemory());
        const Vector<NavMeshPathChunk> path = toVector(*mesh, {{0, 1}, {1, isMirrored ? 2u : 1u}});
        for (int round = 0; round < 2; ++round)
        {
            ASSERT_TRUE(finder.findWay(again, {0, y, 0}, {6, y, 0}, path));
            EXPECT_EQ(again.mLength, way.mLength);
        }
        mesh->mVertices[isMirrored ? 5 : 7].mY = y;
        addRectangle(*mesh, 6, 0, 8, 2);
        ASSERT_TRUE(finder.findWay(again, {0, y, 0}, {6, y, 0}, path));
        EXPECT_EQ(again.mLength, 6.0f);
    }
}

KORV_TEST(Way, leavesRoomForTheBody)
{
    const MeshPtr mesh = createMesh();
    addRectangle(*mesh, 0, 0, 2, 2);
    addRectangle(*mesh, 2, 1, 4, 2.2f);
    addRectangle(*mesh, 4, 1.8f, 6, 3);
    linkSide(*mesh, 0, 1, 1);
    linkSide(*mesh, 1, 1, 2);
    const NavMeshWay way = findWay(mesh, {0, 0, 0}, {6, 3, 0}, {{0, 1}, {1, 1}}, 0.3f);
    EXPECT_GE(way.mCrossings[0].mLeaving.mY, 1.3f - 1e-5f);
    EXPECT_LE(way.mCrossings[0].mLeaving.mY, 1.7f + 1e-5f);
    EXPECT_FLOAT_EQ(way.mCrossings[1].mLeaving.mY, 2.0f); // too narrow: the middle
    EXPECT_FLOAT_EQ(way.mCrossings[1].mWidth, 0.4f);
    EXPECT_FLOAT_EQ(way.mCrossings[0].mWidth, 1.0f);
}

KORV_TEST(Way, keepsItsPromisesOnGeneratedMeshes)
{
    const std::vector<Scenes::Scene> scenes = {Scenes::courtyard(), Scenes::floors(3, 4), Scenes::hall(12, 5),
                                               Scenes::hills(20.0f, 10, 2), Scenes::city(2, 7)};
    const float cubeSizes[] = {0.17f, 0.2f, 0.3f, 0.5f, 0.3f};
    uint32 numKinds[3] = {0, 0, 0};
    uint32 numWays = 0;
    for (size_t scene = 0; scene < scenes.size(); ++scene)
    {
        SceneRun run(scenes[scene], cubeSizes[scene]);
        const MeshPtr mesh = run.run();
        ASSERT_NE(mesh, nullptr);
        Walker walker(mesh, static_cast<uint32>(scene) + 11);
        NavMeshWay way(mesh->getMemory());
        for (uint32 round = 0; round < 150; ++round)
        {
            KORV_CONTEXT("scene " << scene << " round " << round);
            if (!walker.findNext(way))
                continue;
            ++numWays;
            checkWay(*mesh, walker.mPath, way);
            for (const NavMeshCrossing& crossing : way.mCrossings)
                ++numKinds[static_cast<size_t>(crossing.mMove)];
            if (HasFailure())
                return;
        }
    }
    EXPECT_GT(numWays, 400u);
    EXPECT_GT(*std::min_element(numKinds, numKinds + 3), 20u);
}

// The points alone are found by another route: most portals are never looked at.
KORV_TEST(Way, hasTheSamePointsWithoutCrossings)
{
    const Scenes::Scene scenes[] = {Scenes::courtyard(), Scenes::hills(15.0f, 10, 2)};
    for (const Scenes::Scene& scene : scenes)
    {
        const MeshPtr mesh = SceneRun(scene, 0.25f).run();
        Walker walker(mesh, 4);
        NavMeshWay way(mesh->getMemory());
        NavMeshWay points(mesh->getMemory());
        for (uint32 round = 0; round < 80; ++round)
        {
            KORV_CONTEXT("round " << round);
            walker.mFinder.setStepHeight(round % 2 == 0 ? mesh->mCubeSize : 0.0f);
            walker.mFinder.setBodyRadius(round % 3 == 0 ? 0.2f : 0.0f);
            if (!walker.findNext(way))
                continue;
            const Vector<NavMeshPathChunk> path = toVector(*mesh, walker.mPath);
            ASSERT_TRUE(
                walker.mFinder.findPoints(points, way.mPoints.front().mPosition, way.mPoints.back().mPosition, path));
            EXPECT_TRUE(points.mCrossings.empty());
            EXPECT_EQ(points.mLength, way.mLength);
            ASSERT_EQ(points.mPoints.size(), way.mPoints.size());
            for (size_t i = 0; i < way.mPoints.size(); ++i)
            {
                EXPECT_EQ(points.mPoints[i].mPosition, way.mPoints[i].mPosition);
                EXPECT_EQ(points.mPoints[i].mNodeID, way.mPoints[i].mNodeID);
                EXPECT_EQ(points.mPoints[i].mMove, way.mPoints[i].mMove);
                EXPECT_EQ(points.mPoints[i].mHeight, way.mPoints[i].mHeight);
            }
        }
    }
}

// The path is the cheapest over middle points, not the one with the shortest line, so some ways are longer.
KORV_TEST(Way, isNotMuchLongerThanTheShortestOfAll)
{
    double sum = 0.0;
    double worst = 0.0;
    uint32 numWays = 0;
    for (uint32 seed = 1; seed <= 4; ++seed)
    {
        KORV_CONTEXT("seed " << seed);
        const MeshPtr mesh = SceneRun(Scenes::hall(2 + seed, seed), 0.25f).run();
        const Walls walls(*mesh);
        Walker walker(mesh, seed);
        NavMeshWay way(mesh->getMemory());
        for (uint32 round = 0; round < 12; ++round)
        {
            if (!walker.findNext(way))
                continue;
            const double shortest = walls.shortestLength(way.mPoints.front().mPosition, way.mPoints.back().mPosition);
            const double ratio = static_cast<double>(way.mLength) / shortest;
            ASSERT_GE(ratio, 1.0 - 1e-3);
            sum += ratio;
            worst = std::max(worst, ratio);
            ++numWays;
        }
    }
    EXPECT_GT(numWays, 30u);
    EXPECT_LT(sum / numWays, 1.15);
    RecordProperty("meanRatio", std::to_string(sum / numWays));
    RecordProperty("worstRatio", std::to_string(worst));
}

KORV_TEST(Way, takesNoMemoryOnceItHasEnough)
{
    const MeshPtr mesh = SceneRun(Scenes::courtyard()).run();
    Walker walker(mesh, 3);
    NavMeshWay way(mesh->getMemory());
    while (!walker.findNext(way) || walker.mPath.size() < 10)
        ;
    const Vector<NavMeshPathChunk> path = toVector(*mesh, walker.mPath);
    const Vec3<float> start = way.mPoints.front().mPosition;
    const Vec3<float> end = way.mPoints.back().mPosition;
    mMemory->mFailAfter = 0;
    EXPECT_TRUE(walker.mFinder.findWay(way, start, end, path));
    mMemory->mFailAfter = -1;
}

KORV_TEST(Way, refusesPathsThatDoNotFit)
{
    const MeshPtr mesh = createMesh();
    for (int32 i = 0; i < 4; ++i)
        addRectangle(*mesh, static_cast<float>(2 * i), 0, static_cast<float>(2 * i + 2), 2);
    for (int32 i = 0; i < 3; ++i)
        linkSide(*mesh, i, 1, i + 1);
    linkSide(*mesh, 3, 0, 99);
    NavMeshWayFinder finder(mesh);
    NavMeshWay way(mesh->getMemory());
    const float nan = std::numeric_limits<float>::quiet_NaN();
    for (const Path& path : std::vector<Path>{{{0, 0}}, {{0, 4}}, {{-1, 1}}, {{4, 0}}, {{0, 1}, {2, 1}}, {{3, 0}}})
        EXPECT_FALSE(finder.findWay(way, {1, 1, 0}, {3, 1, 0}, toVector(*mesh, path)));
    EXPECT_FALSE(finder.findWay(way, {nan, 1, 0}, {3, 1, 0}, toVector(*mesh, {{0, 1}})));
    EXPECT_FALSE(finder.findWay(way, {1, 1, 0}, {3, 1, 0}, toVector(*mesh, {}), 4));
    EXPECT_TRUE(way.mPoints.empty() && way.mCrossings.empty());
    finder.setBodyRadius(-1.0f);
    finder.setStepHeight(nan);
    EXPECT_EQ(dropReports(), 10u);

    // within one node, and to where it starts
    EXPECT_TRUE(finder.findWay(way, {1, 1, 0}, {1, 1, 0}, toVector(*mesh, {}), 2));
    ASSERT_EQ(way.mPoints.size(), 2u);
    EXPECT_EQ(way.mPoints[0].mNodeID, 2);
    EXPECT_EQ(way.mLength, 0.0f);
}

// Links are looked up some at once: a misfit far along a path counts from where it is, and leaves nothing behind.
KORV_TEST(Way, refusesLongPathsThatStopFitting)
{
    const MeshPtr mesh = createMesh();
    constexpr uint32 COUNT = 50;
    Path path;
    for (uint32 i = 0; i < COUNT; ++i)
    {
        addRectangle(*mesh, static_cast<float>(i), 0, static_cast<float>(i + 1), 2);
        if (i + 1 < COUNT)
        {
            linkSide(*mesh, static_cast<int32>(i), 1, static_cast<int32>(i) + 1);
            path.push_back({static_cast<int32>(i), 1});
        }
    }
    NavMeshWayFinder finder(mesh);
    NavMeshWay way(mesh->getMemory());
    const Vec3<float> end(static_cast<float>(COUNT) - 0.5f, 1, 0);
    for (const size_t misfit : {0u, 15u, 16u, 31u, 48u})
    {
        Path broken = path;
        broken[misfit].mBorderID = 2;
        EXPECT_FALSE(finder.findWay(way, {0.5f, 1, 0}, end, toVector(*mesh, broken)));
        EXPECT_TRUE(way.mPoints.empty() && way.mCrossings.empty());
        EXPECT_EQ(dropReports(), 1u);
        ASSERT_TRUE(finder.findWay(way, {0.5f, 1, 0}, end, toVector(*mesh, path)));
        EXPECT_EQ(way.mCrossings.size(), path.size());
        EXPECT_EQ(way.mPoints.size(), 2u);
    }
}

// Whatever a document says, neither the measuring of links nor a way may read what is not there.
KORV_TEST(Way, survivesBrokenMeshes)
{
    std::mt19937 random(8);
    const float odd[] = {0.0f,
                         1.0f,
                         3e38f,
                         -3e38f,
                         1e-40f,
                         std::numeric_limits<float>::quiet_NaN(),
                         std::numeric_limits<float>::infinity()};
    for (uint32 round = 0; round < 2000; ++round)
    {
        const MeshPtr mesh = createMesh();
        const uint32 damage = static_cast<uint32>(random() % 30);
        const auto isDamaged = [&] { return random() % 100 < damage; };
        const auto anyFloat = [&] { return isDamaged() ? odd[random() % 7] : static_cast<float>(random() % 4); };
        for (int i = 0; i < 12; ++i)
            mesh->mVertices.emplace_back(anyFloat(), anyFloat(), anyFloat());
        for (int i = 0; i < 5; ++i)
        {
            NavNode node(mesh->getMemory());
            for (uint64 corners = random() % 7; corners > 0; --corners)
                node.mPolygon.push_back(static_cast<uint32>(isDamaged() ? random() % 14 : random() % 12));
            for (uint64 sides = isDamaged() ? random() % 8 : node.mPolygon.size(); sides > 0; --sides)
                node.mNeighbours.push_back(static_cast<int32>(random() % (isDamaged() ? 8 : 5)) -
                                           (isDamaged() ? 2 : 0));
            mesh->mNodes.push_back(node);
        }
        if (isDamaged())
            mesh->mCubeSize = anyFloat();
        Path path;
        for (int32 node = 0; path.size() < random() % 12 + 1;)
        {
            const Vector<int32>& neighbours = mesh->mNodes[static_cast<size_t>(node)].mNeighbours;
            const auto side = static_cast<uint32>(random() % 5);
            path.push_back({node, side});
            if (side >= neighbours.size() || neighbours[side] < 0 || neighbours[side] > 4)
                break;
            node = neighbours[side];
        }
        NavMeshWayFinder finder(mesh);
        NavMeshWay way(mesh->getMemory());
        finder.setBodyRadius(static_cast<float>(random() % 3) * 0.3f);
        const bool found = finder.findWay(way, {0.5f, 1, 0}, {2, 2, 1}, toVector(*mesh, path));
        EXPECT_EQ(way.mPoints.empty(), !found);
        EXPECT_EQ(way.mCrossings.size(), found ? path.size() : 0);
    }
    dropReports();
}
