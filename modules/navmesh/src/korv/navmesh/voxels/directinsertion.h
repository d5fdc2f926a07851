#pragma once

#include "korv/common/container/nodecontainers.h"
#include "korv/navmesh/voxels/brickfeed.h"
#include "korv/navmesh/voxels/inputtriangles.h"
#include "korv/navmesh/voxels/voxeloutput.h"

namespace KORV::NavMesh
{
/// Puts the triangles of a small grid into its bricks, each as it is read. Asks for the class of each once, in order.
class DirectInsertion
{
public:
    /// Whether a scene's grid is small, at least for its triangles. The bricks of others don't fit into a processor's
    /// cache all at once.
    /// @param depth  of the octree.
    static bool suits(const Vector<GeometryInfo>& geometries, uint32 depth);

    /// @param progressSpan  the fraction of the stage that the insertion makes up.
    /// @param pool  its workers help where triangles are many. Classifiers are called on this thread all the same.
    /// @param allocator  thread-safe when the pool has several workers.
    DirectInsertion(const Vector<GeometryInfo>& geometries, BrickOutput& output, const RunControl& control,
                    float progressSpan, Common::Threading::ThreadPool* pool, Common::Memory::Allocator* allocator);

    /// Creates the root and everything below it.
    /// @param centre,edge  the cube of the octree. [world units]
    /// @param depth  of an octree that suits.
    void insert(const Vec3<float>& centre, float edge, uint32 depth);

private:
    static constexpr uint32 MAX_DEPTH = 9;
    static constexpr uint32 ROOT = 0;

    /// An octant that some triangle touches: a block, or one above blocks.
    struct Octant
    {
        Vec3<float> mCentre;
        Vec3<int32> mCorner;                 // [octants of its size]
        uint32 mChildren[NUM_CHILDREN] = {}; // 0 where there is none: the root is nobody's child
        BlockBricks* mBlock = nullptr;
    };

    struct Triangle
    {
        uint32 mNumber;
        TriangleClass mClass;
        Vec3<float> mCorners[3];
    };

    void start(const Vec3<float>& centre, float edge, uint32 depth);
    void sortTriangles();
    void sort(const Triangle& triangle);
    bool addFound(const Triangle& triangle);
    uint32 findOctant(const Vec3<int32>& position, uint32 lowest);
    void descend(uint32 octant, uint32 level, const VoxelTriangle& tested, const Triangle& triangle);
    void addToBlock(uint32 octant, const Triangle& triangle);
    uint32 getChild(uint32 octant, uint32 level, uint32 child);
    uint32 addOctant(const Vec3<float>& centre, const Vec3<int32>& corner, uint32 level);
    void moveToOutput(uint32 octant, uint32 level);

    BrickOutput& mOutput;
    const RunControl& mControl;
    float mProgressSpan;
    Common::Memory::Allocator* mAllocator;
    InputTriangles mInput;
    bool mOrdinary = false;           // whether all of the octree lies within ORDINARY_REACH
    uint32 mLevels = 0;               // above blocks
    uint32 mBlockDepth = 0;           // levels below them
    float mEdges[MAX_DEPTH + 1] = {}; // of octants, by their level above blocks
    CellGrid mBlockGrid;
    CellGrid mVoxelGrid;
    Vector<Octant> mOctants;
    Common::Container::List<BlockBricks> mBlocks;
    BrickFeed mFeed; // its workers refer to the blocks
};
} // namespace KORV::NavMesh
