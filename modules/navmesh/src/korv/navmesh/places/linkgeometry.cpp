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

/// Of the length in the ground plane.
float getSquare(const NavMeshContainer& mesh, const Vec3<float>& offset)
{
    const Vec2<float> p(dot(mesh.mXAxis, offset), dot(mesh.mYAxis, offset));
    return dot(p, p);
}

/// What is known where one side of the neighbour is the side left. @param link  with its width
void fillWhole(LinkGeometry& link, size_t side, float height)
{
    link.mHeight = height;
    link.mGap[0] = link.mGap[1] = 0.0f;
    link.mFirstSide = static_cast<uint32>(side);
    link.mNumSides = 1;
    link.mIsWhole = true;
}

/// The most common link without shared corners: the same side at another height, or of another outline.
/// @param link  with its corners and their distance as its width.
/// @param p0,p1  of the neighbour, where the side left starts and ends if it is that one.
bool fillOpposite(LinkGeometry& link, const NavMeshContainer& mesh, const Vec3<float>& p0, const Vec3<float>& p1,
                  size_t side)
{
    const Vec3<float>& start = mesh.mVertices[link.mCorners[0]];
    const Vec3<float>& end = mesh.mVertices[link.mCorners[1]];
    const float least = SAME_IN_CUBES * mesh.mCubeSize;
    if (!(link.mWidth > 0.0f && getSquare(mesh, p0 - start) <= least * least &&
          getSquare(mesh, p1 - end) <= least * least))
        return false;
    const float height = dot(mesh.mNormal, (p0 - start + p1 - end) * 0.5f);
    if (!std::isfinite(height))
        return false;
    link.mLeaving[0] = start;
    link.mLeaving[1] = end;
    link.mLanding[0] = p0;
    link.mLanding[1] = p1;
    fillWhole(link, side, height);
    return true;
}

/// The side that is left and what lies beside it. Places are given as x along the side, from its start, and y to its
/// left, where the node is.
class Measure
{
public:
    /// @param link  with the corners of the side.
    Measure(const NavMeshContainer& mesh, const LinkGeometry& link, const NavNode& neighbour)
        : mMesh(mesh), mNeighbour(neighbour), mStart(mesh.mVertices[link.mCorners[0]]),
          mEnd(mesh.mVertices[link.mCorners[1]]), mDir(toPlane(mEnd)), mLength(mDir.getLength())
    {
    }

    /// @return false when there is no side that runs along.
    bool fillFacing(LinkGeometry& link)
    {
        if (!(mLength > 0.0f))
            return false;
        mDir.normalise();
        const size_t side = findBestSide();
        if (side == mNeighbour.mPolygon.size())
            return false;
        if (fillOpposite(link, mMesh, corner(nextCorner(mNeighbour, side)), corner(side), side))
            return true;
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

    /// @return the number of sides when there is none.
    size_t findBestSide() const
    {
        const size_t numSides = mNeighbour.mPolygon.size();
        size_t best = numSides;
        float bestValue = NO_VALUE;
        Vec2<float> p0 = place(corner(0));
        for (size_t side = 0; side < numSides; ++side)
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

bool fillShared(LinkGeometry& link, const Vec3<float>& start, const Vec3<float>& end, size_t side)
{
    link.mLeaving[0] = link.mLanding[0] = start;
    link.mLeaving[1] = link.mLanding[1] = end;
    fillWhole(link, side, 0.0f);
    link.mIsShared = true;
    return true;
}
} // namespace

LinkMeasure::LinkMeasure(const NavMeshContainer& mesh)
    : mMesh(mesh), mNodes(mesh.mNodes.data()), mVertices(mesh.mVertices.data()),
      mNumNodes(std::min<size_t>(mesh.mNodes.size(), std::numeric_limits<int32>::max())),
      mNumVertices(mesh.mVertices.size())
{
}

/// By the sides of the neighbour that lead back. @return false where none of them is the side left.
inline bool LinkMeasure::fillBackLink(LinkGeometry& link, const NavNode& neighbour, uint32 nodeID) const
{
    const uint32* const corners = neighbour.mPolygon.data();
    const int32* const neighbours = neighbour.mNeighbours.data();
    const size_t numCorners = neighbour.mPolygon.size();
    const size_t numSides = std::min(neighbour.mNeighbours.size(), numCorners);
    for (size_t side = 0; side < numSides; ++side)
    {
        if (neighbours[side] != static_cast<int32>(nodeID))
            continue;
        const uint32 start = corners[side];
        const uint32 end = corners[side + 1 < numCorners ? side + 1 : 0];
        if (start == link.mCorners[1] && end == link.mCorners[0])
            return fillShared(link, mVertices[end], mVertices[start], side);
        if (start < mNumVertices && end < mNumVertices &&
            fillOpposite(link, mMesh, mVertices[end], mVertices[start], side))
            return true;
    }
    return false;
}

bool LinkMeasure::measure(LinkGeometry& link, uint32 nodeID, uint32 border) const
{
    // not all of it: that would cost as much as the rest
    link.mNumSides = 0;
    link.mIsShared = link.mIsWhole = link.mTurnsBack = false;
    if (nodeID >= mNumNodes)
        return false;
    const NavNode& node = mNodes[nodeID];
    const size_t numSides = node.mPolygon.size();
    if (border >= numSides || border >= node.mNeighbours.size())
        return false;
    const auto target = static_cast<uint32>(node.mNeighbours[border]); // a negative one is beyond all nodes
    const uint32 start = node.mPolygon[border];
    const uint32 end = node.mPolygon[border + 1 < numSides ? border + 1 : 0];
    if (target >= mNumNodes || start >= mNumVertices || end >= mNumVertices)
        return false;
    const Vec3<float> side = mVertices[end] - mVertices[start];
    link.mCorners[0] = start;
    link.mCorners[1] = end;
    link.mWidth = std::sqrt(getSquare(mMesh, side));
    if (!std::isfinite(link.mWidth)) // nor are the corners
        return false;
    const NavNode& neighbour = mNodes[target];
    return fillBackLink(link, neighbour, nodeID) || fillSharedSide(link, neighbour) || fillFacingSide(link, neighbour);
}

/// For a neighbour that does not lead back.
bool LinkMeasure::fillSharedSide(LinkGeometry& link, const NavNode& neighbour) const
{
    const Vector<uint32>& corners = neighbour.mPolygon;
    for (size_t side = 0; side < corners.size(); ++side)
    {
        if (corners[side] == link.mCorners[1] && corners[nextCorner(neighbour, side)] == link.mCorners[0])
            return fillShared(link, mVertices[link.mCorners[0]], mVertices[link.mCorners[1]], side);
    }
    return false;
}

/// What is left when the neighbour has another side there.
bool LinkMeasure::fillFacingSide(LinkGeometry& link, const NavNode& neighbour) const
{
    if (neighbour.mPolygon.empty() || !std::all_of(neighbour.mPolygon.begin(), neighbour.mPolygon.end(),
                                                   [this](uint32 id) { return id < mNumVertices; }))
        return false;
    Measure measure(mMesh, link, neighbour);
    return measure.fillFacing(link) || measure.fillNearest(link);
}
} // namespace KORV::NavMesh
