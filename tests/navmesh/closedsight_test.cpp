#include "support/test.h"

#include "korv/common/interface.h"
#include "korv/navmesh/pieces/chordsolver.h"
#include "support/outlines.h"

namespace KORV::Testing
{
namespace
{
using namespace NavMesh;
using Outlines::Outline;

/// Sight in an outline on a grid, from its definition. All products of its coordinates are exact.
class LiteralSight
{
public:
    explicit LiteralSight(const PlaneOutline& outline) : mOutline(outline) {}

    /// What is seen, marked as ClosedSight does, of the corners after one.
    Vector<int32> visible(int32 eye)
    {
        Vector<int32> result(Common::Memory::getDefaultAllocator());
        for (int32 corner = eye + 1; corner < mOutline.size(); ++corner)
        {
            const bool isEdge = corner == eye + 1 || (eye == 0 && corner + 1 == mOutline.size());
            if (look(eye, corner) || isEdge)
                result.push_back(mTouches && !isEdge ? corner | ClosedSight::TOUCHING : corner);
        }
        return result;
    }

private:
    /// Whether the outline leaves one side of a line free, all the way, or crosses it nowhere.
    bool look(int32 a, int32 b)
    {
        mTouches = mLeft = mRight = false;
        if (!opensTowards(a, b) || !opensTowards(b, a))
            return false;
        for (int32 edge = 0; edge < mOutline.size(); ++edge)
        {
            if (crosses(a, b, edge))
                return false;
        }
        return !(mLeft && mRight);
    }

    /// Whether a line leaves a corner into the interior, or along an edge.
    bool opensTowards(int32 at, int32 to) const
    {
        const double leaving = turn(at, next(at), to);
        const double arriving = turn(previous(at), at, to);
        const bool convex = turn(previous(at), at, next(at)) < 0.0;
        return convex ? leaving <= 0.0 && arriving <= 0.0 : leaving <= 0.0 || arriving <= 0.0;
    }

    /// Whether an edge crosses a line; notes on which side of the line it has something solid.
    bool crosses(int32 a, int32 b, int32 edge)
    {
        const int32 end = next(edge);
        const double first = turn(a, b, edge);
        const double second = turn(a, b, end);
        const bool within = isBetween(a, b, edge);
        mTouches = mTouches || within;
        if (first == 0.0 && second == 0.0)
        {
            const bool overlaps = within || isBetween(a, b, end) || (edge == a && end == b) || (edge == b && end == a);
            (along(a, b, end) > along(a, b, edge) ? mLeft : mRight) |= overlaps;
            return false;
        }
        for (const auto& [corner, side] : {std::pair(edge, second), std::pair(end, first)})
        {
            if (isBetween(a, b, corner))
                (side > 0.0 ? mLeft : mRight) = true;
        }
        return first * second < 0.0 && turn(edge, end, a) * turn(edge, end, b) < 0.0;
    }

    bool isBetween(int32 a, int32 b, int32 corner) const
    {
        return corner != a && corner != b && turn(a, b, corner) == 0.0 && along(a, b, corner) > 0.0 &&
               along(a, b, corner) < along(a, b, b);
    }
    double along(int32 a, int32 b, int32 corner) const { return dot(way(a, b), way(a, corner)); }
    /// Positive where the third one lies to the left.
    double turn(int32 a, int32 b, int32 corner) const { return cross(way(a, b), way(a, corner)); }
    Vec2<double> way(int32 a, int32 b) const
    {
        return Vec2<double>(mOutline[b].mX, mOutline[b].mY) - Vec2<double>(mOutline[a].mX, mOutline[a].mY);
    }
    int32 next(int32 corner) const { return corner + 1 < mOutline.size() ? corner + 1 : 0; }
    int32 previous(int32 corner) const { return corner > 0 ? corner - 1 : mOutline.size() - 1; }

    const PlaneOutline& mOutline;
    bool mTouches = false; // of the line looked along last
    bool mLeft = false;
    bool mRight = false;
};

/// Runs clockwise; all its sides, which lie along the axes, are drawn in by a 64th of a cell.
PlaneOutline drawnIn(const Outline& outline)
{
    PlaneOutline result(Common::Memory::getDefaultAllocator());
    const size_t n = outline.size();
    const auto place = [&](size_t at) { return Vec2<float>(-outline[at % n].mX, outline[at % n].mY); };
    for (size_t at = 0; at < n; ++at)
    {
        const Vec2<float> arriving = place(at) - place(at + n - 1);
        const Vec2<float> leaving = place(at + 1) - place(at);
        const Vec2<float> sum = normalised(arriving) + normalised(leaving);
        result.mPoints.push_back(place(at) + Vec2<float>(sum.mY, -sum.mX) * (1.0f / 64.0f));
        result.mReflex.push_back(cross(arriving, leaving) >= 0.0f ? 1 : 0);
    }
    return result;
}

PlaneOutline gridOutline(uint32 seed)
{
    const int size = 5 + static_cast<int>(seed % 16);
    switch (seed % 3)
    {
    case 0:
        return drawnIn(Outlines::FieldTracer(Outlines::noise(seed, size, size, 0.15f)).trace());
    case 1:
        return drawnIn(Outlines::FieldTracer(Outlines::rooms(seed, 8 + size, 8 + size, size)).trace());
    default:
        return drawnIn(Outlines::FieldTracer(Outlines::comb(seed, 2 + size % 9, 2 + size % 7)).trace());
    }
}
} // namespace

KORV_TEST(ClosedSight, linesMayTouchTheOutlineOnOneSide)
{
    size_t numTouching = 0;
    for (uint32 seed = 0; seed < 120; ++seed)
    {
        KORV_CONTEXT("seed " << seed);
        const PlaneOutline outline = gridOutline(seed);
        OutlineVisibility visibility(outline.mPoints, outline.mReflex, Common::Memory::getDefaultAllocator());
        visibility.build(true);
        for (int32 eye = 0; eye + 1 < outline.size(); ++eye)
        {
            Vector<int32> visible(Common::Memory::getDefaultAllocator());
            visibility.appendVisible(visible, eye);
            ASSERT_EQ(visible, LiteralSight(outline).visible(eye)) << "from corner " << eye;
            for (const int32 corner : visible)
                numTouching += corner >= ClosedSight::TOUCHING ? 1 : 0;
        }
    }
    EXPECT_GT(numTouching, 1000u);
}

/// A chord past a corner is as long as the two to and from that corner. Chords may be shorter, where tolerances hide
/// one.
KORV_TEST(ClosedSight, chordsThatTouchAreNotMissed)
{
    const std::atomic<bool> never{false};
    for (uint32 seed = 0; seed < 120; ++seed)
    {
        KORV_CONTEXT("seed " << seed);
        PlaneOutline outline = gridOutline(seed);
        ChordSolver all(outline, Common::Memory::getDefaultAllocator());
        ASSERT_EQ(all.solve(never), ChordSolver::Result::SOLVED);
        outline.mClosed = true;
        ChordSolver closed(outline, Common::Memory::getDefaultAllocator());
        ASSERT_EQ(closed.solve(never), ChordSolver::Result::SOLVED);
        EXPECT_LE(closed.getRootCost(), 1.0001f * all.getRootCost());
    }
}
} // namespace KORV::Testing
