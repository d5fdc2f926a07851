#include "korv/navmesh/pieces/flatpieces.h"

#include <algorithm>

// Pieces are rings of sides. To merge two across a chord, its two sides leave the rings, which then are one. Chords
// join the pieces to a tree, so no piece meets another across two of them.

namespace KORV::NavMesh
{
namespace
{
constexpr int32 NONE = -1;

class FlatPieceMerger
{
public:
    FlatPieceMerger(ConvexPieces& pieces, const Vector<Vec2<float>>& points, double flatness)
        : mPieces(pieces), mPoints(points), mFlatness(flatness), mNext(pieces.mStart.get_allocator()),
          mPrevious(pieces.mStart.get_allocator()), mFirst(pieces.mStart.get_allocator()),
          mBecame(pieces.mStart.get_allocator())
    {
    }

    bool hasFlat() const
    {
        for (size_t piece = 0; piece < mPieces.size(); ++piece)
        {
            if (isFlat(piece))
                return true;
        }
        return false;
    }

    void run()
    {
        link();
        for (size_t piece = 0; piece < mPieces.size(); ++piece)
        {
            if (isFlat(piece))
                remove(static_cast<int32>(piece));
        }
        write();
    }

private:
    Vec2<double> sideOf(int32 from, int32 to) const
    {
        const Vec2<float>& a = mPoints[static_cast<size_t>(from)];
        const Vec2<float>& b = mPoints[static_cast<size_t>(to)];
        return {static_cast<double>(b.mX) - static_cast<double>(a.mX),
                static_cast<double>(b.mY) - static_cast<double>(a.mY)};
    }

    bool isFlat(size_t piece) const
    {
        const size_t begin = mPieces.begin(piece);
        const size_t end = mPieces.end(piece);
        const int32* corners = mPieces.mCorners.data();
        double area = 0.0;
        double longestSquare = 0.0;
        for (size_t at = begin; at < end; ++at)
        {
            const int32 next = corners[at + 1 < end ? at + 1 : begin];
            const Vec2<double> side = sideOf(corners[at], next);
            area += 0.5 * cross(sideOf(corners[begin], corners[at]), sideOf(corners[begin], next));
            longestSquare = std::max(longestSquare, dot(side, side));
        }
        return area <= 0.0 || area * area <= mFlatness * mFlatness * longestSquare;
    }

    void link()
    {
        for (size_t piece = 0; piece < mPieces.size(); ++piece)
        {
            const int32 begin = static_cast<int32>(mPieces.begin(piece));
            const int32 end = static_cast<int32>(mPieces.end(piece));
            mFirst.push_back(begin);
            mBecame.push_back(static_cast<int32>(piece));
            for (int32 side = begin; side < end; ++side)
            {
                mNext.push_back(side + 1 < end ? side + 1 : begin);
                mPrevious.push_back(side > begin ? side - 1 : end - 1);
            }
        }
    }

    int32 corner(int32 side) const { return mPieces.mCorners[static_cast<size_t>(side)]; }
    int32 next(int32 side) const { return mNext[static_cast<size_t>(side)]; }
    int32& neighbour(int32 side) { return mPieces.mNeighbours[static_cast<size_t>(side)]; }

    /// The piece that a piece is part of now; NONE when it has been left out.
    int32 resolve(int32 piece) const
    {
        while (piece != NONE && mBecame[static_cast<size_t>(piece)] != piece)
            piece = mBecame[static_cast<size_t>(piece)];
        return piece;
    }

    double length(int32 side) const { return sideOf(corner(side), corner(next(side))).getLength(); }

    /// Takes a flat piece out, with all that has been merged into it so far.
    void remove(int32 piece)
    {
        piece = resolve(piece);
        if (piece == NONE || !isRingFlat(piece))
            return;
        const int32 first = mFirst[static_cast<size_t>(piece)];
        int32 longest = first;
        for (int32 side = next(first); side != first; side = next(side))
        {
            // on equal terms a chord, so that nothing is left open
            const double more = length(side) - length(longest);
            if (more > mFlatness || (more > -mFlatness && neighbour(longest) == NONE && neighbour(side) != NONE))
                longest = side;
        }
        const int32 other = resolve(neighbour(longest));
        const int32 twin = other != NONE ? findTwin(other, longest) : NONE;
        mBecame[static_cast<size_t>(piece)] = twin != NONE ? other : NONE;
        if (twin != NONE)
            merge(longest, twin, other);
    }

    bool isRingFlat(int32 piece) const
    {
        const int32 first = mFirst[static_cast<size_t>(piece)];
        double area = 0.0;
        double longest = 0.0;
        int32 side = first;
        do
        {
            area += 0.5 * cross(sideOf(corner(first), corner(side)), sideOf(corner(first), corner(next(side))));
            longest = std::max(longest, length(side));
            side = next(side);
        } while (side != first);
        return area <= mFlatness * longest;
    }

    int32 findTwin(int32 piece, int32 side) const
    {
        const int32 first = mFirst[static_cast<size_t>(piece)];
        int32 twin = first;
        do
        {
            if (corner(twin) == corner(next(side)) && corner(next(twin)) == corner(side))
                return twin;
            twin = next(twin);
        } while (twin != first);
        return NONE;
    }

    void merge(int32 side, int32 twin, int32 into)
    {
        const int32 before = mPrevious[static_cast<size_t>(side)];
        const int32 behind = next(side);
        const int32 twinBefore = mPrevious[static_cast<size_t>(twin)];
        const int32 twinBehind = next(twin);
        join(before, twinBehind);
        join(twinBefore, behind);
        mFirst[static_cast<size_t>(into)] = behind;
    }

    void join(int32 side, int32 following)
    {
        mNext[static_cast<size_t>(side)] = following;
        mPrevious[static_cast<size_t>(following)] = side;
    }

    void write()
    {
        Vector<int32> ids(mBecame.size(), NONE, mBecame.get_allocator());
        int32 numPieces = 0;
        for (size_t piece = 0; piece < ids.size(); ++piece)
        {
            if (mBecame[piece] == static_cast<int32>(piece))
                ids[piece] = numPieces++;
        }
        ConvexPieces result(mBecame.get_allocator().getAllocator());
        for (size_t piece = 0; piece < ids.size(); ++piece)
        {
            if (ids[piece] == NONE)
                continue;
            result.mStart.push_back(static_cast<uint32>(result.mCorners.size()));
            const int32 first = mFirst[piece];
            int32 side = first;
            do
            {
                const int32 other = resolve(neighbour(side));
                result.mCorners.push_back(corner(side));
                result.mNeighbours.push_back(other != NONE ? ids[static_cast<size_t>(other)] : NONE);
                side = next(side);
            } while (side != first);
        }
        mPieces = std::move(result);
    }

    ConvexPieces& mPieces;
    const Vector<Vec2<float>>& mPoints;
    double mFlatness;
    Vector<int32> mNext; // of each side, in its ring
    Vector<int32> mPrevious;
    Vector<int32> mFirst;  // a side of each piece
    Vector<int32> mBecame; // the piece that each has been merged into: itself, NONE when left out
};
} // namespace

void mergeFlatPieces(ConvexPieces& pieces, const Vector<Vec2<float>>& points, double flatness)
{
    FlatPieceMerger merger(pieces, points, flatness);
    if (merger.hasFlat())
        merger.run();
}
} // namespace KORV::NavMesh
