// Ear clipping in exact arithmetic, then merging across the longest diagonals first.
//
// Why it is sound: each ear that is cut off has positive area, and outline = ear + rest holds as chains of edges. So the
// ears' windings add up to that of the outline, which is 1 inside and 0 outside: they cover the inside once, also where
// the outline touches itself along bridges and in corners.
//
// Corners of outlines lie on a grid of half cubes, so they are integers in that unit. Other input is put on a finer grid.
//
// Source of the merge: S. Hertel, K. Mehlhorn, "Fast Triangulation of Simple Polygons", FCT 1983.

#include "korv/navmesh/trianglerescue.h"

#include <algorithm>
#include <cmath>

namespace KORV::NavMesh
{
namespace
{
constexpr float HALF_CUBES = 2.0f;
constexpr float FINE_UNITS = 1024.0f;
constexpr float GRID_NOISE = 0.1f;

using Point = Vec2<int64>;

int64 orientation(const Point& a, const Point& b, const Point& c)
{
    return cross(b - a, c - a);
}

bool isOnHalfCubes(const Vector<Vec2<float>>& polygon)
{
    return std::all_of(polygon.begin(), polygon.end(), [](const Vec2<float>& p) {
        const Vec2<float> q = p * HALF_CUBES;
        return std::fabs(q.mX - std::round(q.mX)) < GRID_NOISE && std::fabs(q.mY - std::round(q.mY)) < GRID_NOISE;
    });
}

/// Cuts ears off a ring of corners, counter-clockwise.
class EarClipper
{
public:
    EarClipper(const Vector<Vec2<float>>& polygon, Common::Memory::Allocator* allocator)
        : mPoints(allocator), mNext(polygon.size(), 0, allocator), mPrevious(polygon.size(), 0, allocator),
          mLeft(static_cast<int32>(polygon.size()))
    {
        const float scale = isOnHalfCubes(polygon) ? HALF_CUBES : FINE_UNITS;
        mPoints.reserve(polygon.size());
        for (const Vec2<float>& p : polygon)
            mPoints.push_back({std::llround(p.mX * scale), std::llround(p.mY * scale)});
        for (int32 corner = 0; corner < mLeft; ++corner) // the outline runs clockwise, the ring the other way
        {
            mNext[static_cast<size_t>(corner)] = (corner + mLeft - 1) % mLeft;
            mPrevious[static_cast<size_t>(corner)] = (corner + 1) % mLeft;
        }
    }

    /// Appends the triangles' corners.
    void clip(Vector<int32>& triangles)
    {
        int32 corner = 0;
        bool strict = true;
        for (int32 tries = 0; mLeft >= 3;)
        {
            if (isEar(corner, strict))
            {
                triangles.insert(triangles.end(), {previous(corner), corner, next(corner)});
                corner = remove(corner);
                tries = 0;
                strict = true;
                continue;
            }
            corner = next(corner);
            if (++tries <= mLeft)
                continue;
            if (!strict)
                return; // what is left has no area
            strict = false;
            tries = 0;
        }
    }

    const Vector<Point>& getPoints() const { return mPoints; }

private:
    int32 next(int32 corner) const { return mNext[static_cast<size_t>(corner)]; }
    int32 previous(int32 corner) const { return mPrevious[static_cast<size_t>(corner)]; }
    const Point& point(int32 corner) const { return mPoints[static_cast<size_t>(corner)]; }

    int32 remove(int32 corner)
    {
        mNext[static_cast<size_t>(previous(corner))] = next(corner);
        mPrevious[static_cast<size_t>(next(corner))] = previous(corner);
        --mLeft;
        return next(corner);
    }

    /// Whether a corner can be cut off. Without @p strict any positive area will do: the ring touches itself there.
    bool isEar(int32 corner, bool strict) const
    {
        const int32 before = previous(corner);
        const int32 after = next(corner);
        const Point* const triangle[3] = {&point(before), &point(corner), &point(after)};
        if (orientation(*triangle[0], *triangle[1], *triangle[2]) <= 0)
            return false;
        if (!strict)
            return true;
        for (int32 other = next(after); other != before; other = next(other))
        {
            if (blocks(other, triangle))
                return false;
        }
        return true;
    }

    /// Whether the ring enters the triangle at a corner that is none of the triangle's own.
    bool blocks(int32 other, const Point* const (&triangle)[3]) const
    {
        const Point& p = point(other);
        for (int side = 0; side < 3; ++side)
        {
            if (orientation(*triangle[side], *triangle[(side + 1) % 3], p) < 0)
                return false;
        }
        for (int at = 0; at < 3; ++at)
        {
            if (p == *triangle[at])
                return entersAt(at, point(next(other)), triangle) || entersAt(at, point(previous(other)), triangle);
        }
        return true;
    }

    /// Whether a line from a corner of the triangle to @p target runs inside it.
    static bool entersAt(int at, const Point& target, const Point* const (&triangle)[3])
    {
        return orientation(*triangle[at], *triangle[(at + 1) % 3], target) > 0 &&
               orientation(*triangle[(at + 2) % 3], *triangle[at], target) > 0;
    }

    Vector<Point> mPoints;
    Vector<int32> mNext;
    Vector<int32> mPrevious;
    int32 mLeft;
};

/// Pieces as rings of half edges, merged across diagonals.
class PieceMerger
{
public:
    PieceMerger(const Vector<int32>& triangles, const Vector<Point>& points, Common::Memory::Allocator* allocator)
        : mPoints(points), mEdges(allocator), mAllocator(allocator)
    {
        mEdges.reserve(triangles.size());
        for (int32 edge = 0; edge < static_cast<int32>(triangles.size()); ++edge)
        {
            const int32 first = edge - edge % 3;
            const int32 next = first + (edge - first + 1) % 3;
            const int32 previous = first + (edge - first + 2) % 3;
            mEdges.push_back({triangles[static_cast<size_t>(edge)], next, previous, NONE, NONE});
        }
        findTwins();
    }

    void merge()
    {
        Vector<int32> diagonals(mAllocator);
        for (int32 edge = 0; edge < count(); ++edge)
        {
            if (at(edge).mTwin > edge)
                diagonals.push_back(edge);
        }
        std::sort(diagonals.begin(), diagonals.end(), [this](int32 a, int32 b) {
            const int64 lengthA = squaredLength(a);
            const int64 lengthB = squaredLength(b);
            return lengthA != lengthB ? lengthA > lengthB : a < b;
        });
        for (const int32 edge : diagonals)
        {
            if (staysConvex(edge) && staysConvex(at(edge).mTwin))
                unlink(edge);
        }
    }

    void write(PieceList& pieces)
    {
        int32 numPieces = 0;
        for (int32 edge = 0; edge < count(); ++edge)
        {
            if (at(edge).mNext == NONE || at(edge).mPiece != NONE)
                continue;
            for (int32 e = edge; at(e).mPiece == NONE; e = at(e).mNext)
                at(e).mPiece = numPieces;
            ++numPieces;
        }
        int32 piece = 0;
        for (int32 edge = 0; edge < count(); ++edge)
        {
            if (at(edge).mPiece != piece)
                continue;
            int32 e = edge;
            do
            {
                pieces.mCorners.push_back(at(e).mCorner);
                pieces.mNeighbours.push_back(at(e).mTwin != NONE ? at(at(e).mTwin).mPiece : -1);
                e = at(e).mNext;
            } while (e != edge);
            pieces.mEnds.push_back(static_cast<uint32>(pieces.mCorners.size()));
            ++piece;
        }
    }

private:
    static constexpr int32 NONE = -1;

    struct HalfEdge
    {
        int32 mCorner; // where it starts
        int32 mNext;   // NONE once it is merged away
        int32 mPrevious;
        int32 mTwin;
        int32 mPiece;
    };

    HalfEdge& at(int32 edge) { return mEdges[static_cast<size_t>(edge)]; }
    int32 count() const { return static_cast<int32>(mEdges.size()); }
    const Point& start(int32 edge) { return mPoints[static_cast<size_t>(at(edge).mCorner)]; }
    const Point& end(int32 edge) { return start(at(edge).mNext); }

    int64 squaredLength(int32 edge)
    {
        const Point along = end(edge) - start(edge);
        return dot(along, along);
    }

    void findTwins()
    {
        struct Key
        {
            int32 mLow;
            int32 mHigh;
            int32 mEdge;
        };
        Vector<Key> keys(mAllocator);
        for (int32 edge = 0; edge < count(); ++edge)
        {
            const int32 a = at(edge).mCorner;
            const int32 b = at(at(edge).mNext).mCorner;
            keys.push_back({std::min(a, b), std::max(a, b), edge});
        }
        std::sort(keys.begin(), keys.end(), [](const Key& a, const Key& b) {
            return a.mLow != b.mLow ? a.mLow < b.mLow : a.mHigh != b.mHigh ? a.mHigh < b.mHigh : a.mEdge < b.mEdge;
        });
        for (size_t i = 0; i + 1 < keys.size(); ++i)
        {
            if (keys[i].mLow != keys[i + 1].mLow || keys[i].mHigh != keys[i + 1].mHigh)
                continue;
            at(keys[i].mEdge).mTwin = keys[i + 1].mEdge;
            at(keys[i + 1].mEdge).mTwin = keys[i].mEdge;
            ++i;
        }
    }

    /// Whether the corner where a diagonal starts is convex without it.
    bool staysConvex(int32 edge)
    {
        const Point& corner = start(edge);
        const Point in = corner - start(at(edge).mPrevious);
        const Point out = end(at(at(edge).mTwin).mNext) - corner;
        const int64 turn = cross(in, out);
        return turn > 0 || (turn == 0 && dot(in, out) > 0);
    }

    void unlink(int32 edge)
    {
        const int32 twin = at(edge).mTwin;
        const auto join = [this](int32 a, int32 b) {
            at(a).mNext = b;
            at(b).mPrevious = a;
        };
        join(at(edge).mPrevious, at(twin).mNext);
        join(at(twin).mPrevious, at(edge).mNext);
        at(edge).mNext = NONE;
        at(twin).mNext = NONE;
    }

    const Vector<Point>& mPoints;
    Vector<HalfEdge> mEdges;
    Common::Memory::Allocator* mAllocator;
};
} // namespace

void cutIntoTriangles(PieceList& pieces, const Vector<Vec2<float>>& polygon, Common::Memory::Allocator* allocator)
{
    pieces.clear();
    EarClipper clipper(polygon, allocator);
    Vector<int32> triangles(allocator);
    clipper.clip(triangles);
    PieceMerger merger(triangles, clipper.getPoints(), allocator);
    merger.merge();
    merger.write(pieces);
}
} // namespace KORV::NavMesh
