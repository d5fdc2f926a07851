#include "korv/common/interface.h"
#include "korv/common/memory/memoryexception.h"
#include "korv/navmesh/navmeshnodeindex.h"
#include "korv/navmesh/navmeshsearchfilter.h"
#include "support/generate.h"
#include "support/test.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

using namespace KORV;
using namespace KORV::NavMesh;

namespace
{
using MeshPtr = SharedPtr<NavMeshContainer>;
using Point = Vec3<float>;

constexpr float INFINITE = std::numeric_limits<float>::infinity();
constexpr float NOT_A_NUMBER = std::numeric_limits<float>::quiet_NaN();

MeshPtr createMesh()
{
    MeshPtr mesh(new (Common::Interface::getSharedAllocator()) NavMeshContainer);
    mesh->mNormal = {0.0f, 0.0f, 1.0f};
    mesh->mXAxis = {1.0f, 0.0f, 0.0f};
    mesh->mYAxis = {0.0f, 1.0f, 0.0f};
    mesh->mCubeSize = 0.5f;
    mesh->mHeight.assign({0.4f, 1.8f});
    return mesh;
}

void addNode(NavMeshContainer& mesh, const std::vector<Point>& corners, int32 heightClass = 1)
{
    NavMeshContainer::NavNode node(mesh.getMemory());
    for (const Point& corner : corners)
    {
        node.mPolygon.push_back(static_cast<uint32>(mesh.mVertices.size()));
        node.mNeighbours.push_back(-1);
        mesh.mVertices.push_back(corner);
    }
    node.mHeightClass = heightClass;
    mesh.mNodes.push_back(node);
}

void addSquare(NavMeshContainer& mesh, float x, float y, float size, float z = 0.0f)
{
    addNode(mesh, {{x, y, z}, {x + size, y, z}, {x + size, y + size, z}, {x, y + size, z}});
}

/// Floors of quads with shared, jittered corners, in random order.
MeshPtr createFloors(int side, int floors, uint32 seed, float jitter = 0.3f, Point offset = {})
{
    MeshPtr mesh = createMesh();
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> shift(-jitter, jitter);
    for (int floor = 0; floor < floors; ++floor)
    {
        const auto first = static_cast<uint32>(mesh->mVertices.size());
        for (int i = 0; i < (side + 1) * (side + 1); ++i)
            mesh->mVertices.push_back(Point{float(i % (side + 1)) + shift(random),
                                            float(i / (side + 1)) + shift(random), 2.0f * float(floor)} +
                                      offset);
        for (int i = 0; i < side * side; ++i)
        {
            const uint32 corner = first + uint32(i / side * (side + 1) + i % side);
            NavMeshContainer::NavNode node(mesh->getMemory());
            for (const uint32 id : {corner, corner + 1, corner + uint32(side) + 2, corner + uint32(side) + 1})
                node.mPolygon.push_back(id);
            node.mHeightClass = static_cast<int32>(random() % 2);
            mesh->mNodes.push_back(node);
        }
    }
    std::shuffle(mesh->mNodes.begin(), mesh->mNodes.end(), random);
    return mesh;
}

/// Points where tests fail: corners, on and about sides, at the limits of heights, beside all, and anywhere.
std::vector<Point> choosePoints(const NavMeshContainer& mesh, size_t count, std::mt19937& random)
{
    std::vector<Point> points;
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    const auto nudge = [&random](float value)
    {
        for (auto i = random() % 3; i > 0; --i)
            value = std::nextafter(value, random() % 2 == 0 ? INFINITE : -INFINITE);
        return value;
    };
    const auto anyVertex = [&] { return mesh.mVertices[random() % mesh.mVertices.size()]; };
    while (points.size() < count)
    {
        const Point a = anyVertex();
        const Point b = anyVertex();
        const auto& node = mesh.mNodes[random() % mesh.mNodes.size()];
        const size_t corner = node.mPolygon.empty() ? 0 : random() % node.mPolygon.size();
        const auto getCorner = [&](size_t i)
        {
            const uint32 id = node.mPolygon.empty() ? 0 : node.mPolygon[i % node.mPolygon.size()];
            return mesh.mVertices[id < mesh.mVertices.size() ? id : 0];
        };
        const float along = float(random() % 9) / 4.0f - 0.5f; // beyond both ends, too
        Point point = getCorner(corner) * (1.0f - along) + getCorner(corner + 1) * along;
        switch (random() % 4)
        {
        case 0:
            point = a + (b - a) * unit(random);
            break;
        case 1:
            point = mesh.getNodeMiddlePoint(static_cast<int>(random() % mesh.mNodes.size()));
            break;
        case 2:
            point = point + (a - b) * (random() % 2 == 0 ? 1.0f : 100.0f * unit(random));
            break;
        default:
            break;
        }
        const float heights[] = {0.0f, -2.0f * mesh.mCubeSize, mesh.mHeight[0], mesh.mHeight.back(),
                                 3.0f * unit(random)};
        point = point + mesh.mNormal * heights[random() % 5];
        points.push_back({nudge(point.mX), nudge(point.mY), nudge(point.mZ)});
    }
    return points;
}

/// Compares with the linear search; returns how many points were on a node.
size_t compareSearches(const MeshPtr& mesh, const NavMeshNodeIndex& index, const std::vector<Point>& points)
{
    size_t numFound = 0;
    for (const Point& point : points)
    {
        const int expected = mesh->searchNode(point);
        numFound += expected >= 0;
        EXPECT_EQ(index.searchNode(point), expected) << point.mX << ' ' << point.mY << ' ' << point.mZ;
    }
    return numFound;
}

size_t compareSearches(const MeshPtr& mesh, uint32 seed, size_t numPoints)
{
    std::mt19937 random(seed);
    return compareSearches(mesh, NavMeshNodeIndex(mesh), choosePoints(*mesh, numPoints, random));
}

using Wide = Vec3<double>;

Wide widen(const Point& p)
{
    return {p.mX, p.mY, p.mZ};
}

/// Distance from a triangle by a search that only knows convexity: the distance along a line is convex, and so is that
/// of the best point of a line that sweeps the triangle.
double sweepDistance(const Wide& a, const Wide& b, const Wide& c, const Wide& p)
{
    const auto minimise = [](auto&& function)
    {
        double low = 0.0;
        double high = 1.0;
        for (int i = 0; i < 60; ++i)
        {
            const double first = low + (high - low) / 3.0;
            const double second = high - (high - low) / 3.0;
            (function(first) < function(second) ? high : low) = function(first) < function(second) ? second : first;
        }
        return function(low);
    };
    return minimise(
        [&](double t)
        {
            const Wide from = a + (b - a) * t;
            const Wide side = (a + (c - a) * t) - from;
            const double square = dot(side, side);
            const double s = square > 0.0 ? std::clamp(dot(p - from, side) / square, 0.0, 1.0) : 0.0;
            return (from + side * s - p).getLength();
        });
}

double getDistance(const NavMeshContainer& mesh, int nodeID, const Point& point)
{
    const auto& polygon = mesh.mNodes[static_cast<size_t>(nodeID)].mPolygon;
    double best = INFINITE;
    for (size_t i = 2; i < polygon.size(); ++i)
        best = std::min(best, sweepDistance(widen(mesh.mVertices[polygon[0]]), widen(mesh.mVertices[polygon[i - 1]]),
                                            widen(mesh.mVertices[polygon[i]]), widen(point)));
    return best;
}

/// Compares with a look at all nodes.
void compareNearest(const MeshPtr& mesh, const NavMeshNodeIndex& index, const Point& point, float maxDistance)
{
    KORV_CONTEXT(point.mX << ' ' << point.mY << ' ' << point.mZ);
    double best = INFINITE;
    for (int id = 0; id < static_cast<int>(mesh->mNodes.size()); ++id)
    {
        if (Testing::doubleArea(*mesh, mesh->mNodes[static_cast<size_t>(id)]) > 0.0)
            best = std::min(best, getDistance(*mesh, id, point));
    }
    const NavMeshPlace place = index.nearestNode(point, maxDistance);
    const double tolerance = 1e-6 * (1.0 + best + widen(point).getLength());
    if (std::fabs(best - double(maxDistance)) > tolerance)
    {
        ASSERT_EQ(place.isValid(), best < double(maxDistance));
    }
    if (!place.isValid())
        return;
    EXPECT_NEAR(place.mDistance, best, tolerance);
    EXPECT_NEAR(getDistance(*mesh, place.mNodeID, point), best, tolerance);
    EXPECT_NEAR((place.mPosition - point).getLength(), best, 10.0 * tolerance);
    EXPECT_TRUE(mesh->isPointInsideNode(place.mPosition, place.mNodeID));
}
} // namespace

KORV_TEST(NodeIndex, findsTheNodesOfTheLinearSearch)
{
    for (const auto& [side, floors] : {std::pair{1, 1}, {4, 1}, {5, 3}, {17, 4}, {40, 2}})
    {
        KORV_CONTEXT(side << " squares, " << floors << " floors");
        const MeshPtr mesh = createFloors(side, floors, 3);
        EXPECT_GT(compareSearches(mesh, 1, 4000), 1000u);
    }
    // no jitter: points on the corners of four squares
    compareSearches(createFloors(20, 2, 4, 0.0f), 2, 4000);
    // many nodes at the same place
    const MeshPtr stack = createMesh();
    for (int i = 0; i < 600; ++i)
        addSquare(*stack, float(i % 3), 0.0f, 2.0f, float(i % 7));
    compareSearches(stack, 3, 2000);
}

// A few tall towers on wide ground: a grid of cells over all would put each tower into one cell. And a few nodes
// without area, which let in points all along their lines.
KORV_TEST(NodeIndex, findsTheNodesOfCrowdedGround)
{
    std::mt19937 random(8);
    const auto anyPlace = [&random](float size) { return size * float(random() % 1000) / 1000.0f; };
    const MeshPtr mesh = createMesh();
    addSquare(*mesh, 0.0f, 0.0f, 1000.0f);
    for (int tower = 0; tower < 4; ++tower)
    {
        const Point foot{anyPlace(900.0f), anyPlace(900.0f), 0.0f};
        for (int i = 0; i < 700; ++i)
            addSquare(*mesh, foot.mX + anyPlace(2.0f), foot.mY + anyPlace(2.0f), 1.0f, float(random() % 120));
    }
    for (int line = 0; line < 12; ++line)
    {
        const Point a{anyPlace(1000.0f), anyPlace(1000.0f), 0.0f};
        const Point b = line % 2 == 0 ? a + Point{anyPlace(2.0f), 0.0f, 0.0f} : a + Point{0.5f, anyPlace(1.0f), 0.0f};
        addNode(*mesh, {a, b, a + (b - a) * 0.5f});
    }
    std::shuffle(mesh->mNodes.begin(), mesh->mNodes.end(), random);
    EXPECT_GT(compareSearches(mesh, 9, 6000), 1000u);
}

KORV_TEST(NodeIndex, findsTheNodesOfGeneratedMeshes)
{
    const struct
    {
        const char* mName;
        Scenes::Scene mScene;
        Point mUp;
    } rows[] = {{"courtyard", Scenes::courtyard(), {0.0f, 1.0f, 0.0f}},
                {"floors", Scenes::floors(3, 2), {0.0f, 1.0f, 0.0f}},
                {"hills, tilted", Scenes::hills(20.0f, 10, 5), normalised(Point{0.3f, 1.0f, -0.2f})}};
    for (const auto& row : rows)
    {
        KORV_CONTEXT(row.mName);
        const MeshPtr mesh = Testing::SceneRun(row.mScene, 0.5f, row.mUp).run();
        EXPECT_GT(compareSearches(mesh, 5, 3000), 500u);
        const NavMeshNodeIndex index(mesh);
        std::mt19937 random(6);
        for (const Point& point : choosePoints(*mesh, 10, random))
            compareNearest(mesh, index, point, INFINITE);
    }
}

// Slivers, spikes, lines, points, polygons wound the wrong way, dented and crossing ones, near the origin and so far
// from it that rounding lets points pass from far away.
KORV_TEST(NodeIndex, agreesOnDegenerateNodes)
{
    for (uint32 seed = 0; seed < 60; ++seed)
    {
        KORV_CONTEXT("seed " << seed);
        std::mt19937 random(seed);
        std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
        const MeshPtr mesh = createMesh();
        const float offsets[] = {0.0f, 100.0f, 1e4f, 1e6f};
        const Point offset{offsets[seed % 4], -offsets[seed / 4 % 4], offsets[seed / 16 % 2]};
        if (seed % 5 == 4)
        {
            mesh->mNormal = normalised(Point{unit(random), unit(random), 1.0f});
            mesh->mXAxis = normalised(cross(mesh->mNormal, {0.0f, 1.0f, 0.0f}));
            mesh->mYAxis = cross(mesh->mNormal, mesh->mXAxis);
        }
        for (int i = 0; i < 150; ++i)
        {
            const Point middle = offset + Point{20.0f * unit(random), 20.0f * unit(random), float(random() % 5)};
            const Point along{unit(random), random() % 3 == 0 ? 0.0f : unit(random), 0.0f};
            const float thin[] = {0.0f, 1e-6f, 1e-4f, 0.01f, 1.0f};
            const Point across = Point{-along.mY, along.mX, 0.0f} * thin[random() % 5];
            std::vector<Point> corners;
            for (auto k = 1 + random() % 7; k > 0; --k)
                corners.push_back(middle + along * unit(random) + across * unit(random));
            if (random() % 2 == 0)
                corners = {middle - along, middle + across, middle + along, middle - across};
            if (random() % 4 == 0)
                std::reverse(corners.begin(), corners.end());
            addNode(*mesh, corners, static_cast<int32>(random() % 2));
        }
        compareSearches(mesh, seed, 1500);
    }
}

KORV_TEST(NodeIndex, agreesOnBrokenMeshesAndPoints)
{
    const float strange[] = {0.0f,  -0.0f,  1.0f,  2.5f,     -1.0f,        1e-40f,    1e17f,
                             3e18f, -1e30f, 3e38f, INFINITE, NOT_A_NUMBER, -INFINITE, 1e6f};
    std::mt19937 random(9);
    const auto anyNumber = [&] { return strange[random() % 14]; };
    const auto anyPoint = [&] { return Point{anyNumber(), anyNumber(), anyNumber()}; };
    for (int round = 0; round < 300; ++round)
    {
        KORV_CONTEXT("round " << round);
        const MeshPtr mesh = createFloors(3, 1, 1);
        mesh->mVertices.resize(mesh->mVertices.size() + 8);
        for (int i = 0; i < 12; ++i)
            mesh->mVertices[random() % mesh->mVertices.size()] = anyPoint();
        for (int i = 0; i < 3; ++i)
        {
            auto& node = mesh->mNodes[random() % mesh->mNodes.size()];
            node.mPolygon.resize(random() % 6, static_cast<uint32>(random() % 30));
            node.mHeightClass = static_cast<int32>(random() % 4) - 1;
        }
        if (round % 3 == 1)
            (round % 2 == 0 ? mesh->mNormal : round % 4 == 1 ? mesh->mXAxis : mesh->mYAxis) = anyPoint();
        if (round % 5 == 2)
            mesh->mHeight[1] = anyNumber();
        if (round % 7 == 3)
            mesh->mCubeSize = anyNumber();
        std::vector<Point> points = choosePoints(*mesh, 50, random);
        for (int i = 0; i < 200; ++i)
            points.push_back(anyPoint());
        const NavMeshNodeIndex index(mesh);
        compareSearches(mesh, index, points);
        for (const Point& point : points)
            index.nearestNode(point, anyNumber());
    }
}

KORV_TEST(NodeIndex, nearestPlaceIsThatOfALookAtAllNodes)
{
    for (uint32 seed = 0; seed < 6; ++seed)
    {
        KORV_CONTEXT("seed " << seed);
        const Point offset = seed < 4 ? Point() : Point{1e4f, -3e3f, 50.0f};
        const MeshPtr mesh = createFloors(6 + static_cast<int>(seed), 3, seed, 0.25f, offset);
        const NavMeshNodeIndex index(mesh);
        std::mt19937 random(seed);
        std::uniform_real_distribution<float> unit(-0.5f, 1.5f);
        for (int i = 0; i < 60; ++i)
        {
            const Point point = Point{10.0f * unit(random), 10.0f * unit(random), 6.0f * unit(random)} + offset;
            compareNearest(mesh, index, point, i % 3 == 0 ? 2.0f : INFINITE);
        }
    }
}

KORV_TEST(NodeIndex, nearestPlaceByHand)
{
    const MeshPtr mesh = createMesh();
    addNode(*mesh, {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}});                // a line
    addNode(*mesh, {{-9, 0, 0}, {-9, 2, 0}, {-7, 2, 0}, {-7, 0, 0}}); // wound the wrong way
    addSquare(*mesh, 0.0f, 0.0f, 2.0f);
    addSquare(*mesh, 2.0f, 0.0f, 2.0f);
    mesh->mNodes[3].mSurfaceTypeID = 4;
    addSquare(*mesh, 0.0f, 0.0f, 2.0f, 5.0f);
    const NavMeshNodeIndex index(mesh);
    const struct
    {
        const char* mWhat;
        Point mPoint;
        float mMaxDistance;
        int mNode;
        float mDistance;
    } rows[] = {
        {"on a node", {1, 1, 0}, 0.0f, 2, 0.0f},
        {"on a side of two", {2, 1, 0}, 0.0f, 2, 0.0f},
        {"above a side of two", {2, 1, 1}, INFINITE, 2, 1.0f},
        {"beside a corner", {7, 6, 0}, 5.0f, 3, 5.0f},
        {"too far", {7, 6, 0}, 4.999f, -1, 0.0f},
        {"midway between floors", {1, 1, 2.5f}, INFINITE, 2, 2.5f},
        {"nearer to the upper floor", {1, 1, 3}, INFINITE, 4, 2.0f},
        {"beside what does not count", {-8, 1, 0}, INFINITE, 2, 8.0f},
        {"no distance", {1, 1, 0}, NOT_A_NUMBER, -1, 0.0f},
        {"a negative one", {1, 1, 0}, -1.0f, -1, 0.0f},
        {"not a point", {1, NOT_A_NUMBER, 0}, INFINITE, -1, 0.0f},
        {"too far for a float", {0, 3e38f, 3e38f}, INFINITE, 2, INFINITE},
    };
    for (const auto& row : rows)
    {
        KORV_CONTEXT(row.mWhat);
        const NavMeshPlace place = index.nearestNode(row.mPoint, row.mMaxDistance);
        EXPECT_EQ(place.mNodeID, row.mNode);
        EXPECT_EQ(place.mDistance, row.mDistance);
    }
    NavMeshSearchFilter filter(mesh->getMemory());
    filter.setSurfaceCost(4, 0.0f);
    EXPECT_EQ(index.nearestNode({3, 1, 0}, INFINITE).mNodeID, 3);
    const NavMeshPlace place = index.nearestNode({3, 1, 0}, INFINITE, &filter);
    EXPECT_EQ(place.mNodeID, 2);
    EXPECT_EQ(place.mPosition, (Point{2, 1, 0}));
}

KORV_TEST(NodeIndex, lifeOfAnIndex)
{
    const NavMeshNodeIndex none((MeshPtr()));
    expectReports({"navMesh != NULL\nError Message: Navmesh container is a null pointer !"});
    EXPECT_EQ(none.searchNode({}), -1);
    EXPECT_FALSE(none.nearestNode({}, INFINITE).isValid());
    EXPECT_EQ(NavMeshNodeIndex(createMesh()).searchNode({}), -1);

    SharedPtr<NavMeshNodeIndex> index;
    {
        const MeshPtr mesh = createFloors(20, 1, 1);
        index = SharedPtr<NavMeshNodeIndex>(new (mesh->getAllocator()) NavMeshNodeIndex(mesh));
    }
    EXPECT_GT(index->getMemoryUsage(), 400u * 64u);
    // queries need no memory
    const uint64 numAllocations = mMemory->mAllocations;
    const int found = index->searchNode({10, 10, 0});
    EXPECT_TRUE(index->nearestNode({10, 10, 1}, INFINITE).isValid());
    EXPECT_EQ(mMemory->mAllocations, numAllocations);
    // what is gone from the mesh is not touched
    const MeshPtr mesh = index->getNavMesh();
    mesh->mVertices.resize(3);
    mesh->mNodes.resize(7, NavMeshContainer::NavNode(mesh->getMemory()));
    EXPECT_EQ(index->searchNode({10, 10, 0}), found);
    index->nearestNode({10, 10, 1}, INFINITE);
}

KORV_TEST(NodeIndex, memoryRunsOut)
{
    const MeshPtr mesh = createFloors(12, 2, 1);
    for (int64 numAllowed = 0;; ++numAllowed)
    {
        mMemory->mFailAfter = numAllowed;
        bool isBuilt = false;
        try
        {
            const SharedPtr<NavMeshNodeIndex> index(new (mesh->getAllocator()) NavMeshNodeIndex(mesh));
            isBuilt = true;
        }
        catch (Common::Memory::OutOfMemoryException* error)
        {
            delete error;
        }
        mMemory->mFailAfter = -1;
        dropReports();
        if (isBuilt)
            break;
        ASSERT_LT(numAllowed, 1000);
    }
}
