#pragma once

#include "korv/navmesh/navmeshoctree.h"
#include "korv/navmesh/voxels/voxelblockqueue.h"
#include "korv/navmesh/voxels/voxeloutput.h"

namespace KORV::NavMesh
{
/// Sorts triangles into an octree, down to the voxels. Asks for the class of each triangle once, in order.
class VoxelInsertion
{
public:
    /// @param progressSpan  the fraction of the stage that the insertion makes up.
    /// @param pool  its workers help with large scenes. Classifiers are called on this thread all the same.
    VoxelInsertion(const Vector<GeometryInfo>& geometries, VoxelOutput& output, const RunControl& control,
                   float progressSpan, Common::Threading::ThreadPool* pool, Common::Memory::Allocator* allocator);

    /// Creates the root and everything below it.
    /// @param centre,edge  the cube of the octree. [world units]
    void insert(const Vec3<float>& centre, float edge, uint32 depth);

private:
    /// A triangle of the input. Every list is in ascending order of geometry, then triangle.
    struct Entry
    {
        uint32 mGeometry;
        uint32 mTriangle;
    };

    /// Reads a geometry's triangles without the checks of its accessors.
    class TriangleReader
    {
    public:
        /// @param firstClass  place of its triangles in mClasses.
        TriangleReader(const GeometryInfo& geometry, size_t firstClass);
        /// World positions of the corners. The ids must be in range.
        void read(uint32 triangle, Vec3<float> (&corners)[3]) const;
        IndexedTriangle getIndices(uint32 triangle) const;
        size_t getClassPlace(uint32 triangle) const { return mFirstClass + triangle; }

    private:
        Vec3<float> getVertex(uint32 vertex) const;

        const GeometryInfo* mGeometry;
        size_t mFirstClass;
    };

    /// An octant on its way into the tree: its cube and its triangles, a range of the stack.
    struct Octant
    {
        uint32 mIndex;
        Vec3<int32> mCorner; // [octants of its size]
        Vec3<float> mCentre;
        float mEdge;
        uint32 mDepth; // levels below it
        size_t mBegin;
        size_t mEnd;
        float mProgress;     // share of the insertion that is done when it begins
        float mProgressSpan; // and its own share
    };

    void collectTriangles();
    bool hasValidIndices(uint32 geometry, uint32 triangle) const;
    VoxelTriangle readTriangle(const Entry& entry) const;
    void insertOctant(const Octant& octant);
    void fillBlock(VoxelBlock& block, const Octant& octant);
    void insertChildren(const Octant& octant);
    uint32 findOverlaps(const Octant& octant, ChildCubes& cubes);
    void pushTrianglesOfChild(const Octant& octant, uint32 child);
    void takeOldestBlock();
    void countSteps(uint32 count);

    const Vector<GeometryInfo>& mGeometries;
    VoxelOutput& mOutput;
    const RunControl& mControl;
    float mTotalSpan;
    float mProgress = 0.0f;
    uint32 mSteps = 0;
    bool mOrdinary = false; // whether all of the octree lies within ORDINARY_REACH
    VoxelBlockQueue mQueue;
    Vector<TriangleReader> mReaders;
    Vector<TriangleClass> mClasses;
    Vector<Entry> mStack;    // triangle lists of the octants on the current way down
    Vector<uint8> mOverlaps; // beside each entry: the children of its octant that it touches
};
} // namespace KORV::NavMesh
