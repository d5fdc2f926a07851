#pragma once

#include "korv/navmesh/pieces/convexpieces.h"

#include <atomic>
#include <limits>

namespace KORV::NavMesh
{
/// Cuts any closed outline into triangles and merges these to convex pieces: the way out for outlines that have no
/// decomposition within the tolerances of the solver. Chords are not the shortest, but no area is lost or covered
/// twice.
class TriangleRescue
{
public:
    explicit TriangleRescue(Common::Memory::Allocator* allocator);

    /// @param polygon  clockwise in its plane, relative to one of its corners, in cubes; bridges may run to and fro
    /// along the same points, and corners may coincide.
    /// @param pieces  receives the pieces; none when the outline has no area.
    /// @return false when @p stop was raised.
    /// Cost: about quadratic in the corners, with a small factor: runs of them are passed over by their boxes.
    bool decompose(ConvexPieces& pieces, const Vector<Vec2<float>>& polygon, const std::atomic<bool>& stop);

private:
    /// Exact position: coordinates stay below 2^26, so that the products of the tests fit.
    struct Position
    {
        int64 mX;
        int64 mY;
    };

    /// Holds the edges of what is left that begin at a run of corners.
    struct Box
    {
        void add(const Position& position);
        /// Whether the insides of both meet.
        bool overlaps(const Box& other) const
        {
            return mMinX < other.mMaxX && other.mMinX < mMaxX && mMinY < other.mMaxY && other.mMinY < mMaxY;
        }

        int64 mMinX = std::numeric_limits<int64>::max();
        int64 mMinY = std::numeric_limits<int64>::max();
        int64 mMaxX = std::numeric_limits<int64>::min();
        int64 mMaxY = std::numeric_limits<int64>::min();
    };

    /// A side of a triangle or piece, counter-clockwise. Three in a row belong to one triangle.
    struct HalfEdge
    {
        int32 mOrigin;
        int32 mNext;
        int32 mPrevious;
        int32 mTwin; // the same side seen from the other piece, or -1 on the outline
    };

    /// What may be cut off, from good to bad. The later ones are for what is left of degenerate outlines.
    enum class Demand
    {
        EAR,       // has area, and nothing of the outline lies in it
        FLAT,      // has no area
        LEFT_TURN, // broken outlines only: something lies in it
        ANYTHING
    };

    void setPositions(const Vector<Vec2<float>>& polygon);
    bool fitsHalfCubes(const Vector<Vec2<float>>& polygon) const;
    int64 doubledArea() const;
    bool cutTriangles(const std::atomic<bool>& stop);
    bool mayCut(int32 corner, Demand demand) const;
    bool isEmpty(int32 a, int32 b, int32 c) const;
    bool passesThrough(int32 u, int32 a, int32 b, int32 c) const;
    void fillBoxes();
    void addToBoxes(int32 corner, const Position& position);
    void cutOff(int32 corner);
    void mergeTriangles();
    bool mayMerge(int32 side) const;
    bool isProper(int32 a, int32 b, int32 c) const;
    bool hasProperTip(int32 side) const;
    void merge(int32 side);
    void writePieces(ConvexPieces& pieces) const;

    int64 orientation(int32 a, int32 b, int32 c) const;
    const Position& at(int32 corner) const { return mPositions[static_cast<size_t>(corner)]; }
    const HalfEdge& side(int32 id) const { return mSides[static_cast<size_t>(id)]; }
    int32 destination(int32 id) const { return side(side(id).mNext).mOrigin; }

    Vector<Position> mPositions;
    Vector<int32> mNext; // ring of what is left
    Vector<int32> mPrevious;
    Vector<uint64> mLeft;    // a bit for each corner that is left
    Vector<Box> mRunBoxes;   // of 64 corners each
    Vector<Box> mGroupBoxes; // of 64 runs each
    Vector<int32> mOuter;    // side beyond the ring's edge that starts at a corner, or -1 on the outline
    Vector<HalfEdge> mSides;
    int32 mClosingSide = -1; // of the outline's closing edge
};
} // namespace KORV::NavMesh
