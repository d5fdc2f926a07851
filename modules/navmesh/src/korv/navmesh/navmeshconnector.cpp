// Links the open sides of all nodes.
//
// Idea: all open sides lie in a grid. Nodes are taken in id order: the node's own open sides leave the grid, and each
// looks among the sides in its cells for the first one that runs along it. Fully covered, the side gets that node as
// its neighbour; partly covered, it is split at the ends of the other side, and the pieces are looked at anew. The
// other direction of a link comes about when the other node is taken: so a link is one-way where only one way is within
// reach. Sides that were linked or refused for their height go back into the grid, others stay out.
//
// Most of that does not depend on the nodes taken before: what a side finds while all sides of the mesh are in the grid
// is what it finds when its turn comes, unless that side has left since, or pieces of split sides have come into its
// cells. So workers search for all sides ahead, and few are searched for again.
//
// Invariants: a node changes only while it is taken, when none of its sides are found, so the grid's sides stay true.
// Pieces come into the grid in the order of the sides that they are pieces of.
//
// Numbers: sides run along each other when the cosine of their angle is at least 0.99, in either direction. Heights are
// those of a node's first corner and of the other side's first corner; slopes play no part.
//
// Refined rules differ in three places: a side that is out of reach does not end the search for one within reach; only
// sides that face each other are linked; a side that finds nothing stays in the grid for others to find.
// Cost: a side meets the sides in its own cells; each split leaves pieces of at least the overlap tolerance.
#include "korv/navmesh/navmeshconnector.h"

#include "korv/common/debug/assert.h"
#include "korv/common/geom/geomutility.h"
#include "korv/common/platform/prefetch.h"
#include "korv/navmesh/navmeshconnectorgrid.h"
#include "korv/navmesh/rangetask.h"

#include <algorithm>
#include <cmath>

namespace KORV::NavMesh
{
namespace
{
constexpr const char* STAGE = "Build Vertical Connections";
constexpr float MIN_COSINE = 0.99f;
constexpr float ROUNDING_SHARE = 1e-5f;

// Parts of the stage's time, about.
constexpr float INSERTION_DONE = 0.3f;
constexpr float SEARCH_DONE = 0.7f;

// Ranges of sides that are put into the grid on their own; each takes a word for every cell.
constexpr uint32 PARTS_PER_WORKER = 2;
constexpr uint32 MANY_WORKERS = 4;

/// Nodes a task, and between two reports.
constexpr uint32 NODES_PER_STEP = 4096;

/// The share of [p0, p1] along a side that starts at @p start, in ascending order and within [0, 1].
void projectOntoSide(float& t0, float& t1, const Vec2<float>& start, const Vec2<float>& along, const Vec2<float>& p0,
                     const Vec2<float>& p1)
{
    t0 = std::clamp(dot(along, p0 - start) / dot(along, along), 0.0f, 1.0f);
    t1 = std::clamp(dot(along, p1 - start) / dot(along, along), 0.0f, 1.0f);
    if (t0 > t1)
        std::swap(t0, t1);
}

/// How far from a side the search looks: twice what is needed, and far more than the rounding of the tests.
/// @param extent  of the coordinates of a side, and its length.
float searchDistance(float tolerance, float extent)
{
    return 2.0f * std::fabs(tolerance) + ROUNDING_SHARE * extent;
}

/// Around all that can touch a side.
NavMeshConnector::Grid::Box boxAround(const Vec2<float>& a, const Vec2<float>& b, float length, float tolerance)
{
    const Vec2<float> low(std::min(a.mX, b.mX), std::min(a.mY, b.mY));
    const Vec2<float> high(std::max(a.mX, b.mX), std::max(a.mY, b.mY));
    const float coordinate = std::max({std::fabs(low.mX), std::fabs(low.mY), std::fabs(high.mX), std::fabs(high.mY)});
    const float reach = searchDistance(tolerance, coordinate + length);
    return {low - Vec2<float>(reach, reach), high + Vec2<float>(reach, reach)};
}
} // namespace

/// A side of a node, in the ground plane.
struct NavMeshConnector::Side
{
    Grid::Search mSearch;
    Vec3<float> mStart; ///< the ends in space
    Vec3<float> mEnd;
    Vec2<float> mAlong;
    Vec2<float> mDir;
    float mLength = 0.0f;
    float mSlack = 0.0f;      ///< the overlap tolerance as a share of the length
    float mNodeHeight = 0.0f; ///< of the node's first corner
};

/// What a side has found.
struct NavMeshConnector::Match
{
    Outcome mOutcome = Outcome::NOTHING;
    uint32 mEdge = 0; ///< of the grid
    uint32 mNumCuts = 0;
    float mCuts[2] = {}; ///< where to split, as shares of the side
};

/// Creates the grid of a call of buildConnections and takes it away again, whichever way the call ends.
class NavMeshConnector::Run
{
public:
    Run(NavMeshConnector& connector, MeshDraft& draft, int32 vertComp) : mConnector(connector)
    {
        mConnector.mGrid = new (connector.getAllocator()) Grid(draft, vertComp);
        mConnector.mDraft = &draft;
    }
    ~Run()
    {
        delete mConnector.mGrid;
        mConnector.mGrid = nullptr;
        mConnector.mDraft = nullptr;
        Vector<Ahead>(mConnector.getMemory()).swap(mConnector.mAhead);
    }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

private:
    NavMeshConnector& mConnector;
};

NavMeshConnector::NavMeshConnector(float overlapTolerance, float distanceTolerance, Rules rules)
    : mOverlapTolerance(overlapTolerance), mDistanceTolerance(distanceTolerance), mRules(rules), mAhead(getMemory()),
      mSplitCorners(getMemory()), mSplitNeighbours(getMemory()), mSidesNearby(getMemory())
{
}

NavMeshConnector::~NavMeshConnector() = default;

void NavMeshConnector::buildConnections(MeshDraft& draft, float maxJumpHeight, float maxFallHeight, float axisValue,
                                        int32 vertComp, Common::Threading::ThreadPool& pool, const RunControl& control)
{
    const Run run(*this, draft, vertComp);
    if (!mGrid->isUsable())
        return;
    mMaxJumpHeight = maxJumpHeight;
    mMaxFallHeight = maxFallHeight;
    mAxisValue = axisValue;
    RangeRunner runner(pool, control, STAGE);
    mGrid->insertOpenSides(runner, PARTS_PER_WORKER * std::clamp(pool.getNumThreads(), 1u, MANY_WORKERS),
                           INSERTION_DONE);
    runner.setSpan(INSERTION_DONE, SEARCH_DONE);
    searchAhead(runner);
    connectNodes(control);
}

/// Searches for the sides of all nodes while nothing has left the grid.
void NavMeshConnector::searchAhead(const RangeRunner& runner)
{
    mAhead.resize(mGrid->getNumEdges());
    Vector<uint32> firstEdges(getMemory()); // of the blocks
    listFirstEdges(firstEdges);
    Vector<MeshDraft::Block>& blocks = mDraft->getBlocks();
    const size_t nodesPerBlock = mDraft->size() / blocks.size() + 1;
    const auto blocksPerTask = static_cast<uint32>(NODES_PER_STEP / nodesPerBlock + 1);
    runner.run(static_cast<uint32>(blocks.size()), blocksPerTask,
               [&](uint32 begin, uint32 end)
               {
                   for (uint32 block = begin; block < end; ++block)
                       searchAhead(blocks[block], firstEdges[block]);
               });
}

void NavMeshConnector::listFirstEdges(Vector<uint32>& firstEdges) const
{
    uint32 numEdges = 0;
    for (const MeshDraft::Block& block : mDraft->getBlocks())
    {
        firstEdges.push_back(numEdges);
        const Vector<int32>& neighbours = block.mPieces.mNeighbours;
        numEdges += static_cast<uint32>(std::count(neighbours.begin(), neighbours.end(), OPEN));
    }
}

void NavMeshConnector::searchAhead(MeshDraft::Block& block, uint32 firstEdge)
{
    for (size_t piece = 0; piece < block.mPieces.size(); ++piece)
    {
        const NodeSides node = getNodeSides(block, piece, firstEdge);
        for (uint32 side = 0; side < node.mLists.mSize; ++side)
        {
            if (node.mLists.mNeighbours[side] != OPEN)
                continue;
            const Match match = search(node, side);
            mAhead[firstEdge++].set(match.mOutcome, match.mEdge);
        }
    }
}

/// @param firstEdge  the number of the node's first open side.
NavMeshConnector::NodeSides NavMeshConnector::getNodeSides(MeshDraft::Block& block, size_t piece, uint32 firstEdge)
{
    NodeSides node{block.mFirstNode + static_cast<int32>(piece), MeshDraft::getNode(block, piece), firstEdge, 0};
    const int32* neighbours = node.mLists.mNeighbours;
    node.mEndEdge = firstEdge + static_cast<uint32>(std::count(neighbours, neighbours + node.mLists.mSize, OPEN));
    return node;
}

void NavMeshConnector::connectNodes(const RunControl& control)
{
    uint32 edge = 0;
    for (MeshDraft::Block& block : mDraft->getBlocks())
    {
        for (size_t piece = 0; piece < block.mPieces.size(); ++piece)
        {
            mNode = getNodeSides(block, piece, edge);
            edge = mNode.mEndEdge;
            if (static_cast<uint32>(mNode.mNode) % NODES_PER_STEP == 0)
                control.report(STAGE, SEARCH_DONE + (SHARE_OF_STAGE - SEARCH_DONE) * static_cast<float>(mNode.mNode) /
                                                        static_cast<float>(mDraft->size()));
            connectNode();
        }
    }
}

void NavMeshConnector::connectNode()
{
    mIsSplit = false;
    uint32 edge = mNode.mFirstEdge;
    for (uint32 side = 0; edge != mNode.mEndEdge; ++side)
    {
        if (mNode.mLists.mNeighbours[side] != OPEN)
            continue;
        fetchAhead(edge);
        side += connectSide(side, edge++) - 1;
    }
    if (mIsSplit)
        mDraft->setSplitNode(mNode.mNode, mSplitCorners, mSplitNeighbours);
}

/// Has what a side some turns later has found brought to the cache.
void NavMeshConnector::fetchAhead(uint32 edge) const
{
    constexpr size_t TURNS = 16;
    if (edge + TURNS < mAhead.size())
        Common::Platform::prefetch(&mGrid->getEdge(mAhead[edge + TURNS].mEdge));
}

/// @param edge  the side's number.
/// @return how many sides it has become.
uint32 NavMeshConnector::connectSide(uint32 side, uint32 edge)
{
    Match match = recall(side, edge);
    if (match.mOutcome != Outcome::SPLIT)
    {
        if (!settle(side, match))
            mGrid->removeEdge(edge);
        return 1;
    }
    mGrid->removeEdge(edge);
    uint32 end = side + 1; // of the pieces
    for (uint32 piece = side; piece < end; ++piece)
    {
        for (; match.mOutcome == Outcome::SPLIT; match = search(mNode, piece))
        {
            splitSide(piece, match);
            end += match.mNumCuts;
        }
        if (settle(piece, match))
            insertPiece(piece, edge);
        if (piece + 1 < end)
            match = search(mNode, piece + 1);
    }
    return end - side;
}

/// What a side finds now: what it has found ahead, where that still holds.
NavMeshConnector::Match NavMeshConnector::recall(uint32 side, uint32 edge) const
{
    const Ahead ahead = mAhead[edge];
    const Outcome outcome = static_cast<Outcome>(ahead.mOutcome);
    if (outcome == Outcome::NOTHING)
        return Match();
    if (outcome == Outcome::UNKNOWN || mGrid->getEdge(ahead.mEdge).isRemoved())
        return search(mNode, side);
    if (outcome != Outcome::SPLIT)
        return {outcome, ahead.mEdge};
    Side made;
    return makeSide(made, mNode, side) ? judge(made, ahead.mEdge) : Match();
}

/// The first side in the grid that decides about a side of a node.
NavMeshConnector::Match NavMeshConnector::search(const NodeSides& node, uint32 side) const
{
    Match match;
    Side made;
    if (!isSound(node, side) || !makeSide(made, node, side))
        return match;
    mGrid->findCandidates(made.mSearch,
                          [&](uint32 edge)
                          {
                              match = judge(made, edge);
                              return match.mOutcome != Outcome::NOTHING;
                          });
    return match;
}

bool NavMeshConnector::isSound(const NodeSides& node, uint32 side) const
{
    const MeshDraft::Node& lists = node.mLists;
    if (side < lists.mSize && static_cast<uint32>(lists.mCorners[side]) < mDraft->getVertices().size())
        return true;
    return reportSide(node, side);
}

/// Out of line: a report's text takes 4 KB of stack.
bool NavMeshConnector::reportSide(const NodeSides& node, uint32 side) const
{
    const uint32 numEdges = node.mLists.mSize;
    return KORV_ASSERT(side < numEdges, "edgeID < numEdges", "edgeID : " << side << " >= numEdges: " << numEdges) &&
           KORV_BARE_ASSERT(static_cast<uint32>(node.mLists.mCorners[side]) < mDraft->getVertices().size(),
                            "border[edgeID] < navMesh->mVertices.size()");
}

/// @return false for a side without length or with a second corner that does not exist: nothing runs along it.
bool NavMeshConnector::makeSide(Side& made, const NodeSides& node, uint32 side) const
{
    const MeshDraft::Node& lists = node.mLists;
    const Vector<Vec3<float>>& vertices = mDraft->getVertices();
    const auto first = static_cast<uint32>(lists.mCorners[side]);
    const auto second = static_cast<uint32>(lists.mCorners[lists.getNext(side)]);
    if (second >= vertices.size())
        return false;
    made.mStart = vertices[first];
    made.mEnd = vertices[second];
    Grid::Search& search = made.mSearch;
    search.mA = mGrid->getPosition(made.mStart);
    search.mB = mGrid->getPosition(made.mEnd);
    search.mFirstOwn = node.mFirstEdge;
    search.mEndOwn = node.mEndEdge;
    made.mAlong = search.mB - search.mA;
    made.mLength = made.mAlong.getLength();
    if (!(made.mLength > 0.0f) || !std::isfinite(made.mLength))
        return false;
    made.mDir = {made.mAlong.mX / made.mLength, made.mAlong.mY / made.mLength};
    made.mSlack = mOverlapTolerance / made.mLength;
    search.mBox = boxAround(search.mA, search.mB, made.mLength, mDistanceTolerance);
    const auto firstCorner = static_cast<uint32>(lists.mCorners[0]);
    made.mNodeHeight = firstCorner < vertices.size() ? getHeight(vertices[firstCorner]) : 0.0f;
    return true;
}

float NavMeshConnector::getHeight(const Vec3<float>& vertex) const
{
    return vertex[mGrid->mVertComp] * mAxisValue;
}

/// What comes of a side when another one of the grid is the next candidate; cheap tests first.
NavMeshConnector::Match NavMeshConnector::judge(const Side& side, uint32 edge) const
{
    const Grid::GridEdge& candidate = mGrid->getEdge(edge);
    const Vec3<float>& start = mDraft->getVertices()[candidate.mVertices[0]];
    const Vec2<float> p0 = mGrid->getPosition(start);
    const Vec2<float> p1 = mGrid->getPosition(mDraft->getVertices()[candidate.mVertices[1]]);
    if (!side.mSearch.mBox.meets(p0, p1) || !isWithinRange(side, start))
        return Match();
    float t0;
    float t1;
    projectOntoSide(t0, t1, side.mSearch.mA, side.mAlong, p0, p1);
    if (!(t1 - t0 >= side.mSlack) || !runsAlong(side, p0, p1) || !touches(side, p0, p1))
        return Match();
    if (isWithinReach(side.mNodeHeight, getHeight(start)))
        return cover(side, edge, t0, t1);
    if (mRules == Rules::REFINED)
        return Match();
    return {Outcome::OUT_OF_REACH, edge}; // open for good: sides further down the list are not tried
}

/// Whether a side starts within the larger of both reaches of another one's start, up or down.
bool NavMeshConnector::isWithinRange(const Side& side, const Vec3<float>& start) const
{
    const float difference = start[mGrid->mVertComp] - side.mStart[mGrid->mVertComp];
    return std::fabs(difference) <= std::max(mMaxJumpHeight, mMaxFallHeight);
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
    const Vec2<float>& a = side.mSearch.mA;
    const Vec2<float>& b = side.mSearch.mB;
    return IsPointOnSegment(a, b, p0, mDistanceTolerance) || IsPointOnSegment(a, b, p1, mDistanceTolerance) ||
           IsPointOnSegment(p0, p1, a, mDistanceTolerance) || IsPointOnSegment(p0, p1, b, mDistanceTolerance);
}

bool NavMeshConnector::isWithinReach(float nodeHeight, float height) const
{
    if (height > nodeHeight)
        return !(height - nodeHeight > mMaxJumpHeight);
    return !(height <= nodeHeight && nodeHeight - height > mMaxFallHeight);
}

/// What comes of a side that is covered from t0 to t1.
NavMeshConnector::Match NavMeshConnector::cover(const Side& side, uint32 edge, float t0, float t1) const
{
    const bool fromStart = t0 < side.mSlack;
    const bool toEnd = t1 > 1.0f - side.mSlack;
    if (fromStart && toEnd)
        return {Outcome::LINK, edge};
    Match split{Outcome::SPLIT, edge};
    if (t0 >= side.mSlack)
        split.mCuts[split.mNumCuts++] = t0;
    if (t1 <= 1.0f - side.mSlack)
        split.mCuts[split.mNumCuts++] = t1;
    if (!KORV_ASSERT(split.mNumCuts > 0, "false", "fourth case ?!? should not happen"))
        return Match();
    return isShorter(side, split) ? split : Match();
}

/// Whether every piece of a split side is shorter than the side. Where coordinates are too coarse for the cut, a piece
/// would be the side itself, and splitting would never end.
bool NavMeshConnector::isShorter(const Side& side, const Match& split) const
{
    Vec2<float> from = side.mSearch.mA;
    for (uint32 i = 0; i <= split.mNumCuts; ++i)
    {
        const Vec2<float> to = i < split.mNumCuts
                                   ? mGrid->getPosition(side.mStart + (side.mEnd - side.mStart) * split.mCuts[i])
                                   : side.mSearch.mB;
        const float length = (to - from).getLength();
        if (!(length > 0.0f && length < side.mLength))
            return false;
        from = to;
    }
    return true;
}

/// Links a side if that has come out.
/// @return whether others may find it from now on.
bool NavMeshConnector::settle(uint32 side, const Match& match)
{
    if (match.mOutcome == Outcome::LINK)
        mNode.mLists.mNeighbours[side] = mGrid->getEdge(match.mEdge).mNode;
    return match.mOutcome != Outcome::NOTHING || mRules == Rules::REFINED;
}

/// Inserts a vertex at each cut.
void NavMeshConnector::splitSide(uint32 side, const Match& split)
{
    MeshDraft::Node& lists = mNode.mLists;
    if (!mIsSplit)
    {
        mSplitCorners.assign(lists.mCorners, lists.mCorners + lists.mSize);
        mSplitNeighbours.assign(lists.mNeighbours, lists.mNeighbours + lists.mSize);
        mIsSplit = true;
    }
    Vector<Vec3<float>>& vertices = mDraft->getVertices();
    mDraft->reserveVertices(split.mNumCuts);
    const Vec3<float> start = vertices[static_cast<uint32>(lists.mCorners[side])];
    const Vec3<float> end = vertices[static_cast<uint32>(lists.mCorners[lists.getNext(side)])];
    for (uint32 i = 0; i < split.mNumCuts; ++i)
    {
        const ptrdiff_t place = static_cast<ptrdiff_t>(side + 1 + i);
        mSplitCorners.insert(mSplitCorners.begin() + place, static_cast<int32>(vertices.size()));
        mSplitNeighbours.insert(mSplitNeighbours.begin() + place, OPEN);
        vertices.push_back(start + (end - start) * split.mCuts[i]);
    }
    lists = {mSplitCorners.data(), mSplitNeighbours.data(), static_cast<uint32>(mSplitCorners.size())};
}

/// Lets others find a piece of a side; what they have found ahead may not hold any more.
void NavMeshConnector::insertPiece(uint32 side, uint32 edge)
{
    const MeshDraft::Node& lists = mNode.mLists;
    const Grid::GridEdge piece{
        mNode.mNode,
        {static_cast<uint32>(lists.mCorners[side]), static_cast<uint32>(lists.mCorners[lists.getNext(side)])}};
    mSidesNearby.clear();
    mGrid->insertPiece(edge, piece, searchDistance(mDistanceTolerance, mGrid->getExtent()), mSidesNearby);
    for (const uint32 nearby : mSidesNearby)
        mAhead[nearby].set(Outcome::UNKNOWN, 0);
}
} // namespace KORV::NavMesh
