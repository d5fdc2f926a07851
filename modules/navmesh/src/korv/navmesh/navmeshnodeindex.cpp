// Answers "which node is this point on" through a grid, and "which place is nearest" through a tree of boxes.
//
// Every node that can be stood on has a record of one cache line: what the inside test of the mesh reads, projected by
// the same expressions, so that the test gives bit by bit what it gives on the mesh. Grid and tree only choose which
// records are tested; their boxes hold every point that the test can let in (see nodeshape.cpp). Records lie in the
// order of the tree's leaves, so those that a cell lists are mostly neighbours.
//
// The grid lists the nodes of a cell in the order of their ids, and the lowest id wins: the first hit is the answer. In
// height the grid knows what the test of heights lets in, with its rounding. The tree knows the polygons themselves,
// and so bounds the distance from a point to each.
//
// Nodes for which rounding lets points pass at any distance, as on the line through all the corners of a node without
// area, have no box. The grid lists them in all the cells that such a line passes, unless they are many: then they are
// found by height. Nodes with numbers that are not finite or so large that products overflow are tested one by one; a
// point with such numbers is tested against all records.

#include "korv/navmesh/navmeshnodeindex.h"

#include "korv/common/debug/assert.h"
#include "korv/common/platform/prefetch.h"
#include "korv/navmesh/navmeshsearchfilter.h"
#include "korv/navmesh/places/boxtree.h"
#include "korv/navmesh/places/navmeshqueries.h"
#include "korv/navmesh/places/nodeplaces.h"
#include "korv/navmesh/places/nodeshape.h"
#include "korv/navmesh/places/placegrid.h"
#include "korv/navmesh/places/sidebounds.h"

#include <cmath>
#include <limits>

namespace KORV::NavMesh
{
namespace
{
constexpr uint32 NO_NODE = std::numeric_limits<uint32>::max(); // -1 as an id of the mesh
constexpr uint32 NUM_NEAR_CORNERS = 4;

/// What the inside test reads of a node. More than a half of the nodes of a mesh have three corners, most four at most.
struct alignas(64) NodeRecord
{
    Vec3<float> mFirstCorner; // in space
    float mMaxHeight;
    uint32 mID;
    uint32 mNumCorners;
    uint32 mMoreCorners; // index of the fifth
    uint32 mHasArea;
    Vec2<float> mCorners[NUM_NEAR_CORNERS]; // the first again in place of missing ones
};

/// A node outside the tree.
struct Outsider
{
    double mHeight;
    uint32 mID;
};

/// Part of the tree that a search for the nearest place has put off.
struct Pending
{
    double mBound; // squared distance in the frame of the mesh
    uint32 mIndex;
};
} // namespace

class NavMeshNodeIndex::Finder : public Common::Memory::MemoryManaged
{
public:
    explicit Finder(const NavMeshContainer& mesh);

    uint32 searchNode(const Vec3<float>& point) const;
    NavMeshPlace nearestNode(const NavMeshContainer& mesh, const Vec3<float>& point, float maxDistance,
                             const NavMeshSearchFilter* filter) const;
    uint64 getMemoryUsage() const;

private:
    class NearestQuery;
    class RecordShapes;

    void build(const NavMeshContainer& mesh);
    void addRecord(const NavMeshContainer& mesh, NodeShape& shape, uint32 nodeID);
    void measureFrame();
    SearchBox getPlaces(const NodeShape& shape) const;
    void buildGrid(Vector<PlaceGrid::Item>& places, size_t numNodes);
    Vec2<float> getCorner(const NodeRecord& record, uint32 corner) const;

    bool isInside(const NodeRecord& record, const Vec3<float>& point, const Vec2<float>& place) const;
    bool isLeftOfMoreSides(const NodeRecord& record, const Vec2<float>& place) const;
    uint32 searchRecords(size_t begin, size_t end, const Vec3<float>& point, const Vec2<float>& place,
                         uint32 best) const;
    uint32 searchList(const uint32* entry, const uint32* end, const Vec3<float>& point, const Vec2<float>& place,
                      uint32 best) const;
    uint32 searchUnbounded(double lowest, double highest, const Vec3<float>& point, const Vec2<float>& place,
                           uint32 best) const;

    PlaneFrame mFrame;
    float mLowest;               // how far below a node a point may lie, as a height
    double mMaxHeight = 0.0;     // greatest of the regular records
    double mHeightError = 0.0;   // greatest of the unbounded records
    double mFrameSquare = 0.0;   // squared distances grow at most by that factor in the frame of the mesh
    BoxTree mTree;               // for the nearest place
    PlaceGrid mGrid;             // for the node at a place, entries are indices of records
    Vector<NodeRecord> mRecords; // those of the tree, then the unbounded, then the irregular ones
    bool mListsUnbounded = true; // in the grid, too
    size_t mFirstUnbounded = 0;
    size_t mFirstIrregular = 0;
    Vector<Vec2<float>> mMoreCorners;
};

/// The records as a grid sees them.
class NavMeshNodeIndex::Finder::RecordShapes : public PlaceGrid::Shapes
{
public:
    explicit RecordShapes(const Finder& finder) : mFinder(finder) {}

    bool meets(uint32 id, const SearchBox& rectangle) const override
    {
        const NodeRecord& record = mFinder.mRecords[id];
        Vec2<float> a = mFinder.getCorner(record, record.mNumCorners - 1);
        for (uint32 i = 0; i < record.mNumCorners; ++i)
        {
            const Vec2<float> b = mFinder.getCorner(record, i);
            if (isRightOfSide(rectangle, a, b))
                return false;
            a = b;
        }
        return true;
    }

private:
    const Finder& mFinder;
};

NavMeshNodeIndex::Finder::Finder(const NavMeshContainer& mesh)
    : mFrame(mesh), mLowest(-2.0f * mesh.mCubeSize), mTree(getMemory()), mGrid(getMemory()), mRecords(getMemory()),
      mMoreCorners(getMemory())
{
    measureFrame();
    build(mesh);
}

/// Bounds how much longer than in space a step can look in the frame: for axes of unit length at right angles not at
/// all.
void NavMeshNodeIndex::Finder::measureFrame()
{
    const Vec3<float> axes[3] = {mFrame.mXAxis, mFrame.mYAxis, mFrame.mNormal};
    for (const Vec3<float>& a : axes)
    {
        double sum = 0.0; // the greatest eigenvalue of the matrix of products is at most the greatest such sum
        for (const Vec3<float>& b : axes)
            sum += std::fabs(double(a.mX) * double(b.mX) + double(a.mY) * double(b.mY) + double(a.mZ) * double(b.mZ));
        mFrameSquare = std::max(mFrameSquare, sum);
    }
}

void NavMeshNodeIndex::Finder::build(const NavMeshContainer& mesh)
{
    Vector<BoxTree::Item> items(getMemory());
    Vector<PlaceGrid::Item> places(getMemory());
    Vector<Outsider> unbounded(getMemory());
    Vector<uint32> irregular(getMemory());
    NodeShape shape(getMemory());
    items.reserve(mesh.mNodes.size());
    for (uint32 id = 0; id < mesh.mNodes.size(); ++id)
    {
        if (!shape.assign(mesh, mFrame, id))
            continue;
        if (!shape.mIsRegular)
        {
            irregular.push_back(id);
            continue;
        }
        shape.measure(mesh, mFrame);
        mMaxHeight = std::max(mMaxHeight, double(shape.mMaxHeight));
        // the nearest place may lie on an unbounded one, too
        if (shape.mIsBounded || shape.hasArea())
            items.push_back({shape.mBox, id});
        places.push_back({getPlaces(shape), id});
        if (shape.mIsBounded)
            continue;
        unbounded.push_back({mFrame.getHeight(shape.mFirstCorner), id});
        mHeightError = std::max(mHeightError, mFrame.getHeightError(shape.mFirstCorner));
    }
    mTree.build(items);
    std::sort(unbounded.begin(), unbounded.end(),
              [](const Outsider& a, const Outsider& b)
              { return a.mHeight != b.mHeight ? a.mHeight < b.mHeight : a.mID < b.mID; });

    mRecords.reserve(items.size() + unbounded.size() + irregular.size());
    for (const BoxTree::Item& item : items)
        addRecord(mesh, shape, item.mID);
    mFirstUnbounded = mRecords.size();
    for (const Outsider& outsider : unbounded)
        addRecord(mesh, shape, outsider.mID);
    mFirstIrregular = mRecords.size();
    for (const uint32 id : irregular)
        addRecord(mesh, shape, id);
    buildGrid(places, mesh.mNodes.size());
}

/// Where a point can stand on a node: the box of the node in the ground plane, and the heights that its test lets in.
SearchBox NavMeshNodeIndex::Finder::getPlaces(const NodeShape& shape) const
{
    constexpr double MAX = 1e30;
    const double height = mFrame.getHeight(shape.mFirstCorner);
    const double error = mFrame.getHeightError(shape.mFirstCorner);
    SearchBox box = shape.mBox;
    for (int axis = 0; axis < 2 && !shape.mIsBounded; ++axis)
    {
        box.mLow[axis] = -PlaceGrid::WIDEST;
        box.mHigh[axis] = PlaceGrid::WIDEST;
    }
    box.mLow[2] = roundDown(std::clamp(height + double(mLowest) - error, -MAX, MAX));
    box.mHigh[2] = roundUp(std::clamp(height + double(shape.mMaxHeight) + error, -MAX, MAX));
    return box;
}

/// @param places  in the order of node ids. Each of the unbounded ones lies in a row of cells; as long as they are few,
///                they are listed there, too.
void NavMeshNodeIndex::Finder::buildGrid(Vector<PlaceGrid::Item>& places, size_t numNodes)
{
    if (std::isnan(mLowest)) // then every search looks at all records
        return;
    const size_t numUnbounded = mFirstIrregular - mFirstUnbounded;
    mListsUnbounded = numUnbounded * numUnbounded <= numNodes;
    Vector<uint32> recordOfNode(numNodes, 0, getMemory());
    for (uint32 record = 0; record < mFirstIrregular; ++record)
        recordOfNode[mRecords[record].mID] = record;
    if (!mListsUnbounded)
        std::erase_if(places, [](const PlaceGrid::Item& place) { return place.mBox.mHigh[0] >= PlaceGrid::WIDEST; });
    for (PlaceGrid::Item& place : places)
        place.mID = recordOfNode[place.mID];
    mGrid.build(places, RecordShapes(*this));
}

void NavMeshNodeIndex::Finder::addRecord(const NavMeshContainer& mesh, NodeShape& shape, uint32 nodeID)
{
    shape.assign(mesh, mFrame, nodeID);
    NodeRecord record{};
    record.mFirstCorner = shape.mFirstCorner;
    record.mMaxHeight = shape.mMaxHeight;
    record.mID = nodeID;
    record.mNumCorners = static_cast<uint32>(shape.mCorners.size());
    record.mMoreCorners = static_cast<uint32>(mMoreCorners.size());
    record.mHasArea = shape.mIsRegular && shape.hasArea();
    std::fill(std::begin(record.mCorners), std::end(record.mCorners), shape.mCorners[0]);
    for (size_t i = 0; i < shape.mCorners.size(); ++i)
    {
        if (i < NUM_NEAR_CORNERS)
            record.mCorners[i] = shape.mCorners[i];
        else
            mMoreCorners.push_back(shape.mCorners[i]);
    }
    mRecords.push_back(record);
}

uint64 NavMeshNodeIndex::Finder::getMemoryUsage() const
{
    return sizeof(Finder) + mTree.getMemoryUsage() + mGrid.getMemoryUsage() + mRecords.capacity() * sizeof(NodeRecord) +
           mMoreCorners.capacity() * sizeof(Vec2<float>);
}

/// NavMeshContainer::isPointInsideNode, on a record.
inline bool NavMeshNodeIndex::Finder::isInside(const NodeRecord& record, const Vec3<float>& point,
                                               const Vec2<float>& place) const
{
    const float height = dot(mFrame.mNormal, point - record.mFirstCorner);
    // which of the tests fails, nobody can foresee: all are made, without branches
    const auto isRight = [&place](const Vec2<float>& a, const Vec2<float>& b)
    { return orient(a, b, place) < 0.0f ? 1u : 0u; };
    const Vec2<float>* corners = record.mCorners;
    const bool isClosed = record.mNumCorners <= NUM_NEAR_CORNERS;
    const uint32 isOutside = (height >= mLowest ? 0u : 1u) | (height <= record.mMaxHeight ? 0u : 1u) |
                             isRight(corners[0], corners[1]) | isRight(corners[1], corners[2]) |
                             isRight(corners[2], corners[3]) |
                             (isRight(corners[NUM_NEAR_CORNERS - 1], corners[0]) & (isClosed ? 1u : 0u));
    return isOutside == 0 && (isClosed || isLeftOfMoreSides(record, place));
}

Vec2<float> NavMeshNodeIndex::Finder::getCorner(const NodeRecord& record, uint32 corner) const
{
    return corner < NUM_NEAR_CORNERS ? record.mCorners[corner]
                                     : mMoreCorners[record.mMoreCorners + corner - NUM_NEAR_CORNERS];
}

bool NavMeshNodeIndex::Finder::isLeftOfMoreSides(const NodeRecord& record, const Vec2<float>& place) const
{
    Vec2<float> a = record.mCorners[NUM_NEAR_CORNERS - 1];
    for (uint32 i = 0; i < record.mNumCorners - NUM_NEAR_CORNERS; ++i)
    {
        const Vec2<float> b = mMoreCorners[record.mMoreCorners + i];
        if (orient(a, b, place) < 0.0f)
            return false;
        a = b;
    }
    return !(orient(a, record.mCorners[0], place) < 0.0f);
}

uint32 NavMeshNodeIndex::Finder::searchNode(const Vec3<float>& point) const
{
    const Vec2<float> place = projectToPlane(point, mFrame.mXAxis, mFrame.mYAxis);
    if (!mFrame.isRegular() || !mFrame.isRegular(point, place) || std::isnan(mLowest))
        return searchRecords(0, mRecords.size(), point, place, NO_NODE);

    const double height = mFrame.getHeight(point);
    const double error = mFrame.getHeightError(point);
    // the sum of magnitudes in the error is that of the height, too
    constexpr double ROUNDING = 1.5;
    uint32 best = NO_NODE;
    mGrid.visitLists(place.mX, place.mY, static_cast<float>(height - ROUNDING * error),
                     static_cast<float>(height + ROUNDING * error),
                     [&](const uint32* entry, const uint32* end)
                     { best = searchList(entry, end, point, place, best); });
    if (!mListsUnbounded)
        best = searchUnbounded(height - mMaxHeight - error, height - double(mLowest) + error, point, place, best);
    return searchRecords(mFirstIrregular, mRecords.size(), point, place, best);
}

uint32 NavMeshNodeIndex::Finder::searchRecords(size_t begin, size_t end, const Vec3<float>& point,
                                               const Vec2<float>& place, uint32 best) const
{
    for (size_t i = begin; i < end; ++i)
    {
        if (mRecords[i].mID < best && isInside(mRecords[i], point, place))
            best = mRecords[i].mID;
    }
    return best;
}

uint32 NavMeshNodeIndex::Finder::searchUnbounded(double lowest, double highest, const Vec3<float>& point,
                                                 const Vec2<float>& place, uint32 best) const
{
    const auto isBelow = [this](const NodeRecord& record, double height)
    { return mFrame.getHeight(record.mFirstCorner) < height; };
    const auto begin = mRecords.begin() + static_cast<ptrdiff_t>(mFirstUnbounded);
    const auto end = mRecords.begin() + static_cast<ptrdiff_t>(mFirstIrregular);
    for (auto it = std::lower_bound(begin, end, lowest - mHeightError, isBelow); it != end; ++it)
    {
        if (mFrame.getHeight(it->mFirstCorner) > highest + mHeightError)
            break;
        if (it->mID < best && isInside(*it, point, place))
            best = it->mID;
    }
    return best;
}

/// The lowest ids come first, so the first hit is the best.
inline uint32 NavMeshNodeIndex::Finder::searchList(const uint32* entry, const uint32* end, const Vec3<float>& point,
                                                   const Vec2<float>& place, uint32 best) const
{
    // in a large mesh each record is a miss; they need not be waited for one after the other
    constexpr ptrdiff_t MAX_AHEAD = 4;
    for (const uint32* ahead = entry; ahead != entry + std::min(end - entry, MAX_AHEAD); ++ahead)
        Common::Platform::prefetch(&mRecords[*ahead]);
    for (; entry != end; ++entry)
    {
        const NodeRecord& record = mRecords[*entry];
        if (record.mID >= best)
            return best;
        if (isInside(record, point, place))
            return record.mID;
    }
    return best;
}

/// The state of a search for the nearest place.
class NavMeshNodeIndex::Finder::NearestQuery
{
public:
    NearestQuery(const Finder& finder, const NavMeshContainer& mesh, const Vec3<float>& point, float maxDistance,
                 const NavMeshSearchFilter* filter)
        : mFinder(finder), mMesh(mesh), mFilter(filter),
          mPoint(point), mInFrame{PlaneFrame::getProduct(finder.mFrame.mXAxis, point),
                                  PlaneFrame::getProduct(finder.mFrame.mYAxis, point), finder.mFrame.getHeight(point)}
    {
        setDistance(maxDistance);
    }

    NavMeshPlace run();

private:
    /// Children of a node, nearest first.
    struct Children
    {
        Pending mList[BoxTree::WIDTH];
        uint32 mCount = 0;
    };

    void setDistance(float distance);
    Children findChildren(uint32 index) const;
    void tryRecord(const NodeRecord& record);

    const Finder& mFinder;
    const NavMeshContainer& mMesh;
    const NavMeshSearchFilter* mFilter;
    const Vec3<float> mPoint;
    const double mInFrame[3];
    NavMeshPlace mBest; // before there is one, its distance is the greatest allowed
    Vec3<double> mPosition;
    double mMaxBound; // what lies beyond is farther than the best
    Pending mPending[BoxTree::MAX_PENDING];
    uint32 mNumPending = 0;
};

NavMeshPlace NavMeshNodeIndex::Finder::NearestQuery::run()
{
    mPending[mNumPending++] = {0.0, 0};
    while (mNumPending > 0)
    {
        const Pending next = mPending[--mNumPending];
        if (next.mBound > mMaxBound)
            continue;
        Children children = findChildren(next.mIndex);
        if (mFinder.mTree.isLeaf(next.mIndex))
        {
            for (uint32 i = 0; i < children.mCount && children.mList[i].mBound <= mMaxBound; ++i)
                tryRecord(mFinder.mRecords[children.mList[i].mIndex]);
            continue;
        }
        while (children.mCount > 0)
            mPending[mNumPending++] = children.mList[--children.mCount];
    }
    if (!mBest.isValid())
        return {};
    mBest.mPosition = roundIntoNode(mMesh, mBest.mNodeID, mPosition);
    return mBest;
}

void NavMeshNodeIndex::Finder::NearestQuery::setDistance(float distance)
{
    // distances that are equal as floats count as equal
    constexpr double ROUNDING = 1.000001;
    mBest.mDistance = distance;
    mMaxBound = double(distance) * double(distance) * mFinder.mFrameSquare * ROUNDING;
}

NavMeshNodeIndex::Finder::NearestQuery::Children
NavMeshNodeIndex::Finder::NearestQuery::findChildren(uint32 index) const
{
    const BoxTree::Node& node = mFinder.mTree.getNode(index);
    double bounds[BoxTree::WIDTH];
    BoxTree::boundDistances(bounds, node, mInFrame);
    Children children;
    for (uint32 slot = 0; slot < BoxTree::WIDTH; ++slot)
    {
        if (!std::isfinite(bounds[slot]) || !(bounds[slot] <= mMaxBound))
            continue;
        uint32 at = children.mCount++;
        for (; at > 0 && children.mList[at - 1].mBound > bounds[slot]; --at)
            children.mList[at] = children.mList[at - 1];
        children.mList[at] = {bounds[slot], node.mFirst + slot};
    }
    return children;
}

void NavMeshNodeIndex::Finder::NearestQuery::tryRecord(const NodeRecord& record)
{
    const auto nodeID = static_cast<int32>(record.mID);
    if (!record.mHasArea || record.mID >= mMesh.mNodes.size() ||
        (mFilter != nullptr && !mFilter->isNodeAllowed(mMesh.mNodes[record.mID])))
        return;
    ClosestPoint closest;
    if (!findClosestPoint(closest, mMesh, nodeID, mPoint))
        return;
    constexpr auto MAX = std::numeric_limits<float>::max();
    const float distance = closest.mDistance <= double(MAX) ? static_cast<float>(closest.mDistance)
                                                            : std::numeric_limits<float>::infinity();
    const bool isLower = !mBest.isValid() || nodeID < mBest.mNodeID;
    if (!(distance < mBest.mDistance || (distance == mBest.mDistance && isLower)))
        return;
    mBest.mNodeID = nodeID;
    mPosition = closest.mPosition;
    setDistance(distance);
}

NavMeshPlace NavMeshNodeIndex::Finder::nearestNode(const NavMeshContainer& mesh, const Vec3<float>& point,
                                                   float maxDistance, const NavMeshSearchFilter* filter) const
{
    const bool isFinite = std::isfinite(point.mX) && std::isfinite(point.mY) && std::isfinite(point.mZ);
    if (mTree.empty() || !isFinite || !(maxDistance >= 0.0f))
        return {};
    return NearestQuery(*this, mesh, point, maxDistance, filter).run();
}

NavMeshNodeIndex::NavMeshNodeIndex(const SharedPtr<NavMeshContainer>& navMesh) : mNavMesh(navMesh)
{
    if (KORV_ASSERT(navMesh != nullptr, "navMesh != NULL", "Navmesh container is a null pointer !"))
        mFinder = new (getAllocator()) Finder(*navMesh);
}

NavMeshNodeIndex::~NavMeshNodeIndex()
{
    delete mFinder;
}

int NavMeshNodeIndex::searchNode(const Vec3<float>& point) const
{
    return mFinder != nullptr ? static_cast<int>(mFinder->searchNode(point)) : -1;
}

NavMeshPlace NavMeshNodeIndex::nearestNode(const Vec3<float>& point, float maxDistance,
                                           const NavMeshSearchFilter* filter) const
{
    return mFinder != nullptr ? mFinder->nearestNode(*mNavMesh, point, maxDistance, filter) : NavMeshPlace();
}

uint64 NavMeshNodeIndex::getMemoryUsage() const
{
    return sizeof(NavMeshNodeIndex) + (mFinder != nullptr ? mFinder->getMemoryUsage() : 0);
}
} // namespace KORV::NavMesh
