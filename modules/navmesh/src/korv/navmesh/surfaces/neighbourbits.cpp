// Which voxels can be walked on, and which of them belong together.
//
// Two passes, each on all voxels in any order. A ray that is cut off at the grid's end over-reports the free height, so
// whether a voxel is walkable must be settled everywhere before anybody asks its neighbour: with one pass the joins
// would depend on the order of the tasks. The first pass also leaves each free height behind, so that the second casts
// no rays.
//
// Invariant: joins are mutual. The interval of a class ends 1e-4 below the next class, and a free height can fall into
// that gap; such a voxel joins nobody, whichever side asks.

#include "korv/navmesh/surfaces/neighbourbits.h"

#include <atomic>

namespace KORV::NavMesh
{
namespace
{
// While the second pass runs, a voxel's flags are read by the tasks of its neighbours.

uint8 readFlags(LeafOctant& leaf)
{
    return std::atomic_ref<uint8>(leaf.flags).load(std::memory_order_relaxed);
}

void writeFlags(LeafOctant& leaf, uint32 flags)
{
    std::atomic_ref<uint8>(leaf.flags).store(static_cast<uint8>(flags), std::memory_order_relaxed);
}
} // namespace

MeasureFreeHeight::MeasureFreeHeight(NavMeshOctree& octree, uint32 mainAxis)
    : mOctree(&octree), mCursor(octree), mUp(PLANE_DIRECTIONS[mainAxis].mUp),
      mRayLength(computeHeightRayLength(octree.getHeightClassifier(), octree.getCubeSize()))
{
}

void MeasureFreeHeight::operator()(const Vec3<int32>& position, LeafOctant& leaf)
{
    if (!leaf.isWalkable())
        return;
    leaf.flags = 0;
    const Vec3<int32> above = position + mUp;
    if (mCursor.find(above) != nullptr)
        return;
    Ray ray(above, mUp, mRayLength);
    mOctree->castRay(ray, mCursor);
    const float height = static_cast<float>(ray.mLength) * mOctree->getCubeSize();
    float lo = 0.0f;
    float hi = 0.0f;
    if (mOctree->getHeightClassifier().classify(height, lo, hi) == HeightClassifier::NO_CLASS)
        return;
    leaf.flags = LeafOctant::WALKABLE;
    leaf.data = ray.mLength;
}

BuildNeighbourBits::BuildNeighbourBits(NavMeshOctree& octree, uint32 mainAxis)
    : mOctree(&octree), mCursor(octree), mDirections(PLANE_DIRECTIONS[mainAxis]),
      mGroups(octree.getHeightClassifier(), octree.getCubeSize(), octree.getRules(), octree.getMemory()),
      mSplitDepth(octree.getParameter().mSplitDepth)
{
}

void BuildNeighbourBits::operator()(const Vec3<int32>& position, LeafOctant& leaf)
{
    uint32 flags = readFlags(leaf);
    if ((flags & LeafOctant::WALKABLE) == 0)
        return;
    for (uint32 side = 0; side < PlaneDirections::NUM_SIDES; ++side)
    {
        const Vec3<int32> beside = position + mDirections.mSides[side];
        if (!isSameBranch(position, beside))
            continue;
        LeafOctant* neighbour = mCursor.find(beside);
        if (neighbour == nullptr || (readFlags(*neighbour) & LeafOctant::WALKABLE) == 0)
            continue;
        if (neighbour->surfaceTypeID == leaf.surfaceTypeID && isSameHeightClass(leaf.data, neighbour->data))
            flags |= 1u << (LeafOctant::NEIGHBOUR_SHIFT + side);
    }
    writeFlags(leaf, flags);
}

bool BuildNeighbourBits::isSameBranch(const Vec3<int32>& a, const Vec3<int32>& b) const
{
    if (mSplitDepth <= 0)
        return true;
    const uint32 levels = static_cast<uint32>(mSplitDepth);
    if (levels > mOctree->getDepth())
        return false; // no voxel has that many levels above it
    // the leading levels of the way down are the leading bits of the position
    const int32 changed = (a.mX ^ b.mX) | (a.mY ^ b.mY) | (a.mZ ^ b.mZ);
    return (static_cast<uint32>(changed) >> (mOctree->getDepth() - levels)) == 0;
}

bool BuildNeighbourBits::isSameHeightClass(uint32 lengthA, uint32 lengthB) const
{
    const HeightInterval a = mGroups.getInterval(lengthA);
    if (!a.contains(mGroups.getHeight(lengthA)) || !a.contains(mGroups.getHeight(lengthB)))
        return false;
    return lengthA == lengthB || mGroups.getInterval(lengthB).contains(mGroups.getHeight(lengthA));
}
} // namespace KORV::NavMesh
