#include "korv/navmesh/pieces/trianglerescue.h"

#include <algorithm>
#include <bit>
#include <cmath>

// Ear clipping that also takes outlines whose parts touch: bridges to and fro, corners that coincide.
//
// All tests are exact: corners go onto an integer grid, that of half cubes where the outline comes from voxels, else a
// fine one. A corner may be cut off when it turns left and no edge of what is left passes through the open triangle.
// Then the triangle lies inside: it does at its tip, and no border comes between. Edges that only touch it, such as the
// other half of a bridge, don't matter. What remains touches itself where the cut passes a corner, which does no harm
// for the same reason. The areas of the triangles add up to that of the outline by construction, and as all lie inside
// and none is negative, none overlap. Where nothing with area can be cut off, a corner without area goes.
//
// The triangles are then merged across their longest sides first, as long as pieces stay convex.
//
// Source of the merging: S. Hertel, K. Mehlhorn, "Fast Triangulation of Simple Polygons", FCT 1983.

namespace KORV::NavMesh
{
namespace
{
/// Share of a half cube by which a corner may miss the grid, from rounding far from the origin.
constexpr float GRID_TOLERANCE = 0.05f;
constexpr float MAX_GRID = 16777216.0f;
/// The fine grid has this many lines across the outline.
constexpr double FINE_LINES = 16777216.0;
constexpr size_t RUN = 64;
} // namespace

TriangleRescue::TriangleRescue(Common::Memory::Allocator* allocator)
    : mPositions(allocator), mNext(allocator), mPrevious(allocator), mLeft(allocator), mRunBoxes(allocator),
      mGroupBoxes(allocator), mOuter(allocator), mSides(allocator)
{
}

bool TriangleRescue::decompose(ConvexPieces& pieces, const Vector<Vec2<float>>& polygon, const std::atomic<bool>& stop)
{
    pieces.clear();
    setPositions(polygon);
    if (doubledArea() <= 0)
        return true;
    if (!cutTriangles(stop))
        return false;
    mergeTriangles();
    writePieces(pieces);
    return true;
}

/// Puts the outline onto the grid, mirrored, so that it runs counter-clockwise. What is not finite goes to the origin.
void TriangleRescue::setPositions(const Vector<Vec2<float>>& polygon)
{
    mPositions.clear();
    double scale = 2.0;
    if (!fitsHalfCubes(polygon))
    {
        double reach = 0.0;
        for (const Vec2<float>& point : polygon)
        {
            if (std::isfinite(point.mX) && std::isfinite(point.mY))
                reach = std::max(
                    {reach, std::fabs(static_cast<double>(point.mX)), std::fabs(static_cast<double>(point.mY))});
        }
        scale = reach > 0.0 ? FINE_LINES / reach : 1.0;
    }
    for (const Vec2<float>& point : polygon)
    {
        const bool finite = std::isfinite(point.mX) && std::isfinite(point.mY);
        mPositions.push_back({finite ? std::llround(-static_cast<double>(point.mX) * scale) : 0,
                              finite ? std::llround(static_cast<double>(point.mY) * scale) : 0});
    }
}

bool TriangleRescue::fitsHalfCubes(const Vector<Vec2<float>>& polygon) const
{
    return std::all_of(polygon.begin(), polygon.end(),
                       [](const Vec2<float>& point)
                       {
                           const Vec2<float> halves = point * 2.0f;
                           return std::fabs(halves.mX) < MAX_GRID && std::fabs(halves.mY) < MAX_GRID &&
                                  std::fabs(halves.mX - std::round(halves.mX)) < GRID_TOLERANCE &&
                                  std::fabs(halves.mY - std::round(halves.mY)) < GRID_TOLERANCE;
                       });
}

int64 TriangleRescue::doubledArea() const
{
    int64 sum = 0;
    for (size_t i = 0; i < mPositions.size(); ++i)
    {
        const Position& a = mPositions[i];
        const Position& b = mPositions[i + 1 < mPositions.size() ? i + 1 : 0];
        sum += a.mX * b.mY - b.mX * a.mY;
    }
    return sum;
}

/// Positive when the way from a over b to c turns left.
int64 TriangleRescue::orientation(int32 a, int32 b, int32 c) const
{
    return (at(b).mX - at(a).mX) * (at(c).mY - at(a).mY) - (at(c).mX - at(a).mX) * (at(b).mY - at(a).mY);
}

bool TriangleRescue::cutTriangles(const std::atomic<bool>& stop)
{
    const int32 n = static_cast<int32>(mPositions.size());
    mSides.clear();
    mSides.reserve(3 * (mPositions.size() - 2));
    mNext.clear();
    mPrevious.clear();
    mOuter.assign(mPositions.size(), -1);
    for (int32 i = 0; i < n; ++i)
    {
        mNext.push_back(i + 1 < n ? i + 1 : 0);
        mPrevious.push_back(i > 0 ? i - 1 : n - 1);
    }
    fillBoxes();

    int32 left = n;
    int32 tried = 0;
    int32 corner = 0;
    Demand demand = Demand::EAR;
    while (left >= 3)
    {
        if (stop.load(std::memory_order_relaxed))
            return false;
        const int32 next = mNext[static_cast<size_t>(corner)];
        if (left == 3 || mayCut(corner, demand))
        {
            cutOff(corner);
            --left;
            tried = 0;
            demand = Demand::EAR;
        }
        else if (++tried >= left)
        {
            tried = 0;
            demand = static_cast<Demand>(static_cast<int>(demand) + 1);
        }
        corner = next;
        if (left == 2)
            break;
    }
    return true;
}

bool TriangleRescue::mayCut(int32 corner, Demand demand) const
{
    const int32 a = mPrevious[static_cast<size_t>(corner)];
    const int32 c = mNext[static_cast<size_t>(corner)];
    const int64 turn = orientation(a, corner, c);
    switch (demand)
    {
    case Demand::EAR:
        return turn > 0 && isEmpty(a, corner, c);
    case Demand::FLAT:
        return turn == 0;
    case Demand::LEFT_TURN:
        return turn > 0;
    case Demand::ANYTHING:
        break;
    }
    return true;
}

void TriangleRescue::Box::add(const Position& position)
{
    mMinX = std::min(mMinX, position.mX);
    mMinY = std::min(mMinY, position.mY);
    mMaxX = std::max(mMaxX, position.mX);
    mMaxY = std::max(mMaxY, position.mY);
}

void TriangleRescue::fillBoxes()
{
    const size_t n = mPositions.size();
    const size_t numRuns = (n + RUN - 1) / RUN;
    mLeft.assign(numRuns, ~uint64{0});
    if (n % RUN != 0)
        mLeft.back() = ~uint64{0} >> (RUN - n % RUN);
    mRunBoxes.assign(numRuns, Box());
    mGroupBoxes.assign((numRuns + RUN - 1) / RUN, Box());
    for (int32 corner = 0; corner < static_cast<int32>(n); ++corner)
    {
        addToBoxes(corner, at(corner));
        addToBoxes(corner, at(mNext[static_cast<size_t>(corner)]));
    }
}

/// Where the edge that begins at a corner ends, or the corner itself. Boxes never shrink.
void TriangleRescue::addToBoxes(int32 corner, const Position& position)
{
    mRunBoxes[static_cast<size_t>(corner) / RUN].add(position);
    mGroupBoxes[static_cast<size_t>(corner) / RUN / RUN].add(position);
}

/// Whether no edge of what is left passes through the inside of a triangle.
bool TriangleRescue::isEmpty(int32 a, int32 b, int32 c) const
{
    Box box;
    for (const int32 corner : {a, b, c})
        box.add(at(corner));
    for (size_t group = 0; group < mGroupBoxes.size(); ++group)
    {
        if (!mGroupBoxes[group].overlaps(box))
            continue;
        for (size_t run = group * RUN; run < std::min((group + 1) * RUN, mRunBoxes.size()); ++run)
        {
            if (!mRunBoxes[run].overlaps(box))
                continue;
            for (uint64 left = mLeft[run]; left != 0; left &= left - 1)
            {
                const int32 u = static_cast<int32>(run * RUN) + std::countr_zero(left);
                if (u != a && u != b && passesThrough(u, a, b, c))
                    return false;
            }
        }
    }
    return true;
}

/// Whether the edge that begins at a corner passes through the inside of a triangle. A segment and a convex shape are
/// apart when a line along one of their sides has one on each side.
bool TriangleRescue::passesThrough(int32 u, int32 a, int32 b, int32 c) const
{
    const int32 v = mNext[static_cast<size_t>(u)];
    if (std::max(orientation(a, b, u), orientation(a, b, v)) <= 0 ||
        std::max(orientation(b, c, u), orientation(b, c, v)) <= 0 ||
        std::max(orientation(c, a, u), orientation(c, a, v)) <= 0)
        return false;
    const auto [low, high] = std::minmax({orientation(u, v, a), orientation(u, v, b), orientation(u, v, c)});
    return (low < 0 && high > 0) || (at(u).mX == at(v).mX && at(u).mY == at(v).mY);
}

void TriangleRescue::cutOff(int32 corner)
{
    const int32 a = mPrevious[static_cast<size_t>(corner)];
    const int32 c = mNext[static_cast<size_t>(corner)];
    const int32 first = static_cast<int32>(mSides.size());
    const int32 origins[3] = {a, corner, c};
    const bool last = mNext[static_cast<size_t>(c)] == a;
    for (int32 s = 0; s < 3; ++s)
    {
        const bool onRing = s < 2 || last;
        const int32 twin = onRing ? mOuter[static_cast<size_t>(origins[s])] : -1;
        mSides.push_back({origins[s], first + (s + 1) % 3, first + (s + 2) % 3, twin});
        if (twin >= 0)
            mSides[static_cast<size_t>(twin)].mTwin = first + s;
        else if (onRing && origins[s] == static_cast<int32>(mPositions.size()) - 1)
            mClosingSide = first + s;
    }
    mOuter[static_cast<size_t>(a)] = first + 2;
    mNext[static_cast<size_t>(a)] = c;
    mPrevious[static_cast<size_t>(c)] = a;
    mLeft[static_cast<size_t>(corner) / RUN] &= ~(uint64{1} << (static_cast<size_t>(corner) % RUN));
    addToBoxes(a, at(c));
}

void TriangleRescue::mergeTriangles()
{
    struct Diagonal
    {
        int64 mLength; // squared
        int32 mSide;
    };
    Vector<Diagonal> diagonals(mSides.get_allocator());
    for (int32 id = 0; id < static_cast<int32>(mSides.size()); ++id)
    {
        if (side(id).mTwin <= id)
            continue;
        const Position& p = at(side(id).mOrigin);
        const Position& q = at(destination(id));
        diagonals.push_back({(p.mX - q.mX) * (p.mX - q.mX) + (p.mY - q.mY) * (p.mY - q.mY), id});
    }
    std::sort(diagonals.begin(), diagonals.end(),
              [](const Diagonal& a, const Diagonal& b)
              { return a.mLength != b.mLength ? a.mLength > b.mLength : a.mSide < b.mSide; });
    for (const Diagonal& diagonal : diagonals)
    {
        if (mayMerge(diagonal.mSide))
            merge(diagonal.mSide);
    }
}

bool TriangleRescue::mayMerge(int32 id) const
{
    const int32 twin = side(id).mTwin;
    const int32 u = side(id).mOrigin;
    const int32 v = side(twin).mOrigin;
    return isProper(side(side(id).mPrevious).mOrigin, u, destination(side(twin).mNext)) &&
           isProper(side(side(twin).mPrevious).mOrigin, v, destination(side(id).mNext)) && hasProperTip(id) &&
           hasProperTip(twin);
}

/// Whether a corner turns left or goes straight on, and not back.
bool TriangleRescue::isProper(int32 a, int32 b, int32 c) const
{
    const int64 turn = orientation(a, b, c);
    const int64 ahead = (at(b).mX - at(a).mX) * (at(c).mX - at(b).mX) + (at(b).mY - at(a).mY) * (at(c).mY - at(b).mY);
    return turn > 0 || (turn == 0 && ahead > 0);
}

/// A triangle without area may only be merged across its longest side, where its tip is a straight corner.
bool TriangleRescue::hasProperTip(int32 id) const
{
    const int32 next = side(id).mNext;
    const int32 tip = side(next).mNext;
    return side(tip).mNext != id || isProper(side(next).mOrigin, side(tip).mOrigin, side(id).mOrigin);
}

void TriangleRescue::merge(int32 id)
{
    const HalfEdge here = side(id);
    const HalfEdge there = side(here.mTwin);
    mSides[static_cast<size_t>(here.mPrevious)].mNext = there.mNext;
    mSides[static_cast<size_t>(there.mNext)].mPrevious = here.mPrevious;
    mSides[static_cast<size_t>(there.mPrevious)].mNext = here.mNext;
    mSides[static_cast<size_t>(here.mNext)].mPrevious = there.mPrevious;
}

/// Writes the pieces breadth first from the one at the outline's closing edge, each with its last side towards its
/// parent.
void TriangleRescue::writePieces(ConvexPieces& pieces) const
{
    struct Open
    {
        int32 mClosing;
        int32 mParent;
    };
    Vector<Open> queue(mSides.get_allocator());
    queue.push_back({mClosingSide, -1});
    for (size_t current = 0; current < queue.size(); ++current)
    {
        const Open open = queue[current];
        pieces.mStart.push_back(static_cast<uint32>(pieces.mCorners.size()));
        for (int32 id = side(open.mClosing).mPrevious; id != open.mClosing; id = side(id).mPrevious)
        {
            pieces.mCorners.push_back(destination(id));
            const int32 twin = side(id).mTwin;
            pieces.mNeighbours.push_back(twin >= 0 ? static_cast<int32>(queue.size()) : -1);
            if (twin >= 0)
                queue.push_back({twin, static_cast<int32>(current)});
        }
        pieces.mCorners.push_back(destination(open.mClosing));
        pieces.mNeighbours.push_back(open.mParent);
    }
}
} // namespace KORV::NavMesh
