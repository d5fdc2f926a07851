// Sorts the triangles of a block down to its voxels.
//
// An octant tests its triangles against the cubes of its eight children. Children that some triangle touches come into
// being side by side, then each is filled in turn with the triangles that touch it. On the last level the masks of the
// triangles are all there is to know: the first walkable one of a voxel makes it walkable.
//
// Records and bricks come from the same tests in the same order. Bricks are what the next stages work on; the records
// are for the rules that look at one voxel after the other.
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
    : mTriangles(allocator), mStack(allocator), mOverlaps(allocator), mInnerOctants(allocator), mVoxels(allocator),
      mBricks(allocator), mTypes(allocator)
{
}

void VoxelBlock::start(const Vec3<float>& centre, float edge, uint32 depth, const PlaneLayout* layout)
{
    mCentre = centre;
    mEdge = edge;
    mDepth = depth;
    mLayout = layout;
    mTriangles.clear();
    mRoot = InnerOctant();
    mInnerOctants.clear();
    mVoxels.clear();
    mBricks.clear();
    mTypes.clear();
    mNumInnerOctants = 0;
    mNumVoxels = 0;
}

void VoxelBlock::build()
{
    const uint32 numTriangles = static_cast<uint32>(mTriangles.size());
    makeRoom(numTriangles);
    for (uint32 i = 0; i < numTriangles; ++i)
        mStack[i] = i;
    const Octant octant = {mCentre, mEdge, mDepth, 0, numTriangles};
    if (mDepth == 0)
        buildVoxel(octant);
    else if (mLayout != nullptr)
        fillBricks(octant, 0);
    else
        mRoot = fill(octant);
}

/// An octree of one voxel, which is there in any case.
void VoxelBlock::buildVoxel(const Octant& octant)
{
    std::fill_n(mOverlaps.begin(), octant.mEnd, ChildCubes::Overlaps{1, 0});
    if (mLayout == nullptr)
    {
        addVoxels(octant, 1);
        return;
    }
    startBrick(0);
    addVoxelBits(octant, 1, 0);
    endBrick();
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

/// The same as fill, for bricks.
/// @param rank  the octant's place among the octants of its level, in the order of the octree.
void VoxelBlock::fillBricks(const Octant& octant, uint32 rank)
{
    const bool isBrick = octant.mDepth == mLayout->getBrickLevels();
    if (isBrick)
        startBrick(rank);
    if (isBrick && octant.mDepth == PlaneLayout::BRICK_LEVELS)
    {
        fillBrick(octant);
        endBrick();
        return;
    }
    ChildCubes cubes(octant.mCentre, octant.mEdge);
    const uint32 childMask = findOverlaps(octant, cubes);
    if (octant.mDepth == 1)
        addVoxelBits(octant, childMask, rank * NUM_CHILDREN % PlaneLayout::BRICK_VOXELS);
    else
    {
        mNumInnerOctants += countChildren(childMask);
        for (uint32 rest = childMask; rest != 0; rest &= rest - 1)
        {
            const uint32 k = static_cast<uint32>(std::countr_zero(rest));
            const size_t end = pushTriangles(octant, k);
            fillBricks({cubes.getCentre(k), octant.mEdge / 2.0f, octant.mDepth - 1, octant.mEnd, end},
                       rank * NUM_CHILDREN + k);
        }
    }
    if (isBrick)
        endBrick();
}

/// The same for a whole brick, with all levels of a triangle at once.
void VoxelBlock::fillBrick(const Octant& octant)
{
    const BrickCubes cubes(*mLayout, octant.mCentre, octant.mEdge);
    uint64 children = 0;
    uint64 parents = 0;
    for (size_t i = octant.mBegin; i < octant.mEnd; ++i)
    {
        const VoxelTriangle& triangle = mTriangles[mStack[i] & ~COVERS];
        const BrickOverlaps found = cubes.find(triangle, (mStack[i] & COVERS) != 0);
        children |= found.mChildren;
        parents |= found.mParents;
        addVoxelPlanes(found, triangle.mClass);
    }
    mNumInnerOctants += countBits(children) + countBits(parents);
    for (const uint64 plane : mBricks.back().mOccupied)
        mNumVoxels += countBits(plane);
}

/// Adds the voxels that a triangle touches. The first walkable triangle decides about a voxel.
void VoxelBlock::addVoxelPlanes(const BrickOverlaps& found, const TriangleClass& triangleClass)
{
    VoxelBrick& brick = mBricks.back();
    uint64 decided[PlaneLayout::BRICK_EDGE];
    uint64 any = 0;
    for (uint32 w = 0; w < PlaneLayout::BRICK_EDGE; ++w)
    {
        brick.mOccupied[w] |= found.mVoxels[w];
        decided[w] = found.mVoxels[w] & ~brick.mWalkable[w];
        any |= decided[w];
    }
    if (!triangleClass.mWalkable || any == 0)
        return;
    for (uint32 w = 0; w < PlaneLayout::BRICK_EDGE; ++w)
        brick.mWalkable[w] |= decided[w];
    if (!hasManyTypesWith(triangleClass.mSurfaceTypeID))
        return;
    for (uint32 w = 0; w < PlaneLayout::BRICK_EDGE; ++w)
    {
        for (uint64 bits = decided[w]; bits != 0; bits &= bits - 1)
            mTypesOfCells[64 * w + static_cast<uint32>(std::countr_zero(bits))] = triangleClass.mSurfaceTypeID;
    }
}

void VoxelBlock::startBrick(uint32 rank)
{
    VoxelBrick& brick = mBricks.emplace_back();
    for (uint32 level = mDepth - mLayout->getBrickLevels(); level-- > 0;)
        brick.mPosition = brick.mPosition * 2 + CHILD_CORNERS[(rank >> (3 * level)) % NUM_CHILDREN];
    mHasType = false;
    mHasManyTypes = false;
}

void VoxelBlock::endBrick()
{
    VoxelBrick& brick = mBricks.back();
    const auto isEmpty = [](uint64 plane) { return plane == 0; };
    if (std::all_of(std::begin(brick.mOccupied), std::end(brick.mOccupied), isEmpty))
    {
        mBricks.pop_back(); // what touches an octant may miss its children, which are a little smaller together
        return;
    }
    if (!mHasManyTypes)
        return;
    brick.mTypes = VoxelBrick::MANY_TYPES | static_cast<uint32>(mTypes.size());
    for (uint32 cell = 0; cell < PlaneLayout::BRICK_VOXELS; ++cell)
    {
        if (((brick.mWalkable[cell / 64] >> (cell % 64)) & 1u) != 0)
            mTypes.push_back(mTypesOfCells[cell]);
    }
}

/// @param rank  of the first child, within the brick.
void VoxelBlock::addVoxelBits(const Octant& octant, uint32 childMask, uint32 rank)
{
    VoxelBrick& brick = mBricks.back();
    mLayout->addChildren(brick.mOccupied, rank, childMask);
    mNumVoxels += countChildren(childMask);
    uint32 walkable = 0;
    const auto keep = [&](uint32 children, const TriangleClass& found)
    {
        walkable |= children;
        addType(rank, children, found.mSurfaceTypeID);
    };
    forEachClass(octant, childMask, keep);
    mLayout->addChildren(brick.mWalkable, rank, walkable);
}

void VoxelBlock::addType(uint32 rank, uint32 children, uint16 type)
{
    if (!hasManyTypesWith(type))
        return;
    for (; children != 0; children &= children - 1)
        mTypesOfCells[mLayout->getCell(rank + static_cast<uint32>(std::countr_zero(children)))] = type;
}

/// Whether types must be kept cell by cell, now that the brick at work gets voxels of a type.
bool VoxelBlock::hasManyTypesWith(uint16 type)
{
    uint32& common = mBricks.back().mTypes;
    if (!mHasType)
        common = type;
    mHasType = true;
    if (mHasManyTypes || common == type)
        return mHasManyTypes;
    mHasManyTypes = true;
    std::fill(std::begin(mTypesOfCells), std::end(mTypesOfCells), static_cast<uint16>(common));
    return true;
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
