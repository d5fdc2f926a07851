// Sorts the triangles of a block down to its voxels.
//
// An octant tests its triangles against the cubes of its eight children. Children that some triangle touches come into
// being side by side, then each is filled in turn with the triangles that touch it. On the last level the masks of the
// triangles are all there is to know, and nothing is sorted any further.
//
// The lists of all octants on the way down lie on one stack, so the memory is that of the lists on one way, not of the
// whole block.

#include "korv/navmesh/voxelblock.h"

#include "korv/navmesh/leafcursor.h"

#include <algorithm>
#include <bit>

namespace KORV::NavMesh
{
namespace
{
/// The number of bits of a child mask. (std::popcount is a call on the oldest processors that we build for.)
uint32 countChildren(uint32 mask)
{
    constexpr uint64 ONE_BIT_EACH = 0x1111111111111111;
    const uint64 spread = (mask * uint64{0x0002000400080010}) & ONE_BIT_EACH; // each bit of the mask to its own place
    return static_cast<uint32>((spread * ONE_BIT_EACH) >> 60);
}
} // namespace

VoxelBlock::VoxelBlock(Common::Memory::Allocator* allocator)
    : mTriangles(allocator), mInnerOctants(allocator), mVoxels(allocator), mLists(allocator), mStack(allocator),
      mOverlaps(allocator)
{
}

void VoxelBlock::start(const Vec3<float>& centre, float edge, uint32 depth)
{
    mCentre = centre;
    mEdge = edge;
    mDepth = depth;
    mRoot = InnerOctant();
    mTriangles.clear();
    mInnerOctants.clear();
    mVoxels.clear();
    mLists.clear();
}

void VoxelBlock::build()
{
    const uint32 numTriangles = static_cast<uint32>(mTriangles.size());
    makeRoom(numTriangles);
    for (uint32 i = 0; i < numTriangles; ++i)
        mStack[i] = i;
    const Octant octant = {mCentre, mEdge, mDepth, 0, numTriangles};
    if (mDepth > 0)
    {
        mRoot = fill(octant);
        return;
    }
    // the octree is one voxel, which is there in any case
    std::fill_n(mOverlaps.begin(), numTriangles, ChildCubes::Overlaps{1, 0});
    if (numTriangles > 0)
        addVoxels(octant, 1);
    else
        mVoxels.push_back(LeafOctant());
}

InnerOctant VoxelBlock::fill(const Octant& octant)
{
    ChildCubes cubes(octant.mCentre, octant.mEdge);
    const uint32 childMask = findOverlaps(octant, cubes);
    if (octant.mDepth == 1 || childMask == 0)
        return addVoxels(octant, childMask);

    const uint32 firstChild = static_cast<uint32>(mInnerOctants.size());
    mInnerOctants.resize(firstChild + countChildren(childMask));
    uint32 index = firstChild;
    for (uint32 rest = childMask; rest != 0; rest &= rest - 1)
    {
        const uint32 k = static_cast<uint32>(std::countr_zero(rest));
        const size_t end = pushTriangles(octant, k);
        const InnerOctant child = fill({cubes.getCentre(k), octant.mEdge / 2.0f, octant.mDepth - 1, octant.mEnd, end});
        mInnerOctants[index++] = child;
    }
    return {static_cast<uint8>(childMask), firstChild};
}

/// @return the children that some triangle touches, bit k for child k.
uint32 VoxelBlock::findOverlaps(const Octant& octant, ChildCubes& cubes)
{
    uint32 childMask = 0;
    for (size_t i = octant.mBegin; i < octant.mEnd; ++i)
    {
        const uint32 entry = mStack[i];
        mOverlaps[i] = cubes.find(mTriangles[entry & ~COVERS], (entry & COVERS) != 0);
        childMask |= mOverlaps[i].mTouched;
    }
    return childMask;
}

/// Puts a child's triangles on the stack, behind those of its octant.
/// @return where they end.
size_t VoxelBlock::pushTriangles(const Octant& octant, uint32 child)
{
    makeRoom(octant.mEnd + (octant.mEnd - octant.mBegin));
    size_t end = octant.mEnd;
    for (size_t i = octant.mBegin; i < octant.mEnd; ++i)
    {
        const uint32 covers = ((mOverlaps[i].mCovered >> child) & 1u) != 0 ? COVERS : 0;
        mStack[end] = (mStack[i] & ~COVERS) | covers;
        end += (mOverlaps[i].mTouched >> child) & 1u;
    }
    return end;
}

InnerOctant VoxelBlock::addVoxels(const Octant& octant, uint32 childMask)
{
    if (childMask == 0)
        return {};
    const uint32 firstVoxel = static_cast<uint32>(mVoxels.size());
    mVoxels.resize(firstVoxel + countChildren(childMask));
    LeafOctant* voxel = &mVoxels[firstVoxel];
    const bool isSingle = octant.mEnd - octant.mBegin == 1;
    const uint32 triangle = mStack[octant.mBegin] & ~COVERS;
    for (uint32 rest = childMask; rest != 0; rest &= rest - 1, ++voxel)
        voxel->data = isSingle ? triangle : listTriangles(octant, static_cast<uint32>(std::countr_zero(rest)));
    return {static_cast<uint8>(childMask), firstVoxel | VOXELS};
}

/// @return what a voxel's data tells of its triangles.
uint32 VoxelBlock::listTriangles(const Octant& octant, uint32 child)
{
    size_t first = octant.mBegin;
    while (((mOverlaps[first].mTouched >> child) & 1u) == 0)
        ++first;
    size_t next = first + 1;
    while (next < octant.mEnd && ((mOverlaps[next].mTouched >> child) & 1u) == 0)
        ++next;
    if (next == octant.mEnd)
        return mStack[first] & ~COVERS;

    const uint32 place = static_cast<uint32>(mLists.size());
    mLists.push_back(mStack[first] & ~COVERS);
    for (; next < octant.mEnd; ++next)
    {
        if (((mOverlaps[next].mTouched >> child) & 1u) != 0)
            mLists.push_back(mStack[next] & ~COVERS);
    }
    mLists.back() |= LAST;
    return place | LIST;
}

/// Makes the stack long enough for a number of entries, and one more that is written but not kept.
void VoxelBlock::makeRoom(size_t numEntries)
{
    if (mStack.size() > numEntries)
        return;
    const size_t size = std::max(numEntries + 1, 2 * mStack.size());
    mStack.resize(size);
    mOverlaps.resize(size);
}
} // namespace KORV::NavMesh
