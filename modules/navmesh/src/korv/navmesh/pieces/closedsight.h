#pragma once

#include "korv/navmesh/pieces/outlinetriangles.h"

#include <cmath>

namespace KORV::NavMesh
{
/// Finds which corners see each other within an outline that counts as closed: lines of sight may touch it. Meant for
/// outlines whose straight lines are straight up to rounding. Holds references.
class ClosedSight
{
public:
    /// Marks a corner that is seen along a line that touches the outline at a corner between.
    static constexpr int32 TOUCHING = int32{1} << 30;

    /// @param triangles  of the outline.
    ClosedSight(const Vector<Vec2<float>>& polygon, const OutlineTriangles& triangles,
                Common::Memory::Allocator* allocator);

    /// Takes the outline as it is now, cut into its triangles.
    /// @param noise  up to which a corner is on a line. [units]
    void build(float noise);

    /// Appends the corners after @p corner, which is not the last one, that see it, in increasing order, marked where
    /// that is so. Cost: the triangles in sight.
    void appendVisible(Vector<int32>& visible, int32 corner);

private:
    static constexpr int32 NONE = -1;

    /// A line of sight from the eye.
    struct Line
    {
        Vec2<float> mWay;
        float mSize; // |x| + |y|
    };

    /// What is seen through a side of a triangle.
    struct Cone
    {
        int32 mSide; // NONE where only a corner is left to show
        Line mFirst; // counterclockwise bound
        Line mSecond;
        int32 mShown; // between this cone and the one before
    };

    int32 showFlat(const Line& first, const Line& second, int32 secondCorner);
    void lookThrough(int32 side, Line first, Line second);
    /// Adds a corner that is seen, if it is wanted.
    void show(int32 corner)
    {
        mShown[static_cast<size_t>(mNumShown)] = corner;
        mNumShown += (corner & ~TOUCHING) > mEye ? 1 : 0;
    }
    Line lineTo(int32 corner) const
    {
        const Vec2<float> way = mPolygon[static_cast<size_t>(corner)] - mPolygon[static_cast<size_t>(mEye)];
        return {way, std::fabs(way.mX) + std::fabs(way.mY)};
    }
    /// Of the cross product of two ways that are one line.
    float room(const Line& a, const Line& b) const { return mNoise * (a.mSize + b.mSize); }

    /// Whether a corner after the eye lies behind a side from that corner to a later one, apart from its ends.
    bool isWantedBehind(int32 from) const { return from >= mEye && from + 1 < mN; }

    const Vector<Vec2<float>>& mPolygon;
    const OutlineTriangles& mTriangles;
    int32 mN = 0;
    float mNoise = 0.0f;
    int32 mEye = 0; // corner that looks
    Vector<Cone> mOpen;
    Vector<int32> mShown; // corners that the eye sees, in their order, and room for all
    int32 mNumShown = 0;
};
} // namespace KORV::NavMesh
