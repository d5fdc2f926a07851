// Joins the borders of each surface.
//
// Labels spread from all borders at once, breadth first, one voxel a step. Each voxel keeps a link to the neighbour it
// got its label from, so that its links lead back to the border. Where two fronts of borders not yet connected meet,
// the two ways back make a bridge.
//
// Invariant: links and bridges are kept apart. The way back follows links alone and so always ends on the border it
// belongs to, however many bridges use the same voxels; and as only unconnected borders get a bridge, borders and
// bridges form a tree.
//
// Cost: linear in the walkable voxels; the queue holds the front alone.

#include "korv/navmesh/surfaces/bridges.h"

namespace KORV::NavMesh
{
namespace
{
constexpr uint32 STEPS_PER_REPORT = 8192;
constexpr float PROGRESS = 0.85f;

uint32 getLink(const LeafOctant& leaf)
{
    return (leaf.flags >> LeafOctant::LINK_SHIFT) & 3u;
}

void setLink(LeafOctant& leaf, uint32 side)
{
    leaf.flags = static_cast<uint8>(leaf.flags | LeafOctant::LINKED | (side << LeafOctant::LINK_SHIFT));
}
} // namespace

BridgeSearch::BridgeSearch(NavMeshOctree& octree, uint32 mainAxis, LabelSets& labels,
                           Common::Container::Deque<Vec3<int32>>& queue)
    : mOctree(octree), mCursor(octree), mBridgeCursor(octree), mDirections(PLANE_DIRECTIONS[mainAxis]), mLabels(labels),
      mQueue(queue)
{
}

void BridgeSearch::run()
{
    for (uint32 steps = 1; !mQueue.empty(); ++steps)
    {
        const Vec3<int32> position = mQueue.front();
        mQueue.pop_front();
        visitNeighbours(position);
        if (steps % STEPS_PER_REPORT == 0)
            mOctree.getControl().report(NavMeshOctree::STAGE_NAME, PROGRESS);
    }
}

void BridgeSearch::visitNeighbours(const Vec3<int32>& position)
{
    LeafOctant* leaf = mCursor.find(position);
    if (leaf == nullptr)
        return;
    for (uint32 side = 0; side < PlaneDirections::NUM_SIDES; ++side)
    {
        if (leaf->hasNeighbour(side))
            visitNeighbour(position, *leaf, side);
    }
}

void BridgeSearch::visitNeighbour(const Vec3<int32>& position, LeafOctant& leaf, uint32 side)
{
    const Vec3<int32> neighbourPosition = position + mDirections.mSides[side];
    LeafOctant* neighbour = mCursor.find(neighbourPosition);
    if (neighbour == nullptr)
        return;
    if (neighbour->data == LabelSets::NO_LABEL)
    {
        neighbour->data = leaf.data;
        setLink(*neighbour, oppositeOf(side));
        mQueue.push_back(neighbourPosition);
        return;
    }
    if (mLabels.isSameSet(neighbour->data, leaf.data))
        return;
    buildBridge(position, leaf, side);
    buildBridge(neighbourPosition, *neighbour, oppositeOf(side));
    mLabels.join(neighbour->data, leaf.data);
}

/// Marks half a bridge, from where the fronts met back to the border.
void BridgeSearch::buildBridge(const Vec3<int32>& position, LeafOctant& leaf, uint32 firstSide)
{
    Vec3<int32> current = position;
    LeafOctant* voxel = &leaf;
    voxel->setBridge(firstSide);
    while ((voxel->flags & LeafOctant::LINKED) != 0)
    {
        const uint32 side = getLink(*voxel);
        voxel->setBridge(side);
        current = current + mDirections.mSides[side];
        voxel = mBridgeCursor.find(current);
        if (voxel == nullptr)
            return;
        voxel->setBridge(oppositeOf(side));
    }
}
} // namespace KORV::NavMesh
