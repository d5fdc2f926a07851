// Lays the ground along a path out as portals of the plane.
//
// Portals: an opening whose two sides lie on one another is one portal, also when they differ in height. Where the
// side of arrival lies beyond the one left, both are portals. Where it lies before it, within the tolerance of links,
// only the side left is one: crossing both in turn would mean going back. Corners that stick into a node are corners of
// the corridor, too.
//
// Folds: a link may lead to ground right above or below the node, so that the line turns back at the border; and a node
// may be left through the side by which it was entered. The shortest line is then found by mirroring all that follows
// at the side, as if the ground were folded open. Lengths stay the same, and positions are those of the portals, which
// know theirs in space.
//
// Numbers: places closer than TOLERANCE are one.
//
// Cost: links are looked up some at once, by ids alone, and their corners asked for, before they are crossed; so none
// waits for the memory of another. The nodes and their lists are asked for even further ahead. Nearly all links are a
// side that both nodes have, or that lies on the side back, and need no measuring; a corner that follows itself on a
// border is projected once. Few nodes have dents; which ones is remembered.
#include "korv/navmesh/places/waycorridor.h"

#include "korv/common/debug/assert.h"
#include "korv/common/platform/prefetch.h"

#include <algorithm>
#include <cmath>

namespace KORV::NavMesh
{
namespace
{
using NavNode = NavMeshContainer::NavNode;

constexpr double TOLERANCE_IN_CUBES = 1e-4;
constexpr float GAP_IN_CUBES = 1e-3f; ///< nearer sides lie on one another
constexpr float STEP_SLACK = 1.001f;
// chunks from one that is looked up; twice as many made no difference on a mesh of 100,000 nodes
constexpr size_t NODES_AHEAD = 8;
constexpr size_t LISTS_AHEAD = 4;

/// Out of line: a report needs a large frame.
bool reportMisfit(size_t chunk, const NavMeshPathChunk& entry)
{
    return KORV_FAIL("The path does not fit the mesh: chunk " << chunk << " names side " << entry.mBorderID
                                                              << " of node " << entry.mNodeID);
}

/// Distance of a place from a segment.
double getDistance(const Vec2<double>& a, const Vec2<double>& b, const Vec2<double>& p)
{
    const Vec2<double> along = b - a;
    const double squared = dot(along, along);
    const double share = squared > 0.0 ? std::clamp(dot(along, p - a) / squared, 0.0, 1.0) : 0.0;
    return (a + along * share - p).getLength();
}
} // namespace

WayCorridor::WayCorridor(const NavMeshContainer& mesh, Common::Memory::Allocator* allocator)
    : mMesh(mesh), mFunnel(allocator), mPortals(allocator), mKept(allocator), mDents(allocator),
      mDentedNodes(mesh, allocator)
{
}

void WayCorridor::begin(const Vec3<float>& start, size_t numChunks)
{
    mOrigin = {static_cast<double>(start.mX), static_cast<double>(start.mY), static_cast<double>(start.mZ)};
    for (int axis = 0; axis < 3; ++axis)
        mColumns[axis] = {static_cast<double>(mMesh.mXAxis[axis]), static_cast<double>(mMesh.mYAxis[axis])};
    mShift = {};
    mIsMirrored = false;
    mTurnsBack = false;
    mCubeSize = mMesh.mCubeSize > 0.0f && std::isfinite(mMesh.mCubeSize) ? mMesh.mCubeSize : 0.0f;
    mTolerance = TOLERANCE_IN_CUBES * static_cast<double>(mCubeSize);
    mMaxStep = (mStepHeight >= 0.0f ? mStepHeight : mCubeSize) * STEP_SLACK;
    mEntrance = {};
    mNumPortals = 0;
    mNumKept = 0;
    if (mPortals.size() < MAX_PORTALS * numChunks) // all at once: what is kept is pointed to
    {
        mPortals.resize(MAX_PORTALS * numChunks);
        mKept.resize(MAX_KEPT * numChunks);
    }
    mDents.clear();
    forgetEnds();
    mNodes = mMesh.mNodes.data();
    mNumNodes = mMesh.mNodes.size();
    mVertices = mMesh.mVertices.data();
    mDentedNodes.update(mCubeSize);
    mFunnel.begin({place(start), AT_END}, mTolerance);
}

/// Where a point lies in the plane, as far as it is folded open.
inline WayCorridor::Place WayCorridor::place(const Vec3<float>& point) const
{
    return mColumns[0] * (static_cast<double>(point.mX) - mOrigin.mX) +
           mColumns[1] * (static_cast<double>(point.mY) - mOrigin.mY) +
           mColumns[2] * (static_cast<double>(point.mZ) - mOrigin.mZ) + mShift;
}

/// Mirrors what follows at a line.
void WayCorridor::fold(const Vec3<float>& start, const Vec3<float>& end)
{
    const Place a = place(start);
    const Place dir = normalised(place(end) - a);
    const double cosine = dir.mX * dir.mX - dir.mY * dir.mY; // of twice the angle of the line
    const double sine = 2.0 * dir.mX * dir.mY;
    const auto mirror = [cosine, sine](const Place& p)
    { return Place(cosine * p.mX + sine * p.mY, sine * p.mX - cosine * p.mY); };
    for (Place& column : mColumns)
        column = mirror(column);
    mShift = a + mirror(mShift - a);
    mIsMirrored = !mIsMirrored;
    forgetEnds();
}

bool WayCorridor::follow(const Vec3<float>& start, const Vector<NavMeshPathChunk>& path, NavMeshCrossing* crossings)
{
    begin(start, path.size());
    const LinkMeasure measure(mMesh);
    mLastNode = path.empty() ? -1 : path[0].mNodeID;
    for (size_t first = 0; first < path.size(); first += BLOCK)
    {
        const size_t numChunks = std::min(BLOCK, path.size() - first);
        const size_t numLinks = lookUp(measure, &path[first], numChunks, path.size() - first);
        for (size_t i = first; i < first + numLinks; ++i)
        {
            if (!crossLink(measure, mLinks[i - first], path[i], static_cast<uint32>(i), crossings))
                return reportMisfit(i, path[i]);
        }
        if (numLinks < numChunks)
            return reportMisfit(first + numLinks, path[first + numLinks]);
    }
    return true;
}

/// Looks up the links of the next chunks. @param numAhead  chunks to the end of the path
/// @return how many links there are, before one that does not fit.
size_t WayCorridor::lookUp(const LinkMeasure& measure, const NavMeshPathChunk* chunks, size_t numChunks,
                           size_t numAhead)
{
    using Common::Platform::prefetch;
    int32 lastNode = mLastNode;
    NodeSides node = measure.getSides(static_cast<uint32>(lastNode));
    size_t i = 0;
    for (; i < numChunks; ++i)
    {
        fetchAhead(chunks + i, numAhead - i);
        LinkEnds& link = mLinks[i];
        if (chunks[i].mNodeID != lastNode ||
            !measure.findEnds(link, node, static_cast<uint32>(lastNode), chunks[i].mBorderID))
            break;
        for (int end = 0; end < 2; ++end)
        {
            prefetch(mVertices + link.mCorners[end]);
            prefetch(mVertices + link.mFarCorners[end]);
        }
        lastNode = static_cast<int32>(link.mNeighbourID);
    }
    mLastNode = lastNode;
    return i;
}

/// Crosses a link looked up. @return false where it can't be measured.
inline bool WayCorridor::crossLink(const LinkMeasure& measure, LinkEnds& ends, const NavMeshPathChunk& chunk,
                                   uint32 index, NavMeshCrossing* crossings)
{
    if (!measure.compareEnds(ends))
        return false;
    if (ends.mKind == LinkEnds::OTHER)
        return crossOther(measure, ends, chunk, index, crossings);
    passNode(chunk, mVertices[ends.mCorners[0]], mVertices[ends.mCorners[1]]);
    addWhole(ends, index);
    mEntrance = {ends.mNumCorners, ends.mBackSide, 1};
    if (crossings != nullptr)
        fillCrossing(crossings[index], chunk, ends, ends.mHeight, std::sqrt(ends.mSquare));
    return true;
}

/// The same for a link of the kind OTHER.
bool WayCorridor::crossOther(const LinkMeasure& measure, const LinkEnds& ends, const NavMeshPathChunk& chunk,
                             uint32 index, NavMeshCrossing* crossings)
{
    LinkGeometry link;
    if (!measure.measureOther(link, ends, static_cast<uint32>(chunk.mNodeID)))
        return false;
    passNode(chunk, link.mLeaving[0], link.mLeaving[1]);
    addOpening(link, index);
    mEntrance = {ends.mNumCorners, link.mFirstSide, link.mNumSides};
    if (crossings != nullptr)
        fillCrossing(crossings[index], chunk, ends, link.mHeight, link.mWidth);
    return true;
}

/// All but the places.
inline void WayCorridor::fillCrossing(NavMeshCrossing& crossing, const NavMeshPathChunk& chunk, const LinkEnds& ends,
                                      float height, float width) const
{
    crossing.mFromNode = chunk.mNodeID;
    crossing.mToNode = static_cast<int32>(ends.mNeighbourID);
    crossing.mBorderID = chunk.mBorderID;
    crossing.mMove = classify(height);
    crossing.mHeight = height;
    crossing.mWidth = width;
}

/// Asks for what the chunks after this one need. @param numAhead  chunks from this one to the end of the path
inline void WayCorridor::fetchAhead(const NavMeshPathChunk* chunk, size_t numAhead) const
{
    using Common::Platform::prefetch;
    if (numAhead > NODES_AHEAD && isNode(chunk[NODES_AHEAD].mNodeID))
    {
        const NavNode* const node = mNodes + chunk[NODES_AHEAD].mNodeID;
        prefetch(node);
        prefetch(reinterpret_cast<const char*>(node) + sizeof(NavNode) - 1);
    }
    if (numAhead > LISTS_AHEAD && isNode(chunk[LISTS_AHEAD].mNodeID))
    {
        const NavNode& node = mNodes[chunk[LISTS_AHEAD].mNodeID];
        prefetch(node.mPolygon.data());
        prefetch(node.mNeighbours.data());
    }
}

inline NavMeshMove WayCorridor::classify(float height) const
{
    if (std::fabs(height) <= mMaxStep)
        return NavMeshMove::WALK;
    return height > 0.0f ? NavMeshMove::JUMP_UP : NavMeshMove::DROP_DOWN;
}

/// Looks at what lies between the sides by which a node is entered and left. @param start,end  of the opening left by
inline void WayCorridor::passNode(const NavMeshPathChunk& chunk, const Vec3<float>& start, const Vec3<float>& end)
{
    if (mEntrance.mNumSides == 0)
        return;
    const uint32 exit = chunk.mBorderID;
    const uint32 sidesOn = exit - mEntrance.mFirstSide + (exit >= mEntrance.mFirstSide ? 0 : mEntrance.mNumCorners);
    if (sidesOn < mEntrance.mNumSides)
    {
        fold(start, end);
        mTurnsBack = true;
    }
    else if (mEntrance.mNumCorners > 3 && mDentedNodes.isDented(static_cast<size_t>(chunk.mNodeID)))
        addDents(chunk.mNodeID, exit);
}

/// Adds the corners that stick into a node between the sides by which it is entered and left.
void WayCorridor::addDents(int32 nodeID, uint32 exit)
{
    const NavNode& node = mNodes[nodeID];
    forgetEnds();
    const WayFunnel::Border left = mIsMirrored ? WayFunnel::RIGHT : WayFunnel::LEFT;
    const WayFunnel::Border right = mIsMirrored ? WayFunnel::LEFT : WayFunnel::RIGHT;
    const size_t exitEnd = nextCorner(node, exit);
    for (size_t i = mEntrance.mFirstSide;; i = previousCorner(node, i))
    {
        addIfDent(left, nodeID, node, i);
        if (i == exitEnd)
            break;
    }
    for (size_t i = (mEntrance.mFirstSide + mEntrance.mNumSides) % node.mPolygon.size();; i = nextCorner(node, i))
    {
        addIfDent(right, nodeID, node, i);
        if (i == exit)
            break;
    }
}

/// A corner of a node that is not quite convex is one of the corridor.
void WayCorridor::addIfDent(WayFunnel::Border border, int32 nodeID, const NavNode& node, size_t index)
{
    if (!mDentedNodes.isDent(node, index))
        return;
    const Vec3<float>& corner = mMesh.mVertices[node.mPolygon[index]];
    mDents.push_back({corner, nodeID, mNumPortals});
    const uint32 source = IS_DENT | static_cast<uint32>(mDents.size() - 1);
    border == WayFunnel::LEFT ? mFunnel.add<WayFunnel::LEFT>(place(corner), source)
                              : mFunnel.add<WayFunnel::RIGHT>(place(corner), source);
}

template <WayFunnel::Border BORDER>
inline void WayCorridor::addEnd(const Vec3<float>* end, uint32 source)
{
    if (end == mLastEnds[BORDER])
        return;
    mLastEnds[BORDER] = end;
    mLastPlaces[BORDER] = place(*end);
    mFunnel.add<BORDER>(mLastPlaces[BORDER], source);
}

/// Makes the next portal count: the line has to pass between these ends.
inline void WayCorridor::addPortal(Portal& portal, const Vec3<float>* left, const Vec3<float>* right)
{
    const uint32 source = 2 * mNumPortals++;
    addEnd<WayFunnel::LEFT>(left, source);
    addEnd<WayFunnel::RIGHT>(right, source + 1);
    mFunnel.close();
    portal.mHasPoint = portal.mIsFold || portal.mMove != NavMeshMove::WALK;
    portal.mPlaces[0] = mLastPlaces[0];
    portal.mPlaces[1] = mLastPlaces[1];
}

/// Adds the portal of a side that both nodes have, or that lies on the side back.
inline void WayCorridor::addWhole(const LinkEnds& link, uint32 chunk)
{
    Portal& portal = mPortals[mNumPortals];
    portal.mChunk = chunk;
    portal.mMove = classify(link.mHeight);
    portal.mPart = Part::OPENING;
    portal.mIsFold = mTurnsBack;
    mTurnsBack = false;
    portal.mLeft = mIsMirrored ? 0 : 1; // the node lies to the left of its sides
    portal.mIsKept = false;
    for (int i = 0; i < 2; ++i)
    {
        portal.mEnds[i] = link.mCorners[i];
        portal.mFarEnds[i] = link.mFarCorners[i];
    }
    if (mBodyRadius > 0.0f)
    {
        const Vec3<float> ends[2] = {mVertices[link.mCorners[0]], mVertices[link.mCorners[1]]};
        const Vec3<float> farEnds[2] = {mVertices[link.mFarCorners[0]], mVertices[link.mFarCorners[1]]};
        keepEnds(portal, ends, farEnds, std::sqrt(link.mSquare));
        addPortal(portal, &mKept[portal.mEnds[0]], &mKept[portal.mEnds[1]]);
        return;
    }
    addPortal(portal, mVertices + portal.mEnds[portal.mLeft], mVertices + portal.mEnds[1 - portal.mLeft]);
}

/// Adds the portal or portals of any other link.
void WayCorridor::addOpening(const LinkGeometry& link, uint32 chunk)
{
    Portal& portal = mPortals[mNumPortals];
    portal.mChunk = chunk;
    portal.mMove = classify(link.mHeight);
    portal.mPart = Part::OPENING;
    portal.mIsFold = link.mTurnsBack != mTurnsBack;
    mTurnsBack = false;
    keepEnds(portal, link.mLeaving, link.mLanding, link.mWidth);
    addPortal(portal, &mKept[portal.mEnds[0]], &mKept[portal.mEnds[1]]);
    if (link.mTurnsBack)
        fold(link.mLeaving[0], link.mLeaving[1]);
    else if (leadsBeyond(link))
    {
        portal.mPart = Part::LEAVING;
        Portal& landing = mPortals[mNumPortals];
        landing = portal;
        landing.mPart = Part::LANDING;
        landing.mIsFold = false;
        addPortal(landing, &mKept[portal.mFarEnds[0]], &mKept[portal.mFarEnds[1]]);
    }
}

/// Keeps the positions of a portal, the left ones first, less the room that the body needs.
/// @param ends,farEnds  in the direction of the side. @param width  of the opening
void WayCorridor::keepEnds(Portal& portal, const Vec3<float>* ends, const Vec3<float>* farEnds, float width)
{
    const int left = mIsMirrored ? 0 : 1;
    keep(portal.mEnds, ends[left], ends[1 - left], width);
    keep(portal.mFarEnds, farEnds[left], farEnds[1 - left], width);
    portal.mLeft = 0;
    portal.mIsKept = true;
}

void WayCorridor::keep(uint32* ends, const Vec3<float>& left, const Vec3<float>& right, float width)
{
    const float share = mBodyRadius <= 0.0f ? 0.0f : width > 2.0f * mBodyRadius ? mBodyRadius / width : 0.5f;
    ends[0] = mNumKept++;
    ends[1] = mNumKept++;
    mKept[ends[0]] = between(left, right, share);
    mKept[ends[1]] = share < 0.5f ? between(right, left, share) : mKept[ends[0]];
}

/// Whether the side of arrival lies on the far side of the one left.
bool WayCorridor::leadsBeyond(const LinkGeometry& link) const
{
    if (link.mNumSides == 0)
        return true;
    const float least = GAP_IN_CUBES * mCubeSize;
    return std::min(link.mGap[0], link.mGap[1]) >= -least && std::max(link.mGap[0], link.mGap[1]) > least;
}

const Vector<WayFunnel::Corner>& WayCorridor::findLine(const Vec3<float>& end)
{
    Vector<WayFunnel::Corner>& line = mFunnel.finish({place(end), AT_END});
    straighten(line);
    markBends(line);
    return line;
}

void WayCorridor::markBends(const Vector<WayFunnel::Corner>& line)
{
    for (const WayFunnel::Corner& corner : line)
    {
        if ((corner.mSource & IS_DENT) == 0) // nor is it an end
            mPortals[corner.mSource / 2].mHasPoint = true;
    }
}

/// Takes bends out of the line that are none but for rounding.
void WayCorridor::straighten(Vector<WayFunnel::Corner>& line) const
{
    size_t kept = 1;
    for (size_t i = 1; i + 1 < line.size(); ++i)
    {
        if (getDistance(line[kept - 1].mPlace, line[i + 1].mPlace, line[i].mPlace) > mTolerance)
            line[kept++] = line[i];
    }
    line[kept++] = line.back();
    line.erase(line.begin() + static_cast<ptrdiff_t>(kept), line.end());
}

size_t WayCorridor::getNumPortals(const WayFunnel::Corner& corner) const
{
    if (isEnd(corner))
        return mNumPortals;
    return (corner.mSource & IS_DENT) != 0 ? mDents[corner.mSource & ~IS_DENT].mNumPortals : corner.mSource / 2 + 1;
}

const WayCorridor::Dent* WayCorridor::getDent(const WayFunnel::Corner& corner) const
{
    return !isEnd(corner) && (corner.mSource & IS_DENT) != 0 ? &mDents[corner.mSource & ~IS_DENT] : nullptr;
}
} // namespace KORV::NavMesh
