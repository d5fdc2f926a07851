// Voxelises triangles by sorting them down an octree.
//
// The upper levels are sorted here: an octant tests its triangles against the cubes of its eight children, and children
// that some triangle touches come into being side by side. What is left below an octant that is small enough is a block
// (voxelblock), built by the workers when there are many. Blocks come back in the order of the octants. Only then are
// their voxels classified: the first of a voxel's triangles, in geometry and index order, that the host calls walkable
// makes it walkable.
//
// The lists of the upper octants on the way down lie on one stack and each entry is a pair of numbers, so the memory is
// that of the lists on one way, not of the whole tree; a list is given up when its octant is done.

#include "korv/navmesh/voxelinsertion.h"

#include "korv/navmesh/leafcursor.h"

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
/// How many entries the lists of a block's voxels may about have together.
constexpr float MAX_BLOCK_ENTRIES = 2e6f;

template <class Index>
IndexedTriangle readIndices(const unsigned char* source)
{
    Index indices[3];
    std::memcpy(indices, source, sizeof(indices));
    return IndexedTriangle{{indices[0], indices[1], indices[2]}};
}
} // namespace

VoxelInsertion::TriangleReader::TriangleReader(const GeometryInfo& geometry) : mGeometry(&geometry) {}

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

VoxelInsertion::VoxelInsertion(const Vector<GeometryInfo>& geometries, NavMeshOctree::InnerOctants& innerOctants,
                               NavMeshOctree::LeafOctants& leafOctants, const RunControl& control, float progressSpan,
                               Common::Threading::ThreadPool* pool, Common::Memory::Allocator* allocator)
    : mGeometries(geometries), mInnerOctants(innerOctants), mLeafOctants(leafOctants), mControl(control),
      mTotalSpan(progressSpan), mQueue(pool, allocator), mReaders(allocator), mStack(allocator), mOverlaps(allocator)
{
}

void VoxelInsertion::insert(const Vec3<float>& centre, float edge, uint32 depth)
{
    const float reach = std::max({std::fabs(centre.mX), std::fabs(centre.mY), std::fabs(centre.mZ)}) + edge;
    mOrdinary = reach <= ORDINARY_REACH;
    collectTriangles();
    const uint32 root = depth > 0 ? mInnerOctants.append(InnerOctant()) : 0;
    insertOctant({root, centre, edge, depth, 0, mStack.size(), 0.0f, 1.0f});
    while (!mQueue.empty())
        takeOldestBlock();
}

void VoxelInsertion::collectTriangles()
{
    mReaders.reserve(mGeometries.size());
    for (uint32 i = 0; i < mGeometries.size(); ++i)
    {
        mReaders.emplace_back(mGeometries[i]);
        for (uint32 triangle = 0; triangle < mGeometries[i].mNumTriangles; ++triangle)
        {
            countSteps(1);
            if (hasValidIndices(i, triangle))
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
    mReaders[entry.mGeometry].read(entry.mTriangle, corners);
    return VoxelTriangle(entry.mGeometry, entry.mTriangle, corners, mOrdinary);
}

void VoxelInsertion::insertOctant(const Octant& octant)
{
    mProgress = octant.mProgress;
    if (octant.mDepth > VoxelBlock::MAX_DEPTH)
    {
        insertChildren(octant);
        return;
    }
    if (mQueue.isFull())
        takeOldestBlock();
    if (fillBlock(mQueue.getNext(), octant))
        mQueue.push(octant.mIndex);
    else
        insertChildren(octant);
}

/// @return false when the lists of its voxels might get too long.
bool VoxelInsertion::fillBlock(VoxelBlock& block, const Octant& octant)
{
    const float across = static_cast<float>(1u << octant.mDepth);
    float numEntries = 0.0f;
    block.start(octant.mCentre, octant.mEdge, octant.mDepth);
    for (size_t i = octant.mBegin; i < octant.mEnd; ++i)
    {
        countSteps(1);
        const VoxelTriangle triangle = readTriangle(mStack[i]);
        const float length = std::min(triangle.mExtent * across / octant.mEdge + 2.0f, across);
        numEntries += 2.0f * length * length;
        if (numEntries > MAX_BLOCK_ENTRIES && octant.mDepth > 1)
            return false;
        block.addTriangle(triangle);
    }
    return true;
}

void VoxelInsertion::insertChildren(const Octant& octant)
{
    ChildCubes cubes(octant.mCentre, octant.mEdge);
    const uint32 childMask = findOverlaps(octant, cubes);
    if (childMask == 0)
        return;
    const uint32 firstChild = mInnerOctants.size();
    const uint32 numChildren = static_cast<uint32>(std::popcount(childMask));
    for (uint32 i = 0; i < numChildren; ++i)
        mInnerOctants.append(InnerOctant());
    mInnerOctants.getUnchecked(octant.mIndex) = {static_cast<uint8>(childMask), firstChild};

    Octant child = octant;
    child.mIndex = firstChild;
    child.mEdge = octant.mEdge / 2.0f;
    child.mDepth = octant.mDepth - 1;
    child.mProgressSpan = octant.mProgressSpan / static_cast<float>(numChildren);
    for (uint32 k = 0; k < NUM_CHILDREN; ++k)
    {
        if (((childMask >> k) & 1u) == 0)
            continue;
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
    VoxelBlock& block = mQueue.getOldest(octant);
    classifyVoxels(block);
    appendBlock(block, octant);
    mQueue.popOldest();
    if (mLeafOctants.size() > VOXELS_BEFORE_WORKERS && mQueue.empty())
        mQueue.startWorkers();
}

void VoxelInsertion::classifyVoxels(VoxelBlock& block)
{
    LeafOctant* voxel = block.getVoxels().data();
    LeafOctant* const end = voxel + block.getVoxels().size();
    while (voxel != end)
    {
        const uint32 count = static_cast<uint32>(std::min<ptrdiff_t>(end - voxel, STEPS_PER_REPORT));
        for (LeafOctant* const last = voxel + count; voxel != last; ++voxel)
            classify(*voxel, block);
        countSteps(count);
    }
}

void VoxelInsertion::classify(LeafOctant& voxel, const VoxelBlock& block)
{
    const uint32 triangles = voxel.data;
    voxel.data = 0;
    block.forEachTriangle(triangles,
                          [this, &voxel](const VoxelTriangle& triangle)
                          {
                              const GeometryInfo& geometry = mGeometries[triangle.mGeometry];
                              TriangleClass result;
                              geometry.mClassifier->classifyTriangle(result, geometry, triangle.mTriangle);
                              if (!result.mWalkable)
                                  return false;
                              voxel.flags = LeafOctant::WALKABLE;
                              voxel.surfaceTypeID = result.mSurfaceTypeID;
                              return true;
                          });
}

/// Puts a block's octants behind those of the blocks before it.
void VoxelInsertion::appendBlock(const VoxelBlock& block, uint32 octant)
{
    const uint32 firstInner = mInnerOctants.size();
    const uint32 firstVoxel = mLeafOctants.size();
    const auto moved = [=](InnerOctant inner)
    {
        if (inner.firstChild == InnerOctant::NO_CHILD)
            return inner;
        const bool hasVoxels = (inner.firstChild & VoxelBlock::VOXELS) != 0;
        inner.firstChild = (inner.firstChild & ~VoxelBlock::VOXELS) + (hasVoxels ? firstVoxel : firstInner);
        return inner;
    };
    mLeafOctants.append(block.getVoxels().data(), static_cast<uint32>(block.getVoxels().size()));
    for (const InnerOctant& inner : block.getInnerOctants())
        mInnerOctants.append(moved(inner));
    if (block.getDepth() > 0)
        mInnerOctants.getUnchecked(octant) = moved(block.getRoot());
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
