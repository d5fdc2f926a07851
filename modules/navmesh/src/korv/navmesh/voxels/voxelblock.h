#pragma once

#include "korv/navmesh/navmeshoctree.h"
#include "korv/navmesh/voxels/brickoverlaps.h"

namespace KORV::NavMesh
{
/// The part of the octree below one octant, built apart from the rest: as records, or as bricks. It needs nothing but
/// its triangles, so blocks may be built on any threads.
class VoxelBlock
{
public:
    /// Levels below a block's octant at most. Larger blocks don't fit into a processor's cache any more, smaller ones
    /// cost more to hand around.
    static constexpr uint32 MAX_DEPTH = 6;
    /// Octants of so few levels are not divided into blocks: a brick lies in one.
    static constexpr uint32 MIN_DEPTH = PlaneLayout::BRICK_LEVELS;
    /// In the child index of an octant: its children are voxels.
    static constexpr uint32 VOXELS = 0x80000000;

    explicit VoxelBlock(Common::Memory::Allocator* allocator);

    /// Forgets everything and starts with an octant's cube.
    /// @param depth  levels below the octant, up to MAX_DEPTH. With 0 the octant is a voxel.
    /// @param layout  of bricks; null for records.
    void start(const Vec3<float>& centre, float edge, uint32 depth, const PlaneLayout* layout);
    /// In ascending order of geometry, then triangle, and only what touches the octant.
    void addTriangle(const VoxelTriangle& triangle) { mTriangles.push_back(triangle); }

    void build();

    uint32 getDepth() const { return mDepth; }

    /// Records: the block's own octant, and what is below it. Octants count their children from the block's own first
    /// octant and voxel on.
    const InnerOctant& getRoot() const { return mRoot; }
    const Vector<InnerOctant>& getInnerOctants() const { return mInnerOctants; }
    const Vector<LeafOctant>& getVoxels() const { return mVoxels; }

    /// Bricks: at grid positions in bricks, counted from the block's corner. Places in the list of types are the
    /// block's own.
    const Vector<VoxelBrick>& getBricks() const { return mBricks; }
    const Vector<uint16>& getTypes() const { return mTypes; }
    /// How many records there would be. The block's own octant is not counted.
    uint64 countInnerOctants() const { return mNumInnerOctants; }
    uint64 countVoxels() const { return mNumVoxels; }

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

    void buildVoxel(const Octant& octant);
    InnerOctant fill(const Octant& octant);
    void fillBricks(const Octant& octant, uint32 rank);
    void fillBrick(const Octant& octant);
    void addVoxelPlanes(const BrickOverlaps& found, const TriangleClass& triangleClass);
    uint32 findOverlaps(const Octant& octant, ChildCubes& cubes);
    InnerOctant addVoxels(const Octant& octant, uint32 childMask);
    void addVoxelBits(const Octant& octant, uint32 childMask, uint32 rank);
    template <class F>
    void forEachClass(const Octant& octant, uint32 childMask, const F& function) const;
    void startBrick(uint32 rank);
    void endBrick();
    void addType(uint32 rank, uint32 children, uint16 type);
    bool hasManyTypesWith(uint16 type);
    size_t pushTriangles(const Octant& octant, uint32 child);
    void makeRoom(size_t numEntries);

    Vec3<float> mCentre;
    float mEdge = 0.0f;
    uint32 mDepth = 0;
    const PlaneLayout* mLayout = nullptr;
    Vector<VoxelTriangle> mTriangles;
    Vector<uint32> mStack;                  // triangles of the octants on the way down
    Vector<ChildCubes::Overlaps> mOverlaps; // beside each entry

    InnerOctant mRoot;
    Vector<InnerOctant> mInnerOctants;
    Vector<LeafOctant> mVoxels;

    Vector<VoxelBrick> mBricks;
    Vector<uint16> mTypes;
    uint64 mNumInnerOctants = 0;
    uint64 mNumVoxels = 0;
    bool mHasType = false;                           // of the brick at work: whether a voxel is walkable
    bool mHasManyTypes = false;                      // and whether they differ; then these are filled in
    uint16 mTypesOfCells[PlaneLayout::BRICK_VOXELS]; // those of walkable cells
};
} // namespace KORV::NavMesh
