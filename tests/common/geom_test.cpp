#include "korv/common/callback/callbackallocator.h"
#include "korv/common/geom/geomutility.h"
#include "korv/common/geom/intersect/lineintersect.h"
#include "support/test.h"

#include <algorithm>
#include <limits>
#include <random>

using namespace KORV;
using namespace KORV::Common;
using namespace KORV::Common::Geom;

namespace
{
using Outline = Container::Vector<Vec3<float>>;
using Ids = Container::Vector<uint32>;
using Voxels = Container::Vector<Vec3<uint32>>;

constexpr float ONE_DEGREE = 0.017453292f;
constexpr float NOT_A_NUMBER = std::numeric_limits<float>::quiet_NaN();

Outline makeOutline(std::initializer_list<Vec2<float>> corners)
{
    Outline outline;
    for (const Vec2<float>& corner : corners)
        outline.push_back({corner.mX, corner.mY, 0.0f});
    return outline;
}

/// Whether a triangle reaches into a cube, by cutting off what lies outside each face.
bool clipsToSomething(std::vector<Vec3<double>> polygon, const Vec3<double>& centre, double half)
{
    for (int face = 0; face < 6; ++face)
    {
        const int axis = face / 2;
        const double sign = face % 2 == 0 ? 1.0 : -1.0;
        const auto outside = [&](const Vec3<double>& p) { return sign * (p[axis] - centre[axis]) - half; };
        std::vector<Vec3<double>> kept;
        for (size_t i = 0; i < polygon.size(); ++i)
        {
            const Vec3<double>& a = polygon[i];
            const Vec3<double>& b = polygon[(i + 1) % polygon.size()];
            if (outside(a) <= 0.0)
                kept.push_back(a);
            if ((outside(a) < 0.0 && outside(b) > 0.0) || (outside(a) > 0.0 && outside(b) < 0.0))
                kept.push_back(a + (b - a) * (outside(a) / (outside(a) - outside(b))));
        }
        polygon = kept;
    }
    return !polygon.empty();
}

Vec3<double> toDouble(const Vec3<float>& v)
{
    return {v.mX, v.mY, v.mZ};
}

/// Smallest sum of perimeters over all triangulations, by trying every one.
float cheapest(const Outline& vertices, const Ids& polygon, size_t i, size_t k)
{
    if (k < i + 2)
        return 0.0f;
    const auto length = [&](size_t a, size_t b) { return (vertices[polygon[a]] - vertices[polygon[b]]).getLength(); };
    float best = std::numeric_limits<float>::max();
    for (size_t j = i + 1; j < k; ++j)
        best = std::min(best, cheapest(vertices, polygon, i, j) + cheapest(vertices, polygon, j, k) + length(i, j) +
                                  length(j, k) + length(k, i));
    return best;
}
} // namespace

KORV_TEST(Geom, rayMeetsASegmentInFrontOfIt)
{
    const struct
    {
        const char* mWhat;
        Vec2<float> mA;
        Vec2<float> mB;
        bool mMeets;
        float mDistance;
    } rows[] = {
        {"across", {2, -1}, {2, 1}, true, 2.0f},
        {"behind", {-2, -1}, {-2, 1}, false, -2.0f},
        {"parallel", {2, 1}, {3, 1}, false, 99.0f},
        {"an end exactly", {2, -1}, {2, 0}, true, 2.0f},
        {"just beyond", {2, -1}, {2, -0.00009f}, true, 2.0f},
        {"beyond", {2, -1}, {2, -0.001f}, false, 2.0f},
        {"just before", {2, 0.00009f}, {2, 1}, true, 2.0f},
    };
    for (const auto& row : rows)
    {
        KORV_CONTEXT(row.mWhat);
        float distance = 99.0f;
        EXPECT_EQ(Intersect::LineRay(distance, {0, 0}, {1, 0}, row.mA, row.mB), row.mMeets);
        EXPECT_FLOAT_EQ(distance, row.mDistance);
    }
    float distance = 0.0f;
    EXPECT_FALSE(Intersect::LineRay(distance, {0, 0}, {0, 0}, {2, -1}, {2, 1}));
    expectReports({"!(dir.mX == 0.0f && dir.mY == 0.0f)\nError Message: direction is of length zero"});
    EXPECT_EQ(mTraces.back().mText, "KORV::Common::Geom::Intersect::LineRay : !(dir.mX == 0.0f && dir.mY == 0.0f) :  "
                                    "direction is of length zero");
}

KORV_TEST(Geom, pointsNearASegment)
{
    const Vec2<float> a(0, 0);
    const Vec2<float> b(4, 0);
    const struct
    {
        Vec2<float> mPoint;
        bool mOn; // within 0.25
        float mDistance;
    } rows[] = {
        {{2, 0.25f}, true, 0.25f}, {{2, -0.3f}, false, 0.3f}, {{-0.25f, 0.2f}, true, std::hypot(0.25f, 0.2f)},
        {{-0.3f, 0}, false, 0.3f}, {{4.25f, 0}, true, 0.25f}, {{4.3f, 0}, false, 0.3f},
        {{7, 4}, false, 5.0f},
    };
    for (const auto& row : rows)
    {
        KORV_CONTEXT(row.mPoint.mX << ", " << row.mPoint.mY);
        EXPECT_EQ(IsPointOnSegment(a, b, row.mPoint, 0.25f), row.mOn);
        EXPECT_NEAR(PointSegmentDistance(a, b, row.mPoint), row.mDistance, 1e-6f);
    }
    EXPECT_FALSE(IsPointOnSegment(a, a, a, 0.25f));
    EXPECT_FLOAT_EQ(PointSegmentDistance(a, a, {3, 4}), 5.0f);
}

KORV_TEST(Geom, planeBasisStandsAtRightAngles)
{
    Vec3<float> x;
    Vec3<float> y;
    computePlaneBasis(x, y, {0, 0, 1});
    EXPECT_TRUE(x == Vec3<float>(-1, 0, 0) && y == Vec3<float>(0, 1, 0));
    computePlaneBasis(x, y, {0, 1, 0});
    EXPECT_TRUE(x == Vec3<float>(0, 0, -1) && y == Vec3<float>(1, 0, 0));
    computePlaneBasis(x, y, {1, 1, 0}); // the first of equal components counts
    EXPECT_GT(x.mY * x.mY, 0.4f);

    std::mt19937 random(3);
    std::uniform_real_distribution<float> component(-9.0f, 9.0f);
    for (int i = 0; i < 100; ++i)
    {
        const Vec3<float> normal(component(random), component(random), component(random));
        computePlaneBasis(x, y, normal);
        EXPECT_NEAR(dot(x, y), 0.0f, 1e-5f);
        EXPECT_NEAR(dot(x, normal), 0.0f, 1e-4f);
        EXPECT_NEAR(dot(y, normal), 0.0f, 1e-4f);
        EXPECT_NEAR(x.getLength() * y.getLength(), 1.0f, 1e-5f);
    }
    computePlaneBasis(x, y, {});
    expectReports({"maxVal > 0"});
}

KORV_TEST(Geom, straightCornersGoFromOutlines)
{
    const struct
    {
        const char* mWhat;
        Outline mOutline;
        Outline mLeft;
    } rows[] = {
        {"a midpoint", makeOutline({{0, 0}, {1, 0}, {2, 0}, {2, 2}, {0, 2}}),
         makeOutline({{0, 0}, {2, 0}, {2, 2}, {0, 2}})},
        // The walk ends where it began; once that corner is gone, it must end elsewhere.
        {"a straight first corner", makeOutline({{1, 0}, {2, 0}, {2, 2}, {0, 2}, {0, 0}}),
         makeOutline({{0, 0}, {2, 0}, {2, 2}, {0, 2}})},
        {"straight first corners", makeOutline({{2, 0}, {3, 0}, {4, 0}, {4, 4}, {0, 0}, {1, 0}}),
         makeOutline({{0, 0}, {4, 0}, {4, 4}})},
        {"a flat triangle", makeOutline({{0, 0}, {1, 0}, {2, 0}}), Outline()},
        {"a turn of two degrees stays", makeOutline({{0, 0}, {10, -0.35f}, {20, 0}, {20, 9}, {0, 9}}),
         makeOutline({{0, 0}, {10, -0.35f}, {20, 0}, {20, 9}, {0, 9}})},
        {"not a number", makeOutline({{0, 0}, {NOT_A_NUMBER, 0}, {2, 0}, {2, NOT_A_NUMBER}}), Outline()},
    };
    for (const auto& row : rows)
    {
        KORV_CONTEXT(row.mWhat);
        Outline outline = row.mOutline;
        RemoveCollinearPoints(outline, ONE_DEGREE);
        EXPECT_TRUE(outline == row.mLeft);
    }
    Outline tooSmall = makeOutline({{0, 0}, {1, 0}});
    RemoveCollinearPoints(tooSmall, ONE_DEGREE);
    EXPECT_EQ(tooSmall.size(), 2u);
    expectReports({"polygon.size() >= 3"});
}

KORV_TEST(Geom, collinearWalkEndsAndKeepsTheOrder)
{
    std::mt19937 random(11);
    for (int round = 0; round < 3000; ++round)
    {
        KORV_CONTEXT("round " << round);
        Outline outline;
        for (size_t i = 3 + random() % 9; i > 0; --i) // few places, so that spikes, repeats and straight runs abound
            outline.push_back({static_cast<float>(random() % 3), static_cast<float>(random() % 3),
                               static_cast<float>(outline.size()) * 1e-6f});
        const Outline before = outline;
        RemoveCollinearPoints(outline, ONE_DEGREE);
        EXPECT_TRUE(outline.empty() || outline.size() >= 3);
        uint32 descents = 0; // the corners are numbered by their height
        for (size_t i = 0; i < outline.size(); ++i)
            descents += outline[i].mZ > outline[(i + 1) % outline.size()].mZ ? 1 : 0;
        EXPECT_LE(descents, 1u);
    }
    Outline circle;
    for (int i = 0; i < 200000; ++i)
    {
        const float angle = static_cast<float>(i) * 6.2831853f / 200000.0f;
        circle.push_back({1e6f * std::cos(angle), 1e6f * std::sin(angle), 0.0f});
    }
    RemoveCollinearPoints(circle, ONE_DEGREE); // linear, or this takes minutes
    EXPECT_LT(circle.size(), 1000u);
}

KORV_TEST(Geom, triangleMeetsACubeWhenClippingLeavesSomething)
{
    std::mt19937 random(5);
    std::uniform_real_distribution<float> place(-2.0f, 2.0f);
    constexpr double MARGIN = 1e-4;
    int counts[2] = {0, 0};
    for (int round = 0; round < 20000; ++round)
    {
        Vec3<float> v[3];
        for (Vec3<float>& corner : v)
            corner = {place(random), place(random), round % 3 == 0 ? 0.0f : place(random)};
        const Vec3<float> centre(place(random), place(random), place(random));
        const float edge = 0.2f + 0.5f * std::fabs(place(random));
        const std::vector<Vec3<double>> triangle = {toDouble(v[0]), toDouble(v[1]), toDouble(v[2])};
        const bool surely = clipsToSomething(triangle, toDouble(centre), 0.5 * double{edge} - MARGIN);
        const bool perhaps = clipsToSomething(triangle, toDouble(centre), 0.5 * double{edge} + MARGIN);
        if (surely != perhaps)
            continue;
        ++counts[surely ? 1 : 0];
        ASSERT_EQ(TriangleBoxOverlap(v[0], v[1], v[2], centre, edge), surely) << "round " << round;
    }
    EXPECT_GT(counts[0], 1000);
    EXPECT_GT(counts[1], 1000);
}

KORV_TEST(Geom, touchingTrianglesMeetTheCube)
{
    const Vec3<float> centre(0.5f, 0.5f, 0.5f);
    EXPECT_TRUE(TriangleBoxOverlap({-1, -1, 1}, {3, -1, 1}, {-1, 3, 1}, centre, 1.0f)); // in the plane of a face
    EXPECT_TRUE(TriangleBoxOverlap({1, 1, 1}, {2, 1, 1}, {1, 2, 3}, centre, 1.0f));     // at a corner
    EXPECT_FALSE(TriangleBoxOverlap({1.001f, 1, 1}, {2, 1, 1}, {1.001f, 2, 3}, centre, 1.0f));
    EXPECT_TRUE(TriangleBoxOverlap({0.2f, 0.2f, 0.2f}, {0.2f, 0.2f, 0.2f}, {0.8f, 0.2f, 0.2f}, centre, 1.0f)); // flat
}

KORV_TEST(Geom, voxelWalkIsAChainFromEndToEnd)
{
    std::mt19937 random(23);
    std::uniform_real_distribution<float> place(0.0f, 40.0f);
    for (int round = 0; round < 2000; ++round)
    {
        KORV_CONTEXT("round " << round);
        const auto point = [&]
        {
            const Vec3<float> p(place(random), place(random), place(random)); // every other one on corners of cells
            return round % 2 == 0 ? p : Vec3<float>(std::floor(p.mX), std::floor(p.mY), std::floor(p.mZ));
        };
        const Vec3<float> a = point();
        const Vec3<float> b = point();
        Voxels voxels;
        Utility::ComputeVoxelOnLine3D(voxels, a, b);
        const auto cell = [](const Vec3<float>& p)
        { return Vec3<uint32>(static_cast<uint32>(p.mX), static_cast<uint32>(p.mY), static_cast<uint32>(p.mZ)); };
        EXPECT_TRUE(voxels.front() == cell(a) && voxels.back() == cell(b));
        for (size_t i = 1; i < voxels.size(); ++i)
        {
            int steps = 0;
            for (int axis = 0; axis < 3; ++axis)
                steps += std::abs(static_cast<int>(voxels[i][axis]) - static_cast<int>(voxels[i - 1][axis]));
            ASSERT_EQ(steps, 1);
        }
    }
    Voxels straight;
    Utility::ComputeVoxelOnLine3D(straight, {0.5f, 0.5f, 0.5f}, {2.5f, 0.5f, 0.5f});
    EXPECT_TRUE(straight == Voxels({{0, 0, 0}, {1, 0, 0}, {2, 0, 0}}));
    Voxels tie; // z before y before x
    Utility::ComputeVoxelOnLine3D(tie, {0.5f, 0.5f, 0.5f}, {1.5f, 1.5f, 1.5f});
    EXPECT_TRUE(tie == Voxels({{0, 0, 0}, {0, 0, 1}, {0, 1, 1}, {1, 1, 1}}));
}

KORV_TEST(Geom, voxelWalkReportsCoordinatesOutsideTheGrid)
{
    Voxels voxels;
    Utility::ComputeVoxelOnLine3D(voxels, {-1.0f, 0, 0}, {2.0f, 0, NOT_A_NUMBER});
    expectReports({"a.mX >= 0 && a.mX < maxUInt32\nError Message: a.mX is out of range [0,X_MAX_UINT32[",
                   "b.mZ >= 0 && b.mZ < maxUInt32\nError Message: b.mZ is out of range [0,X_MAX_UINT32["});
    EXPECT_TRUE(voxels.front() == Vec3<uint32>(0, 0, 0) && voxels.back() == Vec3<uint32>(2, 0, 0));
}

KORV_TEST(Triangulation, splitsFollowTheShorterDiagonal)
{
    const Outline vertices = makeOutline({{0, 0}, {2, 0}, {2, 2}, {0, 2}, {-3, 1}, {5, 1}, {1, 0}, {1, 2}});
    const struct
    {
        const char* mWhat;
        Ids mPolygon;
        Ids mTriangles;
    } rows[] = {
        {"triangle", {2, 0, 1}, {9, 2, 0, 1}},
        {"square", {0, 1, 2, 3}, {9, 0, 1, 3, 1, 2, 3}},
        {"shorter from 0 to 2", {6, 5, 7, 4}, {9, 6, 7, 4, 6, 5, 7}},
    };
    for (const auto& row : rows)
    {
        KORV_CONTEXT(row.mWhat);
        Ids triangles = {9}; // what is there stays
        Utility::CreateTrianglesFromConvexPolygon(triangles, row.mPolygon, vertices);
        EXPECT_TRUE(triangles == row.mTriangles);
    }
}

KORV_TEST(Triangulation, noOtherTriangulationIsCheaper)
{
    std::mt19937 random(7);
    std::uniform_real_distribution<float> place(-5.0f, 5.0f);
    for (uint32 round = 0; round < 60; ++round)
    {
        KORV_CONTEXT("round " << round);
        const uint32 n = 3 + round % 6;
        Outline vertices;
        Ids polygon;
        for (uint32 i = 0; i < n; ++i)
        {
            vertices.push_back({place(random), place(random), place(random)});
            polygon.push_back(n - 1 - i);
        }
        Ids triangles;
        Utility::CreateTrianglesFromConvexPolygon(triangles, polygon, vertices);
        ASSERT_EQ(triangles.size(), 3 * (n - 2));
        float sum = 0.0f;
        for (size_t i = 0; i < triangles.size(); i += 3)
        {
            for (size_t j = 0; j < 3; ++j)
                sum += (vertices[triangles[i + j]] - vertices[triangles[i + (j + 1) % 3]]).getLength();
        }
        const float best = cheapest(vertices, polygon, 0, n - 1);
        EXPECT_NEAR(sum, best, 1e-4f * best);
    }
}

KORV_TEST(Triangulation, whatCannotBeCutIsReportedAndAppendsNothing)
{
    Testing::CountingMemory* memory = new Testing::CountingMemory;
    const SharedPtr<Callback::MemoryCallback> callback(memory);
    const Memory::AllocatorPtr base(new (callback) Callback::CallbackAllocator);
    const Outline vertices = makeOutline({{0, 0}, {2, 0}, {2, 2}, {0, 2}});
    const std::string prefix = "\nError Message: ";
    Ids triangles(base.get());
    Utility::CreateTrianglesFromConvexPolygon(triangles, {0, 1}, vertices);
    expectReports({prefix + "polygon needs at least three vertices for triangulation"});
    Utility::CreateTrianglesFromConvexPolygon(triangles, {0, 1, 4}, vertices);
    expectReports({prefix + "vertex id 4 is out of range"});
    const char* messages[] = {"cannot alloc costs array", "cannot alloc costs array", "cannot alloc min array"};
    for (int64 allowed = 0; allowed < 3; ++allowed)
    {
        memory->mFailAfter = allowed;
        Utility::CreateTrianglesFromConvexPolygon(triangles, {0, 1, 2, 3}, vertices);
        expectReports({prefix + messages[allowed]});
    }
    EXPECT_TRUE(triangles.empty());

    memory->mFailAfter = -1;
    const Outline broken(6, Vec3<float>(NOT_A_NUMBER, 0, 0)); // no cost is smaller than another
    Utility::CreateTrianglesFromConvexPolygon(triangles, {0, 1, 2, 3, 4, 5}, broken);
    EXPECT_TRUE(triangles.empty());
}
