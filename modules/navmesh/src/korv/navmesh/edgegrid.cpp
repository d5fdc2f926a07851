#include "korv/navmesh/edgegrid.h"

#include "korv/common/geom/intersect/lineintersect.h"

#include <algorithm>
#include <cmath>
#include <limits>

// The nearest hit depends on the order of the edges: hits within a tolerance of the best one so far compete by their
// midpoints, but do not move the distance that later ones are compared with. So a ray walks its cells and gathers hits;
// those that can have taken part in that competition, the cluster of hits around the nearest, are then replayed in the
// order of the edges. A hit beyond a gap of more than the tolerance takes no part: it is thrown out by the first hit
// before the gap, or never let in.

namespace KORV::NavMesh
{
using Common::Geom::Intersect::LineRay;

namespace
{
constexpr float NO_HIT = std::numeric_limits<float>::max();
constexpr float TIE = 0.0001f;
/// Hits farther behind the nearest are not kept; a chain of ties that long is left to the look at all edges.
constexpr float MAX_CLUSTER = 100.0f * TIE;
/// Below this many edges a look at all of them is faster than the walk.
constexpr int32 MIN_EDGES = 48;
/// LineRay lets a ray pass an edge's end by 0.0001 of its length; the cells cover a little more.
constexpr double END_SLACK = 0.0002;
constexpr int32 MAX_CELLS_ACROSS = 512;
/// On the average; long edges lie in more.
constexpr double MAX_CELLS_PER_EDGE = 32.0;

/// Whether a ray passes an edge from left to right, and where.
template <class Edge>
bool meetEdge(float& distance, const Edge& edge, const Vec2<float>& origin, const Vec2<float>& dir)
{
    return cross(dir, edge.mB - edge.mA) < 0.0f && LineRay(distance, origin, dir, edge.mA, edge.mB);
}
} // namespace

EdgeGrid::EdgeGrid(const Vector<Vec2<float>>& polygon, Common::Memory::Allocator* allocator)
    : mPolygon(polygon), mN(static_cast<int32>(polygon.size())), mCellStart(allocator), mCellEdges(allocator),
      mHits(allocator)
{
    if (mN >= MIN_EDGES)
        buildCells();
}

void EdgeGrid::buildCells()
{
    double maxX = mPolygon[0].mX;
    double maxY = mPolygon[0].mY;
    mMinX = maxX;
    mMinY = maxY;
    for (const Vec2<float>& point : mPolygon)
    {
        if (!std::isfinite(point.mX) || !std::isfinite(point.mY))
            return;
        mMinX = std::min<double>(mMinX, point.mX);
        mMinY = std::min<double>(mMinY, point.mY);
        maxX = std::max<double>(maxX, point.mX);
        maxY = std::max<double>(maxY, point.mY);
    }
    const double reach = std::max({std::fabs(mMinX), std::fabs(maxX), std::fabs(mMinY), std::fabs(maxY)});
    mNoise = 1e-6 * reach + 1e-6;
    // hits beyond an edge's end may lie outside the outline's box
    const double pad = 2.0 * mNoise + END_SLACK * (maxX - mMinX + maxY - mMinY);
    mMinX -= pad;
    mMinY -= pad;
    const double width = maxX + pad - mMinX;
    const double height = maxY + pad - mMinY;
    mCellSize = std::max({balancedCellSize(width * height), std::max(width, height) / MAX_CELLS_ACROSS, 16.0 * mNoise});
    mCellsPerUnit = 1.0 / mCellSize;
    mColumns = static_cast<int32>(width / mCellSize) + 1;
    mRows = static_cast<int32>(height / mCellSize) + 1;

    mCellStart.assign(static_cast<size_t>(mColumns) * static_cast<size_t>(mRows) + 1, 0);
    for (int32 edge = 0; edge < mN; ++edge)
        forEachCell(edge, [this](size_t cell) { ++mCellStart[cell + 1]; });
    for (size_t cell = 1; cell < mCellStart.size(); ++cell)
        mCellStart[cell] += mCellStart[cell - 1];
    mCellEdges.resize(mCellStart.back());
    Vector<uint32> next(mCellStart, mCellStart.get_allocator());
    for (int32 edge = 0; edge < mN; ++edge)
        forEachCell(edge, [this, &next, edge](size_t cell) { mCellEdges[next[cell]++] = edgeOf(edge); });
}

/// The size at which a cell meets about one edge, unless that takes too many entries.
double EdgeGrid::balancedCellSize(double area) const
{
    double length = 0.0;
    for (int32 edge = 0; edge < mN; ++edge)
    {
        const CellEdge ends = edgeOf(edge);
        // in double: the squares of huge outlines overflow
        length +=
            std::hypot(static_cast<double>(ends.mB.mX) - ends.mA.mX, static_cast<double>(ends.mB.mY) - ends.mA.mY);
    }
    // (length / size + N) entries in (area / size^2) cells
    const double n = mN;
    return std::max((std::sqrt(length * length + 4.0 * n * area) - length) / (2.0 * n),
                    length / (MAX_CELLS_PER_EDGE * n));
}

int32 EdgeGrid::column(double x) const
{
    return std::clamp(static_cast<int32>((x - mMinX) * mCellsPerUnit), 0, mColumns - 1);
}

int32 EdgeGrid::row(double y) const
{
    return std::clamp(static_cast<int32>((y - mMinY) * mCellsPerUnit), 0, mRows - 1);
}

template <class Visit>
void EdgeGrid::forEachCell(int32 edge, const Visit& visit) const
{
    const Vec2<float>& a = mPolygon[static_cast<size_t>(edge)];
    const Vec2<float>& b = mPolygon[static_cast<size_t>(edge + 1 < mN ? edge + 1 : 0)];
    const double dx = static_cast<double>(b.mX) - a.mX;
    const double dy = static_cast<double>(b.mY) - a.mY;
    const double slack = mNoise + END_SLACK * (std::fabs(dx) + std::fabs(dy));
    const double lowY = std::min(a.mY, b.mY) - slack;
    const double highY = std::max(a.mY, b.mY) + slack;
    const int32 lastRow = row(highY);
    for (int32 r = row(lowY); r <= lastRow; ++r)
    {
        // the part of the edge inside the row, as parameters of the edge
        double s0 = 0.0;
        double s1 = 1.0;
        if (std::fabs(dy) > mCellSize * 0.001)
        {
            const double bottom = (mMinY + r * mCellSize - slack - a.mY) / dy;
            const double top = (mMinY + (r + 1) * mCellSize + slack - a.mY) / dy;
            s0 = std::clamp(std::min(bottom, top), 0.0, 1.0);
            s1 = std::clamp(std::max(bottom, top), 0.0, 1.0);
        }
        const double x0 = a.mX + s0 * dx;
        const double x1 = a.mX + s1 * dx;
        const int32 lastColumn = column(std::max(x0, x1) + slack);
        for (int32 c = column(std::min(x0, x1) - slack); c <= lastColumn; ++c)
            visit(static_cast<size_t>(r) * static_cast<size_t>(mColumns) + static_cast<size_t>(c));
    }
}

EdgeGrid::CellEdge EdgeGrid::edgeOf(int32 edge) const
{
    return {mPolygon[static_cast<size_t>(edge)], mPolygon[static_cast<size_t>(edge + 1 < mN ? edge + 1 : 0)], edge};
}

float EdgeGrid::squaredMidpointDistance(int32 edge, int32 from) const
{
    const CellEdge ends = edgeOf(edge);
    const Vec2<float> offset = (ends.mA + ends.mB) * 0.5f - mPolygon[static_cast<size_t>(from)];
    return dot(offset, offset);
}

void EdgeGrid::take(Nearest& nearest, const Hit& hit, int32 from) const
{
    if (hit.mDistance > nearest.mDistance + TIE || hit.mDistance <= TIE)
        return;
    if (hit.mDistance <= nearest.mDistance - TIE)
        nearest = {hit.mDistance, hit.mEdge};
    else if (hit.mDistance < nearest.mDistance + TIE &&
             squaredMidpointDistance(hit.mEdge, from) < squaredMidpointDistance(nearest.mEdge, from))
        nearest.mEdge = hit.mEdge;
}

int32 EdgeGrid::findNearestEdgeOfAll(int32 from, const Vec2<float>& dir) const
{
    Nearest nearest{NO_HIT, -1};
    for (int32 edge = 0; edge < mN; ++edge)
    {
        float distance = 0.0f;
        if (meetEdge(distance, edgeOf(edge), mPolygon[static_cast<size_t>(from)], dir))
            take(nearest, {edge, distance}, from);
    }
    return nearest.mEdge;
}

int32 EdgeGrid::findNearestEdge(int32 from, const Vec2<float>& dir)
{
    if (mColumns == 0)
        return findNearestEdgeOfAll(from, dir);
    mHits.clear();
    mNearestHit = NO_HIT;

    const Vec2<float>& origin = mPolygon[static_cast<size_t>(from)];
    const double infinite = std::numeric_limits<double>::infinity();
    int32 c = column(origin.mX);
    int32 r = row(origin.mY);
    const int32 stepX = dir.mX >= 0.0f ? 1 : -1;
    const int32 stepY = dir.mY >= 0.0f ? 1 : -1;
    const double deltaX = dir.mX != 0.0f ? mCellSize / std::fabs(static_cast<double>(dir.mX)) : infinite;
    const double deltaY = dir.mY != 0.0f ? mCellSize / std::fabs(static_cast<double>(dir.mY)) : infinite;
    const double sideX = mMinX + (stepX > 0 ? c + 1 : c) * mCellSize;
    const double sideY = mMinY + (stepY > 0 ? r + 1 : r) * mCellSize;
    double nextX = dir.mX != 0.0f ? (sideX - origin.mX) / static_cast<double>(dir.mX) : infinite;
    double nextY = dir.mY != 0.0f ? (sideY - origin.mY) / static_cast<double>(dir.mY) : infinite;
    while (c >= 0 && c < mColumns && r >= 0 && r < mRows)
    {
        collectCell(static_cast<size_t>(r) * static_cast<size_t>(mColumns) + static_cast<size_t>(c), origin, dir);
        const double walked = std::min(nextX, nextY);
        // an edge that is nearly parallel to the ray can report a hit somewhat before the cells it lies in
        const double margin = 0.25 * mCellSize + 0.02 * walked;
        if (walked > mNearestHit + margin && walked > clusterEnd() + margin)
            break;
        if (nextX < nextY)
        {
            c += stepX;
            nextX += deltaX;
        }
        else
        {
            r += stepY;
            nextY += deltaY;
        }
    }
    return replay(from, dir);
}

void EdgeGrid::collectCell(size_t cell, const Vec2<float>& origin, const Vec2<float>& dir)
{
    const CellEdge* end = mCellEdges.data() + mCellStart[cell + 1];
    for (const CellEdge* edge = mCellEdges.data() + mCellStart[cell]; edge != end; ++edge)
    {
        float distance = 0.0f;
        if (!meetEdge(distance, *edge, origin, dir))
            continue;
        if (!(distance > TIE && distance <= mNearestHit + MAX_CLUSTER)) // nor one that is not a number
            continue;
        mHits.push_back({edge->mEdge, distance});
        mNearestHit = std::min(mNearestHit, distance);
    }
}

/// The farthest hit that no gap separates from the nearest one. Leaves the hits in the order of their distance.
float EdgeGrid::clusterEnd()
{
    if (mHits.size() <= 1)
        return mNearestHit;
    std::sort(mHits.begin(), mHits.end(), [](const Hit& a, const Hit& b) { return a.mDistance < b.mDistance; });
    float end = mNearestHit;
    for (const Hit& hit : mHits)
    {
        if (hit.mDistance > end + TIE && end <= hit.mDistance - TIE)
            break;
        end = hit.mDistance;
    }
    return end;
}

int32 EdgeGrid::replay(int32 from, const Vec2<float>& dir)
{
    if (mHits.size() <= 1)
        return mHits.empty() ? -1 : mHits[0].mEdge;
    const float end = clusterEnd();
    if (end > mNearestHit + 0.5f * MAX_CLUSTER)
        return findNearestEdgeOfAll(from, dir);
    std::sort(mHits.begin(), mHits.end(), [](const Hit& a, const Hit& b) { return a.mEdge < b.mEdge; });
    Nearest nearest{NO_HIT, -1};
    for (const Hit& hit : mHits)
    {
        if (hit.mDistance <= end)
            take(nearest, hit, from);
    }
    return nearest.mEdge;
}
} // namespace KORV::NavMesh
