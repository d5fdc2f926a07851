#pragma once

#include "korv/navmesh/voxels/brickoverlaps.h"
#include "korv/navmesh/voxels/cellgrid.h"

namespace KORV::NavMesh
{
/// The bricks below one octant, filled triangle by triangle.
class BlockBricks
{
public:
    /// Levels below the octant at most.
    static constexpr uint32 MAX_DEPTH = 2 * PlaneLayout::BRICK_LEVELS;

    explicit BlockBricks(Common::Memory::Allocator* allocator);

    /// Forgets everything and starts with an octant's cube.
    /// @param depth  levels below the octant, up to MAX_DEPTH. With 0 the octant is a voxel, which is there in any
    /// case.
    void start(const Vec3<float>& centre, float edge, uint32 depth, const PlaneLayout& layout);
    /// In the order of the input, and only what touches the octant.
    void addTriangle(const Vec3<float> (&corners)[3], const TriangleClass& triangleClass);
    /// The same for one whose box surely lies in the octant, as find of a CellGrid says.
    /// @param range  the octant's cells that the box reaches.
    void addFound(const Vec3<float> (&corners)[3], const TriangleClass& triangleClass, const CellRange& range);
    /// To be called when all have come.
    void finish();

    /// Calls a function with each brick, in the order of the octree: at grid positions in bricks, counted from the
    /// octant's corner. Places in the list of types are those of getTypes.
    template <class F>
    void forEachBrick(const F& function) const
    {
        for (const uint16 brick : mOrder)
            function(mBricks[brick]);
    }
    const Vector<uint16>& getTypes() const { return mTypes; }
    /// How many octants have been touched. The block's own octant and its voxels are not counted.
    uint64 countInnerOctants() const { return mNumInnerOctants; }
    uint64 countVoxels() const { return mNumVoxels; }

private:
    static constexpr uint16 NONE = 0xFFFF;
    static constexpr uint32 BRICKS_ACROSS = 8; // of the largest block

    /// What is known of a brick while it is filled.
    struct Filling
    {
        BrickCubes mCubes;
        uint64 mParents = 0; // octants touched, see BrickOverlaps, beside those above voxels
        uint64 mChildren = 0;
        bool mIsTouched = false; // also when no voxel is
        bool mHasType = false;
        uint32 mTypesOfCells = 0; // where those of walkable cells begin, when they differ
    };

    /// An octant of the block, at a place in the order of the octree among those of its size.
    struct Octant
    {
        Vec3<float> mCentre;
        float mEdge;
        uint32 mDepth;
        uint32 mRank;
    };

    void addRow(const CellRange& range, const TriangleClass& triangleClass);
    void addCell(uint32 u, uint32 v, uint32 w, const TriangleClass& triangleClass);
    Octant findHome(const CellRange& range) const;
    Octant findOctant(const Vec3<int32>& cell, uint32 depth) const;
    void descend(const Octant& octant, const BrickTriangle& triangle, bool covers);
    bool addFromBox(const CellRange& range, const BrickTriangle& triangle);
    bool addCertain(const Vec3<int32>& position, const BrickTriangle& triangle);
    void addToBrick(const Octant& octant, const BrickTriangle& triangle, bool covers);
    void addVoxelPlanes(uint32 brick, const BrickOverlaps& found, const TriangleClass& triangleClass);
    bool hasManyTypesWith(uint32 brick, uint16 type);
    uint32 getRank(uint32 u, uint32 v, uint32 w) const;
    uint32 getBrick(uint32 rank) { return mRanks[rank] != NONE ? mRanks[rank] : addBrick(rank); }
    uint32 addBrick(uint32 rank);
    void finishBrick(uint32 brick, uint32 rank);
    void countBrick(const VoxelBrick& brick, const Filling& filling);

    Octant mRoot{};
    bool mIsOrdinary = false; // whether all of it lies within ORDINARY_REACH
    const PlaneLayout* mLayout = nullptr;
    CellGrid mGrid;          // of voxels
    float mBrickEdge = 0.0f; // [world units]
    uint32 mFlips[3] = {};
    uint32 mLevelsLess = 0;  // than in the largest block
    Vector<uint16> mRanks;   // bricks by their place in the order of the octree
    uint64 mTouched[2] = {}; // octants of two and of four bricks a side, by rank

    Vector<VoxelBrick> mBricks; // in the order in which they were touched
    Vector<Filling> mFillings;  // beside them
    Vector<uint16> mTypesOfCells;
    Vector<uint16> mOrder;
    Vector<uint16> mTypes;
    uint64 mNumInnerOctants = 0;
    uint64 mNumVoxels = 0;
};
} // namespace KORV::NavMesh
