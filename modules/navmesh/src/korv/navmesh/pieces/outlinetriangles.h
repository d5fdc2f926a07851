#pragma once

#include "korv/navmesh/pieces/edgeboxes.h"

namespace KORV::NavMesh
{
/// An outline cut into triangles. Each has three sides, which run clockwise as the outline does, one behind the other.
class OutlineTriangles
{
public:
    static constexpr int32 NONE = -1;

    /// @param polygon  is referred to; it may change between two calls of build.
    OutlineTriangles(const Vector<Vec2<float>>& polygon, EdgeBoxes& boxes, Common::Memory::Allocator* allocator);

    /// Cuts the outline as it is now, of three corners or more; the boxes must have been built for it.
    /// @param noise  triangles may lap over each other by this. [units]
    /// @return false when it can't be cut with reasonable effort. An outline that laps over itself often can.
    /// Cost: once or twice for each corner, all the corners that don't turn right, or the boxes nearby.
    bool build(float noise);

    /// The side along the edge of the outline that begins at a corner.
    int32 sideAt(int32 corner) const { return mSideAt[static_cast<size_t>(corner)]; }
    /// The corner that a side begins at.
    int32 from(int32 side) const { return mSides[static_cast<size_t>(side)].mFrom; }
    /// The same side, as the triangle beyond has it; NONE for an edge of the outline.
    int32 beyond(int32 side) const { return mSides[static_cast<size_t>(side)].mBeyond; }
    /// The third corner of the triangle beyond; NONE for an edge of the outline.
    int32 apexBeyond(int32 side) const { return mSides[static_cast<size_t>(side)].mApexBeyond; }
    /// The sides of a triangle, in turn.
    static int32 next(int32 side) { return side + ((side & PLACE_MASK) == 2 ? -2 : 1); }
    static int32 previous(int32 side) { return side + ((side & PLACE_MASK) == 0 ? 2 : -1); }

private:
    static constexpr int32 STRIDE = 4;              // a power of two is the faster one
    static constexpr int32 PLACE_MASK = STRIDE - 1; // of a side in its triangle

    struct Side
    {
        int32 mFrom;
        int32 mBeyond;
        int32 mApexBeyond;
    };

    /// A corner of what is left of the outline.
    struct Corner
    {
        int32 mPrevious;
        int32 mNext;
        int32 mCut;      // the side, of a triangle cut off, on the way to the next corner; NONE for an edge
        int32 mObstacle; // its place among the obstacles, or NONE
        int32 mBlocker;  // a corner in its triangle, as long as both are left and so are its neighbours; or NONE
    };

    void begin();
    void placeObstacles();
    bool isEar(int32 corner, float depth);
    int32 findInside(int32 a, int32 b, int32 c, float depth);
    bool isLeft(int32 corner) const { return left(corner).mNext != NONE; }
    void forgetBlockers();
    float turnAt(int32 corner) const;
    void cut(int32 corner);
    void dropObstacle(int32 corner);
    void join(int32 side);
    const Corner& left(int32 corner) const { return mLeft[static_cast<size_t>(corner)]; }
    const Vec2<float>& point(int32 corner) const { return mPolygon[static_cast<size_t>(corner)]; }

    const Vector<Vec2<float>>& mPolygon;
    EdgeBoxes& mBoxes;
    Vector<Side> mSides; // of the triangles so far, and room for all
    int32 mNumSides = 0;
    Vector<int32> mSideAt;
    Vector<Corner> mLeft;
    Vector<int32> mObstacles; // corners left that don't turn right
    Vector<float> mObstacleX; // their places, with room for whole lanes
    Vector<float> mObstacleY;
};
} // namespace KORV::NavMesh
