#include "korv/common/interface.h"
#include "korv/navmesh/navmeshcontainer.h"
#include "support/test.h"

#include <cmath>
#include <functional>
#include <initializer_list>
#include <limits>
#include <random>

using namespace KORV;
using namespace KORV::NavMesh;

namespace
{
using Corners = std::initializer_list<Vec2<float>>;
using MeshPtr = SharedPtr<NavMeshContainer>;

/// One node with up along z and cubes of 1. Corners are given in the ground plane.
MeshPtr createMesh(Corners corners, float scale = 1.0f, Vec3<float> offset = {})
{
    MeshPtr mesh(new (Common::Interface::getSharedAllocator()) NavMeshContainer);
    mesh->mNormal = {0.0f, 0.0f, 1.0f};
    mesh->mXAxis = {-1.0f, 0.0f, 0.0f};
    mesh->mYAxis = {0.0f, 1.0f, 0.0f};
    mesh->mCubeSize = scale;
    mesh->mHeight.push_back(1.8f);
    NavMeshContainer::NavNode node(mesh->getMemory());
    for (const Vec2<float>& corner : corners)
    {
        node.mPolygon.push_back(static_cast<uint32>(mesh->mVertices.size()));
        node.mNeighbours.push_back(-1);
        mesh->mVertices.push_back(Vec3<float>{-corner.mX * scale, corner.mY * scale, 0.0f} + offset);
    }
    node.mHeightClass = 0;
    mesh->mNodes.push_back(node);
    return mesh;
}

MeshPtr createSquare()
{
    return createMesh({{0, 0}, {10, 0}, {10, 10}, {0, 10}});
}

/// The violations as "node side text", one a line.
std::string violations(const MeshPtr& mesh, uint32 limit = 1000)
{
    std::string lines;
    for (const NavMeshContainer::Violation& found : mesh->checkInvariants(limit))
        lines += std::to_string(found.mNode) + " " + std::to_string(found.mSide) + " " + found.mText.c_str() + "\n";
    return lines;
}
} // namespace

KORV_TEST(Invariants, soundShapesPassAnywhere)
{
    const struct
    {
        const char* mWhat;
        Corners mCorners;
    } rows[] = {
        {"square", {{0, 0}, {10, 0}, {10, 10}, {0, 10}}},
        {"triangle", {{0, 0}, {1, 0}, {0, 1}}},
        {"corners inserted in a straight side", {{0, 0}, {3, 0}, {7, 0}, {10, 0}, {10, 10}, {0, 10}}},
        {"dent of half a cube", {{0, 0}, {5, 0.5f}, {10, 0}, {10, 10}, {0, 10}}},
        {"two dents in a row", {{0, 0}, {4, 0.5f}, {6, 0.5f}, {10, 0}, {10, 10}, {0, 10}}},
        {"needle", {{0, 0}, {40, 0.5f}, {0, 0.5f}}},
        {"half a cube", {{0, 0}, {0.5f, 0}, {0, 0.5f}}},
        {"corner given twice", {{0, 0}, {10, 0}, {10, 0}, {10, 10}, {0, 10}}},
    };
    const struct
    {
        float mScale;
        Vec3<float> mOffset;
    } places[] = {
        {1.0f, {}},
        {0.01f, {}},
        {100.0f, {}},
        {0.25f, {-5000.0f, 3000.0f, 80.0f}},
    };
    for (const auto& row : rows)
    {
        for (const auto& place : places)
        {
            KORV_CONTEXT(row.mWhat << ", scale " << place.mScale);
            EXPECT_EQ(violations(createMesh(row.mCorners, place.mScale, place.mOffset)), "");
        }
    }
}

// What the inset does to a piece: every corner of a convex polygon moves by up to a quarter cube.
KORV_TEST(Invariants, convexPolygonsWithMovedCornersPass)
{
    for (uint32 seed = 0; seed < 5000; ++seed)
    {
        KORV_CONTEXT("seed " << seed);
        std::mt19937 random(seed);
        std::uniform_real_distribution<float> part(0.0f, 1.0f);
        const MeshPtr mesh = createSquare();
        NavMeshContainer::NavNode& node = mesh->mNodes[0];
        mesh->mVertices.clear();
        node.mPolygon.clear();
        // corners on an ellipse that is a needle now and then, turned by any angle
        const float width = 3.0f + 40.0f * part(random), height = 0.8f + 10.0f * part(random) * part(random);
        const float tilt = 6.2831853f * part(random);
        const uint32 steps = 4 + seed % 30;
        Vec2<float> last{1000.0f, 0.0f};
        for (uint32 i = 0; i < steps; ++i)
        {
            const float angle = 6.2831853f * (static_cast<float>(i) + 0.5f * part(random)) / static_cast<float>(steps);
            const float moved = 6.2831853f * part(random);
            const float x = width * std::cos(angle), y = height * std::sin(angle);
            if ((Vec2<float>{x, y} - last).getLength() < 0.75f)
                continue; // corners of an outline are no closer than half a cube
            last = {x, y};
            node.mPolygon.push_back(static_cast<uint32>(mesh->mVertices.size()));
            mesh->mVertices.push_back({-(x * std::cos(tilt) - y * std::sin(tilt) + 0.25f * std::cos(moved)),
                                       x * std::sin(tilt) + y * std::cos(tilt) + 0.25f * std::sin(moved), 0.0f});
        }
        node.mNeighbours.assign(node.mPolygon.size(), -1);
        EXPECT_EQ(violations(mesh), "");
    }
}

KORV_TEST(Invariants, badShapesAreNamed)
{
    const struct
    {
        const char* mWhat;
        Corners mCorners;
        const char* mFound;
    } rows[] = {
        {"dent of a cube", {{0, 0}, {5, 1}, {10, 0}, {10, 10}, {0, 10}}, "0 1 the node is not convex"},
        {"many small dents",
         {{0, 0}, {2, 0.6f}, {4, 0.9f}, {6, 0.9f}, {8, 0.6f}, {10, 0}, {10, 10}, {0, 10}},
         "0 2 the node is not convex"},
        {"L", {{0, 0}, {10, 0}, {10, 5}, {5, 5}, {5, 10}, {0, 10}}, "0 3 the node is not convex"},
        {"clockwise", {{0, 0}, {0, 10}, {10, 10}, {10, 0}}, "0 -1 the corners run clockwise"},
        {"uneven bow tie", {{0, 0}, {10, 10}, {10, 0}, {0, 9}}, "0 -1 "},
        {"crossed sides", {{0, 0}, {10, 10}, {10, 0}, {0, 20}}, "0 -1 "},
        {"star", {{0, -10}, {6, 8}, {-9.5f, -3}, {9.5f, -3}, {-6, 8}}, "0 -1 the sides cross each other"},
        {"twice around",
         {{0, 0}, {9, 0}, {9, 9}, {0, 9}, {0, 0}, {9, 0}, {9, 9}, {0, 9}},
         "0 -1 the sides cross each other"},
    };
    for (const auto& row : rows)
    {
        KORV_CONTEXT(row.mWhat);
        const std::string found = violations(createMesh(row.mCorners));
        EXPECT_EQ(found.substr(0, std::string(row.mFound).size()), row.mFound) << found;
    }
}

KORV_TEST(Invariants, eachBrokenPromiseIsReportedOnceWithItsPlace)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const struct
    {
        std::function<void(NavMeshContainer&)> mBreak;
        const char* mFound;
    } rows[] = {
        {[](auto& m) { m.mNodes[0].mPolygon[2] = 4; }, "0 2 the corner names vertex 4, there are 4\n"},
        {[](auto& m)
         {
             m.mNodes[0].mPolygon.resize(2);
             m.mNodes[0].mNeighbours.resize(2);
         },
         "0 -1 the node has 2 corners, a polygon takes at least 3\n"},
        {[](auto& m) { m.mNodes[0].mNeighbours.pop_back(); }, "0 -1 the node has 4 sides, but 3 neighbour entries\n"},
        {[](auto& m) { m.mNodes[0].mNeighbours[1] = 1; }, "0 1 the neighbour is node 1, there are 1\n"},
        {[](auto& m) { m.mNodes[0].mNeighbours[1] = -2; }, "0 1 the neighbour is -2, none is written as -1\n"},
        {[](auto& m) { m.mNodes[0].mNeighbours[3] = 0; }, "0 3 the neighbour is the node itself\n"},
        {[](auto& m) { m.mNodes[0].mHeightClass = 1; }, "0 -1 the height class is 1, there are 1\n"},
        {[](auto& m) { m.mNodes[0].mHeightClass = -1; }, "0 -1 the height class is -1, there are 1\n"},
        {[=](auto& m) { m.mVertices[1].mY = nan; }, "-1 -1 vertex 1 is not finite: -10 nan 0\n"},
        {[](auto& m) { m.mCubeSize = 0.0f; }, "-1 -1 the cube size is not above 0: 0\n"},
        {[](auto& m) {
             m.mNormal = {0, 0, 2};
         },
         "-1 -1 the up direction is not of length 1: 0 0 2\n"},
        {[](auto& m) {
             m.mNormal = {0, 1, 0};
         },
         "-1 -1 the up direction and the y axis are not at right angles\n"},
        {[](auto& m) { m.mNodes.resize(1048575, m.mNodes[0]); },
         "-1 -1 there are 1048575 nodes, the search takes at most 1048574\n"},
    };
    for (const auto& row : rows)
    {
        KORV_CONTEXT(row.mFound);
        const MeshPtr mesh = createSquare();
        row.mBreak(*mesh);
        EXPECT_EQ(violations(mesh), row.mFound);
    }
}

KORV_TEST(Invariants, anUnusableMeshIsSafeAndTheListEndsAtItsLimit)
{
    const MeshPtr mesh(new (Common::Interface::getSharedAllocator()) NavMeshContainer);
    EXPECT_NE(violations(mesh), "") << "orientation and cube size are not set";
    mesh->mNodes.resize(50);
    mesh->mVertices.resize(5, {std::numeric_limits<float>::infinity(), 0.0f, 0.0f});
    EXPECT_EQ(mesh->checkInvariants(7).size(), 7u);
    EXPECT_EQ(mesh->checkInvariants(0).size(), 0u);
}
