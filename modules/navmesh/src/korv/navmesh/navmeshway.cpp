// Turns a path into a way.
//
// Idea: every opening on the path is a portal, a segment of the ground plane that the line has to cross. A funnel over
// their ends gives the shortest line; where it crosses each portal is looked up afterwards, because jumps and drops
// have points there also when the line does not bend.
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
// Numbers: the plane is computed in double, relative to the start. Places closer than TOLERANCE are one.
//
// Cost: what a portal needs in space waits in the crossing that the way gets anyway. A corner that follows itself on a
// border is projected and looked at once. Few nodes have dents; which ones is remembered. On a large mesh the nodes,
// their lists and their corners are asked for some chunks ahead.
#include "korv/navmesh/navmeshway.h"

#include "korv/common/debug/assert.h"
#include "korv/common/platform/prefetch.h"
#include "korv/navmesh/places/linkgeometry.h"
#include "korv/navmesh/places/waydents.h"
#include "korv/navmesh/places/wayfunnel.h"

#include <algorithm>
#include <cmath>

namespace KORV::NavMesh
{
namespace
{
using NavNode = NavMeshContainer::NavNode;
using Place = Vec2<double>;

constexpr double TOLERANCE_IN_CUBES = 1e-4;
constexpr float GAP_IN_CUBES = 1e-3f; ///< nearer sides lie on one another
constexpr float STEP_SLACK = 1.001f;
constexpr double PARALLEL = 1e-9; ///< sine of an angle that is none

constexpr uint32 AT_END = 0xFFFFFFFF; ///< source of the ends of the line
constexpr uint32 IS_DENT = 0x80000000;
constexpr uint32 NONE = 0xFFFFFFFF;

bool isFinite(const Vec3<float>& v)
{
    return std::isfinite(v.mX) && std::isfinite(v.mY) && std::isfinite(v.mZ);
}

/// Out of line: a report needs a large frame.
bool reportMisfit(size_t chunk, const NavMeshPathChunk& entry)
{
    return KORV_FAIL("The path does not fit the mesh: chunk " << chunk << " names side " << entry.mBorderID
                                                              << " of node " << entry.mNodeID);
}
} // namespace

/// Finds ways; keeps its memory between them.
class NavMeshWayFinder::Worker : public Common::Memory::MemoryManaged
{
public:
    explicit Worker(const NavMeshContainer& mesh)
        : mMesh(mesh), mFunnel(getMemory()), mPortals(getMemory()), mFarEnds(getMemory()), mDents(getMemory()),
          mDentedNodes(mesh, getMemory())
    {
    }

    bool findWay(NavMeshWay& way, const Vec3<float>& start, const Vec3<float>& end,
                 const Vector<NavMeshPathChunk>& path)
    {
        begin(start);
        if (!followPath(way, path))
            return false;
        Vector<WayFunnel::Corner>& line = mFunnel.finish({place(end), AT_END});
        straighten(line);
        trace(way, line, start, end);
        return true;
    }

    float mBodyRadius = 0.0f;
    float mStepHeight = -1.0f; ///< negative: one cube

private:
    /// What a portal is part of.
    enum class Part : uint8
    {
        OPENING,
        LEAVING,
        LANDING
    };

    /// A segment to cross. The first end is the left one, as seen by who crosses. Until the line is known, the crossing
    /// holds the ends on the side left: mLeaving the left one, mLanding the right one.
    struct Portal
    {
        Place mEnds[2];
        uint32 mCrossing = 0;
        uint32 mFarEnds = NONE; ///< where its ends on the side of arrival are; NONE: those on the side left
        Part mPart = Part::OPENING;
        bool mIsFold = false; ///< who crosses turns back: a bend, though the line runs straight on
    };

    struct Ends
    {
        Vec3<float> mEnds[2];
    };

    /// A corner that sticks into its node.
    struct Dent
    {
        Vec3<float> mPosition;
        int32 mNode = -1;
        size_t mNumPortals = 0; ///< those before it
    };

    void begin(const Vec3<float>& start)
    {
        mOrigin = start;
        mRows[0] = {mMesh.mXAxis.mX, mMesh.mXAxis.mY, mMesh.mXAxis.mZ};
        mRows[1] = {mMesh.mYAxis.mX, mMesh.mYAxis.mY, mMesh.mYAxis.mZ};
        mShift = {};
        mIsMirrored = false;
        mTurnsBack = false;
        mCubeSize = mMesh.mCubeSize > 0.0f && std::isfinite(mMesh.mCubeSize) ? mMesh.mCubeSize : 0.0f;
        mTolerance = TOLERANCE_IN_CUBES * static_cast<double>(mCubeSize);
        mPortals.clear();
        mFarEnds.clear();
        mDents.clear();
        forgetEnds();
        mNodes = mMesh.mNodes.data();
        mNumNodes = mMesh.mNodes.size();
        mDentedNodes.update(mCubeSize);
        mFunnel.begin({place(start), AT_END}, mTolerance);
    }

    /// The next ends are looked at, whatever the last ones were.
    void forgetEnds() { mLastCorners[0] = mLastCorners[1] = NONE; }

    /// Where a point lies in the plane, as far as it is folded open.
    Place place(const Vec3<float>& point) const
    {
        const Vec3<double> p(static_cast<double>(point.mX) - static_cast<double>(mOrigin.mX),
                             static_cast<double>(point.mY) - static_cast<double>(mOrigin.mY),
                             static_cast<double>(point.mZ) - static_cast<double>(mOrigin.mZ));
        return {dot(mRows[0], p) + mShift.mX, dot(mRows[1], p) + mShift.mY};
    }

    /// Mirrors what follows at a line.
    void fold(const Place& a, const Place& b)
    {
        const Place dir = normalised(b - a);
        const double cosine = dir.mX * dir.mX - dir.mY * dir.mY; // of twice the angle of the line
        const double sine = 2.0 * dir.mX * dir.mY;
        const Vec3<double> x = mRows[0];
        const Vec3<double> y = mRows[1];
        mRows[0] = x * cosine + y * sine;
        mRows[1] = x * sine - y * cosine;
        const Place shift = mShift - a;
        mShift = a + Place(cosine * shift.mX + sine * shift.mY, sine * shift.mX - cosine * shift.mY);
        mIsMirrored = !mIsMirrored;
        forgetEnds();
    }

    /// Makes a crossing of each chunk, and feeds the funnel.
    bool followPath(NavMeshWay& way, const Vector<NavMeshPathChunk>& path)
    {
        way.mCrossings.resize(path.size());
        mPortals.reserve(path.size());
        const LinkMeasure measure(mMesh);
        LinkGeometry link;
        int32 node = path.empty() ? -1 : path[0].mNodeID;
        const size_t numChunks = path.size();
        for (size_t i = 0; i < numChunks; ++i)
        {
            const NavMeshPathChunk& chunk = path[i];
            fetchAhead(&chunk, numChunks - i);
            const uint32 firstSide = link.mFirstSide;
            const uint32 numSides = link.mNumSides;
            if (chunk.mNodeID != node || !measure.measure(link, static_cast<uint32>(node), chunk.mBorderID))
                return reportMisfit(i, chunk);
            if (numSides > 0)
                passNode(node, firstSide, numSides, chunk.mBorderID, link);
            NavMeshCrossing& crossing = way.mCrossings[i];
            crossing.mFromNode = node;
            node = mMesh.mNodes[static_cast<size_t>(node)].mNeighbours[chunk.mBorderID];
            crossing.mToNode = node;
            crossing.mBorderID = chunk.mBorderID;
            crossing.mMove = classify(link.mHeight);
            crossing.mHeight = link.mHeight;
            crossing.mWidth = link.mWidth;
            addOpening(crossing, link, static_cast<uint32>(i));
        }
        return true;
    }

    /// Asks for what the chunks after this one need, one step further for each of them.
    /// @param numChunks  from this one on.
    void fetchAhead(const NavMeshPathChunk* chunk, size_t numChunks) const
    {
        using Common::Platform::prefetch;
        if (numChunks > 3 && isNode(chunk[3].mNodeID))
        {
            const NavNode* const node = mNodes + chunk[3].mNodeID;
            prefetch(node);
            prefetch(reinterpret_cast<const char*>(node) + sizeof(NavNode) - 1);
        }
        if (numChunks > 2 && isNode(chunk[2].mNodeID))
        {
            const NavNode& node = mNodes[chunk[2].mNodeID];
            prefetch(node.mPolygon.data());
            prefetch(node.mNeighbours.data());
        }
        if (numChunks < 2 || !isNode(chunk[1].mNodeID))
            return;
        const NavNode& node = mNodes[chunk[1].mNodeID];
        const size_t side = chunk[1].mBorderID;
        if (side >= node.mPolygon.size())
            return;
        prefetch(mMesh.mVertices.data() + node.mPolygon[side]);
        prefetch(mMesh.mVertices.data() + node.mPolygon[nextCorner(node, side)]);
    }

    bool isNode(int32 id) const { return static_cast<uint32>(id) < mNumNodes; }

    NavMeshMove classify(float height) const
    {
        const float step = mStepHeight >= 0.0f ? mStepHeight : mCubeSize;
        if (std::fabs(height) <= step * STEP_SLACK)
            return NavMeshMove::WALK;
        return height > 0.0f ? NavMeshMove::JUMP_UP : NavMeshMove::DROP_DOWN;
    }

    /// Looks at what lies between the sides by which a node is entered and left.
    void passNode(int32 nodeID, uint32 firstSide, uint32 numSides, uint32 exit, const LinkGeometry& link)
    {
        const NavNode& node = mMesh.mNodes[static_cast<size_t>(nodeID)];
        const size_t numCorners = node.mPolygon.size();
        const size_t sidesOn = exit >= firstSide ? exit - firstSide : exit + numCorners - firstSide;
        if (sidesOn < numSides)
        {
            fold(place(link.mLeaving[0]), place(link.mLeaving[1]));
            mTurnsBack = true;
            return;
        }
        if (numCorners > 3 && mDentedNodes.isDented(static_cast<size_t>(nodeID)))
            addDents(nodeID, firstSide, numSides, exit);
    }

    /// Adds the corners that stick into a node between the sides by which it is entered and left.
    void addDents(int32 nodeID, uint32 firstSide, uint32 numSides, uint32 exit)
    {
        const NavNode& node = mMesh.mNodes[static_cast<size_t>(nodeID)];
        forgetEnds();
        const WayFunnel::Border left = mIsMirrored ? WayFunnel::RIGHT : WayFunnel::LEFT;
        const WayFunnel::Border right = mIsMirrored ? WayFunnel::LEFT : WayFunnel::RIGHT;
        const size_t exitEnd = nextCorner(node, exit);
        for (size_t i = firstSide;; i = previousCorner(node, i))
        {
            addIfDent(left, nodeID, node, i);
            if (i == exitEnd)
                break;
        }
        for (size_t i = (firstSide + numSides) % node.mPolygon.size();; i = nextCorner(node, i))
        {
            addIfDent(right, nodeID, node, i);
            if (i == exit)
                break;
        }
    }

    /// A corner of a node that is not quite convex is one of the corridor.
    void addIfDent(WayFunnel::Border border, int32 nodeID, const NavNode& node, size_t index)
    {
        if (!mDentedNodes.isDent(node, index))
            return;
        const Vec3<float>& corner = mMesh.mVertices[node.mPolygon[index]];
        mDents.push_back({corner, nodeID, mPortals.size()});
        const uint32 source = IS_DENT | static_cast<uint32>(mDents.size() - 1);
        border == WayFunnel::LEFT ? mFunnel.add<WayFunnel::LEFT>(place(corner), source)
                                  : mFunnel.add<WayFunnel::RIGHT>(place(corner), source);
    }

    /// Adds the portal or portals of a link.
    void addOpening(NavMeshCrossing& crossing, const LinkGeometry& link, uint32 index)
    {
        const int left = mIsMirrored ? 0 : 1; // the node lies to the left of its sides
        crossing.mLeaving = link.mLeaving[left];
        crossing.mLanding = link.mLeaving[1 - left];
        const bool hasRadius = mBodyRadius > 0.0f;
        if (hasRadius)
            shrink(crossing.mLeaving, crossing.mLanding, link.mWidth);
        const bool isWhole = link.mIsWhole && !hasRadius;
        Portal& portal = addPortal(crossing.mLeaving, crossing.mLanding, isWhole ? link.mCorners[left] : NONE,
                                   isWhole ? link.mCorners[1 - left] : NONE);
        portal.mCrossing = index;
        portal.mIsFold = link.mTurnsBack != mTurnsBack;
        mTurnsBack = false;
        if (!link.mIsShared)
            addFarSide(link, left);
    }

    /// Adds to the last portal, or after it, what lies on the side of arrival.
    void addFarSide(const LinkGeometry& link, int left)
    {
        Ends ends{{link.mLanding[left], link.mLanding[1 - left]}};
        if (mBodyRadius > 0.0f)
            shrink(ends.mEnds[0], ends.mEnds[1], link.mWidth);
        mPortals.back().mFarEnds = static_cast<uint32>(mFarEnds.size());
        mFarEnds.push_back(ends);
        if (link.mTurnsBack)
            fold(place(link.mLeaving[0]), place(link.mLeaving[1]));
        else if (isBeyond(link))
        {
            Portal landing = mPortals.back();
            mPortals.back().mPart = Part::LEAVING;
            landing.mPart = Part::LANDING;
            landing.mIsFold = false;
            Portal& added = addPortal(ends.mEnds[0], ends.mEnds[1], NONE, NONE);
            std::copy(added.mEnds, added.mEnds + 2, landing.mEnds);
            added = landing;
        }
    }

    /// Leaves room for the body at both ends of an opening.
    void shrink(Vec3<float>& left, Vec3<float>& right, float width) const
    {
        const float share = width > 2.0f * mBodyRadius ? mBodyRadius / width : 0.5f;
        const Vec3<float> whole[2] = {left, right};
        left = between(whole[0], whole[1], share);
        right = share < 0.5f ? between(whole[1], whole[0], share) : left;
    }

    /// @param leftID,rightID  of the corners that the ends are; NONE where they are none.
    Portal& addPortal(const Vec3<float>& left, const Vec3<float>& right, uint32 leftID, uint32 rightID)
    {
        const auto source = static_cast<uint32>(2 * mPortals.size());
        Portal& portal = mPortals.emplace_back();
        addEnd<WayFunnel::LEFT>(left, leftID, source);
        addEnd<WayFunnel::RIGHT>(right, rightID, source + 1);
        portal.mEnds[0] = mLastPlaces[0];
        portal.mEnds[1] = mLastPlaces[1];
        mFunnel.close();
        return portal;
    }

    template <WayFunnel::Border BORDER>
    void addEnd(const Vec3<float>& end, uint32 id, uint32 source)
    {
        if (id == mLastCorners[BORDER] && id != NONE)
            return;
        const Place p = place(end);
        mLastPlaces[BORDER] = p;
        mLastCorners[BORDER] = id;
        mFunnel.add<BORDER>(p, source);
    }

    /// Whether the side of arrival lies on the far side of the one left.
    bool isBeyond(const LinkGeometry& link) const
    {
        if (link.mNumSides == 0)
            return true;
        const float least = GAP_IN_CUBES * mCubeSize;
        return std::min(link.mGap[0], link.mGap[1]) >= -least && std::max(link.mGap[0], link.mGap[1]) > least;
    }

    /// Takes bends out of the line that are none but for rounding.
    void straighten(Vector<WayFunnel::Corner>& line) const
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

    /// Distance of a place from a segment.
    static double getDistance(const Place& a, const Place& b, const Place& p)
    {
        const Place along = b - a;
        const double squared = dot(along, along);
        const double share = squared > 0.0 ? std::clamp(dot(along, p - a) / squared, 0.0, 1.0) : 0.0;
        return (a + along * share - p).getLength();
    }

    /// Follows the line across the portals and writes down the way.
    void trace(NavMeshWay& way, const Vector<WayFunnel::Corner>& line, const Vec3<float>& start,
               const Vec3<float>& end) const
    {
        const int32 firstNode = way.mCrossings.empty() ? -1 : way.mCrossings.front().mFromNode;
        const int32 lastNode = way.mCrossings.empty() ? -1 : way.mCrossings.back().mToNode;
        way.mPoints.push_back({start, firstNode});
        size_t portal = 0;
        for (size_t i = 1; i < line.size(); ++i)
        {
            Place reached = line[i - 1].mPlace;
            for (const size_t numPortals = getNumPortals(line[i]); portal < numPortals; ++portal)
            {
                const bool isOwn = line[i].mSource / 2 == portal;
                const double share = isOwn ? line[i].mSource % 2
                                           : getShare(mPortals[portal], line[i - 1].mPlace, line[i].mPlace, reached);
                writeCrossing(way, mPortals[portal], static_cast<float>(share));
            }
            addBend(way, line[i]);
        }
        addEnd(way, end, lastNode);
        for (size_t i = 1; i < way.mPoints.size(); ++i)
            way.mLength += (way.mPoints[i].mPosition - way.mPoints[i - 1].mPosition).getLength();
    }

    /// How many portals the line has crossed when it gets to a corner.
    size_t getNumPortals(const WayFunnel::Corner& corner) const
    {
        if (corner.mSource == AT_END)
            return mPortals.size();
        return (corner.mSource & IS_DENT) != 0 ? mDents[corner.mSource & ~IS_DENT].mNumPortals : corner.mSource / 2 + 1;
    }

    /// Where a leg from a to b crosses a portal, as a share of the way from its left to its right end.
    /// @param reached  the crossing before; receives this one.
    static double getShare(const Portal& portal, const Place& a, const Place& b, Place& reached)
    {
        const Place along = portal.mEnds[1] - portal.mEnds[0];
        const Place leg = b - a;
        const double slope = cross(leg, along);
        const double squared = dot(along, along);
        double share = 0.0;
        if (slope * slope > PARALLEL * PARALLEL * squared * dot(leg, leg))
            share = cross(leg, a - portal.mEnds[0]) / slope;
        else if (squared > 0.0) // a leg that runs along the portal crosses it as soon as it can
            share = dot(along, reached - portal.mEnds[0]) / squared;
        // no std::clamp: without branches, as no share is like the one before
        share = share > 0.0 ? share : 0.0;
        share = share < 1.0 ? share : 1.0;
        reached = portal.mEnds[0] + along * share;
        return share;
    }

    /// Writes down where the way crosses a portal, and the points of a jump or drop.
    void writeCrossing(NavMeshWay& way, const Portal& portal, float share) const
    {
        NavMeshCrossing& crossing = way.mCrossings[portal.mCrossing];
        const bool isWalk = crossing.mMove == NavMeshMove::WALK;
        if (portal.mPart != Part::LANDING)
        {
            crossing.mLeaving = crossing.mLanding = between(crossing.mLeaving, crossing.mLanding, share);
            if (!isWalk)
            {
                addPoint(way, crossing.mLeaving, crossing.mFromNode);
                way.mPoints.back().mMove = crossing.mMove;
            }
        }
        if (portal.mPart != Part::LEAVING)
        {
            if (portal.mFarEnds != NONE)
            {
                const Ends& ends = mFarEnds[portal.mFarEnds];
                crossing.mLanding = between(ends.mEnds[0], ends.mEnds[1], share);
            }
            if (!isWalk)
            {
                way.mPoints.back().mHeight = dot(mMesh.mNormal, crossing.mLanding - way.mPoints.back().mPosition);
                addPoint(way, crossing.mLanding, crossing.mToNode);
            }
        }
        if (portal.mIsFold)
            addBend(way, portal);
    }

    void addBend(NavMeshWay& way, const WayFunnel::Corner& corner) const
    {
        if (corner.mSource == AT_END)
            return;
        if ((corner.mSource & IS_DENT) != 0)
        {
            const Dent& dent = mDents[corner.mSource & ~IS_DENT];
            addPoint(way, dent.mPosition, dent.mNode);
            return;
        }
        addBend(way, mPortals[corner.mSource / 2]);
    }

    /// Adds the point where the way crosses a portal; a jump or drop has its points already.
    void addBend(NavMeshWay& way, const Portal& portal) const
    {
        const NavMeshCrossing& crossing = way.mCrossings[portal.mCrossing];
        if (crossing.mMove != NavMeshMove::WALK)
            return;
        if (portal.mPart == Part::LEAVING)
            addPoint(way, crossing.mLeaving, crossing.mFromNode);
        else
            addPoint(way, crossing.mLanding, crossing.mToNode);
    }

    /// Adds a point, or takes the last one for it where the way has got there.
    void addPoint(NavMeshWay& way, const Vec3<float>& position, int32 node) const
    {
        NavMeshWayPoint& last = way.mPoints.back();
        if (last.mMove == NavMeshMove::WALK && isAt(last, position))
            last.mNodeID = node;
        else
            way.mPoints.push_back({position, node});
    }

    void addEnd(NavMeshWay& way, const Vec3<float>& end, int32 node) const
    {
        if (way.mPoints.size() > 1 && isAt(way.mPoints.back(), end))
            way.mPoints.pop_back();
        way.mPoints.push_back({end, node});
    }

    bool isAt(const NavMeshWayPoint& point, const Vec3<float>& position) const
    {
        return static_cast<double>((position - point.mPosition).getLength()) <= mTolerance;
    }

    const NavMeshContainer& mMesh;
    WayFunnel mFunnel;
    Vector<Portal> mPortals;
    Vector<Ends> mFarEnds;
    Vector<Dent> mDents;
    const NavNode* mNodes = nullptr;
    size_t mNumNodes = 0;
    WayDents mDentedNodes;
    uint32 mLastCorners[2] = {NONE, NONE}; ///< ids of the last ends on the two borders, as long as they still count
    Place mLastPlaces[2];
    Vec3<float> mOrigin;
    Vec3<double> mRows[2]; ///< axes of the plane, mirrored by each fold
    Place mShift;
    bool mIsMirrored = false;
    bool mTurnsBack = false; ///< the node is left through the side it was entered by
    float mCubeSize = 0.0f;
    double mTolerance = 0.0;
};

NavMeshWayFinder::NavMeshWayFinder(const SharedPtr<NavMeshContainer>& navMesh) : mNavMesh(navMesh)
{
    if (KORV_ASSERT(mNavMesh != nullptr, "mNavMesh != NULL", "Navmesh container must not be NULL"))
        mWorker = new (mNavMesh->getAllocator()) Worker(*mNavMesh);
}

NavMeshWayFinder::~NavMeshWayFinder()
{
    delete mWorker; // before the mesh, whose memory it is in
}

void NavMeshWayFinder::setBodyRadius(float radius)
{
    if (KORV_ASSERT(radius >= 0.0f && std::isfinite(radius), "radius >= 0", "body radius is out of range") &&
        mWorker != nullptr)
        mWorker->mBodyRadius = radius;
}

void NavMeshWayFinder::setStepHeight(float height)
{
    if (KORV_ASSERT(height >= 0.0f && std::isfinite(height), "height >= 0", "step height is out of range") &&
        mWorker != nullptr)
        mWorker->mStepHeight = height;
}

bool NavMeshWayFinder::findWay(NavMeshWay& way, const Vec3<float>& start, const Vec3<float>& end,
                               const Vector<NavMeshPathChunk>& path, int startNodeID)
{
    way.mPoints.clear();
    way.mCrossings.clear();
    way.mLength = 0.0f;
    if (mWorker == nullptr ||
        !KORV_ASSERT(isFinite(start) && isFinite(end), "start and end are finite", "position is not finite"))
        return false;
    if (path.empty() && !KORV_ASSERT(startNodeID >= -1 && startNodeID < static_cast<int64>(mNavMesh->mNodes.size()),
                                     "startNodeID < mNavMesh->mNodes.size()", "startNodeID is out of range"))
        return false;
    if (!mWorker->findWay(way, start, end, path))
    {
        way.mCrossings.clear();
        return false;
    }
    if (path.empty())
        way.mPoints.front().mNodeID = way.mPoints.back().mNodeID = startNodeID;
    return true;
}
} // namespace KORV::NavMesh
