// Voxelises triangles by sorting them down an octree.
//
// An octant tests its triangles against the cubes of its eight children. Children that some triangle touches come into
// being side by side, then each is filled in turn with the triangles that touch it. A voxel at the bottom is occupied;
// the first of its triangles, in geometry and index order, that the host calls walkable makes it walkable.
//
// The lists of all octants on the way down lie on one stack and each entry is a pair of numbers, so the memory is that
// of the lists on one way, not of the whole tree; a list is given up when its octant is done.
//
// Numbers: the cubes are tested 1e-4 larger than they are, so that a triangle on a cube's face never falls between two.
// Recursion is as deep as the tree, at most 30.

#include "korv/navmesh/voxelinsertion.h"

#include "korv/common/geom/geomutility.h"
#include "korv/navmesh/leafcursor.h"

#include <bit>
#include <cstring>

namespace KORV::NavMesh
{
namespace
{
constexpr float OVERLAP_MARGIN = 0.0001f;
constexpr uint32 STEPS_PER_REPORT = 4096;

Vec3<float> childCentre(const Vec3<float>& centre, float edge, uint32 child)
{
    const float quarter = edge / 4.0f;
    const auto offset = [quarter](int32 half) { return half != 0 ? quarter : -quarter; };
    const Vec3<int32>& corner = CHILD_CORNERS[child];
    return centre + Vec3<float>(offset(corner.mX), offset(corner.mY), offset(corner.mZ));
}

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
                               Common::Memory::Allocator* allocator)
    : mGeometries(geometries), mInnerOctants(innerOctants), mLeafOctants(leafOctants), mControl(control),
      mTotalSpan(progressSpan), mReaders(allocator), mStack(allocator), mOverlaps(allocator)
{
}

void VoxelInsertion::insert(const Vec3<float>& centre, float edge, uint32 depth)
{
    collectTriangles();
    const uint32 root = depth > 0 ? mInnerOctants.append(InnerOctant()) : mLeafOctants.append(LeafOctant());
    insertOctant({root, centre, edge, depth, 0, mStack.size(), 0.0f, 1.0f});
}

void VoxelInsertion::collectTriangles()
{
    mReaders.reserve(mGeometries.size());
    for (uint32 i = 0; i < mGeometries.size(); ++i)
    {
        mReaders.emplace_back(mGeometries[i]);
        for (uint32 triangle = 0; triangle < mGeometries[i].mNumTriangles; ++triangle)
        {
            countStep();
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

void VoxelInsertion::insertOctant(const Octant& octant)
{
    mProgress = octant.mProgress;
    if (octant.mDepth > 0)
        insertChildren(octant);
    else
        classifyVoxel(octant);
}

void VoxelInsertion::insertChildren(const Octant& octant)
{
    const uint32 childMask = findOverlaps(octant);
    if (childMask == 0)
        return;
    const uint32 firstChild = appendChildren(childMask, octant.mDepth - 1);
    mInnerOctants.getUnchecked(octant.mIndex) = {static_cast<uint8>(childMask), firstChild};

    Octant child = octant;
    child.mIndex = firstChild;
    child.mEdge = octant.mEdge / 2.0f;
    child.mDepth = octant.mDepth - 1;
    child.mProgressSpan = octant.mProgressSpan / static_cast<float>(std::popcount(childMask));
    for (uint32 k = 0; k < NUM_CHILDREN; ++k)
    {
        if (((childMask >> k) & 1u) == 0)
            continue;
        child.mCentre = childCentre(octant.mCentre, octant.mEdge, k);
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

uint32 VoxelInsertion::findOverlaps(const Octant& octant)
{
    const float boxEdge = octant.mEdge / 2.0f + OVERLAP_MARGIN;
    Vec3<float> centres[NUM_CHILDREN];
    for (uint32 k = 0; k < NUM_CHILDREN; ++k)
        centres[k] = childCentre(octant.mCentre, octant.mEdge, k);

    uint32 childMask = 0;
    for (size_t i = octant.mBegin; i < octant.mEnd; ++i)
    {
        countStep();
        Vec3<float> corners[3];
        mReaders[mStack[i].mGeometry].read(mStack[i].mTriangle, corners);
        uint32 overlaps = 0;
        for (uint32 k = 0; k < NUM_CHILDREN; ++k)
        {
            if (Common::Geom::TriangleBoxOverlap(corners[0], corners[1], corners[2], centres[k], boxEdge))
                overlaps |= 1u << k;
        }
        mOverlaps[i] = static_cast<uint8>(overlaps);
        childMask |= overlaps;
    }
    return childMask;
}

uint32 VoxelInsertion::appendChildren(uint32 childMask, uint32 childDepth)
{
    const uint32 first = childDepth > 0 ? mInnerOctants.size() : mLeafOctants.size();
    for (int i = std::popcount(childMask); i > 0; --i)
    {
        if (childDepth > 0)
            mInnerOctants.append(InnerOctant());
        else
            mLeafOctants.append(LeafOctant());
    }
    return first;
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

void VoxelInsertion::classifyVoxel(const Octant& octant)
{
    countStep();
    for (size_t i = octant.mBegin; i < octant.mEnd; ++i)
    {
        const GeometryInfo& geometry = mGeometries[mStack[i].mGeometry];
        TriangleClass result;
        geometry.mClassifier->classifyTriangle(result, geometry, mStack[i].mTriangle);
        if (!result.mWalkable)
            continue;
        LeafOctant& leaf = mLeafOctants.getUnchecked(octant.mIndex);
        leaf.flags = LeafOctant::WALKABLE;
        leaf.surfaceTypeID = result.mSurfaceTypeID;
        return;
    }
}

void VoxelInsertion::countStep()
{
    if (++mSteps < STEPS_PER_REPORT)
        return;
    mSteps = 0;
    mControl.report(NavMeshOctree::STAGE_NAME, mTotalSpan * (mProgress < 1.0f ? mProgress : 1.0f));
}
} // namespace KORV::NavMesh
