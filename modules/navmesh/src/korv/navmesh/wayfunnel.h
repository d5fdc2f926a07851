#pragma once

#include "korv/navmesh/types.h"

#include <algorithm>

namespace KORV::NavMesh
{
/// The shortest line through a corridor of the plane, whose borders are given corner by corner.
///
/// Idea: the shortest lines from the last bend to the two ends of the corridor known so far form a funnel: two chains
/// of corners that start at the same apex and bend away from each other. A new corner of the left border takes away
/// the end of the left chain as long as the line past it would be shorter; when nothing is left of that chain and the
/// corner lies beyond the right chain, the line is known up to there: the apex moves along the right chain.
///
/// Invariants: a corner enters a chain once and leaves it once, so the cost is linear, and nothing is looked at twice
/// as with a restart from the new apex. Corners closer together than the tolerance count as one: which side of a line
/// they lie on would be up to rounding.
///
/// Source: B. Chazelle, "A theorem on polygon cutting with applications", FOCS 1982; D. T. Lee, F. P. Preparata,
/// "Euclidean shortest paths in the presence of rectilinear barriers", Networks 14, 1984. The chains are kept apart,
/// where the papers have one deque.
class WayFunnel
{
public:
    enum Border : uint32
    {
        LEFT,
        RIGHT
    };

    struct Corner
    {
        Vec2<double> mPlace;
        uint32 mSource = 0; ///< what the caller knows it by
    };

    explicit WayFunnel(Common::Memory::Allocator* allocator)
        : mChains{Chain(allocator), Chain(allocator)}, mLine(allocator)
    {
    }

    /// @param tolerance  corners closer together count as one. [unit of the places]
    void begin(const Corner& start, double tolerance)
    {
        mChains[LEFT].clear();
        mChains[RIGHT].clear();
        mLine.clear();
        mApex = start;
        mSquaredTolerance = tolerance * tolerance;
        mLine.push_back(start);
    }

    /// The next corner of one of the borders.
    void add(Border border, const Corner& corner)
    {
        Chain& chain = mChains[border];
        if (isSame(end(chain), corner))
            return;
        shorten(chain, border, corner);
        if (chain.isEmpty())
            moveApex(mChains[1 - border], border, corner);
        if (!isSame(end(chain), corner))
            chain.mCorners.push_back(corner);
    }

    /// To be called when a portal is complete. Where the two chains start in one line, the apex moves up to the nearer
    /// of their corners: a corner that lies back along that line would else tell nothing about the side it turns to.
    void close()
    {
        Chain& left = mChains[LEFT];
        Chain& right = mChains[RIGHT];
        while (!left.isEmpty() && !right.isEmpty())
        {
            const Vec2<double> toLeft = left.front().mPlace - mApex.mPlace;
            const Vec2<double> toRight = right.front().mPlace - mApex.mPlace;
            const double leftSquared = dot(toLeft, toLeft);
            const double rightSquared = dot(toRight, toRight);
            const double width = cross(toLeft, toRight);
            if (width * width > mSquaredTolerance * std::max(leftSquared, rightSquared) || dot(toLeft, toRight) < 0.0)
                return;
            Chain& nearer = leftSquared <= rightSquared ? left : right;
            Chain& farther = leftSquared <= rightSquared ? right : left;
            mApex = nearer.front();
            mLine.push_back(mApex);
            ++nearer.mBegin;
            if (isSame(mApex, farther.front()))
                ++farther.mBegin;
        }
    }

    /// @return the line from start to end, both included. Valid until the next begin.
    Vector<Corner>& finish(const Corner& end)
    {
        Chain& chain = mChains[LEFT];
        shorten(chain, LEFT, end);
        if (chain.isEmpty())
            moveApex(mChains[RIGHT], LEFT, end);
        mLine.insert(mLine.end(), chain.mCorners.begin() + static_cast<ptrdiff_t>(chain.mBegin), chain.mCorners.end());
        mLine.push_back(end);
        return mLine;
    }

private:
    /// The corners after the apex; those before mBegin have been passed.
    struct Chain
    {
        explicit Chain(Common::Memory::Allocator* allocator) : mCorners(allocator) {}

        bool isEmpty() const { return mBegin == mCorners.size(); }
        const Corner& front() const { return mCorners[mBegin]; }
        void clear()
        {
            mCorners.clear();
            mBegin = 0;
        }

        Vector<Corner> mCorners;
        size_t mBegin = 0;
    };

    const Corner& end(const Chain& chain) const { return chain.isEmpty() ? mApex : chain.mCorners.back(); }

    bool isSame(const Corner& a, const Corner& b) const
    {
        const Vec2<double> offset = b.mPlace - a.mPlace;
        return dot(offset, offset) <= mSquaredTolerance;
    }

    /// How far the line from a over b to c turns towards a border. [twice the area of the triangle]
    static double turn(Border border, const Corner& a, const Corner& b, const Corner& c)
    {
        const double left = cross(b.mPlace - a.mPlace, c.mPlace - b.mPlace);
        return border == LEFT ? left : -left;
    }

    /// Whether a corner lies on the far side of the line from the apex to another one, by more than the tolerance: what
    /// lies on the line is left to close(), which knows the order along it.
    bool isBeyond(Border border, const Corner& other, const Corner& corner) const
    {
        const double area = turn(border, mApex, other, corner);
        const Vec2<double> line = other.mPlace - mApex.mPlace;
        return area < 0.0 && area * area > mSquaredTolerance * dot(line, line);
    }

    /// Takes away the corners that a line to the new one need not go around.
    void shorten(Chain& chain, Border border, const Corner& corner) const
    {
        while (!chain.isEmpty())
        {
            const size_t count = chain.mCorners.size();
            const Corner& before = count - 1 > chain.mBegin ? chain.mCorners[count - 2] : mApex;
            if (turn(border, before, chain.mCorners.back(), corner) > 0.0)
                return;
            chain.mCorners.pop_back();
        }
    }

    /// Passes the corners of the other chain that a line to the new one has to go around.
    void moveApex(Chain& other, Border border, const Corner& corner)
    {
        while (!other.isEmpty() && isBeyond(border, other.front(), corner))
        {
            mApex = other.mCorners[other.mBegin++];
            mLine.push_back(mApex);
        }
        if (other.isEmpty())
            other.clear();
        mChains[border].clear();
    }

    Chain mChains[2];
    Vector<Corner> mLine; ///< from the start to the apex
    Corner mApex;
    double mSquaredTolerance = 0.0;
};
} // namespace KORV::NavMesh
