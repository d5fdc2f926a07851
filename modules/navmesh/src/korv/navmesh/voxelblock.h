#pragma once

#include "korv/navmesh/childoverlaps.h"
#include "korv/navmesh/navmeshoctree.h"

namespace KORV::NavMesh
{
/// The part of the octree below one octant, built apart from the rest. It needs nothing but its triangles, so blocks
/// may be built on any threads.
/// Its octants count their children from the block's own first octant and voxel on. Its voxels are unclassified; their
/// data tells the triangles that touch them, see forEachTriangle.
class VoxelBlock
{
public:
    /// Levels below a block's octant at most. Larger blocks don't fit into a processor's cache any more, smaller ones
    /// cost more to hand around.
    static constexpr uint32 MAX_DEPTH = 6;
    /// In the child index of an octant: its children are voxels.
    static constexpr uint32 VOXELS = 0x80000000;

    explicit VoxelBlock(Common::Memory::Allocator* allocator);

    /// Forgets everything and starts with an octant's cube.
    /// @param depth  levels below the octant, up to MAX_DEPTH. With 0 the octant is a voxel.
    void start(const Vec3<float>& centre, float edge, uint32 depth);
    /// In ascending order of geometry, then triangle, and only what touches the octant.
    void addTriangle(const VoxelTriangle& triangle) { mTriangles.push_back(triangle); }

    void build();

    /// The block's own octant.
    const InnerOctant& getRoot() const { return mRoot; }
    uint32 getDepth() const { return mDepth; }
    const Vector<InnerOctant>& getInnerOctants() const { return mInnerOctants; }
    Vector<LeafOctant>& getVoxels() { return mVoxels; }
    const Vector<LeafOctant>& getVoxels() const { return mVoxels; }
    const Vector<VoxelTriangle>& getTriangles() const { return mTriangles; }

    /// Calls a function with each triangle that touches a voxel, in order, until it returns true.
    /// @param data  of the voxel.
    template <class F>
    void forEachTriangle(uint32 data, const F& function) const
    {
        if ((data & LIST) == 0)
        {
            if (data < mTriangles.size())
                function(mTriangles[data]);
            return;
        }
        for (const uint32* entry = mLists.data() + (data & ~LIST);; ++entry)
        {
            if (function(mTriangles[*entry & ~LAST]) || (*entry & LAST) != 0)
                return;
        }
    }

private:
    static constexpr uint32 COVERS = 0x80000000; // in mStack: the triangle spans the octant
    static constexpr uint32 LIST = 0x80000000;   // in a voxel's data: the rest is a place in mLists
    static constexpr uint32 LAST = 0x80000000;   // in mLists

    /// An octant and its triangles, a range of the stack.
    struct Octant
    {
        Vec3<float> mCentre;
        float mEdge;
        uint32 mDepth;
        size_t mBegin;
        size_t mEnd;
    };

    InnerOctant fill(const Octant& octant);
    uint32 findOverlaps(const Octant& octant, ChildCubes& cubes);
    InnerOctant addVoxels(const Octant& octant, uint32 childMask);
    uint32 listTriangles(const Octant& octant, uint32 child);
    size_t pushTriangles(const Octant& octant, uint32 child);
    void makeRoom(size_t numEntries);

    Vec3<float> mCentre;
    float mEdge = 0.0f;
    uint32 mDepth = 0;
    InnerOctant mRoot;
    Vector<VoxelTriangle> mTriangles;
    Vector<InnerOctant> mInnerOctants;
    Vector<LeafOctant> mVoxels;
    Vector<uint32> mLists;                  // triangles of voxels that have several
    Vector<uint32> mStack;                  // triangles of the octants on the way down
    Vector<ChildCubes::Overlaps> mOverlaps; // beside each entry
};
} // namespace KORV::NavMesh
