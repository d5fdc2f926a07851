// Makes the bricks of a block (blockbricks), which is what the next stages work on, or its records, for the rules that
// look at one voxel after the other. They come from the same tests.
//
// Records are made by sorting the triangles down to the voxels. An octant tests its triangles against the cubes of its
// eight children. Children that some triangle touches come into being side by side, then each is filled in turn with
// the triangles that touch it. On the last level the masks of the triangles are all there is to know: the first
// walkable one of a voxel makes it walkable.
//
// The lists of all octants on the way down lie on one stack, so the memory is that of the lists on one way, not of the
// whole block.

#include "korv/navmesh/voxels/voxelblock.h"

#include "korv/navmesh/voxels/leafcursor.h"

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
    : mNumbers(allocator), mBricks(allocator), mTriangles(allocator), mStack(allocator), mOverlaps(allocator),
      mInnerOctants(allocator), mVoxels(allocator)
{
}

void VoxelBlock::start(const Vec3<float>& centre, float edge, uint32 depth, const PlaneLayout* layout)
{
    mCentre = centre;
    mEdge = edge;
    mDepth = depth;
    mLayout = layout;
    mNumbers.clear();
}

void VoxelBlock::build(const InputTriangles& input)
{
    if (mLayout != nullptr)
        buildBricks(input);
    else
        buildRecords(input);
}

void VoxelBlock::buildBricks(const InputTriangles& input)
{
    mBricks.start(mCentre, mEdge, mDepth, *mLayout);
    TriangleReader reader(input);
    Vec3<float> corners[3];
    for (const uint32 number : mNumbers)
    {
        reader.read(number, corners);
        mBricks.addTriangle(corners, input.getClass(number));
    }
    mBricks.finish();
}

void VoxelBlock::buildRecords(const InputTriangles& input)
{
    mTriangles.clear();
    mRoot = InnerOctant();
    mInnerOctants.clear();
    mVoxels.clear();
    const bool ordinary = isWithinReach(mCentre, mEdge);
    TriangleReader reader(input);
    Vec3<float> corners[3];
    for (const uint32 number : mNumbers)
    {
        reader.read(number, corners);
        mTriangles.emplace_back(input.getClass(number), corners, ordinary);
    }
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
    std::fill_n(mOverlaps.begin(), octant.mEnd, ChildCubes::Overlaps{1, 0}); // the one voxel is there in any case
    addVoxels(octant, 1);
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

/// Calls a function with (children, class) for the children that the first walkable triangle that touches them
/// decides about, all at once for a triangle.
template <class F>
void VoxelBlock::forEachClass(const Octant& octant, uint32 childMask, const F& function) const
{
    uint32 undecided = childMask;
    for (size_t i = octant.mBegin; i < octant.mEnd && undecided != 0; ++i)
    {
        const TriangleClass& found = mTriangles[mStack[i] & ~COVERS].mClass;
        const uint32 decided = found.mWalkable ? mOverlaps[i].mTouched & undecided : 0;
        if (decided != 0)
            function(decided, found);
        undecided &= ~decided;
    }
}

InnerOctant VoxelBlock::addVoxels(const Octant& octant, uint32 childMask)
{
    if (childMask == 0)
        return {};
    TriangleClass classes[NUM_CHILDREN];
    const auto keep = [&classes](uint32 children, const TriangleClass& found)
    {
        for (; children != 0; children &= children - 1)
            classes[std::countr_zero(children)] = found;
    };
    forEachClass(octant, childMask, keep);
    const uint32 firstVoxel = static_cast<uint32>(mVoxels.size());
    mVoxels.resize(firstVoxel + countChildren(childMask));
    LeafOctant* voxel = &mVoxels[firstVoxel];
    for (uint32 rest = childMask; rest != 0; rest &= rest - 1, ++voxel)
    {
        const TriangleClass& found = classes[std::countr_zero(rest)];
        voxel->flags = found.mWalkable ? LeafOctant::WALKABLE : 0;
        voxel->surfaceTypeID = found.mSurfaceTypeID;
    }
    return {static_cast<uint8>(childMask), firstVoxel | VOXELS};
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
