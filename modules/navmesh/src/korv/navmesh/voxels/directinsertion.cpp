// Voxelises triangles straight into bricks.
//
// A triangle begins at the smallest octant that its box surely lies in, most often a block of bricks, which does the
// rest (blockbricks). From an octant above blocks it goes down by the literal test (childoverlaps). So each triangle is
// read once, and nothing is kept of it: where triangles are many and voxels few, lists of them would take most of the
// memory, and sorting them most of the time. The price is that all bricks are at hand until the end, with what is known
// of them while they are filled.
//
// Workers share the blocks out among them, so that each gets its triangles in their order (brickfeed).

#include "korv/navmesh/voxels/directinsertion.h"

#include <algorithm>

namespace KORV::NavMesh
{
namespace
{
constexpr uint32 TRIANGLES_PER_REPORT = 2048;
/// Below that the workers' help isn't worth waking them.
constexpr uint32 DEPTH_FOR_WORKERS = 8;
/// With workers blocks lie so many levels below the root at least, if that leaves bricks in them: all must get some.
constexpr uint32 LEVELS_FOR_WORKERS = 2;
/// Grids of so many levels are small in any case.
constexpr uint32 SMALL_DEPTH = 8;
/// Columns of a larger grid for each triangle, at most.
constexpr uint64 COLUMNS_PER_TRIANGLE = 16;
} // namespace

bool DirectInsertion::suits(const Vector<GeometryInfo>& geometries, uint32 depth)
{
    if (depth <= SMALL_DEPTH || depth > MAX_DEPTH)
        return depth <= SMALL_DEPTH;
    uint64 numTriangles = 0;
    for (const GeometryInfo& geometry : geometries)
        numTriangles += geometry.mNumTriangles;
    return numTriangles * COLUMNS_PER_TRIANGLE >= uint64{1} << (2 * depth);
}

DirectInsertion::DirectInsertion(const Vector<GeometryInfo>& geometries, BrickOutput& output, const RunControl& control,
                                 float progressSpan, Common::Threading::ThreadPool* pool,
                                 Common::Memory::Allocator* allocator)
    : mOutput(output), mControl(control), mProgressSpan(progressSpan), mAllocator(allocator),
      mInput(geometries, allocator), mOctants(allocator), mBlocks(allocator), mFeed(mInput, pool, allocator)
{
}

void DirectInsertion::insert(const Vec3<float>& centre, float edge, uint32 depth)
{
    if (mInput.areMany() && depth >= DEPTH_FOR_WORKERS)
        mFeed.startWorkers();
    start(centre, edge, depth);
    sortTriangles();
    mFeed.finish();
    if (depth > 0)
        mOutput.addRoot();
    moveToOutput(ROOT, mLevels);
}

void DirectInsertion::start(const Vec3<float>& centre, float edge, uint32 depth)
{
    const uint32 wanted = mFeed.hasWorkers() ? LEVELS_FOR_WORKERS : 0;
    mBlockDepth =
        std::clamp(depth - std::min(depth, wanted), std::min(depth, PlaneLayout::BRICK_LEVELS), BlockBricks::MAX_DEPTH);
    mLevels = depth - mBlockDepth;
    mOrdinary = isWithinReach(centre, edge);
    mBlockGrid = CellGrid(centre, edge, mLevels);
    mVoxelGrid = CellGrid(centre, edge, depth);
    for (uint32 level = mLevels + 1; level-- > 0; edge /= 2.0f)
        mEdges[level] = edge;
    addOctant(centre, {}, mLevels);
}

void DirectInsertion::sortTriangles()
{
    TriangleReader reader(mInput);
    for (uint32 number = 0; number < mInput.size(); ++number)
    {
        if (number % TRIANGLES_PER_REPORT == TRIANGLES_PER_REPORT - 1)
            mControl.report(NavMeshOctree::STAGE_NAME,
                            mProgressSpan * static_cast<float>(number) / static_cast<float>(mInput.size()));
        Triangle triangle;
        triangle.mNumber = number;
        if (!reader.readValid(number, triangle.mCorners))
            continue;
        uint32 index = 0;
        const GeometryInfo& geometry = reader.find(number, index);
        geometry.mClassifier->classifyTriangle(triangle.mClass, geometry, index);
        sort(triangle);
    }
}

/// Finds the smallest octant, but not below a block, that the triangle's box surely lies in, and goes on from there.
void DirectInsertion::sort(const Triangle& triangle)
{
    if (mLevels > 0 && !mFeed.hasWorkers() && addFound(triangle))
        return;
    CellRange range;
    const bool isClear = mLevels > 0 && mBlockGrid.find(triangle.mCorners, range) && range.mIsInside;
    const uint32 lowest = isClear ? range.getCommonLevels() : mLevels;
    const uint32 octant = isClear ? findOctant(range.getFirst(), lowest) : ROOT;
    if (lowest == 0)
        addToBlock(octant, triangle);
    else
        descend(octant, lowest, VoxelTriangle(triangle.mClass, triangle.mCorners, mOrdinary), triangle);
}

/// Adds a triangle to the block that its box surely lies in, by the voxels there that it reaches, which need not be
/// found again. @return false where that is not clear.
bool DirectInsertion::addFound(const Triangle& triangle)
{
    CellRange range;
    if (!mVoxelGrid.find(triangle.mCorners, range) || !range.mIsInside || range.getCommonLevels() > mBlockDepth)
        return false;
    const Vec3<int32> first = range.getFirst();
    const int32 withinBlock = (1 << mBlockDepth) - 1;
    for (int axis = 0; axis < 3; ++axis)
    {
        range.mFirst[axis] &= withinBlock;
        range.mLast[axis] &= withinBlock;
    }
    const Vec3<int32> block(first.mX >> mBlockDepth, first.mY >> mBlockDepth, first.mZ >> mBlockDepth);
    mOctants[findOctant(block, 0)].mBlock->addFound(triangle.mCorners, triangle.mClass, range);
    return true;
}

/// The octant at a level that a position lies in. @param position  [blocks]
uint32 DirectInsertion::findOctant(const Vec3<int32>& position, uint32 lowest)
{
    uint32 octant = ROOT;
    for (uint32 level = mLevels; level-- > lowest;)
        octant = getChild(octant, level, childOnLevel(position, level));
    return octant;
}

void DirectInsertion::descend(uint32 octant, uint32 level, const VoxelTriangle& tested, const Triangle& triangle)
{
    if (level == 0)
    {
        addToBlock(octant, triangle);
        return;
    }
    ChildCubes cubes(mOctants[octant].mCentre, mEdges[level]);
    for (uint32 rest = cubes.find(tested, false).mTouched; rest != 0; rest &= rest - 1)
        descend(getChild(octant, level - 1, static_cast<uint32>(std::countr_zero(rest))), level - 1, tested, triangle);
}

void DirectInsertion::addToBlock(uint32 octant, const Triangle& triangle)
{
    const Octant& block = mOctants[octant];
    const Vec3<int32>& corner = block.mCorner;
    const uint32 share = static_cast<uint32>(corner.mX + 3 * corner.mY + 5 * corner.mZ); // neighbours' differ
    if (mFeed.hasWorkers())
        mFeed.add(triangle.mNumber, triangle.mClass, *block.mBlock, share);
    else
        block.mBlock->addTriangle(triangle.mCorners, triangle.mClass);
}

/// @param level  of the child.
uint32 DirectInsertion::getChild(uint32 octant, uint32 level, uint32 child)
{
    if (mOctants[octant].mChildren[child] != 0)
        return mOctants[octant].mChildren[child];
    const Octant& parent = mOctants[octant];
    const Vec3<float> centre = ChildCubes(parent.mCentre, mEdges[level + 1]).getCentre(child);
    const uint32 added = addOctant(centre, parent.mCorner * 2 + CHILD_CORNERS[child], level);
    mOctants[octant].mChildren[child] = added;
    return added;
}

uint32 DirectInsertion::addOctant(const Vec3<float>& centre, const Vec3<int32>& corner, uint32 level)
{
    Octant octant;
    octant.mCentre = centre;
    octant.mCorner = corner;
    if (level == 0)
    {
        octant.mBlock = &mBlocks.emplace_back(mAllocator);
        octant.mBlock->start(centre, mEdges[0], mBlockDepth, *mOutput.getLayout());
    }
    mOctants.push_back(octant);
    return static_cast<uint32>(mOctants.size() - 1);
}

/// Hands an octant's blocks over, in the order of the octree. They are given up at once.
void DirectInsertion::moveToOutput(uint32 octant, uint32 level)
{
    if (level == 0)
    {
        BlockBricks& bricks = *mOctants[octant].mBlock;
        bricks.finish();
        mOutput.addBricks(bricks, mBlockDepth, mOctants[octant].mCorner);
        bricks = BlockBricks(mAllocator);
        return;
    }
    for (const uint32 child : mOctants[octant].mChildren)
    {
        if (child == 0)
            continue;
        mOutput.countInnerOctant();
        moveToOutput(child, level - 1);
    }
}
} // namespace KORV::NavMesh
