#include "korv/navmesh/surfaces/borders.h"

#include <bit>

namespace KORV::NavMesh
{
uint32 LabelSets::addLabel()
{
    const uint32 label = size();
    mParents.push_back(label);
    return label;
}

uint32 LabelSets::findRoot(uint32 label)
{
    while (mParents[label] != label)
    {
        mParents[label] = mParents[mParents[label]]; // halves the way for the next search
        label = mParents[label];
    }
    return label;
}

BorderWalk::BorderWalk(NavMeshOctree& octree, uint32 mainAxis)
    : mCursor(octree), mDirections(PLANE_DIRECTIONS[mainAxis])
{
}

bool BorderWalk::advance(State& state)
{
    const uint32 left = leftOf(state.mSide);
    if (!state.mLeaf->hasNeighbour(left))
    {
        state.mSide = left;
        return (state.mLeaf->getTracedSides() & (1u << left)) == 0;
    }
    state.mPosition = state.mPosition + mDirections.mSides[left];
    LeafOctant* next = mCursor.find(state.mPosition);
    if (next != nullptr && next->hasNeighbour(state.mSide))
    {
        state.mPosition = state.mPosition + mDirections.mSides[state.mSide];
        state.mSide = rightOf(state.mSide);
        next = mCursor.find(state.mPosition);
    }
    if (next == nullptr)
        return false; // joins are mutual, so this can't be
    state.mLeaf = next;
    return (next->getTracedSides() & (1u << state.mSide)) == 0;
}

uint32 findUntracedSide(const LeafOctant& leaf)
{
    const uint32 open = leaf.getBorderSides() & ~leaf.getTracedSides();
    return open != 0 ? static_cast<uint32>(std::countr_zero(open)) : PlaneDirections::NUM_SIDES;
}

MarkFaceBorder::MarkFaceBorder(NavMeshOctree& octree, uint32 mainAxis, LabelSets& labels,
                               Common::Container::Deque<Vec3<int32>>& borderVoxels)
    : mWalk(octree, mainAxis), mLabels(labels), mBorderVoxels(borderVoxels)
{
}

// One border a call is enough: every border has an edge on side 0, and at that voxel its turn comes first.
void MarkFaceBorder::operator()(const Vec3<int32>& position, LeafOctant& leaf)
{
    if (!leaf.isWalkable())
        return;
    const uint32 side = findUntracedSide(leaf);
    if (side == PlaneDirections::NUM_SIDES)
        return;
    const uint32 label = mLabels.addLabel();
    BorderWalk::State state{position, &leaf, side};
    do
    {
        setLabel(state.mPosition, *state.mLeaf, label);
        state.mLeaf->setTraced(state.mSide);
    } while (mWalk.advance(state));
}

void MarkFaceBorder::setLabel(const Vec3<int32>& position, LeafOctant& leaf, uint32 label)
{
    if (leaf.data == LabelSets::NO_LABEL)
    {
        leaf.data = label;
        if (leaf.getBorderSides() != LeafOctant::ALL_SIDES) // a voxel by itself has nobody to pass the label on to
            mBorderVoxels.push_back(position);
        return;
    }
    if (mLabels.isSameSet(leaf.data, label))
        return;
    mLabels.join(leaf.data, label);
    leaf.flags |= LeafOctant::JOINS_BORDERS;
}
} // namespace KORV::NavMesh
