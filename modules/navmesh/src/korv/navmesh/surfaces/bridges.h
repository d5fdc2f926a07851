#pragma once

#include "korv/navmesh/surfaces/borders.h"

namespace KORV::NavMesh
{
/// Finds where the borders of a surface come nearest to each other and leaves a bridge of voxels there. The bridges,
/// and the voxels that join two borders by themselves, connect all borders of a surface to a tree.
class BridgeSearch
{
public:
    /// @param queue  positions of the border voxels in the order walked; used up.
    BridgeSearch(NavMeshOctree& octree, uint32 mainAxis, LabelSets& labels,
                 Common::Container::Deque<Vec3<int32>>& queue);

    /// Labels every voxel of the surfaces and marks the bridges. To be called once.
    void run();

private:
    void visitNeighbours(const Vec3<int32>& position);
    void visitNeighbour(const Vec3<int32>& position, LeafOctant& leaf, uint32 side);
    void buildBridge(const Vec3<int32>& position, LeafOctant& leaf, uint32 firstSide);

    NavMeshOctree& mOctree;
    LeafCursor mCursor;
    LeafCursor mBridgeCursor; // its own, so that a long bridge does not lead the search's cursor away
    PlaneDirections mDirections;
    LabelSets& mLabels;
    Common::Container::Deque<Vec3<int32>>& mQueue;
};
} // namespace KORV::NavMesh
