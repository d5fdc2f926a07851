// Links the open sides of all nodes.
//
// Idea: all open sides lie in a grid. Nodes are taken in id order: the node's own open sides leave the grid, and each
// looks among the sides in its cells for the first one that runs along it. Fully covered, the side gets that node as
// its neighbour; partly covered, it is split at the ends of the other side, and the pieces are looked at anew. The
// other direction of a link comes about when the other node is taken: so a link is one-way where only one way is within
// reach.
//
// Invariants: a node changes only while it is taken, when none of its sides are in the grid, so records stay true.
// Kept sides go back under their final numbers: sides are looked at in ascending order, and a split moves only sides
// that have not been looked at.
//
// Numbers: sides run along each other when the cosine of their angle is at least 0.99, in either direction. Heights are
// those of a node's first corner and of the other side's first corner; slopes play no part.
//
// Refined rules differ in three places: a side that is out of reach does not end the search for one within reach; only
// sides that face each other are linked; a side that finds nothing stays in the grid for others to find.
// Cost: a side meets the sides in its own cells; each split leaves pieces of at least the overlap tolerance.
#include "korv/navmesh/navmeshconnector.h"

#include "korv/common/debug/assert.h"
#include "korv/common/exceptions/exception.h"
#include "korv/common/geom/geomutility.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace KORV::NavMesh
{
namespace
{
constexpr const char* STAGE = "Build Vertical Connections";
constexpr float MIN_COSINE = 0.99f;
constexpr float ROUNDING_SHARE = 1e-5f;
constexpr size_t NODES_PER_REPORT = 4096;
constexpr float INSERTION_SHARE = 0.2f; // of the stage's time, about

/// The share of [p0, p1] along a side that starts at @p start, in ascending order and within [0, 1].
void projectOntoSide(float& t0, float& t1, const Vec2<float>& start, const Vec2<float>& along, const Vec2<float>& p0,
                     const Vec2<float>& p1)
{
    t0 = std::clamp(dot(along, p0 - start) / dot(along, along), 0.0f, 1.0f);
    t1 = std::clamp(dot(along, p1 - start) / dot(along, along), 0.0f, 1.0f);
    if (t0 > t1)
        std::swap(t0, t1);
}

/// Makes room so that the next insertions can't fail; grows as appending does.
template <class T>
void reserveMore(Vector<T>& vector, size_t count)
{
    if (vector.capacity() - vector.size() < count)
        vector.reserve(std::max(vector.size() + count, 2 * vector.capacity()));
}
} // namespace

/// A side of the node in progress, in the ground plane.
struct NavMeshConnector::Side
{
    uint32 mEdge = 0;
    Vec2<float> mA;
    Vec2<float> mB;
    Vec2<float> mAlong;
    Vec2<float> mDir;
    Box mReach; ///< around all that can touch the side
    float mLength = 0.0f;
    float mSlack = 0.0f; ///< the overlap tolerance as a share of the length
};

/// Creates the grid of a call of buildConnections and takes it away again, whichever way the call ends.
class NavMeshConnector::Run
{
public:
    Run(NavMeshConnector& connector, NavMeshContainer& navMesh, int32 vertComp) : mConnector(connector)
    {
        mConnector.mGrid = new (connector.getAllocator()) Grid(navMesh, vertComp);
        mConnector.mNavMesh = &navMesh;
    }
    ~Run()
    {
        delete mConnector.mGrid;
        mConnector.mGrid = nullptr;
        mConnector.mNavMesh = nullptr;
        mConnector.mSideQueue.clear();
    }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

private:
    NavMeshConnector& mConnector;
};

NavMeshConnector::NavMeshConnector(float overlapTolerance, float distanceTolerance, Rules rules)
    : mOverlapTolerance(overlapTolerance), mDistanceTolerance(distanceTolerance), mRules(rules),
      mSideQueue(getMemory()), mKeptSides(getMemory()), mCandidates(getMemory())
{
}

NavMeshConnector::~NavMeshConnector() = default;

void NavMeshConnector::buildConnections(NavMeshContainer& container, float maxJumpHeight, float maxFallHeight,
                                        float axisValue, int32 vertComp, const RunControl& control)
{
    const Run run(*this, container, vertComp);
    if (!mGrid->isUsable())
        return;
    mMaxJumpHeight = maxJumpHeight;
    mMaxFallHeight = maxFallHeight;
    mAxisValue = axisValue;
    insertOpenSides(control);
    connectNodes(control);
}

void NavMeshConnector::insertOpenSides(const RunControl& control)
{
    const size_t numNodes = mNavMesh->mNodes.size();
    for (size_t node = 0; node < numNodes; ++node)
    {
        if (node % NODES_PER_REPORT == 0)
            control.report(STAGE, INSERTION_SHARE * static_cast<float>(node) / static_cast<float>(numNodes));
        const Vector<int32>& neighbours = mNavMesh->mNodes[node].mNeighbours;
        for (size_t side = 0; side < neighbours.size(); ++side)
        {
            if (neighbours[side] == -1)
                mGrid->insertEdge(static_cast<int32>(node), static_cast<int32>(side));
        }
    }
}

void NavMeshConnector::connectNodes(const RunControl& control)
{
    const size_t numNodes = mNavMesh->mNodes.size();
    for (size_t node = 0; node < numNodes; ++node)
    {
        const float done = static_cast<float>(node) / static_cast<float>(numNodes);
        if (node % NODES_PER_REPORT == 0)
            control.report(STAGE, INSERTION_SHARE + (1.0f - INSERTION_SHARE) * done);
        connectNode(static_cast<int32>(node));
    }
}

float NavMeshConnector::getHeight(const Vec3<float>& vertex) const
{
    return vertex[mGrid->mVertComp] * mAxisValue;
}

void NavMeshConnector::connectNode(int32 node)
{
    mNode = node;
    const Vector<uint32>& polygon = getNode().mPolygon;
    const bool hasHeight = !polygon.empty() && polygon[0] < mNavMesh->mVertices.size();
    mNodeHeight = hasHeight ? getHeight(mNavMesh->mVertices[polygon[0]]) : 0.0f;

    queueOpenSides();
    while (!mSideQueue.empty())
    {
        const int64 edge = mSideQueue.back() + mOffset;
        mSideQueue.pop_back();
        connectSide(static_cast<uint64>(edge));
    }
    for (const int32 side : mKeptSides)
        mGrid->insertEdge(node, side);
}

/// Takes the node's open sides out of the grid and queues them, the first at the back.
void NavMeshConnector::queueOpenSides()
{
    if (!KORV_BARE_ASSERT(mSideQueue.empty(), "edgeQueue.empty()"))
        mSideQueue.clear();
    mKeptSides.clear();
    mOffset = 0;
    const Vector<int32>& neighbours = getNode().mNeighbours;
    for (size_t side = neighbours.size(); side-- > 0;)
    {
        if (neighbours[side] == -1)
            mSideQueue.push_back(static_cast<int64>(side));
    }
    for (size_t i = mSideQueue.size(); i-- > 0;)
        mGrid->removeEdge(mNode, static_cast<int32>(mSideQueue[i]));
}

void NavMeshConnector::connectSide(uint64 edgeID)
{
    const Vector<uint32>& border = getNode().mPolygon;
    const size_t numEdges = border.size();
    if (!KORV_ASSERT(edgeID < numEdges, "edgeID < numEdges", "edgeID : " << edgeID << " >= numEdges: " << numEdges) ||
        !KORV_BARE_ASSERT(border[edgeID] < mNavMesh->mVertices.size(), "border[edgeID] < navMesh->mVertices.size()"))
        return;
    Side side;
    if (!makeSide(side, static_cast<uint32>(edgeID)))
        return;
    mCandidates.clear();
    mGrid->findCandidates(mCandidates, mNode, static_cast<int32>(edgeID), std::max(mMaxJumpHeight, mMaxFallHeight),
                          &side.mReach);
    for (const GridEdge* candidate : mCandidates)
    {
        if (examineCandidate(side, *candidate) == Decision::STOP)
            return;
    }
    if (mRules == Rules::REFINED)
        mKeptSides.push_back(static_cast<int32>(edgeID)); // another node's side may still lead here
}

/// @return false for a side without length or with a second corner that does not exist: nothing runs along it.
bool NavMeshConnector::makeSide(Side& side, uint32 edge) const
{
    side.mEdge = edge;
    if (!mGrid->getEnds(side.mA, side.mB, getNode(), edge))
        return false;
    side.mAlong = side.mB - side.mA;
    side.mLength = side.mAlong.getLength();
    if (!(side.mLength > 0.0f))
        return false;
    side.mDir = {side.mAlong.mX / side.mLength, side.mAlong.mY / side.mLength};
    side.mSlack = mOverlapTolerance / side.mLength;
    const Vec2<float> low(std::min(side.mA.mX, side.mB.mX), std::min(side.mA.mY, side.mB.mY));
    const Vec2<float> high(std::max(side.mA.mX, side.mB.mX), std::max(side.mA.mY, side.mB.mY));
    // twice what is needed, and far more than the rounding of the tests
    const float coordinate = std::max({std::fabs(low.mX), std::fabs(low.mY), std::fabs(high.mX), std::fabs(high.mY)});
    const float reach = 2.0f * std::fabs(mDistanceTolerance) + ROUNDING_SHARE * (coordinate + side.mLength);
    side.mReach.mMin = low - Vec2<float>(reach, reach);
    side.mReach.mMax = high + Vec2<float>(reach, reach);
    return true;
}

NavMeshConnector::Decision NavMeshConnector::examineCandidate(const Side& side, const GridEdge& candidate)
{
    const Vec2<float>& p0 = candidate.mEnds[0];
    const Vec2<float>& p1 = candidate.mEnds[1];
    if (!runsAlong(side, p0, p1) || !touches(side, p0, p1))
        return Decision::NEXT_CANDIDATE;
    float t0;
    float t1;
    projectOntoSide(t0, t1, side.mA, side.mAlong, p0, p1);
    if (!(t1 - t0 >= side.mSlack))
        return Decision::NEXT_CANDIDATE;
    if (!isWithinReach(candidate.mHeight * mAxisValue))
    {
        if (mRules == Rules::REFINED)
            return Decision::NEXT_CANDIDATE;
        mKeptSides.push_back(static_cast<int32>(side.mEdge));
        return Decision::STOP; // open for good: sides further down the list are not tried
    }
    return link(side, candidate.mNode, t0, t1);
}

/// Whether a candidate's direction is that of the side, or opposite to it. Refined rules want it opposite: then the two
/// nodes face each other, and the ground beyond the side is not the one beneath it.
bool NavMeshConnector::runsAlong(const Side& side, const Vec2<float>& p0, const Vec2<float>& p1) const
{
    const float cosine = dot(side.mDir, normalised(p1 - p0));
    return mRules == Rules::REFINED ? -cosine >= MIN_COSINE : std::fabs(cosine) >= MIN_COSINE;
}

bool NavMeshConnector::touches(const Side& side, const Vec2<float>& p0, const Vec2<float>& p1) const
{
    using Common::Geom::IsPointOnSegment;
    return IsPointOnSegment(side.mA, side.mB, p0, mDistanceTolerance) ||
           IsPointOnSegment(side.mA, side.mB, p1, mDistanceTolerance) ||
           IsPointOnSegment(p0, p1, side.mA, mDistanceTolerance) ||
           IsPointOnSegment(p0, p1, side.mB, mDistanceTolerance);
}

bool NavMeshConnector::isWithinReach(float height) const
{
    if (height > mNodeHeight)
        return !(height - mNodeHeight > mMaxJumpHeight);
    return !(height <= mNodeHeight && mNodeHeight - height > mMaxFallHeight);
}

/// Links a side that is covered from t0 to t1, or splits it there.
NavMeshConnector::Decision NavMeshConnector::link(const Side& side, int32 neighbour, float t0, float t1)
{
    const bool fromStart = t0 < side.mSlack;
    const bool toEnd = t1 > 1.0f - side.mSlack;
    if (fromStart && toEnd)
    {
        getNode().mNeighbours[side.mEdge] = neighbour;
        mKeptSides.push_back(static_cast<int32>(side.mEdge));
        return Decision::STOP;
    }
    const float cuts[] = {t0, t1};
    if (fromStart && t1 <= 1.0f - side.mSlack)
        return splitSide(side, cuts + 1, 1);
    if (t0 >= side.mSlack && t1 <= 1.0f - side.mSlack)
        return splitSide(side, cuts, 2);
    if (t0 >= side.mSlack && toEnd)
        return splitSide(side, cuts, 1);
    KORV_ASSERT(false, "false", "fourth case ?!? should not happen");
    return Decision::NEXT_CANDIDATE;
}

/// Inserts a vertex at each cut, and puts the pieces at the front of the queue.
NavMeshConnector::Decision NavMeshConnector::splitSide(const Side& side, const float* cuts, uint32 numCuts)
{
    Vector<Vec3<float>>& vertices = mNavMesh->mVertices;
    NavMeshContainer::NavNode& node = getNode();
    const size_t next = side.mEdge + 1 < node.mPolygon.size() ? side.mEdge + 1 : 0;
    const Vec3<float> start = vertices[node.mPolygon[side.mEdge]];
    const Vec3<float> end = vertices[node.mPolygon[next]];
    Vec3<float> corners[4] = {start, end, end, end};
    for (uint32 i = 0; i < numCuts; ++i)
        corners[i + 1] = start + (end - start) * cuts[i];
    if (!isShorter(side, corners, numCuts + 1))
        return Decision::NEXT_CANDIDATE;

    if (vertices.size() > std::numeric_limits<uint32>::max() - numCuts)
        throw new Common::Exceptions::InvalidStateException("The navigation mesh has too many vertices.");
    reserveMore(vertices, numCuts); // room first: a node never has more corners than neighbour entries
    reserveMore(node.mPolygon, numCuts);
    reserveMore(node.mNeighbours, numCuts);
    reserveMore(mSideQueue, numCuts + 1);
    for (uint32 i = 0; i < numCuts; ++i)
    {
        const ptrdiff_t place = static_cast<ptrdiff_t>(side.mEdge + 1 + i);
        node.mPolygon.insert(node.mPolygon.begin() + place, static_cast<uint32>(vertices.size()));
        node.mNeighbours.insert(node.mNeighbours.begin() + place, -1);
        vertices.push_back(corners[i + 1]);
    }
    const int64 queued = static_cast<int64>(side.mEdge) - mOffset;
    for (uint32 i = 0; i <= numCuts; ++i)
        mSideQueue.push_back(queued - i);
    mOffset += numCuts;
    return Decision::STOP;
}

/// Whether every piece between consecutive corners is shorter than the side. Where coordinates are too coarse for the
/// cut, a piece would be the side itself, and splitting would never end.
bool NavMeshConnector::isShorter(const Side& side, const Vec3<float>* corners, uint32 numPieces) const
{
    for (uint32 i = 0; i < numPieces; ++i)
    {
        const float length = (mGrid->getPosition(corners[i + 1]) - mGrid->getPosition(corners[i])).getLength();
        if (!(length > 0.0f && length < side.mLength))
            return false;
    }
    return true;
}
} // namespace KORV::NavMesh
