// Fills the bricks of a block, one triangle after the other.
//
// Most triangles of a detailed scene are about as small as a voxel, and the box of such a one says what it touches
// (cellgrid): its voxels get their bits at once. Where only the brick or an octant that it lies in is clear, the tests
// begin there, all levels of a brick at once (brickoverlaps). What else there is goes down from the block's octant by
// the literal test (childoverlaps). The first walkable triangle of a voxel makes it walkable and gives it its type.
//
// No lists of triangles are kept, only the bricks: 144 bytes each, and about as many for what is known while they are
// filled.

#include "korv/navmesh/voxels/blockbricks.h"

#include <algorithm>

namespace KORV::NavMesh
{
namespace
{
constexpr uint32 EDGE = PlaneLayout::BRICK_EDGE;

/// The ranks of the octants that octants lie in, one level above.
uint64 rankParents(uint64 ranks)
{
    uint64 parents = 0;
    for (uint32 parent = 0; parent < NUM_CHILDREN; ++parent)
        parents |= ((ranks >> (NUM_CHILDREN * parent)) & 0xFF) != 0 ? uint64{1} << parent : 0;
    return parents;
}
} // namespace

BlockBricks::BlockBricks(Common::Memory::Allocator* allocator)
    : mRanks(allocator), mBricks(allocator), mFillings(allocator), mTypesOfCells(allocator), mOrder(allocator),
      mTypes(allocator)
{
}

void BlockBricks::start(const Vec3<float>& centre, float edge, uint32 depth, const PlaneLayout& layout)
{
    mRoot = {centre, edge, depth, 0};
    mIsOrdinary = isWithinReach(centre, edge);
    mLevelsLess = MAX_DEPTH - std::max(depth, PlaneLayout::BRICK_LEVELS);
    mLayout = &layout;
    mGrid = CellGrid(centre, edge, depth);
    mBrickEdge = edge / static_cast<float>(1u << depth) * static_cast<float>(EDGE);
    for (int i = 0; i < 3; ++i)
        mFlips[i] = layout.isFlipped(i) ? (1u << depth) - 1 : 0;
    mRanks.assign(size_t{1} << (3 * (depth - std::min(depth, layout.getBrickLevels()))), NONE);
    std::fill(std::begin(mTouched), std::end(mTouched), 0);
    mBricks.clear();
    mFillings.clear();
    mTypesOfCells.clear();
    mOrder.clear();
    mTypes.clear();
    mNumInnerOctants = 0;
    mNumVoxels = 0;
    if (depth == 0)
        mBricks[getBrick(0)].mOccupied[0] = 1;
}

void BlockBricks::addTriangle(const Vec3<float> (&corners)[3], const TriangleClass& triangleClass)
{
    CellRange range;
    if (mRoot.mDepth == 0)
        addCell(0, 0, 0, triangleClass);
    else if (mGrid.find(corners, range))
        addFound(corners, triangleClass, range);
    else
    {
        const VoxelTriangle voxelTriangle(triangleClass, corners, mIsOrdinary);
        descend(mRoot, BrickTriangle(voxelTriangle, *mLayout), false);
    }
}

void BlockBricks::addFound(const Vec3<float> (&corners)[3], const TriangleClass& triangleClass, const CellRange& range)
{
    if (range.isRow() && mGrid.touchesRow(corners, range))
    {
        addRow(range, triangleClass);
        return;
    }
    const VoxelTriangle voxelTriangle(triangleClass, corners, mIsOrdinary);
    const BrickTriangle triangle(voxelTriangle, *mLayout);
    if (!range.mIsInside || !addFromBox(range, triangle))
        descend(range.mIsInside ? findHome(range) : mRoot, triangle, false);
}

/// Tests the bricks that a box reaches when they are several, but few.
/// @return whether the triangle is done with.
bool BlockBricks::addFromBox(const CellRange& range, const BrickTriangle& triangle)
{
    constexpr int32 MOST_BRICKS = 4;
    const Vec3<int32> first(range.mFirst[0] / 8, range.mFirst[1] / 8, range.mFirst[2] / 8);
    const Vec3<int32> last(range.mLast[0] / 8, range.mLast[1] / 8, range.mLast[2] / 8);
    const int32 numBricks = (last.mX - first.mX + 1) * (last.mY - first.mY + 1) * (last.mZ - first.mZ + 1);
    if (mLayout->getBrickLevels() < PlaneLayout::BRICK_LEVELS || numBricks == 1 || numBricks > MOST_BRICKS)
        return false;
    if (triangle.mTriangle.mExtent > mBrickEdge && triangle.mTriangle.mFlatAxis == VoxelTriangle::NOT_FLAT)
        return false;
    bool isCertain = true;
    Vec3<int32> position;
    for (position.mX = first.mX; position.mX <= last.mX; ++position.mX)
    {
        for (position.mY = first.mY; position.mY <= last.mY; ++position.mY)
        {
            for (position.mZ = first.mZ; position.mZ <= last.mZ; ++position.mZ)
                isCertain = isCertain && addCertain(position, triangle);
        }
    }
    return isCertain;
}

/// Adds the voxels of a brick that a triangle in the block touches, if there are any.
/// @param position  of the brick. [bricks]
/// @return false when they are uncertain.
bool BlockBricks::addCertain(const Vec3<int32>& position, const BrickTriangle& triangle)
{
    uint32 uvw[3];
    for (int i = 0; i < 3; ++i)
        uvw[i] = static_cast<uint32>(position[mLayout->getAxis(i)]) ^ (mFlips[i] / EDGE);
    const uint32 brick = getBrick(getRank(uvw[0], uvw[1], uvw[2]));
    BrickOverlaps found;
    if (!mFillings[brick].mCubes.findCertain(triangle, mRoot.mEdge, 2.0f * mGrid.getDrift(), found))
        return false;
    addVoxelPlanes(brick, found, triangle.mTriangle.mClass);
    return true;
}

/// Adds the voxels from one cell to another, along one axis.
void BlockBricks::addRow(const CellRange& range, const TriangleClass& triangleClass)
{
    uint32 cell[3];
    uint32 along = U;
    uint32 step = 1;
    int32 numCells = 1;
    for (uint32 i = 0; i < 3; ++i)
    {
        const int axis = mLayout->getAxis(static_cast<int>(i));
        cell[i] = static_cast<uint32>(range.mFirst[axis]) ^ mFlips[i];
        if (range.mFirst[axis] == range.mLast[axis])
            continue;
        along = i;
        step = mFlips[i] != 0 ? ~uint32{0} : 1; // backwards, as unsigned numbers wrap
        numCells = range.mLast[axis] - range.mFirst[axis] + 1;
    }
    for (; numCells > 0; --numCells, cell[along] += step)
        addCell(cell[U], cell[V], cell[W], triangleClass);
}

void BlockBricks::addCell(uint32 u, uint32 v, uint32 w, const TriangleClass& triangleClass)
{
    const uint32 number = getBrick(getRank(u / EDGE, v / EDGE, w / EDGE));
    VoxelBrick& brick = mBricks[number];
    const uint64 bit = uint64{1} << (v % EDGE * 8 + u % EDGE);
    brick.mOccupied[w % EDGE] |= bit;
    if (!triangleClass.mWalkable || (brick.mWalkable[w % EDGE] & bit) != 0)
        return;
    brick.mWalkable[w % EDGE] |= bit;
    if (hasManyTypesWith(number, triangleClass.mSurfaceTypeID))
        mTypesOfCells[mFillings[number].mTypesOfCells + w % EDGE * 64 + v % EDGE * 8 + u % EDGE] =
            triangleClass.mSurfaceTypeID;
}

/// The smallest octant, but not below a brick, that cells lie in.
BlockBricks::Octant BlockBricks::findHome(const CellRange& range) const
{
    return findOctant(range.getFirst(), std::max(range.getCommonLevels(), mLayout->getBrickLevels()));
}

/// The octant of some depth that a cell lies in. Its centre is what the way down to it comes to.
BlockBricks::Octant BlockBricks::findOctant(const Vec3<int32>& cell, uint32 depth) const
{
    Octant octant = mRoot;
    for (; octant.mDepth > depth; --octant.mDepth)
    {
        const uint32 level = octant.mDepth - 1;
        const float quarter = octant.mEdge / 4.0f;
        for (int axis = 0; axis < 3; ++axis)
            octant.mCentre[axis] += ((cell[axis] >> level) & 1) != 0 ? quarter : -quarter;
        octant.mEdge /= 2.0f;
        octant.mRank = octant.mRank * NUM_CHILDREN + childOnLevel(cell, level);
    }
    return octant;
}

void BlockBricks::descend(const Octant& octant, const BrickTriangle& triangle, bool covers)
{
    if (octant.mDepth <= mLayout->getBrickLevels())
    {
        addToBrick(octant, triangle, covers);
        return;
    }
    const uint32 level = octant.mDepth - mLayout->getBrickLevels() - 1;
    if (level < std::size(mTouched))
        mTouched[level] |= uint64{1} << octant.mRank;
    ChildCubes cubes(octant.mCentre, octant.mEdge);
    const ChildCubes::Overlaps found = cubes.find(triangle.mTriangle, covers);
    for (uint32 rest = found.mTouched; rest != 0; rest &= rest - 1)
    {
        const uint32 k = static_cast<uint32>(std::countr_zero(rest));
        descend({cubes.getCentre(k), octant.mEdge / 2.0f, octant.mDepth - 1, octant.mRank * NUM_CHILDREN + k}, triangle,
                ((found.mCovered >> k) & 1u) != 0);
    }
}

void BlockBricks::addToBrick(const Octant& octant, const BrickTriangle& triangle, bool covers)
{
    const uint32 brick = getBrick(octant.mRank);
    Filling& filling = mFillings[brick];
    const BrickOverlaps found = filling.mCubes.find(triangle, covers);
    filling.mIsTouched = true;
    filling.mParents |= found.mParents;
    filling.mChildren |= found.mChildren;
    addVoxelPlanes(brick, found, triangle.mTriangle.mClass);
}

/// Adds the voxels that a triangle touches. The first walkable triangle decides about a voxel.
void BlockBricks::addVoxelPlanes(uint32 number, const BrickOverlaps& found, const TriangleClass& triangleClass)
{
    VoxelBrick& brick = mBricks[number];
    uint64 decided[EDGE];
    uint64 any = 0;
    for (uint32 w = 0; w < EDGE; ++w)
    {
        brick.mOccupied[w] |= found.mVoxels[w];
        decided[w] = found.mVoxels[w] & ~brick.mWalkable[w];
        any |= decided[w];
    }
    if (!triangleClass.mWalkable || any == 0)
        return;
    for (uint32 w = 0; w < EDGE; ++w)
        brick.mWalkable[w] |= decided[w];
    if (!hasManyTypesWith(number, triangleClass.mSurfaceTypeID))
        return;
    uint16* const types = &mTypesOfCells[mFillings[number].mTypesOfCells];
    for (uint32 w = 0; w < EDGE; ++w)
    {
        for (uint64 bits = decided[w]; bits != 0; bits &= bits - 1)
            types[64 * w + static_cast<uint32>(std::countr_zero(bits))] = triangleClass.mSurfaceTypeID;
    }
}

/// Whether types must be kept cell by cell, now that a brick gets voxels of a type.
bool BlockBricks::hasManyTypesWith(uint32 brick, uint16 type)
{
    uint32& common = mBricks[brick].mTypes;
    Filling& filling = mFillings[brick];
    if (!filling.mHasType)
        common = type;
    filling.mHasType = true;
    if (common == VoxelBrick::MANY_TYPES || common == type)
        return common != type;
    filling.mTypesOfCells = static_cast<uint32>(mTypesOfCells.size());
    mTypesOfCells.resize(mTypesOfCells.size() + PlaneLayout::BRICK_VOXELS, static_cast<uint16>(common));
    common = VoxelBrick::MANY_TYPES;
    return true;
}

/// The place of a brick in the order of the octree, among those of the block. @param u,v,w  of the brick.
uint32 BlockBricks::getRank(uint32 u, uint32 v, uint32 w) const
{
    // the layout has the ranks of a brick's cells, and a block of bricks looks alike, only that it may be smaller
    return mLayout->getRank((64 * w + 8 * v + u) << mLevelsLess) >> (3 * mLevelsLess);
}

uint32 BlockBricks::addBrick(uint32 rank)
{
    Octant octant = mRoot;
    for (uint32 level = mRoot.mDepth - mLayout->getBrickLevels(); level-- > 0; octant.mEdge /= 2.0f)
    {
        const Vec3<int32>& corner = CHILD_CORNERS[(rank >> (3 * level)) % NUM_CHILDREN];
        const float quarter = octant.mEdge / 4.0f;
        for (int axis = 0; axis < 3; ++axis)
            octant.mCentre[axis] += corner[axis] != 0 ? quarter : -quarter;
    }
    mFillings.push_back({BrickCubes(*mLayout, octant.mCentre, octant.mEdge)});
    mBricks.emplace_back();
    mRanks[rank] = static_cast<uint16>(mBricks.size() - 1);
    return mRanks[rank];
}

void BlockBricks::finish()
{
    const uint32 levels = mLayout->getBrickLevels();
    for (uint32 rank = 0; rank < mRanks.size(); ++rank)
    {
        const uint16 brick = mRanks[rank];
        if (brick != NONE)
            finishBrick(brick, rank);
    }
    mTouched[1] |= rankParents(mTouched[0]);
    for (uint32 i = 0; i < std::size(mTouched); ++i)
        mNumInnerOctants += mRoot.mDepth > levels + 1 + i ? countBits(mTouched[i]) : 0;
}

/// @param rank  its place in the order of the octree.
void BlockBricks::finishBrick(uint32 number, uint32 rank)
{
    const auto isNotEmpty = [](uint64 plane) { return plane != 0; };
    VoxelBrick& brick = mBricks[number];
    const bool hasVoxels = std::any_of(std::begin(brick.mOccupied), std::end(brick.mOccupied), isNotEmpty);
    if (!hasVoxels && !mFillings[number].mIsTouched)
        return;
    mTouched[0] |= mRoot.mDepth > mLayout->getBrickLevels() ? uint64{1} << (rank / NUM_CHILDREN) : 0;
    countBrick(brick, mFillings[number]);
    if (!hasVoxels)
        return; // what touches an octant may miss its children, which are a little smaller together
    mOrder.push_back(static_cast<uint16>(number));
    for (uint32 level = mRoot.mDepth - mLayout->getBrickLevels(); level-- > 0;)
        brick.mPosition = brick.mPosition * 2 + CHILD_CORNERS[(rank >> (3 * level)) % NUM_CHILDREN];
    if (brick.mTypes != VoxelBrick::MANY_TYPES)
        return;
    brick.mTypes |= static_cast<uint32>(mTypes.size());
    for (uint32 w = 0; w < EDGE; ++w)
    {
        for (uint64 bits = brick.mWalkable[w]; bits != 0; bits &= bits - 1)
            mTypes.push_back(
                mTypesOfCells[mFillings[number].mTypesOfCells + 64 * w + static_cast<uint32>(std::countr_zero(bits))]);
    }
}

void BlockBricks::countBrick(const VoxelBrick& brick, const Filling& filling)
{
    const uint32 levels = mLayout->getBrickLevels();
    const uint64 parents = filling.mParents | findParents(brick.mOccupied);
    mNumInnerOctants += mRoot.mDepth > levels ? 1 : 0;
    mNumInnerOctants += levels > 1 ? countBits(parents) : 0;
    mNumInnerOctants += levels > 2 ? countBits(filling.mChildren | findChildren(parents)) : 0;
    for (const uint64 plane : brick.mOccupied)
        mNumVoxels += countBits(plane);
}
} // namespace KORV::NavMesh
