// Walks the outlines of the surfaces.
//
// Borders and bridges form a tree, drawn in the plane of the surface: borders run along voxel edges, bridges along
// voxel centres, and a bridge meets a border on the way from the centre of its last voxel to one corner of it. Cut
// along the bridges, the surface has one boundary, and that is the outline. It is walked like the face of any plane
// drawing, with the surface on the left: along a border until a bridge begins, and at a voxel centre on by the first
// way clockwise from the one it came by. That works for any number of bridges at a voxel and needs no memory but the
// way itself.
//
// Ways at a centre, as a number that grows counter-clockwise: 2 * i towards the neighbour on side i, 2 * i + 1 out to
// the corner that ends side i. Where a bridge meets a border is settled when the walk first comes there: at the side it
// arrives on along the border, or at the lowest border side when it comes over the bridge. A voxel that joins two
// borders has one border side of each, and a way out to both.
//
// Cost: linear in the border edges and the voxels of the bridges.

#include "korv/navmesh/surfaces/finalpolygon.h"

#include "korv/common/debug/assert.h"
#include "korv/common/debug/trace.h"
#include "korv/navmesh/surfaces/neighbourbits.h"

namespace KORV::NavMesh
{
namespace
{
/// A typed message for a trace viewer: an outline begins.
constexpr uint32 TRACE_OUTLINE = 9;

Vec3<float> toFloat(const Vec3<int32>& v)
{
    return {static_cast<float>(v.mX), static_cast<float>(v.mY), static_cast<float>(v.mZ)};
}

/// The ways that leave a voxel's centre.
uint32 getWays(const LeafOctant& leaf)
{
    return CentreWays::get(leaf.getBridges(), leaf.data);
}
} // namespace

OutlinePoints::OutlinePoints(const NavMeshOctree& octree, const PlaneDirections& directions) : mOctree(octree)
{
    const float half = octree.getCubeSize() * 0.5f;
    mUpOffset = toFloat(directions.mUp) * half;
    for (uint32 side = 0; side < PlaneDirections::NUM_SIDES; ++side)
        mCornerOffsets[side] = toFloat(directions.mSides[side] + directions.mSides[leftOf(side)]) * half;
}

uint32 CentreWays::get(uint32 bridges, uint32 waysOut)
{
    uint32 ways = 0;
    for (uint32 side = 0; side < PlaneDirections::NUM_SIDES; ++side)
    {
        ways |= ((bridges >> side) & 1u) << (2 * side);
        ways |= ((waysOut >> side) & 1u) << (2 * side + 1);
    }
    return ways;
}

uint32 CentreWays::turnClockwise(uint32 ways, uint32 cameBy)
{
    for (uint32 turn = 1; turn < NUM_WAYS; ++turn)
    {
        const uint32 way = (cameBy + NUM_WAYS - turn) % NUM_WAYS;
        if (((ways >> way) & 1u) != 0)
            return way;
    }
    return cameBy;
}

BuildFinalPolygon::BuildFinalPolygon(NavMeshOctree& octree, uint32 mainAxis, SurfacePolygonList& polygons)
    : mOctree(octree), mCursor(octree), mWalk(octree, mainAxis), mPolygons(polygons),
      mRayLength(computeHeightRayLength(octree.getHeightClassifier(), octree.getCubeSize())),
      mPoints(octree, mWalk.getDirections())
{
}

void BuildFinalPolygon::operator()(const Vec3<int32>& position, LeafOctant& leaf)
{
    if (!leaf.isWalkable())
        return;
    const uint32 side = findUntracedSide(leaf);
    if (side == PlaneDirections::NUM_SIDES)
        return;
    const uint32 nothing = 0;
    Common::Debug::Trace::sendData(TRACE_OUTLINE, &nothing, sizeof(nothing));
    traceOutline(addPolygon(position, leaf).mPoints, {position, &leaf, side});
}

SurfacePolygon& BuildFinalPolygon::addPolygon(const Vec3<int32>& position, const LeafOctant& leaf)
{
    const Vec3<int32>& up = mWalk.getDirections().mUp;
    Ray ray(position + up, up, mRayLength);
    mOctree.castRay(ray, mCursor);
    float lo = 0.0f;
    float hi = 0.0f;
    SurfacePolygon& polygon = mPolygons.emplace_back(mPolygons.get_allocator().getAllocator());
    polygon.mHeightClass =
        mOctree.getHeightClassifier().classify(static_cast<float>(ray.mLength) * mOctree.getCubeSize(), lo, hi);
    polygon.mSurfaceTypeID = leaf.surfaceTypeID;
    return polygon;
}

void BuildFinalPolygon::traceOutline(Points& points, const State& start)
{
    State state = start;
    do
    {
        points.push_back(getCorner(state));
        state.mLeaf->setTraced(state.mSide);
        if (meetsBridge(state))
        {
            crossBridges(points, state);
            points.push_back(getCorner(state));
        }
    } while (mWalk.advance(state));
    KORV_ASSERT(state.mLeaf == start.mLeaf && state.mSide == start.mSide, "mergeStack.empty()",
                "Internal Error, please reduce navmesh resolution value to some degree and try again");
}

/// Whether the walk leaves the border here. Settles the place for a bridge that has met no side of the voxel so far.
bool BuildFinalPolygon::meetsBridge(const State& state) const
{
    LeafOctant& leaf = *state.mLeaf;
    if ((leaf.flags & LeafOctant::JOINS_BORDERS) != 0)
        leaf.data = leaf.getBorderSides();
    else if (leaf.getBridges() != 0 && leaf.data == 0)
        leaf.data = 1u << state.mSide;
    return ((leaf.data >> state.mSide) & 1u) != 0;
}

/// Goes from a corner into its voxel and over bridges, and comes out at a corner again: on another border, or on the
/// same one after all that hangs on the bridge has been walked around.
void BuildFinalPolygon::crossBridges(Points& points, State& state)
{
    uint32 cameBy = 2 * state.mSide + 1;
    for (;;)
    {
        points.push_back(mPoints.getCentre(state.mPosition));
        const uint32 way = CentreWays::turnClockwise(getWays(*state.mLeaf), cameBy);
        state.mSide = way / 2;
        if (way % 2 != 0)
            return;
        const Vec3<int32> position = state.mPosition + mWalk.getDirections().mSides[state.mSide];
        LeafOctant* leaf = mCursor.find(position);
        if (leaf == nullptr)
            return; // bridges lead over voxels, so this can't be
        state.mPosition = position;
        state.mLeaf = leaf;
        prepareWaysOut(*leaf);
        cameBy = 2 * oppositeOf(way / 2);
    }
}

/// Settles where a bridge meets the border of a voxel that the walk reaches over the bridge.
void BuildFinalPolygon::prepareWaysOut(LeafOctant& leaf) const
{
    if (leaf.getBorderSides() == 0 || leaf.data != 0)
        return;
    if ((leaf.flags & LeafOctant::JOINS_BORDERS) != 0)
    {
        leaf.data = leaf.getBorderSides();
        return;
    }
    const uint32 side = findUntracedSide(leaf);
    if (KORV_BARE_ASSERT(side != PlaneDirections::NUM_SIDES, "neighbourID != 4"))
        leaf.data = 1u << side;
}
} // namespace KORV::NavMesh
