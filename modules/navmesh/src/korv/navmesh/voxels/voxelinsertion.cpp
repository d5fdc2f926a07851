// Voxelises triangles by sorting them down an octree.
//
// The upper levels are sorted here: an octant tests its triangles against the cubes of its eight children, and children
// that some triangle touches come into being side by side. What is left below an octant that is small enough is a block
// (voxelblock), built by the workers when there are many. Blocks come back in the order of the octants.
//
// What the host says of the triangles is asked for in the beginning, once each: a floor of a million voxels is two
// triangles, and the workers must not call the host.
//
// A small triangle begins its way down at the octant that its box lies in (triangleplaces), most often that of a block.
//
// The lists of the upper octants on the way down lie on one stack, so the memory is that of the lists on one way, not
// of the whole tree; a list is given up when its octant is done.

#include "korv/navmesh/voxels/voxelinsertion.h"

#include "korv/navmesh/voxels/leafcursor.h"

#include <algorithm>
#include <bit>

namespace KORV::NavMesh
{
namespace
{
constexpr uint32 STEPS_PER_REPORT = 4096;
/// Below that, and with few triangles, the workers' help isn't worth waking them.
constexpr uint32 VOXELS_BEFORE_WORKERS = 20000;
/// How many triangles a block should have at most so that there is work for all workers, and may have in any case.
constexpr uint64 FAIR_BLOCK_TRIANGLES = 1500;
constexpr size_t MAX_BLOCK_TRIANGLES = 50000;
} // namespace

VoxelInsertion::VoxelInsertion(const Vector<GeometryInfo>& geometries, VoxelOutput& output, const RunControl& control,
                               float progressSpan, Common::Threading::ThreadPool* pool,
                               Common::Memory::Allocator* allocator)
    : mOutput(output), mControl(control), mTotalSpan(progressSpan), mInput(geometries, allocator),
      mQueue(mInput, pool, allocator), mPlaces(allocator), mStack(allocator), mOverlaps(allocator)
{
}

void VoxelInsertion::insert(const Vec3<float>& centre, float edge, uint32 depth)
{
    mOrdinary = isWithinReach(centre, edge);
    if (mInput.areMany())
        mQueue.startWorkers();
    chooseBlocks(depth);
    mInput.keepClasses();
    collectTriangles(centre, edge, depth);
    if (depth > 0)
        mOutput.addRoot();
    pushTriangles({}, 0, TrianglePlaces::ROOT);
    insertOctant({0, TrianglePlaces::ROOT, {}, centre, edge, depth, 0, mStack.size(), 0.0f, 1.0f});
    while (!mQueue.empty())
        takeOldestBlock();
}

/// Finds how large blocks are to be. They are as large as may be unless that leaves too few for the workers.
void VoxelInsertion::chooseBlocks(uint32 depth)
{
    mBlockDepth = std::min(depth, VoxelBlock::MAX_DEPTH);
    const auto countFairly = [&] { return FAIR_BLOCK_TRIANGLES << (2 * (depth - mBlockDepth)); }; // blocks of a floor
    while (mQueue.hasWorkers() && mBlockDepth > VoxelBlock::MIN_DEPTH && mInput.size() > countFairly())
        --mBlockDepth;
}

/// Asks what the host says of the triangles, and finds where each begins its way down.
void VoxelInsertion::collectTriangles(const Vec3<float>& centre, float edge, uint32 depth)
{
    mPlaces.start(centre, edge, depth - mBlockDepth, mInput.size());
    TriangleReader reader(mInput);
    Vec3<float> corners[3];
    for (uint32 number = 0; number < mInput.size(); ++number)
    {
        countSteps(1);
        if (!reader.readValid(number, corners))
            continue;
        uint32 triangle = 0;
        const GeometryInfo& geometry = reader.find(number, triangle);
        geometry.mClassifier->classifyTriangle(mInput.getClass(number), geometry, triangle);
        mPlaces.add(number, corners);
    }
}

void VoxelInsertion::insertOctant(const Octant& octant)
{
    mProgress = octant.mProgress;
    const bool isCrowded = octant.mEnd - octant.mBegin > MAX_BLOCK_TRIANGLES && octant.mDepth > VoxelBlock::MIN_DEPTH;
    if (octant.mDepth > mBlockDepth || isCrowded)
    {
        insertChildren(octant);
        return;
    }
    if (mQueue.isFull())
        takeOldestBlock();
    fillBlock(mQueue.getNext(), octant);
    mQueue.push(octant.mIndex, octant.mCorner);
}

void VoxelInsertion::fillBlock(VoxelBlock& block, const Octant& octant)
{
    block.start(octant.mCentre, octant.mEdge, octant.mDepth, mOutput.getLayout());
    for (size_t i = octant.mBegin; i < octant.mEnd; ++i)
    {
        countSteps(1);
        block.addTriangle(mStack[i]);
    }
}

void VoxelInsertion::insertChildren(const Octant& octant)
{
    ChildCubes cubes(octant.mCentre, octant.mEdge);
    const uint32 childMask = findOverlaps(octant, cubes) | mPlaces.getChildren(octant.mPlace);
    if (childMask == 0)
        return;
    const uint32 numChildren = static_cast<uint32>(std::popcount(childMask));
    Octant child = octant;
    child.mIndex = mOutput.addChildren(octant.mIndex, childMask);
    child.mEdge = octant.mEdge / 2.0f;
    child.mDepth = octant.mDepth - 1;
    child.mProgressSpan = octant.mProgressSpan / static_cast<float>(numChildren);
    for (uint32 k = 0; k < NUM_CHILDREN; ++k)
    {
        if (((childMask >> k) & 1u) == 0)
            continue;
        child.mCorner = octant.mCorner * 2 + CHILD_CORNERS[k];
        child.mCentre = cubes.getCentre(k);
        child.mPlace = mPlaces.getChild(octant.mPlace, k);
        child.mBegin = mStack.size();
        pushTriangles(octant, k, child.mPlace);
        child.mEnd = mStack.size();
        insertOctant(child);
        mStack.resize(child.mBegin);
        mOverlaps.resize(child.mBegin);
        ++child.mIndex;
        child.mProgress += child.mProgressSpan;
    }
}

uint32 VoxelInsertion::findOverlaps(const Octant& octant, ChildCubes& cubes)
{
    TriangleReader reader(mInput);
    Vec3<float> corners[3];
    uint32 childMask = 0;
    for (size_t i = octant.mBegin; i < octant.mEnd; ++i)
    {
        countSteps(1);
        reader.read(mStack[i], corners);
        const uint32 touched = cubes.find(VoxelTriangle({}, corners, mOrdinary), false).mTouched;
        mOverlaps[i] = static_cast<uint8>(touched);
        childMask |= touched;
    }
    return childMask;
}

/// Puts a child's triangles on the stack: those of its parent that touch it, and those that begin there.
void VoxelInsertion::pushTriangles(const Octant& parent, uint32 child, uint32 place)
{
    uint32 own = mPlaces.getFirst(place);
    const auto pushOwn = [&](uint32 end)
    {
        for (; own < end; own = mPlaces.getNext(own))
            mStack.push_back(own);
    };
    for (size_t i = parent.mBegin; i < parent.mEnd; ++i)
    {
        if (((mOverlaps[i] >> child) & 1u) == 0)
            continue;
        const uint32 number = mStack[i]; // a copy: the stack may move while it grows
        pushOwn(number);
        mStack.push_back(number);
    }
    pushOwn(TrianglePlaces::NONE);
    mOverlaps.resize(mStack.size());
}

void VoxelInsertion::takeOldestBlock()
{
    uint32 octant = 0;
    Vec3<int32> corner;
    const VoxelBlock& block = mQueue.getOldest(octant, corner);
    mOutput.addBlock(block, octant, corner);
    mQueue.popOldest();
    if (mOutput.countVoxels() > VOXELS_BEFORE_WORKERS && mQueue.empty())
        mQueue.startWorkers();
}

void VoxelInsertion::countSteps(uint32 count)
{
    mSteps += count;
    if (mSteps < STEPS_PER_REPORT)
        return;
    mSteps = 0;
    mControl.report(NavMeshOctree::STAGE_NAME, mTotalSpan * (mProgress < 1.0f ? mProgress : 1.0f));
}
} // namespace KORV::NavMesh
