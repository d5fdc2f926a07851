// Links the open sides of all nodes.
//
// Idea: all open sides lie in a grid. Nodes are taken in id order: the node's own open sides leave the grid, and each
// looks among the sides in its cells for the first one that runs along it. Fully covered, the side gets that node as
// its neighbour; partly covered, it is split at the ends of the other side, and the pieces are looked at anew. The
// other direction of a link comes about when the other node is taken: so a link is one-way where only one way is within
// reach. Sides that were linked or refused for their height go back into the grid, others stay out.
//
// Most of that does not depend on the nodes taken before: what a side finds while all sides of the mesh are in the grid
// is what it finds when its turn comes, unless that side has left since, or pieces of split sides that decide about it
// have come into its cells. So workers search for all sides ahead, cell by cell; then only nodes with a side that is
// split or searched for again are taken in order; and workers write what has been found in the end. Whether a side has
// left is told by what it has found.
//
// Invariants: the lists of the blocks do not change before all is found, so that the open sides of a node keep their
// numbers; a node in progress has lists of its own. Pieces come into the grid in the order of their sides.
//
// Numbers: sides run along each other when the cosine of their angle is at least 0.99, in either direction. Heights are
// those of a node's first corner and of the other side's first corner; slopes play no part.
//
// Refined rules differ in three places: a side that is out of reach does not end the search for one within reach; only
// sides that face each other are linked; a side that finds nothing stays in the grid for others to find.
// Cost: a side meets the sides in its own cells; each split leaves pieces of at least the overlap tolerance.
#include "korv/navmesh/navmeshconnector.h"

#include "korv/common/debug/assert.h"
#include "korv/common/platform/prefetch.h"
#include "korv/navmesh/navmeshconnectorside.h"
#include "korv/navmesh/rangetask.h"

#include <algorithm>
#include <cmath>

namespace KORV::NavMesh
{
namespace
{
constexpr const char* STAGE = "Build Vertical Connections";

// Parts of the stage's time, about.
constexpr float LISTING_DONE = 0.06f;
constexpr float INSERTION_DONE = 0.3f;
constexpr float SEARCH_DONE = 0.7f;
constexpr float SETTLING_DONE = 0.85f;

// Ranges of sides that are put into the grid on their own; each takes a word for every cell.
constexpr uint32 PARTS_PER_WORKER = 2;
constexpr uint32 MANY_WORKERS = 4;

/// Sides between two reports.
constexpr uint32 SIDES_PER_STEP = 16384;
} // namespace

/// Creates the grid of a call of buildConnections and takes it away again, whichever way the call ends.
class NavMeshConnector::Run
{
public:
    Run(NavMeshConnector& connector, MeshDraft& draft, int32 vertComp) : mConnector(connector)
    {
        mConnector.mGrid = new (connector.getAllocator()) Grid(draft.getVertices(), vertComp);
        mConnector.mDraft = &draft;
    }
    ~Run()
    {
        delete mConnector.mGrid;
        mConnector.mGrid = nullptr;
        mConnector.mDraft = nullptr;
        Vector<Found>(mConnector.getMemory()).swap(mConnector.mFound);
    }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

private:
    NavMeshConnector& mConnector;
};

NavMeshConnector::NavMeshConnector(float overlapTolerance, float distanceTolerance, Rules rules)
    : mOverlapTolerance(overlapTolerance), mDistanceTolerance(distanceTolerance), mRules(rules), mFound(getMemory()),
      mCorners(getMemory()), mNeighbours(getMemory()), mSidesNearby(getMemory())
{
}

NavMeshConnector::~NavMeshConnector() = default;

void NavMeshConnector::buildConnections(MeshDraft& draft, float maxJumpHeight, float maxFallHeight, float axisValue,
                                        int32 vertComp, Common::Threading::ThreadPool& pool, const RunControl& control)
{
    const Run run(*this, draft, vertComp);
    RangeRunner runner(pool, control, STAGE);
    runner.setSpan(0.0f, LISTING_DONE);
    mGrid->listOpenSides(draft, mDistanceTolerance, runner);
    if (!mGrid->isUsable())
        return;
    mMaxJumpHeight = maxJumpHeight;
    mMaxFallHeight = maxFallHeight;
    mAxisValue = axisValue;
    mGrid->insertOpenSides(runner, PARTS_PER_WORKER * std::clamp(pool.getNumThreads(), 1u, MANY_WORKERS), LISTING_DONE,
                           INSERTION_DONE);
    runner.setSpan(INSERTION_DONE, SEARCH_DONE);
    searchAhead(runner);
    reportMissingCorners();
    connectNodes(control);
    runner.setSpan(SETTLING_DONE, SHARE_OF_STAGE);
    writeLinks(runner);
}

/// One report for each open side that starts at a corner which does not exist.
void NavMeshConnector::reportMissingCorners() const
{
    for (uint32 i = 0; i < mGrid->getNumMissing(); ++i)
        KORV_BARE_ASSERT(false, "border[edgeID] < navMesh->mVertices.size()");
}

void NavMeshConnector::connectNodes(const RunControl& control)
{
    const uint32 numEdges = mGrid->getNumEdges();
    for (uint32 edge = 0; edge < numEdges; ++edge)
    {
        if (edge % SIDES_PER_STEP == 0)
            control.report(STAGE, SEARCH_DONE + (SETTLING_DONE - SEARCH_DONE) * static_cast<float>(edge) /
                                                    static_cast<float>(numEdges));
        fetchAhead(edge);
        if (isSettled(edge))
            continue;
        connectNode(edge);
        edge = mNode.mEdges.mEnd - 1;
    }
}

/// Has what decides about a side some turns later brought to the cache.
void NavMeshConnector::fetchAhead(uint32 edge) const
{
    constexpr size_t TURNS = 16;
    if (edge + TURNS < mFound.size())
        Common::Platform::prefetch(&mFound[mFound[edge + TURNS].getEdge()]);
}

/// Whether a side finds what it has found ahead when its turn comes, and is not split.
bool NavMeshConnector::isSettled(uint32 edge) const
{
    const Found found = mFound[edge];
    if (found.getOutcome() == Outcome::NOTHING)
        return true;
    const bool isOpen = found.getOutcome() == Outcome::UNKNOWN || found.getOutcome() == Outcome::SPLIT;
    return !isOpen && !(found.getEdge() < edge && hasLeft(found.getEdge()));
}

/// Whether a side that has had its turn is not in the grid any more.
bool NavMeshConnector::hasLeft(uint32 edge) const
{
    const Outcome outcome = mFound[edge].getOutcome();
    return outcome == Outcome::SPLIT || (outcome == Outcome::NOTHING && mRules != Rules::REFINED);
}

/// Searches again for those sides of a node that need it, and splits those that are covered in part.
void NavMeshConnector::connectNode(uint32 edge)
{
    const int32 node = mGrid->getEdge(edge).mNode;
    const MeshDraft::Node lists = mDraft->getNode(node);
    mCorners.assign(lists.mCorners, lists.mCorners + lists.mSize);
    mNeighbours.assign(lists.mNeighbours, lists.mNeighbours + lists.mSize);
    mNode = {node, {mCorners.data(), mNeighbours.data(), lists.mSize}, mGrid->getOwnEdges(edge)};
    uint32 own = mNode.mEdges.mBegin;
    for (uint32 side = 0; own != mNode.mEdges.mEnd; ++side)
    {
        if (mNode.mLists.mNeighbours[side] == OPEN)
            side += connectSide(side, own++) - 1;
    }
    if (mNode.mLists.mSize > lists.mSize)
        mDraft->setSplitNode(node, mCorners, mNeighbours);
}

/// @param edge  the side's number.
/// @return how many sides it has become.
uint32 NavMeshConnector::connectSide(uint32 side, uint32 edge)
{
    Match match = recall(edge);
    mFound[edge] = Found(match.mOutcome, mGrid->getOrigin(match.mEdge));
    if (match.mOutcome != Outcome::SPLIT)
    {
        settle(side, match);
        return 1;
    }
    uint32 end = side + 1; // of the pieces
    for (uint32 piece = side; piece < end; ++piece)
    {
        for (; match.mOutcome == Outcome::SPLIT; match = searchNow(getEdge(piece)))
        {
            splitSide(piece, match);
            end += match.mNumCuts;
        }
        if (settle(piece, match))
            insertPiece(piece, edge);
        if (piece + 1 < end)
            match = searchNow(getEdge(piece + 1));
    }
    return end - side;
}

/// What a side finds now: what it has found ahead, where that still holds.
NavMeshConnector::Match NavMeshConnector::recall(uint32 edge) const
{
    const Found found = mFound[edge];
    const uint32 other = found.getEdge();
    if (found.getOutcome() == Outcome::NOTHING)
        return Match();
    if (found.getOutcome() == Outcome::UNKNOWN || (other < edge && hasLeft(other)))
        return searchNow(mGrid->getEdge(edge));
    if (found.getOutcome() != Outcome::SPLIT)
        return {found.getOutcome(), other};
    return judge(Side(*mGrid, mGrid->getEdge(edge)), Side(*mGrid, mGrid->getEdge(other)), other);
}

/// What a side of the node in progress finds.
NavMeshConnector::Match NavMeshConnector::searchNow(const GridEdge& edge) const
{
    return search(edge, mNode.mEdges, [this](uint32 other) { return hasLeft(other); });
}

/// A side of the node in progress.
NavMeshConnector::GridEdge NavMeshConnector::getEdge(uint32 side) const
{
    const MeshDraft::Node& lists = mNode.mLists;
    return {mNode.mNode,
            {static_cast<uint32>(lists.mCorners[side]), static_cast<uint32>(lists.mCorners[lists.getNext(side)])}};
}

/// What comes of a side when another one that runs along it is the next candidate.
NavMeshConnector::Match NavMeshConnector::judgeParallel(const Side& side, const Side& other, uint32 edge) const
{
    if (!isWithinRange(side, other))
        return Match();
    const float start = side.project(other.mStart);
    const float end = side.project(other.mEnd);
    const float from = std::clamp(start, 0.0f, 1.0f);
    const float to = std::clamp(end, 0.0f, 1.0f);
    const Overlap overlap{from > to ? to : from, from > to ? from : to, mOverlapTolerance / side.mLength};
    if (!(overlap.mTo - overlap.mFrom >= overlap.mSlack))
        return Match();
    const bool touches = side.isNear(other.mStart, start, mDistanceTolerance) ||
                         side.isNear(other.mEnd, end, mDistanceTolerance) ||
                         other.isNear(side.mStart, other.project(side.mStart), mDistanceTolerance) ||
                         other.isNear(side.mEnd, other.project(side.mEnd), mDistanceTolerance);
    if (!touches)
        return Match();
    if (isWithinReach(mGrid->getNodeHeight(side.mEdge.mNode) * mAxisValue, other.mHeight * mAxisValue))
        return overlap.isWhole() ? Match{Outcome::LINK, edge} : split(side, edge, overlap);
    if (mRules == Rules::REFINED)
        return Match();
    return {Outcome::OUT_OF_REACH, edge}; // open for good: sides further down the list are not tried
}

bool NavMeshConnector::isWithinReach(float nodeHeight, float height) const
{
    if (height > nodeHeight)
        return !(height - nodeHeight > mMaxJumpHeight);
    return !(height <= nodeHeight && nodeHeight - height > mMaxFallHeight);
}

/// What comes of a side that is covered in part.
NavMeshConnector::Match NavMeshConnector::split(const Side& side, uint32 edge, const Overlap& overlap) const
{
    Match split{Outcome::SPLIT, edge};
    if (overlap.mFrom >= overlap.mSlack)
        split.mCuts[split.mNumCuts++] = overlap.mFrom;
    if (overlap.mTo <= 1.0f - overlap.mSlack)
        split.mCuts[split.mNumCuts++] = overlap.mTo;
    if (!KORV_ASSERT(split.mNumCuts > 0, "false", "fourth case ?!? should not happen"))
        return Match();
    return isShorter(side, split) ? split : Match();
}

/// Whether every piece of a split side is shorter than the side. Where coordinates are too coarse for the cut, a piece
/// would be the side itself, and splitting would never end.
bool NavMeshConnector::isShorter(const Side& side, const Match& split) const
{
    const Vec3<float>& start = mGrid->getVertex(side.mEdge, 0);
    const Vec3<float>& end = mGrid->getVertex(side.mEdge, 1);
    Vec2<float> from = side.mStart;
    for (uint32 i = 0; i <= split.mNumCuts; ++i)
    {
        const Vec2<float> to =
            i < split.mNumCuts ? mGrid->getPosition(start + (end - start) * split.mCuts[i]) : side.mEnd;
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
    Vector<Vec3<float>>& vertices = mDraft->getVertices();
    mDraft->reserveVertices(split.mNumCuts);
    const Vec3<float> start = vertices[static_cast<uint32>(lists.mCorners[side])];
    const Vec3<float> end = vertices[static_cast<uint32>(lists.mCorners[lists.getNext(side)])];
    for (uint32 i = 0; i < split.mNumCuts; ++i)
    {
        const ptrdiff_t place = static_cast<ptrdiff_t>(side) + 1 + i;
        mCorners.insert(mCorners.begin() + place, static_cast<int32>(vertices.size()));
        mNeighbours.insert(mNeighbours.begin() + place, OPEN);
        vertices.push_back(start + (end - start) * split.mCuts[i]);
    }
    lists = {mCorners.data(), mNeighbours.data(), static_cast<uint32>(mCorners.size())};
}

/// Lets others find a piece of a side. What they have found ahead may not hold any more if it decides about them.
void NavMeshConnector::insertPiece(uint32 side, uint32 edge)
{
    const GridEdge piece = getEdge(side);
    mSidesNearby.clear();
    mGrid->insertPiece(edge, piece, mSidesNearby);
    const Side measured(*mGrid, piece);
    for (const uint32 nearby : mSidesNearby)
    {
        if (judge(Side(*mGrid, mGrid->getEdge(nearby)), measured, 0).mOutcome != Outcome::NOTHING)
            mFound[nearby] = Found(Outcome::UNKNOWN, 0);
    }
}

/// Sets the neighbours of all sides that are linked as a whole.
void NavMeshConnector::writeLinks(const RangeRunner& runner)
{
    const Vector<Grid::Stretch>& stretches = mGrid->getStretches();
    const auto writeStretch = [&](const Grid::Stretch& stretch)
    {
        Vector<int32>& neighbours = stretch.mBlock->mPieces.mNeighbours;
        uint32 edge = stretch.mFirstEdge;
        for (size_t side = stretch.begin(); side < stretch.end(); ++side)
        {
            if (neighbours[side] != OPEN)
                continue;
            const Found found = mFound[edge++];
            if (found.getOutcome() == Outcome::LINK)
                neighbours[side] = mGrid->getEdge(found.getEdge()).mNode;
        }
    };
    runner.run(static_cast<uint32>(stretches.size()), mGrid->getStretchesPerTask(),
               [&](uint32 begin, uint32 end)
               { std::for_each(stretches.begin() + begin, stretches.begin() + end, writeStretch); });
}
} // namespace KORV::NavMesh
