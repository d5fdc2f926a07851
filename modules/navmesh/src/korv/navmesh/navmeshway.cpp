// Turns a path into a way.
//
// Idea: every opening on the path is a portal, a segment of the ground plane that the line has to cross. A funnel over
// their ends gives the shortest line; where it crosses each portal is looked up afterwards, because jumps and drops
// have points there also when the line does not bend. Where nobody asks for the crossings, the other portals are left
// out of that.
#include "korv/navmesh/navmeshway.h"

#include "korv/common/debug/assert.h"
#include "korv/navmesh/places/waycorridor.h"

#include <cmath>

namespace KORV::NavMesh
{
namespace
{
using Place = Vec2<double>;
using Portal = WayCorridor::Portal;
using Part = WayCorridor::Part;

constexpr double PARALLEL = 1e-9; ///< sine of an angle that is none

bool isFinite(const Vec3<float>& v)
{
    return std::isfinite(v.mX) && std::isfinite(v.mY) && std::isfinite(v.mZ);
}

/// A straight leg, asked portal after portal where it crosses them.
class Leg
{
public:
    /// @param next  the first portal that it crosses.
    Leg(const Portal* portals, size_t next, const Place& start, const Place& end)
        : mPortals(portals), mNext(next), mStart(start), mReached(start), mAlong(end - start),
          mSquare(dot(mAlong, mAlong))
    {
    }

    /// @return the share of the way from the left to the right end of a portal, not asked for before.
    double getShare(size_t portal)
    {
        const Place& left = mPortals[portal].mPlaces[0];
        const Place across = mPortals[portal].mPlaces[1] - left;
        const double slope = cross(mAlong, across);
        const double squared = dot(across, across);
        double share = 0.0;
        if (slope * slope > PARALLEL * PARALLEL * squared * mSquare)
            share = cross(mAlong, mStart - left) / slope;
        else if (squared > 0.0) // a leg that runs along the portal crosses it as soon as it can
            share = dot(across, getReached(portal) - left) / squared;
        // no std::clamp: without branches, as no share is like the one before
        share = share > 0.0 ? share : 0.0;
        share = share < 1.0 ? share : 1.0;
        mReached = left + across * share;
        mNext = portal + 1;
        return share;
    }

private:
    /// Where the leg has got to before a portal: it crosses those that nobody has asked for, each of them once.
    const Place& getReached(size_t portal)
    {
        while (mNext < portal)
            getShare(mNext);
        return mReached;
    }

    const Portal* const mPortals;
    size_t mNext;
    const Place mStart;
    Place mReached;
    const Place mAlong;
    const double mSquare;
};
} // namespace

/// Finds ways; keeps its memory between them.
class NavMeshWayFinder::Worker : public Common::Memory::MemoryManaged
{
public:
    explicit Worker(const NavMeshContainer& mesh) : mMesh(mesh), mCorridor(mesh, getMemory()) {}

    bool findWay(NavMeshWay& way, const Vec3<float>& start, const Vec3<float>& end,
                 const Vector<NavMeshPathChunk>& path, bool hasCrossings)
    {
        way.mCrossings.resize(hasCrossings ? path.size() : 0);
        mCrossings = hasCrossings ? way.mCrossings.data() : nullptr;
        mPath = &path;
        if (!mCorridor.follow(start, path, mCrossings))
            return false;
        trace(way, mCorridor.findLine(end), start, end);
        return true;
    }

    WayCorridor& getCorridor() { return mCorridor; }

private:
    /// Follows the line across the portals and writes down the way.
    void trace(NavMeshWay& way, const Vector<WayFunnel::Corner>& line, const Vec3<float>& start, const Vec3<float>& end)
    {
        way.mPoints.push_back({start, getNode(0)});
        Portal* const portals = mCorridor.getPortals();
        size_t portal = 0;
        for (size_t i = 1; i < line.size(); ++i)
        {
            Leg leg(portals, portal, line[i - 1].mPlace, line[i].mPlace);
            for (const size_t numPortals = mCorridor.getNumPortals(line[i]); portal < numPortals; ++portal)
            {
                if (mCrossings == nullptr && !portals[portal].mHasPoint)
                    continue;
                const bool isOwn = line[i].mSource / 2 == portal;
                const double share = isOwn ? line[i].mSource % 2 : leg.getShare(portal);
                portals[portal].mShare = static_cast<float>(share);
                passPortal(way, portals[portal]);
            }
            addBend(way, line[i]);
        }
        addEnd(way, end);
        for (size_t i = 1; i < way.mPoints.size(); ++i)
            way.mLength += (way.mPoints[i].mPosition - way.mPoints[i - 1].mPosition).getLength();
    }

    /// The node that a chunk of the path leaves; after the last one, where the path ends.
    int32 getNode(size_t chunk) const
    {
        return chunk < mPath->size() ? (*mPath)[chunk].mNodeID : mCorridor.getLastNode();
    }

    /// Writes down where the way crosses a portal, and the points of a jump, a drop or a fold.
    void passPortal(NavMeshWay& way, const Portal& portal) const
    {
        if (mCrossings != nullptr)
            writePlaces(mCrossings[portal.mChunk], portal);
        if (portal.mMove != NavMeshMove::WALK)
            addJump(way, portal);
        else if (portal.mIsFold)
            addBend(way, portal);
    }

    void writePlaces(NavMeshCrossing& crossing, const Portal& portal) const
    {
        if (portal.mPart != Part::LANDING)
            crossing.mLeaving = mCorridor.getLeaving(portal);
        if (portal.mPart != Part::LEAVING)
            crossing.mLanding = mCorridor.getLanding(portal);
    }

    /// Adds the points of a jump or drop.
    void addJump(NavMeshWay& way, const Portal& portal) const
    {
        if (portal.mPart != Part::LANDING)
        {
            addPoint(way, mCorridor.getLeaving(portal), getNode(portal.mChunk));
            way.mPoints.back().mMove = portal.mMove;
        }
        if (portal.mPart != Part::LEAVING)
        {
            const Vec3<float> landing = mCorridor.getLanding(portal);
            way.mPoints.back().mHeight = dot(mMesh.mNormal, landing - way.mPoints.back().mPosition);
            addPoint(way, landing, getNode(portal.mChunk + 1));
        }
    }

    void addBend(NavMeshWay& way, const WayFunnel::Corner& corner)
    {
        if (WayCorridor::isEnd(corner))
            return;
        if (const WayCorridor::Dent* const dent = mCorridor.getDent(corner))
            addPoint(way, dent->mPosition, dent->mNode);
        else
            addBend(way, mCorridor.getPortals()[corner.mSource / 2]);
    }

    /// Adds the point where the way crosses a portal; a jump or drop has its points already.
    void addBend(NavMeshWay& way, const Portal& portal) const
    {
        if (portal.mMove != NavMeshMove::WALK)
            return;
        if (portal.mPart == Part::LEAVING)
            addPoint(way, mCorridor.getLeaving(portal), getNode(portal.mChunk));
        else
            addPoint(way, mCorridor.getLanding(portal), getNode(portal.mChunk + 1));
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

    void addEnd(NavMeshWay& way, const Vec3<float>& end) const
    {
        if (way.mPoints.size() > 1 && isAt(way.mPoints.back(), end))
            way.mPoints.pop_back();
        way.mPoints.push_back({end, mCorridor.getLastNode()});
    }

    bool isAt(const NavMeshWayPoint& point, const Vec3<float>& position) const
    {
        return static_cast<double>((position - point.mPosition).getLength()) <= mCorridor.getTolerance();
    }

    const NavMeshContainer& mMesh;
    WayCorridor mCorridor;
    const Vector<NavMeshPathChunk>* mPath = nullptr;
    NavMeshCrossing* mCrossings = nullptr; ///< null where nobody asks for them
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
        mWorker->getCorridor().mBodyRadius = radius;
}

void NavMeshWayFinder::setStepHeight(float height)
{
    if (KORV_ASSERT(height >= 0.0f && std::isfinite(height), "height >= 0", "step height is out of range") &&
        mWorker != nullptr)
        mWorker->getCorridor().mStepHeight = height;
}

bool NavMeshWayFinder::findWay(NavMeshWay& way, const Vec3<float>& start, const Vec3<float>& end,
                               const Vector<NavMeshPathChunk>& path, int startNodeID)
{
    return findWay(way, start, end, path, startNodeID, true);
}

bool NavMeshWayFinder::findPoints(NavMeshWay& way, const Vec3<float>& start, const Vec3<float>& end,
                                  const Vector<NavMeshPathChunk>& path, int startNodeID)
{
    return findWay(way, start, end, path, startNodeID, false);
}

bool NavMeshWayFinder::findWay(NavMeshWay& way, const Vec3<float>& start, const Vec3<float>& end,
                               const Vector<NavMeshPathChunk>& path, int startNodeID, bool hasCrossings)
{
    way.mPoints.clear();
    way.mLength = 0.0f;
    if (!isValid(start, end, path, startNodeID) || !mWorker->findWay(way, start, end, path, hasCrossings))
    {
        way.mCrossings.clear();
        return false;
    }
    if (path.empty())
        way.mPoints.front().mNodeID = way.mPoints.back().mNodeID = startNodeID;
    return true;
}

bool NavMeshWayFinder::isValid(const Vec3<float>& start, const Vec3<float>& end, const Vector<NavMeshPathChunk>& path,
                               int startNodeID) const
{
    if (mWorker == nullptr ||
        !KORV_ASSERT(isFinite(start) && isFinite(end), "start and end are finite", "position is not finite"))
        return false;
    return !path.empty() || KORV_ASSERT(startNodeID >= -1 && startNodeID < static_cast<int64>(mNavMesh->mNodes.size()),
                                        "startNodeID < mNavMesh->mNodes.size()", "startNodeID is out of range");
}
} // namespace KORV::NavMesh
