#pragma once

#include "korv/navmesh/surfaces/surfacesheets.h"

namespace KORV::NavMesh
{
/// The voxels of a surface within one sheet, or some of them when the surface leaves the sheet in between.
struct SurfacePart
{
    uint64 mVoxels;
    uint32 mSheet;
    uint32 mSurface; ///< while sets are joined: a part of the same set, itself for the first
    int16 mEuler;    ///< what it adds to the surface's voxels - joins + squares of four
    uint16 mNumVoxels;
};

/// Divides sheets into maximal connected surfaces.
class SurfaceParts
{
public:
    struct Surface
    {
        uint64 mNumVoxels = 0;
        int64 mEuler = 0;       ///< 1 less one for each hole
        uint32 mStartSheet = 0; ///< where its first border voxel in the order of the octree is
        uint32 mStartBit = VoxelBricks::NONE;

        uint64 countBorders() const { return static_cast<uint64>(2 - mEuler); }
    };

    explicit SurfaceParts(SurfaceSheets& sheets, Common::Memory::Allocator* allocator);

    /// Cuts the joins between branches in all surfaces of at least some voxels, which were linked across branches. To
    /// be called before build.
    void cutBranches(const RangeRunner& runner, uint64 minVoxels);
    void build(const RangeRunner& runner);

    uint32 getNumSurfaces() const { return static_cast<uint32>(mSurfaces.size()); }
    /// In the order in which the octree's voxels meet their borders.
    const Surface& operator[](uint32 surface) const { return mSurfaces[mOrder[surface]]; }
    uint64 countBorders() const;

    /// The parts of a surface with several borders, in the order of the sheets; empty for others.
    std::pair<const uint32*, const uint32*> getParts(uint32 surface) const;
    const SurfacePart& getPart(uint32 part) const { return mParts[part]; }
    /// The part of a surface's voxel.
    uint32 findPart(uint32 sheet, uint32 bit) const;
    const SurfaceSheets& getSheets() const { return mSheets; }

private:
    enum class Measure : bool
    {
        SIZE, ///< holes are left out
        ALL
    };

    void divide(const RangeRunner& runner, Measure measure);
    void addParts(uint32 sheet, Measure measure, Vector<SurfacePart>& parts) const;
    int16 computeEuler(const SurfaceSheet& sheet, uint64 voxels) const;
    void joinBeside(uint32 part);
    uint32 findFirst(uint32 part);
    void numberSurfaces();
    void addToSurface(const SurfacePart& part);
    uint32 getRank(uint32 sheet, uint32 bit) const;
    void sortSurfaces();
    void gatherParts();

    SurfaceSheets& mSheets;
    Vector<SurfacePart> mParts;
    Vector<Surface> mSurfaces;
    Vector<uint32> mOrder;
    Vector<uint32> mFirstGathered; // of each surface with several borders, and the end: into mGathered
    Vector<uint32> mGathered;
};
} // namespace KORV::NavMesh
