#pragma once

#include "korv/common/container/nodecontainers.h"
#include "korv/navmesh/surfaces/planedirections.h"
#include "korv/navmesh/voxels/leafcursor.h"

namespace KORV::NavMesh
{
/// Labels of borders, in sets of those that are connected.
class LabelSets
{
public:
    /// What a voxel without a label holds.
    static constexpr uint32 NO_LABEL = 0xFFFFFFFF;

    explicit LabelSets(Common::Memory::Allocator* allocator) : mParents(allocator) {}

    uint32 size() const { return static_cast<uint32>(mParents.size()); }
    uint32 addLabel();
    bool isSameSet(uint32 a, uint32 b) { return findRoot(a) == findRoot(b); }
    void join(uint32 a, uint32 b) { mParents[findRoot(b)] = findRoot(a); }

private:
    uint32 findRoot(uint32 label);

    Vector<uint32> mParents; // a label that is its own parent stands for its set
};

/// Steps along borders, with the surface on the left.
class BorderWalk
{
public:
    /// A voxel and a side of it that belongs to a border.
    struct State
    {
        Vec3<int32> mPosition;
        LeafOctant* mLeaf;
        uint32 mSide;
    };

    BorderWalk(NavMeshOctree& octree, uint32 mainAxis);

    /// Goes on to the next border edge.
    /// @return false when that has been traced already; the state is then that edge.
    bool advance(State& state);

    const PlaneDirections& getDirections() const { return mDirections; }

private:
    LeafCursor mCursor;
    PlaneDirections mDirections;
};

/// The lowest side that belongs to a border and has not been traced, 4 when there is none.
uint32 findUntracedSide(const LeafOctant& leaf);

/// Gives each border a label of its own, writes it into the border's voxels and gathers their positions in the order
/// walked. A voxel at which two borders meet for the first time joins them and is marked.
/// The data of every voxel must be NO_LABEL before.
class MarkFaceBorder : public LeafFunctional
{
public:
    MarkFaceBorder(NavMeshOctree& octree, uint32 mainAxis, LabelSets& labels,
                   Common::Container::Deque<Vec3<int32>>& borderVoxels);
    void operator()(const Vec3<int32>& position, LeafOctant& leaf) override;

private:
    void setLabel(const Vec3<int32>& position, LeafOctant& leaf, uint32 label);

    BorderWalk mWalk;
    LabelSets& mLabels;
    Common::Container::Deque<Vec3<int32>>& mBorderVoxels;
};
} // namespace KORV::NavMesh
