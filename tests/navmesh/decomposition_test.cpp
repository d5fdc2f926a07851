#include "support/test.h"

#include "korv/common/interface.h"
#include "korv/common/memory/memoryexception.h"
#include "korv/common/threading/threadpool.h"
#include "korv/navmesh/pieces/chordsolver.h"
#include "korv/navmesh/pieces/edgeboxes.h"
#include "korv/navmesh/pieces/flatpieces.h"
#include "korv/navmesh/pieces/polygoncreatetask.h"
#include "korv/navmesh/pieces/trianglerescue.h"
#include "navmesh/literaldecomposition.h"
#include "support/outlines.h"

#include <cstring>
#include <limits>

namespace KORV::Testing
{
namespace
{
using namespace NavMesh;
using Common::Memory::AllocatorPtr;
using Common::Threading::SpinLock;
using Common::Threading::ThreadPool;
using Outlines::Outline;
using Rescue = ConvexPolygonCreator::Rescue;

const Vec3<float> UP(0.0f, 0.0f, 1.0f);
const std::atomic<bool> NEVER{false};

SurfacePolygon surface(const Outline& outline)
{
    SurfacePolygon polygon;
    polygon.mPoints.assign(outline.begin(), outline.end());
    polygon.mHeightClass = 3;
    polygon.mSurfaceTypeID = 7;
    return polygon;
}

ConvexPieces decompose(const Outline& outline, float cube, Rescue& rescue, Rules rules = Rules::SPECIFIED)
{
    ConvexPieces pieces(Common::Memory::getDefaultAllocator());
    ConvexPolygonCreator creator(cube * 0.25f, rules);
    rescue = creator.decompose(pieces, surface(outline), UP, NEVER);
    return pieces;
}

/// Outlines of many kinds; cube and inset belong to them.
struct Sample
{
    Outline mOutline;
    float mCube = 1.0f;
    float mArea = 0.0f; // in cubes, where known
};

constexpr int NUM_KINDS = 12;

Sample sample(int kind, uint32 seed)
{
    using namespace Outlines;
    const int a = static_cast<int>(seed % 9);
    const int b = static_cast<int>(seed % 7);
    const auto field = [](const Field& cells, float cube)
    {
        FieldTracer tracer(cells, cube);
        Sample result{tracer.trace(), cube};
        result.mArea = static_cast<float>(tracer.numCells());
        return result;
    };
    switch (kind)
    {
    case 0:
        return {star(seed, 4 + static_cast<int>(seed % 40)), 1e-4f};
    case 1:
        return {star(seed, 4 + static_cast<int>(seed % 40), 6.0f, 10.0f), 0.4f};
    case 2:
        return field(noise(seed, 4 + a, 4 + b, 0.15f), 1.0f);
    case 3:
        return field(rooms(seed, 8 + a, 8 + b, 2 + a), 0.25f);
    case 4:
        return field(comb(seed, 2 + a, 2 + b), 1.0f);
    case 5:
        return field(pillarHall(seed, 1 + a % 2, 9 + b, 3.0f), 0.5f);
    case 6:
        return {spiral(1 + a), 0.1f};
    case 7:
        return field(noise(seed, 4 + a, 4 + b, 0.15f), 0.002f * static_cast<float>(1 + a)); // rescues
    case 8:
        return field(rooms(seed, 8 + a, 8 + b, 2 + a), 0.006f); // rescues
    case 9:                                                     // tolerances rule, so that turns are out of order
        return field(rooms(seed, 20 + 2 * a, 20 + 2 * b, 6 + a), 0.0125f);
    case 10:
        return field(pillarHall(seed, 2, 24 + b, 4.5f), 0.007f + 0.004f * static_cast<float>(a % 5));
    default:
        break;
    }
    // every corner nearly straight, so that all chords take part
    Sample circle{{}, 1e-4f};
    const int corners = 8 + static_cast<int>(seed % 40);
    for (int i = 0; i < corners; ++i)
    {
        const float angle = 6.2831853f * static_cast<float>(i) / static_cast<float>(corners);
        circle.mOutline.push_back({0.05f * std::cos(angle), 0.05f * std::sin(angle), 0.0f});
    }
    return circle;
}

float area2(const LiteralDecomposition::Point& a, const LiteralDecomposition::Point& b,
            const LiteralDecomposition::Point& c)
{
    return a.mX * (b.mY - c.mY) + b.mX * (c.mY - a.mY) + c.mX * (a.mY - b.mY);
}

/// The outline as the solvers get it: in the plane of the axis, drawn in in place.
PlaneOutline drawnIn(const Outline& outline, float distance)
{
    PlaneOutline result(Common::Memory::getDefaultAllocator());
    Vector<Vec2<float>>& points = result.mPoints;
    for (const Vec3<float>& point : outline)
        points.push_back({-point.mX, point.mY});
    const size_t n = points.size();
    for (size_t i = 0; i < n; ++i)
    {
        const Vec2<float> sum =
            normalised(points[i] - points[(i + n - 1) % n]) + normalised(points[(i + 1) % n] - points[i]);
        points[i] = points[i] + normalised(Vec2<float>(sum.mY, -sum.mX)) * distance;
    }
    for (size_t i = 0; i < n; ++i)
        result.mReflex.push_back(area2(points[(i + n - 1) % n], points[i], points[(i + 1) % n]) >= -0.0001f ? 1 : 0);
    return result;
}

/// What must hold of the pieces of any outline. @param maxDent  [cubes]
void expectSound(const Outline& outline, const ConvexPieces& pieces, double cube, double maxDent)
{
    const auto at = [&](int32 corner)
    {
        const Vec3<float>& point = outline[static_cast<size_t>(corner)];
        return Vec2<double>(static_cast<double>(point.mX - outline[0].mX) / cube,
                            static_cast<double>(point.mY - outline[0].mY) / cube);
    };
    const auto area = [&](const int32* corners, size_t count)
    {
        double sum = 0.0;
        for (size_t i = 0; i < count; ++i)
            sum += 0.5 * cross(at(corners[i]), at(corners[(i + 1) % count]));
        return sum;
    };
    std::vector<int32> all;
    for (size_t i = 0; i < outline.size(); ++i)
        all.push_back(static_cast<int32>(i));
    double total = 0.0;
    for (size_t piece = 0; piece < pieces.size(); ++piece)
    {
        const int32* corners = pieces.mCorners.data() + pieces.begin(piece);
        const size_t count = pieces.end(piece) - pieces.begin(piece);
        ASSERT_GE(count, 3u);
        const double own = -area(corners, count); // pieces run the other way round
        EXPECT_GE(own, -1e-2) << "piece " << piece;
        total += own;
        for (size_t side = 0; side < count; ++side)
        {
            const int32 a = corners[side];
            const int32 b = corners[(side + 1) % count];
            const Vec2<double> across = at(corners[(side + 2) % count]) - at(a);
            EXPECT_LE(cross(at(b) - at(a), across), maxDent * across.getLength() + 1e-9) << "piece " << piece;
            const int32 other = pieces.mNeighbours[pieces.begin(piece) + side];
            ASSERT_LT(other, static_cast<int32>(pieces.size()));
            if (other < 0)
                continue;
            bool mutual = false;
            const size_t begin = pieces.begin(static_cast<size_t>(other));
            const size_t end = pieces.end(static_cast<size_t>(other));
            for (size_t theirs = begin; theirs < end; ++theirs)
                mutual = mutual ||
                         (pieces.mNeighbours[theirs] == static_cast<int32>(piece) && pieces.mCorners[theirs] == b &&
                          pieces.mCorners[theirs + 1 < end ? theirs + 1 : begin] == a);
            EXPECT_TRUE(mutual) << "piece " << piece << " side " << side;
        }
    }
    EXPECT_NEAR(total, area(all.data(), all.size()), 1e-3 * std::max(1.0, total));
}

/// All that tells two meshes apart.
std::vector<int64> bytes(const NavMeshContainer& mesh)
{
    std::vector<int64> result;
    for (const Vec3<float>& vertex : mesh.mVertices)
        for (int c = 0; c < 3; ++c)
        {
            uint32 bits = 0;
            std::memcpy(&bits, &vertex[c], sizeof bits);
            result.push_back(bits);
        }
    for (const NavMeshContainer::NavNode& node : mesh.mNodes)
    {
        result.push_back(-2);
        result.insert(result.end(), node.mPolygon.begin(), node.mPolygon.end());
        result.insert(result.end(), node.mNeighbours.begin(), node.mNeighbours.end());
    }
    return result;
}

void appendTo(NavMeshContainer& mesh, PieceSequencer& sequencer)
{
    MeshDraft draft(mesh, mesh.getMemory());
    NavMeshBuilder::Statistics statistics;
    sequencer.moveTo(draft);
    draft.moveNodes(RunControl(nullptr, statistics), "Build Vertical Connections", 0.0f);
}
} // namespace

void expectLiteralPieces(int kind, uint32 seed)
{
    KORV_CONTEXT("kind " << kind << " seed " << seed);
    const Sample given = sample(kind, seed);
    const PlaneOutline outline = drawnIn(given.mOutline, given.mCube * 0.25f);
    LiteralDecomposition literal({outline.mPoints.begin(), outline.mPoints.end()});
    ChordSolver solver(outline, Common::Memory::getDefaultAllocator());
    const bool solved = solver.solve(NEVER) == ChordSolver::Result::SOLVED;
    const float cost = literal.solve();
    ASSERT_EQ(solved, cost < LiteralDecomposition::UNSOLVED);
    if (!solved)
        return;
    EXPECT_EQ(solver.getRootCost(), cost);
    ConvexPieces pieces(Common::Memory::getDefaultAllocator());
    solver.extract(pieces);
    const auto expected = literal.pieces();
    ASSERT_EQ(pieces.size(), expected.size());
    for (size_t piece = 0; piece < pieces.size(); ++piece)
        ASSERT_EQ(expected[piece], std::vector<int>(pieces.mCorners.begin() + static_cast<int64>(pieces.begin(piece)),
                                                    pieces.mCorners.begin() + static_cast<int64>(pieces.end(piece))));
}

KORV_TEST(Decomposition, piecesAreThoseOfTheLiteralSolver)
{
    for (int kind = 0; kind < NUM_KINDS; ++kind)
        for (uint32 seed = 0; seed < 40; ++seed)
            expectLiteralPieces(kind, seed);
    // turns that are decided by a side which the end of a chord does not see
    expectLiteralPieces(8, 64);
    expectLiteralPieces(8, 175);
}

/// A drawn-in outline of some kind, large enough for long shadows, steps and lines of sight along many corners.
Outline sightOutline(uint32 seed, float cube)
{
    if (seed % 6 == 0)
        return Outlines::FieldTracer(Outlines::noise(seed, 24, 24, 0.1f), cube).trace();
    if (seed % 6 == 1)
        return Outlines::FieldTracer(Outlines::rooms(seed, 40, 40, 12), cube).trace();
    if (seed % 6 == 2)
        return Outlines::spiral(24);
    if (seed % 6 == 3)
        return Outlines::star(seed, 160);
    return Outlines::FieldTracer(Outlines::pillarHall(seed, 3, 16, 4.5f), cube).trace();
}

void expectLiteralSight(const PlaneOutline& outline)
{
    LiteralDecomposition literal({outline.mPoints.begin(), outline.mPoints.end()});
    OutlineVisibility visibility(outline.mPoints, outline.mReflex, Common::Memory::getDefaultAllocator());
    visibility.build(false);
    for (int32 i = 0; i + 1 < outline.size(); ++i)
    {
        Vector<int32> visible(Common::Memory::getDefaultAllocator());
        visibility.appendVisible(visible, i);
        Vector<int32> expected(Common::Memory::getDefaultAllocator());
        for (int32 k = i + 1; k < outline.size(); ++k)
        {
            if (literal.sees(i, k) && !(i == 0 && k + 1 == outline.size()))
                expected.push_back(k);
        }
        if (i == 0 && !visible.empty() && visible.back() + 1 == outline.size())
            visible.pop_back(); // the closing edge is there, whatever the sweep says
        ASSERT_EQ(visible, expected) << "from corner " << i;
    }
}

/// However long the shadows, and wherever the outline begins.
KORV_TEST(Decomposition, linesOfSightAreWhatLiteralSweepsLeave)
{
    for (uint32 seed = 0; seed < 18; ++seed)
    {
        KORV_CONTEXT("seed " << seed);
        const float cube = 0.1f * static_cast<float>(1 + seed % 4);
        Outline points = sightOutline(seed, cube);
        std::rotate(points.begin(), points.begin() + static_cast<int64>(points.size() * seed / 18), points.end());
        expectLiteralSight(drawnIn(points, cube * 0.25f));
    }
}

/// Rays that slip past an edge nearly along them, and one that meets an edge beyond its end, at a bend of one degree.
KORV_TEST(Decomposition, linesOfSightFollowRaysThatTolerancesLeadAstray)
{
    const Outline slips{{0, 0, 0},   {1, 0, 0},     {1, 1, 0},          {2.2f, 1, 0},     {2.2f, .1f, 0},
                        {2, .1f, 0}, {2, 3e-5f, 0}, {2.06f, -3e-5f, 0}, {2.06f, -.1f, 0}, {3, -.1f, 0},
                        {3, .5f, 0}, {4, .5f, 0},   {4, -1, 0},         {0, -1, 0}};
    const Outline bends{{-300, 0, 0}, {-300, 23, 0},     {98, 23, 0},  {99.995f, 20, 0}, {100.5f, 23, 0}, {103, 23, 0},
                        {103, 13, 0}, {99.9955f, 10, 0}, {103, 10, 0}, {200, 8, 0},      {200, 2.1f, 0},  {100, 0, 0}};
    for (Outline outline : {slips, bends})
    {
        for (Vec3<float>& point : outline)
            point.mX = -point.mX; // outlines are seen from the other side
        expectLiteralSight(drawnIn(outline, 0.0f));
    }
}

KORV_TEST(Decomposition, boxesFindTheEdgeThatTheLookAtAllFinds)
{
    const Outline outlines[] = {Outlines::FieldTracer(Outlines::pillarHall(1, 4, 16, 4.5f)).trace(),
                                Outlines::FieldTracer(Outlines::noise(2, 30, 30, 0.1f)).trace(),
                                Outlines::FieldTracer(Outlines::rooms(3, 80, 80, 40), 14.0f).trace(),
                                Outlines::star(4, 400), Outlines::spiral(30)};
    for (const Outline& outline : outlines)
    {
        const PlaneOutline plane = drawnIn(outline, 0.25f);
        EdgeBoxes boxes(plane.mPoints, Common::Memory::getDefaultAllocator());
        boxes.build();
        std::mt19937 random(5);
        for (int ray = 0; ray < 5000; ++ray)
        {
            const int32 a = static_cast<int32>(random() % plane.mPoints.size());
            const int32 b = static_cast<int32>(random() % plane.mPoints.size());
            Vec2<float> dir = ray % 4 != 0 ? plane[a] - plane[b] : Vec2<float>(0.0f, ray % 8 != 0 ? 1.0f : -1.0f);
            if (dir.normalise() == 0.0f)
                continue;
            ASSERT_EQ(boxes.findNearestEdge(a, dir), boxes.findNearestEdgeOfAll(a, dir))
                << "from " << a << " towards " << b;
        }
    }
}

KORV_TEST(Decomposition, piecesCoverTheOutline)
{
    int rescued = 0;
    for (int kind = 0; kind < NUM_KINDS; ++kind)
        for (uint32 seed = 100; seed < 140; ++seed)
        {
            KORV_CONTEXT("kind " << kind << " seed " << seed);
            const Sample given = sample(kind, seed);
            Rescue rescue = Rescue::NONE;
            const ConvexPieces pieces = decompose(given.mOutline, given.mCube, rescue);
            ASSERT_GT(pieces.size(), 0u);
            rescued += rescue != Rescue::NONE ? 1 : 0;
            const double cube = static_cast<double>(kind == 0 || kind + 1 == NUM_KINDS ? 0.01f : given.mCube);
            expectSound(given.mOutline, pieces, cube, 0.76);

            // the last way out takes any outline
            Vector<Vec2<float>> inCubes;
            for (const Vec3<float>& point : given.mOutline)
                inCubes.push_back({(given.mOutline[0].mX - point.mX) / static_cast<float>(cube),
                                   (point.mY - given.mOutline[0].mY) / static_cast<float>(cube)});
            ConvexPieces triangles(Common::Memory::getDefaultAllocator());
            ASSERT_TRUE(TriangleRescue(Common::Memory::getDefaultAllocator()).decompose(triangles, inCubes, NEVER));
            expectSound(given.mOutline, triangles, cube, 1e-3);
        }
    EXPECT_GT(rescued, 0) << "the tiny cubes should need it";
}

KORV_TEST(Decomposition, refinedPiecesAreConvexOfAnySizeAndAnywhere)
{
    for (int kind = 2; kind < 6; ++kind) // those made of voxels
        for (uint32 seed = 0; seed < 40; ++seed)
        {
            KORV_CONTEXT("kind " << kind << " seed " << seed);
            Sample given = sample(kind, seed);
            const float scale = seed % 2 != 0 ? 0.0078125f : 64.0f; // exact, so that the outline stays on its grid
            for (Vec3<float>& point : given.mOutline)
                point = point * scale + Vec3<float>(64.0f, -32.0f, 0.0f) * scale;
            Rescue rescue = Rescue::TRIANGLES;
            const ConvexPieces pieces = decompose(given.mOutline, given.mCube * scale, rescue, Rules::REFINED);
            ASSERT_GT(pieces.size(), 0u);
            EXPECT_EQ(rescue, Rescue::NONE);
            expectSound(given.mOutline, pieces, static_cast<double>(given.mCube * scale), 1e-3);
        }
}

KORV_TEST(Decomposition, flatPiecesJoinTheirNeighboursOrGo)
{
    // a square with a corner on its right side, and one in the middle of its left side, as chords to flat pieces
    const Vector<Vec2<float>> points = {{0, 0}, {0, 2}, {0, 4}, {4, 4}, {4, 2}, {4, 0}};
    ConvexPieces pieces(Common::Memory::getDefaultAllocator());
    pieces.mStart = {0, 4, 7};
    pieces.mCorners = {5, 3, 2, 0, 2, 1, 0, 5, 4, 3};
    pieces.mNeighbours = {2, -1, 1, -1, -1, -1, 0, -1, -1, 0};
    mergeFlatPieces(pieces, points, 1e-3);
    ASSERT_EQ(pieces.size(), 1u);
    ASSERT_EQ(pieces.mCorners.size(), 6u);
    for (const int32 neighbour : pieces.mNeighbours)
        EXPECT_EQ(neighbour, -1);

    // the flat piece's longest side is one of the outline: it goes, and its neighbour is open there
    const Vector<Vec2<float>> doubled = {{0, 0}, {2, 0}, {4, 0}, {2, -4}};
    pieces.mStart = {0, 3};
    pieces.mCorners = {2, 1, 0, 3, 2, 1};
    pieces.mNeighbours = {1, -1, -1, -1, 0, -1};
    mergeFlatPieces(pieces, doubled, 1e-3);
    ASSERT_EQ(pieces.size(), 1u);
    for (const int32 neighbour : pieces.mNeighbours)
        EXPECT_EQ(neighbour, -1);
}

KORV_TEST(Decomposition, nodesOfSimpleOutlines)
{
    using Ids = std::vector<int64>;
    const struct
    {
        const char* mWhat;
        Outline mOutline;
        Ids mNodes; // as bytes() writes them after the vertices
    } rows[] = {
        {"a triangle", {{0, 0, 1}, {4, 0, 1}, {0, 4, 1}}, {-2, 2, 1, 0, -1, -1, -1}},
        {"a square", {{0, 0, 0}, {4, 0, 0}, {4, 4, 0}, {0, 4, 0}}, {-2, 3, 2, 1, 0, -1, -1, -1, -1}},
        // the chord from the inner corner to the opposite outer one is shorter than those to the sides' ends
        {"an L",
         {{0, 0, 0}, {4, 0, 0}, {4, 2, 0}, {2, 2, 0}, {2, 4, 0}, {0, 4, 0}},
         {-2, 5, 4, 3, 0, -1, -1, 1, -1, -2, 3, 2, 1, 0, -1, -1, -1, 0}},
    };
    for (const auto& row : rows)
    {
        KORV_CONTEXT(row.mWhat);
        NavMeshContainer mesh;
        SpinLock lock;
        ConvexPolygonCreator creator(0.25f);
        for (int64 base = 0; base < 2; ++base) // a second outline starts at the first free ids
        {
            const size_t before = bytes(mesh).size() - 3 * mesh.mVertices.size();
            const int64 firstNode = static_cast<int64>(mesh.mNodes.size());
            creator.createConvexPolygons(lock, mesh, surface(row.mOutline), UP);
            const Ids all = bytes(mesh);
            Ids nodes(all.begin() + static_cast<int64>(3 * mesh.mVertices.size() + before), all.end());
            for (size_t node = static_cast<size_t>(firstNode), at = 0; node < mesh.mNodes.size(); ++node)
            {
                EXPECT_EQ(mesh.mNodes[node].mHeightClass, 3);
                EXPECT_EQ(mesh.mNodes[node].mSurfaceTypeID, 7);
                const size_t count = mesh.mNodes[node].mPolygon.size();
                for (size_t i = ++at; at < i + count; ++at)
                    nodes[at] -= base * static_cast<int64>(row.mOutline.size());
                for (size_t i = at; at < i + count; ++at)
                    nodes[at] -= nodes[at] >= 0 ? firstNode : 0;
            }
            EXPECT_EQ(nodes, row.mNodes);
        }
    }
}

// The tolerances are absolute: with small cubes the solver took the reflex corner for want of another.
KORV_TEST(Decomposition, anLIsNeverOnePiece)
{
    const Vec3<float> corners[] = {{0, 0, 0}, {2, 0, 0}, {2, 1, 0}, {1, 1, 0}, {1, 2, 0}, {0, 2, 0}};
    for (const float cube : {1.0f, 0.1f, 0.01f, 0.001f})
    {
        for (size_t start = 0; start < std::size(corners); ++start)
        {
            KORV_CONTEXT("cube " << cube << ", start " << start);
            Outline outline;
            for (size_t i = 0; i < std::size(corners); ++i)
                outline.push_back(corners[(start + i) % std::size(corners)] * cube);
            Rescue rescue = Rescue::NONE;
            EXPECT_EQ(decompose(outline, cube, rescue).size(), 2u);
        }
    }
}

KORV_TEST(Decomposition, anyOutlineEndsSafely)
{
    const float infinite = std::numeric_limits<float>::infinity();
    const Outline degenerate[] = {
        {{1, 1, 0}, {1, 1, 0}, {1, 1, 0}, {1, 1, 0}},
        {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {1, 0, 0}},
        {{0, 0, 0}, {0, 4, 0}, {4, 4, 0}, {4, 0, 0}}, // the wrong way round
        {{0, 0, 0}, {4, 0, 0}, {infinite, 4, 0}, {0, 4, 0}},
        {{0, 0, 0}, {4, 0, 0}, {std::numeric_limits<float>::quiet_NaN(), 2, 0}, {4, 4, 0}, {0, 4, 0}},
        {{-3e38f, 0, 0}, {3e38f, 0, 0}, {0, 1, 0}, {0, 3e38f, 0}},
    };
    Rescue rescue = Rescue::NONE;
    for (const Outline& outline : degenerate)
        decompose(outline, 1.0f, rescue);
    for (uint32 seed = 0; seed < 100; ++seed)
    {
        std::mt19937 random(seed);
        Outline crossing; // on few grid points, so that corners coincide
        for (uint32 i = 0; i < 4 + seed % 60; ++i)
            crossing.push_back({static_cast<float>(random() % 7), static_cast<float>(random() % 7), 0.0f});
        decompose(crossing, 1.0f, rescue);
    }
    dropReports(); // these break invariants, and may say so

    decompose({{0, 0, 0}, {1, 0, 0}}, 1.0f, rescue);
    EXPECT_EQ(rescue, Rescue::EMPTY);
    expectReports({"mN >= 3\nError Message: mPolygon cannot have less than 3 nodes"});
}

KORV_TEST(Decomposition, workersChangeNothing)
{
    std::vector<SurfacePolygon> polygons;
    for (uint32 seed = 0; seed < 60; ++seed) // large ones first, so that later ones must wait for their turn
        polygons.push_back(surface(sample(seed % 15 == 0 ? 5 : 4, 60 - seed).mOutline));
    const AllocatorPtr allocator = Common::Interface::getSharedAllocator();
    std::vector<int64> expected;
    for (const uint32 workers : {1u, 2u, 8u})
    {
        NavMeshContainer mesh;
        PieceSequencer sequencer(polygons.size(), allocator);
        std::unique_ptr<ThreadPool> pool(ThreadPool::create(allocator, workers, 0));
        for (size_t i = 0; i < polygons.size(); ++i)
            pool->appendTask(new (pool->getAllocator())
                                 PolygonCreateTask(1.0f, Rules::SPECIFIED, sequencer, i, polygons[i], UP));
        pool->waitForTasks();
        EXPECT_EQ(sequencer.getNumEnded(), polygons.size());
        appendTo(mesh, sequencer);
        EXPECT_EQ(mesh.mVertices.size(),
                  [&]
                  {
                      size_t sum = 0;
                      for (const SurfacePolygon& polygon : polygons)
                          sum += polygon.mPoints.size();
                      return sum;
                  }());
        if (workers == 1)
            expected = bytes(mesh);
        EXPECT_EQ(bytes(mesh), expected) << workers << " workers";
    }
}

KORV_TEST(Decomposition, resultsWaitForTheirTurnAndStopDropsThem)
{
    const SurfacePolygon square = surface({{0, 0, 0}, {4, 0, 0}, {4, 4, 0}, {0, 4, 0}});
    SurfacePolygon other = square;
    other.mHeightClass = 7;
    const AllocatorPtr allocator = Common::Interface::getSharedAllocator();
    NavMeshContainer mesh;
    PieceSequencer sequencer(5, allocator);
    Rescue rescue = Rescue::NONE;
    const ConvexPieces pieces = decompose({{0, 0, 0}, {4, 0, 0}, {4, 4, 0}, {0, 4, 0}}, 1.0f, rescue);
    const ConvexPieces none(allocator.get());
    PieceBatch later(allocator.get());
    later.add(other, pieces, Rescue::INSET);
    PieceBatch earlier(allocator.get());
    earlier.add(square, pieces, Rescue::INSET);
    earlier.add(square, none, Rescue::EMPTY);
    earlier.add(square, pieces, Rescue::INSET);

    sequencer.deliver(3, later);
    sequencer.deliver(0, earlier);
    EXPECT_EQ(mesh.mNodes.size(), 0u);
    EXPECT_EQ(sequencer.getNumRescues(Rescue::INSET), 3u);
    EXPECT_EQ(sequencer.getNumRescues(Rescue::EMPTY), 1u);
    sequencer.stop();
    sequencer.deliver(4, later);
    appendTo(mesh, sequencer);
    ASSERT_EQ(mesh.mNodes.size(), 3u);
    EXPECT_EQ(mesh.mVertices.size(), 12u);
    EXPECT_EQ(mesh.mNodes[1].mPolygon, Vector<uint32>({7, 6, 5, 4}));
    EXPECT_EQ(mesh.mNodes[1].mHeightClass, static_cast<int32>(square.mHeightClass));
    EXPECT_EQ(mesh.mNodes[2].mHeightClass, 7);
}

KORV_TEST(Decomposition, runningOutOfMemoryReachesTheCaller)
{
    const SurfacePolygon hall = surface(sample(5, 1).mOutline);
    const AllocatorPtr allocator = Common::Interface::getSharedAllocator();
    PieceSequencer sequencer(2, allocator);
    auto* task = new (allocator) PolygonCreateTask(1.0f, Rules::SPECIFIED, sequencer, 0, hall, UP);
    mMemory->mFailAfter = 2;
    task->execute();
    mMemory->mFailAfter = -1;
    delete task;
    EXPECT_GT(dropReports(), 0u);
    EXPECT_TRUE(sequencer.isStopped());
    EXPECT_EQ(sequencer.getNumEnded(), 1u);
    expectThrow<Common::Memory::OutOfMemoryException>([&] { sequencer.getErrors().rethrow(); });
    sequencer.getErrors().rethrow(); // once only
}
} // namespace KORV::Testing
