#pragma once

#include "korv/navmesh/voxels/voxelblock.h"

namespace KORV::NavMesh
{
/// Where an insertion puts the octree.
class VoxelOutput
{
public:
    virtual ~VoxelOutput() = default;
    /// The layout of the bricks that blocks are to be made of; null for records.
    virtual const PlaneLayout* getLayout() const { return nullptr; }
    virtual void addRoot() = 0;
    /// Adds the children of an inner octant.
    /// @param octant  index of it. @return the index of the first child.
    virtual uint32 addChildren(uint32 octant, uint32 childMask) = 0;
    /// Adds what is below an octant, in the order of the octree.
    /// @param corner  the octant's grid position in octants of its size.
    virtual void addBlock(const VoxelBlock& block, uint32 octant, const Vec3<int32>& corner) = 0;
    virtual uint64 countVoxels() const = 0;
};

/// The octree's records.
class RecordOutput : public VoxelOutput
{
public:
    RecordOutput(NavMeshOctree::InnerOctants& innerOctants, NavMeshOctree::LeafOctants& leafOctants)
        : mInnerOctants(innerOctants), mLeafOctants(leafOctants)
    {
    }

    void addRoot() override { mInnerOctants.append(InnerOctant()); }
    uint32 addChildren(uint32 octant, uint32 childMask) override;
    void addBlock(const VoxelBlock& block, uint32 octant, const Vec3<int32>& corner) override;
    uint64 countVoxels() const override { return mLeafOctants.size(); }

private:
    NavMeshOctree::InnerOctants& mInnerOctants;
    NavMeshOctree::LeafOctants& mLeafOctants;
};

/// Bricks, and how many records there would be.
class BrickOutput : public VoxelOutput
{
public:
    explicit BrickOutput(VoxelBricks& bricks) : mBricks(bricks) {}

    const PlaneLayout* getLayout() const override { return &mBricks.getLayout(); }
    void addRoot() override { ++mNumInnerOctants; }
    uint32 addChildren(uint32 octant, uint32 childMask) override;
    void addBlock(const VoxelBlock& block, uint32 octant, const Vec3<int32>& corner) override;
    /// Adds the bricks below an octant, in the order of the octree.
    /// @param depth  levels below it. @param corner  its grid position in octants of its size.
    void addBricks(const BlockBricks& bricks, uint32 depth, const Vec3<int32>& corner);
    /// One of those above blocks, or of a block.
    void countInnerOctant() { ++mNumInnerOctants; }
    uint64 countVoxels() const override { return mNumVoxels; }
    uint64 countInnerOctants() const { return mNumInnerOctants; }

private:
    VoxelBricks& mBricks;
    uint64 mNumInnerOctants = 0;
    uint64 mNumVoxels = 0;
};
} // namespace KORV::NavMesh
