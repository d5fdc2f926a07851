#include "korv/common/interface.h"
#include "korv/navmesh/navmeshcontainer.h"
#include "support/test.h"

#include <limits>
#include <random>

using namespace KORV;
using namespace KORV::NavMesh;

namespace
{
using MeshPtr = SharedPtr<NavMeshContainer>;

constexpr float CUBE = 0.5f;
constexpr float CLASS_HEIGHT = 3.0f;
constexpr float FLOAT_MAX = std::numeric_limits<float>::max();

MeshPtr createMesh()
{
    MeshPtr mesh(new (Common::Interface::getSharedAllocator()) NavMeshContainer);
    mesh->mNormal = {0.0f, 0.0f, 1.0f};
    mesh->mXAxis = {-1.0f, 0.0f, 0.0f};
    mesh->mYAxis = {0.0f, 1.0f, 0.0f};
    mesh->mCubeSize = CUBE;
    mesh->mHeight.push_back(CLASS_HEIGHT);
    return mesh;
}

/// Adds a node from its corners in world space; in this frame they run clockwise seen from +z.
void addNode(NavMeshContainer& mesh, std::initializer_list<Vec3<float>> corners)
{
    NavMeshContainer::NavNode node(mesh.getMemory());
    for (const Vec3<float>& corner : corners)
    {
        node.mPolygon.push_back(static_cast<uint32>(mesh.mVertices.size()));
        node.mNeighbours.push_back(-1);
        mesh.mVertices.push_back(corner);
    }
    node.mHeightClass = 0;
    mesh.mNodes.push_back(node);
}

void addSquare(NavMeshContainer& mesh, float x, float y, float size, float z = 0.0f)
{
    addNode(mesh, {{x, y, z}, {x, y + size, z}, {x + size, y + size, z}, {x + size, y, z}});
}
} // namespace

KORV_TEST(Queries, heightRangeOfANode)
{
    const MeshPtr mesh = createMesh();
    addSquare(*mesh, 0.0f, 0.0f, 2.0f);
    addSquare(*mesh, 0.0f, 0.0f, 2.0f, 6.0f);
    const struct
    {
        const char* mWhat;
        Vec3<float> mPoint;
        int mNode;
    } rows[] = {
        {"on the plane", {1, 1, 0}, 0},
        {"two cubes below", {1, 1, -1}, 0},
        {"just below two cubes", {1, 1, -1.001f}, -1},
        {"at the class height", {1, 1, 3}, 0},
        {"above it", {1, 1, 3.001f}, -1},
        {"in reach of the next floor", {1, 1, 5}, 1},
        {"corner", {0, 2, 0}, 0},
        {"on a side", {2, 1, 0}, 0},
        {"beside it", {2.001f, 1, 0}, -1},
        {"not a number", {std::numeric_limits<float>::quiet_NaN(), 1, 0}, -1},
        {"infinitely far", {-std::numeric_limits<float>::infinity(), 1, 0}, -1},
    };
    for (const auto& row : rows)
    {
        KORV_CONTEXT(row.mWhat);
        EXPECT_EQ(mesh->searchNode(row.mPoint), row.mNode);
    }
}

KORV_TEST(Queries, theLowestOfSeveralNodesWins)
{
    const MeshPtr mesh = createMesh();
    EXPECT_EQ(mesh->searchNode({0, 0, 0}), -1);
    addSquare(*mesh, 2.0f, 0.0f, 2.0f);
    addSquare(*mesh, 0.0f, 0.0f, 2.0f);
    EXPECT_TRUE(mesh->isPointInsideNode({2, 1, 0}, 0));
    EXPECT_TRUE(mesh->isPointInsideNode({2, 1, 0}, 1));
    EXPECT_EQ(mesh->searchNode({2, 1, 0}), 0);
    EXPECT_EQ(mesh->searchNode({1, 1, 0}), 1);
    // wound the other way, nothing is inside
    addNode(*mesh, {{10, 0, 0}, {12, 0, 0}, {12, 2, 0}, {10, 2, 0}});
    EXPECT_EQ(mesh->searchNode({11, 1, 0}), -1);
}

KORV_TEST(Queries, middlePointsAndDistances)
{
    const MeshPtr mesh = createMesh();
    addNode(*mesh, {{0, 0, 0}, {0, 3, 3}, {3, 0, 0}});
    addSquare(*mesh, 0.0f, 0.0f, 2.0f, 9.0f);
    EXPECT_EQ(mesh->getNodeMiddlePoint(0), (Vec3<float>{1, 1, 1}));
    EXPECT_EQ(mesh->getNodeMiddlePoint(1), (Vec3<float>{1, 1, 9}));
    const struct
    {
        const char* mWhat;
        Vec3<float> mPoint;
        float mDistance;
    } rows[] = {
        {"centre, far below", {1, 1, -50}, 1}, {"beyond a side", {7, 1, 9}, 5},
        {"beyond a corner", {5, 6, 9}, 5},     {"near the closing side", {1, 0.25f, 9}, 0.25f},
        {"on a corner", {0, 0, 9}, 0},
    };
    for (const auto& row : rows)
    {
        KORV_CONTEXT(row.mWhat);
        EXPECT_FLOAT_EQ(mesh->getDistanceToNearestEdgeOfNode(row.mPoint, 1), row.mDistance);
    }
}

KORV_TEST(Queries, idsOutOfRangeAreReportedAndSafe)
{
    const MeshPtr mesh = createMesh();
    addSquare(*mesh, 0.0f, 0.0f, 2.0f);
    const Vec3<float> point{1, 1, 0};
    for (const int id : {-1, 1})
    {
        EXPECT_EQ(mesh->getNodeMiddlePoint(id), Vec3<float>());
        expectReports({"nodeIndex >= 0 && nodeIndex < (int32)mNodes.size()\nError Message: nodeID out of range"});
    }
    EXPECT_FALSE(mesh->isPointInsideNode(point, -1));
    EXPECT_EQ(mesh->getDistanceToNearestEdgeOfNode(point, -1), FLOAT_MAX);
    expectReports(
        {"nodeID >= 0\nError Message: nodeID out of range", "nodeID >= 0\nError Message: nodeID out of range"});
    EXPECT_FALSE(mesh->isPointInsideNode(point, 1));
    EXPECT_EQ(mesh->getDistanceToNearestEdgeOfNode(point, 1), FLOAT_MAX);
}

// Every query on meshes of random ids stays in bounds; the sanitizers see a step beside them.
KORV_TEST(Queries, brokenMeshesAreSafe)
{
    std::mt19937 random(7);
    const auto anyID = [&random] { return static_cast<int32>(random() % 12) - 4; };
    for (int round = 0; round < 300; ++round)
    {
        const MeshPtr mesh = createMesh();
        mesh->mVertices.resize(random() % 6, {1.0f, 1.0f, 0.0f});
        mesh->mNodes.resize(random() % 4);
        for (NavMeshContainer::NavNode& node : mesh->mNodes)
        {
            for (auto i = random() % 5; i > 0; --i)
                node.mPolygon.push_back(static_cast<uint32>(anyID()));
            for (auto i = random() % 5; i > 0; --i)
                node.mNeighbours.push_back(anyID());
            node.mHeightClass = anyID();
        }
        const Vec3<float> point{1.0f, 1.0f, 0.0f};
        const int found = mesh->searchNode(point);
        EXPECT_LT(found, static_cast<int>(mesh->mNodes.size()));
        for (int id = 0; id < static_cast<int>(mesh->mNodes.size()); ++id)
        {
            EXPECT_LT(mesh->getNodeMiddlePoint(id).getLength(), 2.0f);
            EXPECT_GE(mesh->getDistanceToNearestEdgeOfNode(point, id), 0.0f);
        }
        EXPECT_EQ(mesh->checkInvariants().empty(), mesh->mNodes.empty());
    }
}
