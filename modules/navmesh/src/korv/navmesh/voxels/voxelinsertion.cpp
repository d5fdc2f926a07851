// Voxelises triangles by sorting them down an octree.
//
// The upper levels are sorted here: an octant tests its triangles against the cubes of its eight children, and children
// that some triangle touches come into being side by side. What is left below an octant that is small enough is a block
// (voxelblock), built by the workers when there are many. Blocks come back in the order of the octants.
//
// What the host says of the triangles is asked for in the beginning, once each: a floor of a million voxels is two
// triangles, and the workers must not call the host.
//
// The lists of the upper octants on the way down lie on one stack and each entry is a pair of numbers, so the memory is
// that of the lists on one way, not of the whole tree; a list is given up when its octant is done.

#include "korv/navmesh/voxels/voxelinsertion.h"

#include "korv/navmesh/voxels/leafcursor.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

namespace KORV::NavMesh
{
namespace
{
constexpr uint32 STEPS_PER_REPORT = 4096;
/// Below this the workers' help isn't worth waking them.
constexpr uint32 VOXELS_BEFORE_WORKERS = 20000;
/// An octant of more triangles is divided further, which keeps the blocks small in memory.
constexpr size_t MAX_BLOCK_TRIANGLES = 50000;

template <class Index>
IndexedTriangle readIndices(const unsigned char* source)
{
    Index indices[3];
    std::memcpy(indices, source, sizeof(indices));
    return IndexedTriangle{{indices[0], indices[1], indices[2]}};
}
} // namespace

VoxelInsertion::TriangleReader::TriangleReader(const GeometryInfo& geometry, size_t firstClass)
    : mGeometry(&geometry), mFirstClass(firstClass)
{
}

IndexedTriangle VoxelInsertion::TriangleReader::getIndices(uint32 triangle) const
{
    const unsigned char* source = static_cast<const unsigned char*>(mGeometry->mIndexData) +
                                  static_cast<uint64>(triangle) * mGeometry->mTriangleStride;
    return mGeometry->mIndexSize == sizeof(uint32) ? readIndices<uint32>(source) : readIndices<uint16>(source);
}

Vec3<float> VoxelInsertion::TriangleReader::getVertex(uint32 vertex) const
{
    float values[3];
    std::memcpy(values,
                static_cast<const unsigned char*>(mGeometry->mVertexData) +
                    static_cast<uint64>(vertex) * mGeometry->mVertexStride,
                sizeof(values));
    const Vec3<float> position(values[0], values[1], values[2]);
    return mGeometry->mUseTransform ? mGeometry->mTransform.transformPoint(position) : position;
}

void VoxelInsertion::TriangleReader::read(uint32 triangle, Vec3<float> (&corners)[3]) const
{
    const IndexedTriangle indices = getIndices(triangle);
    for (int i = 0; i < 3; ++i)
        corners[i] = getVertex(indices.mVertices[i]);
}

VoxelInsertion::VoxelInsertion(const Vector<GeometryInfo>& geometries, VoxelOutput& output, const RunControl& control,
                               float progressSpan, Common::Threading::ThreadPool* pool,
                               Common::Memory::Allocator* allocator)
    : mGeometries(geometries), mOutput(output), mControl(control), mTotalSpan(progressSpan), mQueue(pool, allocator),
      mReaders(allocator), mClasses(allocator), mStack(allocator), mOverlaps(allocator)
{
}

void VoxelInsertion::insert(const Vec3<float>& centre, float edge, uint32 depth)
{
    const float reach = std::max({std::fabs(centre.mX), std::fabs(centre.mY), std::fabs(centre.mZ)}) + edge;
    mOrdinary = reach <= ORDINARY_REACH;
    collectTriangles();
    if (depth > 0)
        mOutput.addRoot();
    insertOctant({0, {}, centre, edge, depth, 0, mStack.size(), 0.0f, 1.0f});
    while (!mQueue.empty())
        takeOldestBlock();
}

void VoxelInsertion::collectTriangles()
{
    mReaders.reserve(mGeometries.size());
    size_t numTriangles = 0;
    for (const GeometryInfo& geometry : mGeometries)
    {
        mReaders.emplace_back(geometry, numTriangles);
        numTriangles += geometry.mNumTriangles;
    }
    mClasses.resize(numTriangles);
    mStack.reserve(numTriangles);
    for (uint32 i = 0; i < mGeometries.size(); ++i)
    {
        const GeometryInfo& geometry = mGeometries[i];
        for (uint32 triangle = 0; triangle < geometry.mNumTriangles; ++triangle)
        {
            countSteps(1);
            if (!hasValidIndices(i, triangle))
                continue;
            geometry.mClassifier->classifyTriangle(mClasses[mReaders[i].getClassPlace(triangle)], geometry, triangle);
            mStack.push_back({i, triangle});
        }
    }
    mOverlaps.resize(mStack.size());
}

bool VoxelInsertion::hasValidIndices(uint32 geometry, uint32 triangle) const
{
    const GeometryInfo& info = mGeometries[geometry];
    for (const uint32 vertex : mReaders[geometry].getIndices(triangle).mVertices)
    {
        if (vertex < info.mNumVertices)
            continue;
        info.getVertex(vertex); // makes the report
        return false;
    }
    return true;
}

VoxelTriangle VoxelInsertion::readTriangle(const Entry& entry) const
{
    Vec3<float> corners[3];
    const TriangleReader& reader = mReaders[entry.mGeometry];
    reader.read(entry.mTriangle, corners);
    return VoxelTriangle(mClasses[reader.getClassPlace(entry.mTriangle)], corners, mOrdinary);
}

void VoxelInsertion::insertOctant(const Octant& octant)
{
    mProgress = octant.mProgress;
    const bool isCrowded = octant.mEnd - octant.mBegin > MAX_BLOCK_TRIANGLES && octant.mDepth > VoxelBlock::MIN_DEPTH;
    if (octant.mDepth > VoxelBlock::MAX_DEPTH || isCrowded)
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
        block.addTriangle(readTriangle(mStack[i]));
    }
}

void VoxelInsertion::insertChildren(const Octant& octant)
{
    ChildCubes cubes(octant.mCentre, octant.mEdge);
    const uint32 childMask = findOverlaps(octant, cubes);
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
        child.mBegin = mStack.size();
        pushTrianglesOfChild(octant, k);
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
    uint32 childMask = 0;
    for (size_t i = octant.mBegin; i < octant.mEnd; ++i)
    {
        countSteps(1);
        const uint32 touched = cubes.find(readTriangle(mStack[i]), false).mTouched;
        mOverlaps[i] = static_cast<uint8>(touched);
        childMask |= touched;
    }
    return childMask;
}

void VoxelInsertion::pushTrianglesOfChild(const Octant& octant, uint32 child)
{
    for (size_t i = octant.mBegin; i < octant.mEnd; ++i)
    {
        if (((mOverlaps[i] >> child) & 1u) == 0)
            continue;
        const Entry entry = mStack[i]; // a copy: the stack may move while it grows
        mStack.push_back(entry);
        mOverlaps.push_back(0);
    }
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
