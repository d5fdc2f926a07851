#pragma once

#include "korv/navmesh/navmeshoctree.h"
#include "korv/navmesh/voxels/triangleplaces.h"
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
    /// An octant on its way into the tree: its cube and its triangles, a range of the stack.
    struct Octant
    {
        uint32 mIndex;
        uint32 mPlace;       // see TrianglePlaces
        Vec3<int32> mCorner; // [octants of its size]
        Vec3<float> mCentre;
        float mEdge;
        uint32 mDepth; // levels below it
        size_t mBegin;
        size_t mEnd;
        float mProgress;     // share of the insertion that is done when it begins
        float mProgressSpan; // and its own share
    };

    void chooseBlocks(uint32 depth);
    void collectTriangles(const Vec3<float>& centre, float edge, uint32 depth);
    void insertOctant(const Octant& octant);
    void fillBlock(VoxelBlock& block, const Octant& octant);
    void insertChildren(const Octant& octant);
    uint32 findOverlaps(const Octant& octant, ChildCubes& cubes);
    void pushTriangles(const Octant& parent, uint32 child, uint32 place);
    void takeOldestBlock();
    void countSteps(uint32 count);

    VoxelOutput& mOutput;
    const RunControl& mControl;
    float mTotalSpan;
    float mProgress = 0.0f;
    uint32 mSteps = 0;
    bool mOrdinary = false; // whether all of the octree lies within ORDINARY_REACH
    uint32 mBlockDepth = 0; // levels below the octants that are blocks
    InputTriangles mInput;
    VoxelBlockQueue mQueue;
    TrianglePlaces mPlaces;
    Vector<uint32> mStack;   // triangles of the octants on the current way down, each list in ascending order
    Vector<uint8> mOverlaps; // beside each: the children of its octant that it touches
};
} // namespace KORV::NavMesh
