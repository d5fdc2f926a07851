#pragma once

#include "korv/navmesh/navmeshoctree.h"
#include "korv/navmesh/octreedepth.h"

#include <bit>

namespace KORV::NavMesh
{
inline constexpr uint32 NUM_CHILDREN = 8;

/// Corner of each child within its parent, in halves of the parent's edge.
inline constexpr Vec3<int32> CHILD_CORNERS[NUM_CHILDREN] = {{0, 0, 0}, {0, 0, 1}, {0, 1, 1}, {0, 1, 0},
                                                            {1, 1, 0}, {1, 1, 1}, {1, 0, 1}, {1, 0, 0}};

/// The child that a position lies in on a level, given as the bit of the components that tells its halves apart.
constexpr uint32 childOnLevel(const Vec3<int32>& position, uint32 bit)
{
    constexpr uint8 NUMBERS[NUM_CHILDREN] = {0, 1, 3, 2, 7, 6, 4, 5};
    const auto half = [bit](int32 component) { return (static_cast<uint32>(component) >> bit) & 1u; };
    return NUMBERS[4 * half(position.mX) + 2 * half(position.mY) + half(position.mZ)];
}

/// Index of an existing child.
inline uint32 childIndex(const InnerOctant& octant, uint32 child)
{
    const uint32 before = octant.childMask & ((1u << child) - 1u);
    return octant.firstChild + static_cast<uint32>(std::popcount(before));
}

/// Looks voxels up one after the other. It remembers the way down to the last position and starts where the new one
/// branches off, so a step to a neighbour costs about two levels instead of all.
/// Thread use: one cursor per thread, while nobody builds the tree.
class LeafCursor
{
public:
    explicit LeafCursor(NavMeshOctree& octree) : mOctree(&octree), mNumBits(octree.getDepth()) {}

    /// The voxel at a position, null when it is empty or outside the grid.
    LeafOctant* find(const Vec3<int32>& position)
    {
        if (!mOctree->isInside(position) || mOctree->getLeafOctants().empty())
            return nullptr;
        descend(position);
        return mLevel == mNumBits ? &mOctree->getLeafOctants().getUnchecked(mPath[mLevel]) : nullptr;
    }

private:
    void descend(const Vec3<int32>& position)
    {
        const uint32 changed = static_cast<uint32>((position.mX ^ mPosition.mX) | (position.mY ^ mPosition.mY) |
                                                   (position.mZ ^ mPosition.mZ));
        const uint32 shared = mNumBits - static_cast<uint32>(std::bit_width(changed));
        mLevel = shared < mLevel ? shared : mLevel;
        mPosition = position;
        while (mLevel < mNumBits)
        {
            const InnerOctant& octant = mOctree->getInnerOctants().getUnchecked(mPath[mLevel]);
            const uint32 child = childOnLevel(position, mNumBits - 1 - mLevel);
            if (((octant.childMask >> child) & 1u) == 0)
                return;
            mPath[++mLevel] = childIndex(octant, child);
        }
    }

    NavMeshOctree* mOctree;
    uint32 mNumBits;   // a position has as many bits as the tree has levels below the root
    uint32 mLevel = 0; // levels of mPath that are valid for mPosition, below the root
    Vec3<int32> mPosition;
    uint32 mPath[MAX_OCTREE_DEPTH + 1] = {}; // index of the octant on each level; the root is 0
};
} // namespace KORV::NavMesh
