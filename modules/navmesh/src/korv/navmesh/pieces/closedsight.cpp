#include "korv/navmesh/pieces/closedsight.h"

#include <algorithm>

// The eye looks from its own triangles through their far sides into the next ones, within a cone that gets narrower:
// the corner behind a side is beyond one of the two bounds of the cone, or it is seen and splits the cone. From left to
// right that gives the corners in their order. A corner on a bound is seen, too, but touches the corner of that bound:
// what is in sight behind it lies on the other side, where the cone goes on.
//
// Source: F. Bungiu, M. Hemmer, J. Hershberger, K. Huang, A. Kroeller, "Efficient Computation of Visibility Polygons",
// EuroCG 2014 (triangular expansion).

namespace KORV::NavMesh
{
ClosedSight::ClosedSight(const Vector<Vec2<float>>& polygon, const OutlineTriangles& triangles,
                         Common::Memory::Allocator* allocator)
    : mPolygon(polygon), mTriangles(triangles), mOpen(allocator), mShown(allocator)
{
}

void ClosedSight::build(float noise)
{
    mN = static_cast<int32>(mPolygon.size());
    mNoise = noise;
    mShown.resize(std::max(mShown.size(), mPolygon.size()));
    mOpen.resize(mShown.size());
}

void ClosedSight::appendVisible(Vector<int32>& visible, int32 corner)
{
    mEye = corner;
    mNumShown = 0;
    int32 side = mTriangles.sideAt(corner);
    int32 firstCorner = mTriangles.from(OutlineTriangles::next(side));
    Line first = lineTo(firstCorner);
    show(firstCorner);
    while (side != NONE && firstCorner > corner)
    {
        const int32 far = OutlineTriangles::next(side);
        const int32 last = OutlineTriangles::next(far);
        const int32 secondCorner = mTriangles.from(last);
        const Line second = lineTo(secondCorner);
        int32 shown = secondCorner;
        if (cross(first.mWay, second.mWay) >= -room(first, second))
            shown = showFlat(first, second, secondCorner);
        else if (mTriangles.beyond(far) != NONE)
            lookThrough(far, first, second);
        show(shown);
        first = second;
        firstCorner = secondCorner;
        side = mTriangles.beyond(last);
    }
    // edges of the outline are none of these lines
    mShown[0] &= ~TOUCHING;
    if (corner == 0)
        mShown[static_cast<size_t>(mNumShown) - 1] &= ~TOUCHING;
    visible.insert(visible.end(), mShown.begin(), mShown.begin() + mNumShown);
}

/// Marks the farther one of both corners of a flat triangle at the eye. @return the second one, as it is to be shown.
int32 ClosedSight::showFlat(const Line& first, const Line& second, int32 secondCorner)
{
    if (second.mSize > first.mSize)
        return secondCorner | TOUCHING;
    mShown[static_cast<size_t>(mNumShown) - 1] |= TOUCHING;
    return secondCorner;
}

/// Looks through a side, and through those behind it that come into sight between two bounds.
void ClosedSight::lookThrough(int32 side, Line first, Line second)
{
    Cone* open = mOpen.data();
    while (true)
    {
        const int32 entry = side != NONE ? mTriangles.beyond(side) : NONE;
        if (entry == NONE || !isWantedBehind(mTriangles.from(side)))
        {
            if (open == mOpen.data())
                return;
            --open;
            show(open->mShown);
            side = open->mSide;
            first = open->mFirst;
            second = open->mSecond;
            continue;
        }
        const int32 corner = mTriangles.apexBeyond(side);
        const Line line = lineTo(corner);
        const float turnFromFirst = cross(first.mWay, line.mWay);
        const float turnFromSecond = cross(second.mWay, line.mWay);
        const int32 nearer = OutlineTriangles::next(entry);
        const int32 farther = OutlineTriangles::previous(entry);
        if (turnFromFirst >= -room(first, line))
        {
            if (turnFromFirst <= room(first, line) && turnFromSecond >= -room(second, line))
                show(corner | TOUCHING);
            side = farther;
        }
        else if (turnFromSecond <= room(second, line))
        {
            if (turnFromSecond >= -room(second, line))
                *open++ = {NONE, first, second, corner | TOUCHING};
            side = nearer;
        }
        else
        {
            *open++ = {farther, line, second, corner};
            side = nearer;
            second = line;
        }
    }
}
} // namespace KORV::NavMesh
