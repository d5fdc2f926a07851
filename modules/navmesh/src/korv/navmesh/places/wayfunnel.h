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
/// A chain starts with a copy of the apex, so that every corner has one before it.
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
        mChains[LEFT].restart(start);
        mChains[RIGHT].restart(start);
        mLine.clear();
        mLine.push_back(start);
        mSquaredTolerance = tolerance * tolerance;
        mIsFrontNew = false;
    }

    /// The next corner of one of the borders. Always inline: the call would cost a tenth of a way.
    template <Border BORDER>
    [[gnu::always_inline]] void add(const Vec2<double>& place, uint32 source)
    {
        Chain& chain = mChains[BORDER];
        const Corner* const end = chain.mEnd;
        Vec2<double> offset = place - end[-1].mPlace;
        if (isNothing(offset))
            return;
        shorten<BORDER>(chain, place, offset);
        if (chain.isEmpty())
        {
            mIsFrontNew = true;
            if (isPastOther<BORDER>(place))
            {
                moveApex<BORDER>(place);
                offset = place - chain.apex().mPlace;
            }
        }
        if (chain.mEnd != end && isNothing(offset))
            return;
        chain.push({place, source});
    }

    /// To be called when a portal is complete. Where the two chains start in one line, the apex moves up to the nearer
    /// of their corners: a corner that lies back along that line would else tell nothing about the side it turns to.
    void close()
    {
        if (!mIsFrontNew) // else nothing has changed since the last time
            return;
        mIsFrontNew = false;
        Chain& left = mChains[LEFT];
        Chain& right = mChains[RIGHT];
        while (!left.isEmpty() && !right.isEmpty())
        {
            const Vec2<double> toLeft = left.front().mPlace - left.apex().mPlace;
            const Vec2<double> toRight = right.front().mPlace - left.apex().mPlace;
            const double leftSquared = dot(toLeft, toLeft);
            const double rightSquared = dot(toRight, toRight);
            const double width = cross(toLeft, toRight);
            if (width * width > mSquaredTolerance * std::max(leftSquared, rightSquared) || dot(toLeft, toRight) < 0.0)
                return;
            Chain& nearer = leftSquared <= rightSquared ? left : right;
            Chain& farther = leftSquared <= rightSquared ? right : left;
            ++nearer.mApex;
            mLine.push_back(nearer.apex());
            if (isNothing(farther.front().mPlace - nearer.apex().mPlace))
                ++farther.mApex;
            farther.apex() = nearer.apex();
        }
    }

    /// @return the line from start to end, both included. Valid until the next begin.
    Vector<Corner>& finish(const Corner& end)
    {
        Chain& chain = mChains[LEFT];
        Vec2<double> offset = end.mPlace - chain.mEnd[-1].mPlace;
        shorten<LEFT>(chain, end.mPlace, offset);
        if (chain.isEmpty() && isPastOther<LEFT>(end.mPlace))
            moveApex<LEFT>(end.mPlace);
        mLine.insert(mLine.end(), chain.mApex + 1, chain.mEnd);
        mLine.push_back(end);
        return mLine;
    }

private:
    /// The apex and the corners after it; what comes before has been passed.
    struct Chain
    {
        static constexpr size_t MIN_ROOM = 64;

        explicit Chain(Common::Memory::Allocator* allocator) : mRoom(allocator) {}

        bool isEmpty() const { return mApex + 1 == mEnd; }
        Corner& apex() { return *mApex; }
        const Corner& front() const { return mApex[1]; }
        void restart(const Corner& apex)
        {
            if (mRoom.empty())
                mRoom.resize(MIN_ROOM);
            mRoom.front() = apex;
            mApex = mRoom.data();
            mEnd = mApex + 1;
        }
        void push(const Corner& corner)
        {
            if (mEnd == mRoom.data() + mRoom.size())
                grow();
            *mEnd++ = corner;
        }
        void grow()
        {
            const ptrdiff_t passed = mApex - mRoom.data();
            const ptrdiff_t used = mEnd - mRoom.data();
            mRoom.resize(mRoom.size() * 2);
            mApex = mRoom.data() + passed;
            mEnd = mRoom.data() + used;
        }

        Vector<Corner> mRoom;
        Corner* mApex = nullptr;
        Corner* mEnd = nullptr;
    };

    bool isNothing(const Vec2<double>& offset) const { return dot(offset, offset) <= mSquaredTolerance; }

    /// How far a line turns towards a border. [twice the area of the triangle]
    template <Border BORDER>
    static double turn(const Vec2<double>& before, const Vec2<double>& after)
    {
        const double left = cross(before, after);
        return BORDER == LEFT ? left : -left;
    }

    /// Takes away the corners that a line to the new one need not go around.
    /// @param offset  of the new corner from the last of the chain, before and after
    template <Border BORDER>
    static void shorten(Chain& chain, const Vec2<double>& place, Vec2<double>& offset)
    {
        Corner* last = chain.mEnd - 1;
        while (last != chain.mApex && !(turn<BORDER>(last->mPlace - last[-1].mPlace, offset) > 0.0))
        {
            --last;
            offset = place - last->mPlace;
        }
        chain.mEnd = last + 1;
    }

    /// Passes the corners of the other chain that a line to the new one of this border has to go around, of which there
    /// is one at least. This border's chain is empty.
    template <Border BORDER>
    void moveApex(const Vec2<double>& place)
    {
        Chain& other = mChains[1 - BORDER];
        do
        {
            ++other.mApex;
            mLine.push_back(other.apex());
        } while (isPastOther<BORDER>(place));
        mChains[BORDER].restart(other.apex());
        if (other.isEmpty())
            other.restart(mChains[BORDER].apex());
    }

    /// Whether a corner lies on the far side of the line from the apex along the other chain, by more than the
    /// tolerance: what lies on the line is left to close(), which knows the order along it.
    template <Border BORDER>
    bool isPastOther(const Vec2<double>& corner) const
    {
        const Chain& other = mChains[1 - BORDER];
        if (other.isEmpty())
            return false;
        const Vec2<double> line = other.front().mPlace - other.mApex->mPlace;
        const double area = turn<BORDER>(line, corner - other.front().mPlace);
        return area < 0.0 && area * area > mSquaredTolerance * dot(line, line);
    }

    Chain mChains[2];
    Vector<Corner> mLine; ///< from the start to the apex
    double mSquaredTolerance = 0.0;
    bool mIsFrontNew = false; ///< a chain starts with another corner than when the last portal was closed
};
} // namespace KORV::NavMesh
