#pragma once

#include "korv/navmesh/navmeshoctree.h"
#include "korv/navmesh/voxels/blockbricks.h"
#include "korv/navmesh/voxels/inputtriangles.h"

namespace KORV::NavMesh
{
/// The part of the octree below one octant, built apart from the rest: as records, or as bricks. It needs nothing but
/// its triangles, so blocks may be built on any threads.
class VoxelBlock
{
public:
    /// Levels below a block's octant at most. Larger blocks don't fit into a processor's cache any more, smaller ones
    /// cost more to hand around.
    static constexpr uint32 MAX_DEPTH = BlockBricks::MAX_DEPTH;
    /// Octants of so few levels are not divided into blocks: a brick lies in one.
    static constexpr uint32 MIN_DEPTH = PlaneLayout::BRICK_LEVELS;
    /// In the child index of an octant: its children are voxels.
    static constexpr uint32 VOXELS = 0x80000000;

    explicit VoxelBlock(Common::Memory::Allocator* allocator);

    /// Forgets everything and starts with an octant's cube.
    /// @param depth  levels below the octant, up to MAX_DEPTH. With 0 the octant is a voxel.
    /// @param layout  of bricks; null for records.
    void start(const Vec3<float>& centre, float edge, uint32 depth, const PlaneLayout* layout);
    /// In ascending order, and only what touches the octant.
    void addTriangle(uint32 number) { mNumbers.push_back(number); }

    /// @param input  what the triangles are.
    void build(const InputTriangles& input);

    uint32 getDepth() const { return mDepth; }

    /// Records: the block's own octant, and what is below it. Octants count their children from the block's own first
    /// octant and voxel on.
    const InnerOctant& getRoot() const { return mRoot; }
    const Vector<InnerOctant>& getInnerOctants() const { return mInnerOctants; }
    const Vector<LeafOctant>& getVoxels() const { return mVoxels; }

    const BlockBricks& getBricks() const { return mBricks; }

private:
    static constexpr uint32 COVERS = 0x80000000; // in mStack: the triangle spans the octant

    /// An octant and its triangles, a range of the stack.
    struct Octant
    {
        Vec3<float> mCentre;
        float mEdge;
        uint32 mDepth;
        size_t mBegin;
        size_t mEnd;
    };

    void buildBricks(const InputTriangles& input);
    void buildRecords(const InputTriangles& input);
    InnerOctant fill(const Octant& octant);
    uint32 findOverlaps(const Octant& octant, ChildCubes& cubes);
    InnerOctant addVoxels(const Octant& octant, uint32 childMask);
    template <class F>
    void forEachClass(const Octant& octant, uint32 childMask, const F& function) const;
    size_t pushTriangles(const Octant& octant, uint32 child);
    void makeRoom(size_t numEntries);

    Vec3<float> mCentre;
    float mEdge = 0.0f;
    uint32 mDepth = 0;
    const PlaneLayout* mLayout = nullptr;
    Vector<uint32> mNumbers;

    BlockBricks mBricks;

    Vector<VoxelTriangle> mTriangles;
    Vector<uint32> mStack;                  // triangles of the octants on the way down
    Vector<ChildCubes::Overlaps> mOverlaps; // beside each entry

    InnerOctant mRoot;
    Vector<InnerOctant> mInnerOctants;
    Vector<LeafOctant> mVoxels;
};
} // namespace KORV::NavMesh
