#pragma once

#include "korv/navmesh/navmeshconnectorgrid.h"

#include <cmath>

namespace KORV::NavMesh
{
/// An open side in the ground plane, measured once for all that it is compared with.
struct NavMeshConnector::Side
{
    Side(const Grid& grid, const GridEdge& edge)
        : mEdge(edge), mStart(grid.getEnd(edge, 0)), mEnd(grid.getEnd(edge, 1)), mAlong(mEnd - mStart),
          mLength(mAlong.getLength()), mDir(mAlong.mX / mLength, mAlong.mY / mLength),
          mHeight(grid.getHeight(grid.getVertex(edge, 0)))
    {
    }

    /// Where a point lies along the side: 0 at the start, 1 at the end.
    float project(const Vec2<float>& point) const { return dot(mAlong, point - mStart) / dot(mAlong, mAlong); }

    /// Whether a point lies within a tolerance of the line through the side, and no further than that beyond its ends.
    /// @param position  of the point along the side.
    bool isNear(const Vec2<float>& point, float position, float tolerance) const
    {
        const float distance = std::fabs(cross(mAlong, mStart - point)) / mLength;
        if (!(distance <= tolerance))
            return false;
        const float slack = tolerance / mLength;
        return -slack <= position && position <= 1.0f + slack;
    }

    GridEdge mEdge;
    Vec2<float> mStart;
    Vec2<float> mEnd;
    Vec2<float> mAlong;
    float mLength;
    Vec2<float> mDir;
    float mHeight; ///< vertical coordinate of the start
};

/// The part of a side that another one covers, as shares of its length.
struct NavMeshConnector::Overlap
{
    /// Whether nothing is left over that could be linked on its own.
    bool isWhole() const { return mFrom < mSlack && mTo > 1.0f - mSlack; }

    float mFrom;
    float mTo;
    float mSlack; ///< the overlap tolerance
};

/// What a side has found.
struct NavMeshConnector::Match
{
    Outcome mOutcome = Outcome::NOTHING;
    uint32 mEdge = 0; ///< of the grid
    uint32 mNumCuts = 0;
    float mCuts[2] = {}; ///< where to split, as shares of the side
};

/// What comes of a side when another one of the grid is the next candidate. Most have another direction.
inline NavMeshConnector::Match NavMeshConnector::judge(const Side& side, const Side& other, uint32 edge) const
{
    return runsAlong(side, other) ? judgeParallel(side, other, edge) : Match();
}

/// The first side in the grid that decides about another one.
/// @param own  the sides of the same node, which are left out.
/// @param hasLeft  as the grid takes it.
template <class HasLeft>
NavMeshConnector::Match NavMeshConnector::search(const GridEdge& edge, const EdgeRange& own,
                                                 const HasLeft& hasLeft) const
{
    Match match;
    const Side side(*mGrid, edge);
    mGrid->findCandidates(edge, own, hasLeft,
                          [&](uint32 other)
                          {
                              match = judge(side, Side(*mGrid, mGrid->getEdge(other)), other);
                              return match.mOutcome != Outcome::NOTHING;
                          });
    return match;
}

/// Whether a candidate's direction is that of the side, or opposite to it. Refined rules want it opposite: then the two
/// nodes face each other, and the ground beyond the side is not the one beneath it.
inline bool NavMeshConnector::runsAlong(const Side& side, const Side& other) const
{
    const float cosine = dot(side.mDir, other.mDir);
    return mRules == Rules::REFINED ? -cosine >= MIN_COSINE : std::fabs(cosine) >= MIN_COSINE;
}

/// Whether a side starts within the larger of both reaches of another one's start, up or down.
inline bool NavMeshConnector::isWithinRange(const Side& side, const Side& other) const
{
    return std::fabs(other.mHeight - side.mHeight) <= std::max(mMaxJumpHeight, mMaxFallHeight);
}
} // namespace KORV::NavMesh
