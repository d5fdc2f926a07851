#include "korv/common/interface.h"
#include "korv/navmesh/navmeshoptimizer.h"
#include "support/test.h"

#include <initializer_list>

using namespace KORV;
using namespace KORV::NavMesh;

namespace
{
using MeshPtr = SharedPtr<NavMeshContainer>;
using Links = std::vector<std::vector<int32>>;

/// Unit squares side by side along x, with the given neighbour entries; the surface type is the number of the node.
MeshPtr createMesh(const Links& links)
{
    MeshPtr mesh(new (Common::Interface::getSharedAllocator()) NavMeshContainer);
    mesh->mNormal = {0.0f, 0.0f, 1.0f};
    mesh->mXAxis = {-1.0f, 0.0f, 0.0f};
    mesh->mYAxis = {0.0f, 1.0f, 0.0f};
    mesh->mCubeSize = 0.5f;
    mesh->mHeight.push_back(2.0f);
    for (size_t i = 0; i < links.size(); ++i)
    {
        const float x = static_cast<float>(i);
        const uint32 first = static_cast<uint32>(mesh->mVertices.size());
        for (const Vec3<float>& corner : {Vec3<float>{x, 0, 0}, {x, 1, 0}, {x + 1, 1, 0}, {x + 1, 0, 0}})
            mesh->mVertices.push_back(corner);
        NavMeshContainer::NavNode node(mesh->getMemory());
        node.mPolygon = {first, first + 1, first + 2, first + 3};
        node.mNeighbours.assign(links[i].begin(), links[i].end());
        node.mHeightClass = 0;
        node.mSurfaceTypeID = static_cast<uint16>(i);
        mesh->mNodes.push_back(node);
    }
    return mesh;
}

/// Two islands: 0-1, and 2-3-4.
MeshPtr createIslands()
{
    return createMesh({{1, -1}, {-1, 0}, {3, -1}, {2, 4}, {-1, 3}});
}

/// What is left, as "surface type: neighbours" a node.
std::string describe(const MeshPtr& mesh)
{
    std::string text;
    for (const NavMeshContainer::NavNode& node : mesh->mNodes)
    {
        text += std::to_string(node.mSurfaceTypeID) + ":";
        for (const int32 neighbour : node.mNeighbours)
            text += " " + std::to_string(neighbour);
        text += "; ";
    }
    return text;
}

class Optimizer
{
public:
    Optimizer() : mOptimizer(new (Common::Interface::getSharedAllocator()) NavMeshOptimizer) {}
    void keepFrom(const MeshPtr& mesh, std::initializer_list<uint32> ids)
    {
        Vector<uint32> list = mOptimizer->createNodeIDArray();
        list.assign(ids);
        mOptimizer->removeNotReachable(list, mesh);
    }
    void keepFrom(const MeshPtr& mesh, std::initializer_list<Vec3<float>> points)
    {
        mOptimizer->removeNotReachable(Vector<Vec3<float>>(points), mesh);
    }

private:
    SharedPtr<NavMeshOptimizer> mOptimizer;
};
} // namespace

KORV_TEST(Optimizer, whatCanBeReachedIsKeptInOrderAndRenumbered)
{
    Optimizer optimizer;
    const struct
    {
        std::initializer_list<uint32> mStarts;
        const char* mLeft;
    } rows[] = {
        {{3}, "2: 1 -1; 3: 0 2; 4: -1 1; "},
        {{3, 3, 3}, "2: 1 -1; 3: 0 2; 4: -1 1; "},
        {{3, 0}, "0: 1 -1; 1: -1 0; 2: 3 -1; 3: 2 4; 4: -1 3; "},
        {{1, 99}, "0: 1 -1; 1: -1 0; "},
        {{}, ""},
    };
    for (const auto& row : rows)
    {
        KORV_CONTEXT(row.mLeft);
        const MeshPtr mesh = createIslands();
        optimizer.keepFrom(mesh, row.mStarts);
        EXPECT_EQ(describe(mesh), row.mLeft);
        EXPECT_EQ(mesh->mVertices.size(), 20u);
        EXPECT_EQ(mesh->mHeight.size(), 1u);
    }
}

KORV_TEST(Optimizer, pointsStandForTheirNodes)
{
    Optimizer optimizer;
    const MeshPtr mesh = createIslands();
    optimizer.keepFrom(mesh, {Vec3<float>{1.5f, 0.5f, 0.0f}, Vec3<float>{100.0f, 0.0f, 0.0f}});
    EXPECT_EQ(describe(mesh), "0: 1 -1; 1: -1 0; ");
    optimizer.keepFrom(mesh, {Vec3<float>{100.0f, 0.0f, 0.0f}});
    EXPECT_TRUE(mesh->empty());
}

KORV_TEST(Optimizer, oneWayLinksAreFollowedInTheirDirectionOnly)
{
    Optimizer optimizer;
    const MeshPtr mesh = createMesh({{1}, {-1}, {1}});
    optimizer.keepFrom(mesh, {1u});
    EXPECT_EQ(describe(mesh), "1: -1; ");
}

KORV_TEST(Optimizer, entriesThatNameNoNodeBecomeNone)
{
    Optimizer optimizer;
    const MeshPtr mesh = createMesh({{1, 2147483647, -7}, {0, 2, -2147483647 - 1}});
    optimizer.keepFrom(mesh, {0u});
    EXPECT_EQ(describe(mesh), "0: 1 -1 -1; 1: 0 -1 -1; ");
}

KORV_TEST(Optimizer, aMissingMeshIsReported)
{
    Optimizer optimizer;
    optimizer.keepFrom(nullptr, {0u});
    optimizer.keepFrom(nullptr, {Vec3<float>{}});
    const std::string report = "navMesh != NULL\nError Message: Navmesh container is a null pointer !";
    expectReports({report, report});
}

KORV_TEST(Optimizer, outOfMemoryLeavesTheMeshAsItWas)
{
    Optimizer optimizer;
    const MeshPtr mesh = createMesh(Links(40000, {1, -1, -1, -1}));
    const std::string before = describe(mesh);
    mMemory->mFailAfter = 0;
    EXPECT_THROW(
        {
            try
            {
                optimizer.keepFrom(mesh, {0u});
            }
            catch (Common::Exceptions::Exception* error)
            {
                delete error;
                throw 1;
            }
        },
        int);
    mMemory->mFailAfter = -1;
    EXPECT_EQ(describe(mesh), before);
}
