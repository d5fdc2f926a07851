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
    : mBricks(allocator), mFillings(allocator), mTypesOfCells(allocator), mOrder(allocator), mTypes(allocator)
{
}

void BlockBricks::start(const Vec3<float>& centre, float edge, uint32 depth, const PlaneLayout& layout)
{
    mRoot = {centre, edge, depth, 0};
    mIsOrdinary = isWithinReach(centre, edge);
    mLayout = &layout;
    mGrid = CellGrid(centre, edge, depth);
    for (int i = 0; i < 3; ++i)
        mFlips[i] = layout.isFlipped(i) ? (1u << depth) - 1 : 0;
    std::fill(std::begin(mPlaces), std::end(mPlaces), NONE);
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
    const bool isClear = mRoot.mDepth == 0 || mGrid.find(corners, range);
    if (mRoot.mDepth == 0)
        addCell(0, 0, 0, triangleClass);
    else if (isClear && std::popcount(range.mLongAxes) < 2 && mGrid.touchesRow(corners, range))
        addRow(range, triangleClass);
    else
    {
        const VoxelTriangle triangle(triangleClass, corners, mIsOrdinary);
        descend(isClear && range.mIsInside ? findHome(range) : mRoot, triangle, false);
    }
}

/// Adds the voxels from one cell to another.
void BlockBricks::addRow(const CellRange& range, const TriangleClass& triangleClass)
{
    uint32 first[3];
    uint32 last[3];
    for (int i = 0; i < 3; ++i)
    {
        const int axis = mLayout->getAxis(i);
        first[i] = static_cast<uint32>(range.mFirst[axis]) ^ mFlips[i];
        last[i] = static_cast<uint32>(range.mLast[axis]) ^ mFlips[i];
        if (last[i] < first[i])
            std::swap(first[i], last[i]);
    }
    for (uint32 w = first[2]; w <= last[2]; ++w)
    {
        for (uint32 v = first[1]; v <= last[1]; ++v)
        {
            for (uint32 u = first[0]; u <= last[0]; ++u)
                addCell(u, v, w, triangleClass);
        }
    }
}

void BlockBricks::addCell(uint32 u, uint32 v, uint32 w, const TriangleClass& triangleClass)
{
    const uint32 number = getBrick(w / EDGE * 64 + v / EDGE * 8 + u / EDGE);
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

void BlockBricks::descend(const Octant& octant, const VoxelTriangle& triangle, bool covers)
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
    const ChildCubes::Overlaps found = cubes.find(triangle, covers);
    for (uint32 rest = found.mTouched; rest != 0; rest &= rest - 1)
    {
        const uint32 k = static_cast<uint32>(std::countr_zero(rest));
        descend({cubes.getCentre(k), octant.mEdge / 2.0f, octant.mDepth - 1, octant.mRank * NUM_CHILDREN + k}, triangle,
                ((found.mCovered >> k) & 1u) != 0);
    }
}

void BlockBricks::addToBrick(const Octant& octant, const VoxelTriangle& triangle, bool covers)
{
    const uint32 brick = getBrick(getPlace(octant.mRank));
    Filling& filling = mFillings[brick];
    const BrickOverlaps found = filling.mCubes.find(triangle, covers);
    filling.mParents |= found.mParents;
    filling.mChildren |= found.mChildren;
    addVoxelPlanes(brick, found, triangle.mClass);
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

/// The place of a brick among those of the block. @param rank  in the order of the octree.
uint32 BlockBricks::getPlace(uint32 rank) const
{
    // the layout has the cells of a brick in that order, and a block of bricks looks alike, only that it may be smaller
    const uint32 levelsLess = MAX_DEPTH - std::max(mRoot.mDepth, PlaneLayout::BRICK_LEVELS);
    const uint32 cell = mLayout->getCell(rank << (3 * levelsLess));
    const uint32 u = (cell % 8) >> levelsLess;
    const uint32 v = (cell / 8 % 8) >> levelsLess;
    const uint32 w = (cell / 64) >> levelsLess;
    return 64 * w + 8 * v + u;
}

uint32 BlockBricks::addBrick(uint32 place)
{
    const uint32 uvw[3] = {place % 8, place / 8 % 8, place / 64};
    const uint32 levels = mLayout->getBrickLevels();
    Vec3<int32> cell;
    for (int i = 0; i < 3; ++i)
        cell[mLayout->getAxis(i)] = static_cast<int32>((uvw[i] << levels) ^ mFlips[i]);
    const Octant octant = findOctant(cell, levels);
    mFillings.push_back({BrickCubes(*mLayout, octant.mCentre, octant.mEdge)});
    mBricks.emplace_back();
    mPlaces[place] = static_cast<uint16>(mBricks.size() - 1);
    return mPlaces[place];
}

void BlockBricks::finish()
{
    const uint32 levels = mLayout->getBrickLevels();
    const uint32 numRanks = 1u << (3 * (mRoot.mDepth - levels));
    for (uint32 rank = 0; rank < numRanks; ++rank)
    {
        const uint16 brick = mPlaces[getPlace(rank)];
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
    VoxelBrick& brick = mBricks[number];
    mTouched[0] |= mRoot.mDepth > mLayout->getBrickLevels() ? uint64{1} << (rank / NUM_CHILDREN) : 0;
    countBrick(brick, mFillings[number]);
    const auto isEmpty = [](uint64 plane) { return plane == 0; };
    if (std::all_of(std::begin(brick.mOccupied), std::end(brick.mOccupied), isEmpty))
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
