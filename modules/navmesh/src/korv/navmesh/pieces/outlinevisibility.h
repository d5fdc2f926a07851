#pragma once

#include "korv/navmesh/pieces/closedsight.h"
#include "korv/navmesh/pieces/outlinesweeps.h"

#include <cmath>

namespace KORV::NavMesh
{
/// Finds which corners of an outline see each other: those that two sweeps around each corner leave visible.
/// The outline runs clockwise, its interior lies to the right of each edge. Holds references to outline and flags.
class OutlineVisibility
{
public:
    /// @param reflex  a flag for each corner.
    OutlineVisibility(const Vector<Vec2<float>>& polygon, const Vector<uint8>& reflex,
                      Common::Memory::Allocator* allocator);

    /// Takes outline and flags as they are now; they must not change until the last corner.
    /// @param closed  whether lines of sight may touch the outline. Its straight lines must be straight up to rounding
    /// then, and instead of sweeps only the triangles are asked, unless there are none.
    void build(bool closed);

    /// Appends the corners after @p corner, which is not the last one, that see it, in increasing order. In a closed
    /// outline they are marked as ClosedSight does.
    /// Cost: the triangles in sight, and a ray for each corner that another one is seen close to; at worst whole
    /// sweeps.
    void appendVisible(Vector<int32>& visible, int32 corner);

private:
    static constexpr int32 NONE = -1;
    /// The tolerance of turns, with room for several.
    static constexpr float TURN_ROOM = 3.0f * OutlineSweeps::TURN_TOLERANCE;

    /// A line of sight from the eye.
    struct Line
    {
        Vec2<float> mWay;
        float mSize;   // |x| + |y|
        int32 mCorner; // that it goes past
    };

    /// What is seen through a side of a triangle.
    struct Cone
    {
        int32 mSide;
        Line mFirst;  // counterclockwise bound, past an earlier corner than all that is seen
        Line mSecond; // clockwise bound
        int32 mShown; // seen between this cone and the one before; NONE for none
    };

    /// What bounds a cone on one side of a corner.
    enum class Hiding : uint8
    {
        NOT,
        BY_BOUND, ///< the corner lies beyond the bound
        BY_OTHER, ///< a corner between has a shadow that it lies in
        UNCLEAR
    };

    /// A question that tolerances could decide, but for which no ray has been cast.
    struct Unasked
    {
        OutlineSweeps::Way mWay;
        Hiding mHiding; // as the triangles have it
        Line mBound;
        Line mCorner;
    };

    /// What becomes of a cone in a triangle.
    enum class Passage : uint8
    {
        NARROWER, ///< one side is in sight
        SPLIT,    ///< both are
        UNCLEAR
    };

    using Way = OutlineSweeps::Way;

    bool measure();
    bool look();
    bool areClose(const Line& first, const Line& second) const;
    bool areBothSeen(const Line& first, const Line& second);
    bool lookThrough(int32 side, Line first, Line second);
    int32 passFirst(const Line& bound, int32 entry);
    int32 passSecond(const Line& bound, int32 entry);
    Passage goThrough(Cone& cone, Cone& open, int32 entry);
    bool isShadowClear(Way way, const Line& bound, const Line& corner, float turn) const;
    template <Way WAY>
    Hiding findHiding(const Line& bound, const Line& corner);
    bool areUnaskedSound();
    Hiding askSweep(Way way, const Line& bound, const Line& corner);
    void follow(Line bound, int32 entry);
    void lookBehind(Way way, Line bound, int32 side);
    void land(Way way, int32 corner);
    /// Adds a corner that is seen, if it is wanted.
    void show(int32 corner)
    {
        mShown[static_cast<size_t>(mNumShown)] = corner;
        mNumShown += corner > mEye ? 1 : 0;
    }
    Line lineTo(int32 corner) const
    {
        const Vec2<float> way = point(corner) - point(mEye);
        return {way, std::fabs(way.mX) + std::fabs(way.mY), corner};
    }
    /// Whether a corner is so close to a bound that tolerances decide.
    /// @param turn  cross product of their ways.
    /// @param room  of the turn at the bound's corner.
    bool isClose(const Line& bound, const Line& corner, float turn, float room = TURN_ROOM) const
    {
        // the tolerance of turns over the length of the bound is a distance; both grow with that of the corner
        return std::fabs(turn) * bound.mSize <= (room + mReach * bound.mSize) * (bound.mSize + corner.mSize);
    }
    /// Whether a corner after the eye lies behind a side from that corner to a later one, apart from its ends.
    bool isWantedBehind(int32 from) const { return from >= mEye && from + 1 < mN; }
    const Vec2<float>& point(int32 k) const { return mPolygon[static_cast<size_t>(k)]; }

    const Vector<Vec2<float>>& mPolygon;
    const Vector<uint8>& mReflex;
    EdgeBoxes mBoxes;
    OutlineSweeps mSweeps;
    OutlineTriangles mTriangles;
    ClosedSight mClosedSight;
    int32 mN = 0;
    bool mClosed = false;
    bool mCut = false;      // into triangles
    float mRounding = 0.0f; // of a corner
    float mReach = 0.0f;    // of edges beyond their ends, and the like
    float mSlope = 0.0f;    // of a corner within reach of a line past its neighbour, at most
    int32 mEye = 0;         // corner that looks
    Vector<Cone> mOpen;
    Vector<Unasked> mUnasked; // of this eye
    Vector<int32> mShown;     // corners that the eye sees, in their order, and room for all
    int32 mNumShown = 0;
};
} // namespace KORV::NavMesh
