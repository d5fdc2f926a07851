#pragma once

#include "korv/navmesh/surfaces/heightgroups.h"
#include "korv/navmesh/surfaces/planedirections.h"
#include "korv/navmesh/voxels/leafcursor.h"

namespace KORV::NavMesh
{
/// First pass over the voxels: clears the walkable bit where a voxel lies on top or no character fits, and keeps the
/// free height, in voxels, in the data of those that stay walkable.
/// Thread use: copies may work on different voxels at once.
class MeasureFreeHeight : public LeafFunctional
{
public:
    MeasureFreeHeight(NavMeshOctree& octree, uint32 mainAxis);
    void operator()(const Vec3<int32>& position, LeafOctant& leaf) override;

private:
    NavMeshOctree* mOctree;
    LeafCursor mCursor;
    Vec3<int32> mUp;
    uint32 mRayLength;
};

/// Second pass: joins voxels side by side that share surface type, height class and octree branch.
/// Thread use: copies may work on different voxels at once, after the first pass has ended everywhere.
class BuildNeighbourBits : public LeafFunctional
{
public:
    BuildNeighbourBits(NavMeshOctree& octree, uint32 mainAxis);
    void operator()(const Vec3<int32>& position, LeafOctant& leaf) override;

private:
    bool isSameBranch(const Vec3<int32>& a, const Vec3<int32>& b) const;
    bool isSameHeightClass(uint32 lengthA, uint32 lengthB) const;

    NavMeshOctree* mOctree;
    LeafCursor mCursor;
    PlaneDirections mDirections;
    HeightGroups mGroups;
    int32 mSplitDepth;
};
} // namespace KORV::NavMesh
