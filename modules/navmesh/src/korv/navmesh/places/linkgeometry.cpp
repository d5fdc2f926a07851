// Measures the opening between two linked nodes.
//
// Idea: a link across a chord of an outline has the same two vertices on both sides. All others lead to a side of the
// neighbour that runs along the side left, above, below or level with it, up to a quarter cube apart in the ground
// plane. Which one that was is not stored, so it is looked for: the side that overlaps most, and faces the other
// way, among those close enough. The neighbour may have been split there after the link was made, so sides that go on
// in a straight line are taken together. The opening is the overlap.
//
// Nearly always the side that leads back is the very one, from end to end. It is looked at first: that needs two of the
// neighbour's corners, and none where the ids are the same.
//
// Numbers: the cosines and distances are those of the links, with some slack for rounding.
// Cost: a pass over the neighbour's ids, or one or two over its sides; no memory.
#include "korv/navmesh/places/linkgeometry.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace KORV::NavMesh
{
namespace
{
using NavNode = NavMeshContainer::NavNode;

constexpr float MIN_COSINE = 0.985f;
constexpr float CLOSE_IN_CUBES = 0.26f;
constexpr float STRAIGHT_IN_CUBES = 0.01f; ///< how far from the line of a side the next one may end to continue it
constexpr float FACING_BONUS = 1.05f;      ///< an overlap counts so much more where the sides run opposite ways
constexpr float SPREAD_PENALTY = 4.0f;     ///< for each unit of distance at the end where the sides are further apart
constexpr float FAR_PENALTY = 1000.0f;     ///< for each unit of distance beyond what is close
constexpr float SAME_IN_CUBES = 1e-3f;     ///< closer corners are the same as seen from above
constexpr float NO_VALUE = -std::numeric_limits<float>::infinity();

bool isFinite(const Vec3<float>& v)
{
    return std::isfinite(v.mX + v.mY + v.mZ);
}

/// The side that is left and what lies beside it. Places are given as x along the side, from its start, and y to its
/// left, where the node is.
class Measure
{
public:
    Measure(const NavMeshContainer& mesh, const LinkEnds& ends)
        : mMesh(mesh), mNeighbour(mesh.mNodes[ends.mNeighbourID]), mStart(mesh.mVertices[ends.mCorners[0]]),
          mEnd(mesh.mVertices[ends.mCorners[1]]), mDir(toPlane(mEnd)), mLength(mDir.normalise())
    {
    }

    /// The side of the neighbour that fits best; the number of its sides when there is none that runs along.
    size_t findBestSide() const
    {
        const size_t numSides = mNeighbour.mPolygon.size();
        size_t best = numSides;
        float bestValue = NO_VALUE;
        Vec2<float> p0 = place(corner(0));
        for (size_t side = 0; side < numSides && mLength > 0.0f; ++side)
        {
            const Vec2<float> p1 = place(corner(nextCorner(mNeighbour, side)));
            const float value = evaluate(p0, p1);
            if (value > bestValue)
            {
                bestValue = value;
                best = side;
            }
            p0 = p1;
        }
        return best;
    }

    /// The opening to a side of the neighbour that runs along, and to those that go on in a straight line.
    bool fillFacing(LinkGeometry& link, size_t side) const
    {
        size_t first = side;
        size_t last = side;
        extend(first, last);

        const Vec3<float>* p0 = &corner(first);
        const Vec3<float>* p1 = &corner(nextCorner(mNeighbour, last));
        const bool turnsBack = place(*p1).mX > place(*p0).mX;
        if (!turnsBack)
            std::swap(p0, p1);
        clip(link, *p0, *p1);
        link.mTurnsBack = turnsBack;
        link.mFirstSide = static_cast<uint32>(first);
        link.mNumSides = static_cast<uint32>((last + mNeighbour.mPolygon.size() - first) % mNeighbour.mPolygon.size());
        ++link.mNumSides;
        return finish(link);
    }

    /// What is left where no side runs along: the places of the border nearest to the ends of the side.
    bool fillNearest(LinkGeometry& link) const
    {
        link.mLeaving[0] = mStart;
        link.mLeaving[1] = mEnd;
        link.mNumSides = 0;
        link.mTurnsBack = false;
        return findNearest(link.mLanding[0], mStart) && findNearest(link.mLanding[1], mEnd) && finish(link);
    }

private:
    const Vec3<float>& corner(size_t index) const { return mMesh.mVertices[mNeighbour.mPolygon[index]]; }

    Vec2<float> toPlane(const Vec3<float>& point) const
    {
        const Vec3<float> offset = point - mStart;
        return {dot(mMesh.mXAxis, offset), dot(mMesh.mYAxis, offset)};
    }
    Vec2<float> place(const Vec3<float>& point) const
    {
        const Vec2<float> p = toPlane(point);
        return {dot(mDir, p), cross(mDir, p)};
    }

    /// How well a side fits; the larger the better.
    float evaluate(const Vec2<float>& p0, const Vec2<float>& p1) const
    {
        const float left = std::max(0.0f, std::min(p0.mX, p1.mX));
        const float right = std::min(mLength, std::max(p0.mX, p1.mX));
        if (!(right > left))
            return NO_VALUE;
        const Vec2<float> side = p1 - p0;
        if (!(side.mX * side.mX >= MIN_COSINE * MIN_COSINE * dot(side, side)))
            return NO_VALUE;
        const float slope = side.mY / side.mX;
        const float y0 = p0.mY + (left - p0.mX) * slope;
        const float y1 = p0.mY + (right - p0.mX) * slope;
        const float distance = y0 * y1 <= 0.0f ? 0.0f : std::min(std::fabs(y0), std::fabs(y1));
        const float close = mMesh.mCubeSize > 0.0f ? mMesh.mCubeSize * CLOSE_IN_CUBES : 0.0f;
        const float overlap = (right - left) * (side.mX < 0.0f ? FACING_BONUS : 1.0f);
        const float spread = std::max(std::fabs(y0), std::fabs(y1));
        return overlap - SPREAD_PENALTY * spread - FAR_PENALTY * std::max(0.0f, distance - close);
    }

    /// Takes in the sides that go on in a straight line, as far as the side left reaches.
    void extend(size_t& first, size_t& last) const
    {
        const Vec3<float>& p0 = corner(first);
        const Vec3<float>& p1 = corner(nextCorner(mNeighbour, last));
        const Vec2<float> origin = place(p0);
        Vec2<float> along = place(p1) - origin;
        const float length = along.normalise();
        const size_t numSides = mNeighbour.mPolygon.size();
        float reached = length;
        for (size_t i = 1; i < numSides; ++i)
        {
            const Vec2<float> end = place(corner(nextCorner(mNeighbour, last)));
            const size_t after = nextCorner(mNeighbour, last);
            const Vec2<float> p = place(corner(nextCorner(mNeighbour, after))) - origin;
            if (end.mX <= 0.0f || end.mX >= mLength || !continues(along, p, reached) || after == first)
                break;
            reached = dot(along, p);
            last = after;
        }
        reached = 0.0f;
        for (size_t i = 1; i < numSides; ++i)
        {
            const Vec2<float> start = place(corner(first));
            const size_t before = previousCorner(mNeighbour, first);
            const Vec2<float> p = place(corner(before)) - origin;
            if (start.mX <= 0.0f || start.mX >= mLength || !continues(along * -1.0f, p, -reached) || before == last)
                break;
            reached = dot(along, p);
            first = before;
        }
    }

    bool continues(const Vec2<float>& along, const Vec2<float>& p, float reached) const
    {
        return std::fabs(cross(along, p)) <= STRAIGHT_IN_CUBES * mMesh.mCubeSize && dot(along, p) > reached;
    }

    /// Cuts both sides to where they run beside each other. @param p0,p1  in the direction of the side left
    void clip(LinkGeometry& link, const Vec3<float>& p0, const Vec3<float>& p1) const
    {
        const float x0 = place(p0).mX;
        const float x1 = place(p1).mX;
        const float left = std::max(0.0f, x0);
        const float right = std::min(mLength, x1);
        link.mLeaving[0] = between(mStart, mEnd, left / mLength);
        link.mLeaving[1] = between(mStart, mEnd, right / mLength);
        link.mLanding[0] = between(p0, p1, (left - x0) / (x1 - x0));
        link.mLanding[1] = between(p0, p1, (right - x0) / (x1 - x0));
    }

    bool findNearest(Vec3<float>& nearest, const Vec3<float>& point) const
    {
        const Vec2<float> p = toPlane(point);
        float best = std::numeric_limits<float>::infinity();
        for (size_t side = 0; side < mNeighbour.mPolygon.size(); ++side)
        {
            const Vec3<float>& p0 = corner(side);
            const Vec3<float>& p1 = corner(nextCorner(mNeighbour, side));
            const Vec2<float> start = toPlane(p0);
            const Vec2<float> along = toPlane(p1) - start;
            const float share = dot(along, p - start) / dot(along, along);
            const Vec3<float> candidate = between(p0, p1, share);
            const float distance = (toPlane(candidate) - p).getLength();
            if (distance < best)
            {
                best = distance;
                nearest = candidate;
            }
        }
        return best < std::numeric_limits<float>::infinity();
    }

    bool finish(LinkGeometry& link) const
    {
        const Vec3<float> rise = (link.mLanding[0] - link.mLeaving[0] + link.mLanding[1] - link.mLeaving[1]) * 0.5f;
        const float leaving = (toPlane(link.mLeaving[1]) - toPlane(link.mLeaving[0])).getLength();
        const float landing = (toPlane(link.mLanding[1]) - toPlane(link.mLanding[0])).getLength();
        link.mHeight = dot(mMesh.mNormal, rise);
        link.mWidth = std::min(leaving, landing);
        const float unit = mLength > 0.0f ? 1.0f / mDir.getLength() : 0.0f;
        link.mGap[0] = -place(link.mLanding[0]).mY * unit;
        link.mGap[1] = -place(link.mLanding[1]).mY * unit;
        return std::isfinite(link.mHeight) && std::isfinite(link.mWidth) && isFinite(link.mLanding[0]) &&
               isFinite(link.mLanding[1]);
    }

    const NavMeshContainer& mMesh;
    const NavNode& mNeighbour;
    const Vec3<float>& mStart;
    const Vec3<float>& mEnd;
    Vec2<float> mDir; ///< of the side in the ground plane; of unit length from fillFacing on
    float mLength;
};
} // namespace

LinkMeasure::LinkMeasure(const NavMeshContainer& mesh)
    : mMesh(mesh), mNodes(mesh.mNodes.data()), mVertices(mesh.mVertices.data()),
      mNumNodes(std::min<size_t>(mesh.mNodes.size(), std::numeric_limits<int32>::max())),
      mNumVertices(mesh.mVertices.size()),
      mSameSquare(SAME_IN_CUBES * mesh.mCubeSize * (SAME_IN_CUBES * mesh.mCubeSize))
{
}

bool LinkMeasure::measure(LinkGeometry& link, uint32 nodeID, uint32 border) const
{
    LinkEnds ends;
    NodeSides node = getSides(nodeID);
    if (!findEnds(ends, node, nodeID, border) || !compareEnds(ends))
        return false;
    if (ends.mKind == LinkEnds::OTHER)
        return measureOther(link, ends, nodeID);
    fillWhole(link, ends);
    return true;
}

bool LinkMeasure::measureOther(LinkGeometry& link, const LinkEnds& ends, uint32 nodeID) const
{
    return fillBackLink(link, ends, nodeID) || fillSharedSide(link, ends) || fillFacingSide(link, ends);
}

/// For a neighbour whose side back is the side left, shared or not.
void LinkMeasure::fillWhole(LinkGeometry& link, const LinkEnds& ends) const
{
    for (int i = 0; i < 2; ++i)
    {
        link.mLeaving[i] = mVertices[ends.mCorners[i]];
        link.mLanding[i] = mVertices[ends.mFarCorners[i]];
        link.mGap[i] = 0.0f;
    }
    link.mHeight = ends.mHeight;
    link.mWidth = std::sqrt(ends.mSquare);
    link.mFirstSide = ends.mBackSide;
    link.mNumSides = 1;
    link.mIsShared = ends.mKind == LinkEnds::SHARED;
    link.mTurnsBack = false;
}

/// By the other sides of the neighbour that lead back. @return false where none of them is the side left.
bool LinkMeasure::fillBackLink(LinkGeometry& link, LinkEnds ends, uint32 nodeID) const
{
    const NodeSides neighbour = getSides(ends.mNeighbourID);
    while (ends.mBackSide < neighbour.mNumSides)
    {
        setSideBack(ends, neighbour, findSideBack(neighbour, nodeID, ends.mBackSide + 1));
        if (!compareEnds(ends))
            return false;
        if (ends.mKind == LinkEnds::OTHER)
            continue;
        fillWhole(link, ends);
        return true;
    }
    return false;
}

/// For a neighbour that does not lead back.
bool LinkMeasure::fillSharedSide(LinkGeometry& link, LinkEnds ends) const
{
    const NodeSides neighbour = getSides(ends.mNeighbourID);
    for (uint32 side = 0; side < neighbour.mNumCorners; ++side)
    {
        if (neighbour.mCorners[side] != ends.mCorners[1] || neighbour.getEnd(side) != ends.mCorners[0])
            continue;
        ends.mBackSide = side;
        ends.mFarCorners[0] = ends.mCorners[0];
        ends.mFarCorners[1] = ends.mCorners[1];
        ends.mKind = getKind(ends);
        fillWhole(link, ends);
        return true;
    }
    return false;
}

/// What is left when the neighbour has another side there.
bool LinkMeasure::fillFacingSide(LinkGeometry& link, LinkEnds ends) const
{
    const NodeSides neighbour = getSides(ends.mNeighbourID);
    if (neighbour.mNumCorners == 0 || !std::all_of(neighbour.mCorners, neighbour.mCorners + neighbour.mNumCorners,
                                                   [this](uint32 id) { return id < mNumVertices; }))
        return false;
    link.mIsShared = false;
    const Measure measure(mMesh, ends);
    const size_t side = measure.findBestSide();
    if (side == neighbour.mNumCorners)
        return measure.fillNearest(link);
    ends.mBackSide = static_cast<uint32>(side);
    ends.mFarCorners[0] = neighbour.getEnd(ends.mBackSide);
    ends.mFarCorners[1] = neighbour.mCorners[side];
    ends.mKind = getKind(ends);
    if (ends.mKind == LinkEnds::OTHER)
        return measure.fillFacing(link, side) || measure.fillNearest(link);
    fillWhole(link, ends);
    return true;
}
} // namespace KORV::NavMesh
