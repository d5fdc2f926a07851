#pragma once

#include "korv/navmesh/rangetask.h"
#include "korv/navmesh/surfaces/finalpolygon.h"
#include "korv/navmesh/surfaces/surfaceparts.h"

namespace KORV::NavMesh
{
/// From voxels to outlines: what the stages on single voxels do (neighbourbits, borders, bridges, finalpolygon), on
/// bits and with the same result. The octree gives the grid and the settings; its records are not needed.
class SurfaceExtraction
{
public:
    /// Surfaces of fewer voxels are not cut by an automatic split depth, by the refined rules.
    static constexpr uint64 MIN_SPLIT_VOXELS = 128;

    /// Outlines are followed by grid positions, those of single voxels by rounded coordinates. Whether the two must
    /// give the same corners: not when a corner's coordinates are so large that rounding can bend a straight side.
    static bool isExact(const NavMeshOctree& octree);

    /// @param bricks  the octree's voxels; must outlive the object, as must the octree.
    SurfaceExtraction(const NavMeshOctree& octree, const VoxelBricks& bricks, uint32 mainAxis);

    /// Finds the surfaces. Fractions of the stage as for RangeRunner.
    void findSurfaces(float begin, float end);
    uint64 countVoxels() const { return mSheets.countVoxels(); }
    uint64 countBorders() const { return mParts.countBorders(); }
    /// Appends the outlines of the surfaces, straightened.
    void traceOutlines(SurfacePolygonList& polygons, float begin, float end);

private:
    using Points = Vector<Vec3<float>>;

    void listBatches(Vector<uint32>& batches) const;
    void trace(uint32 surface, Points& points) const;
    void traceBorder(const SurfaceParts::Surface& surface, Points& points) const;
    void addPolygon(uint32 surface, const Vec3<float>* points, uint32 numPoints, SurfacePolygonList& polygons) const;

    const NavMeshOctree& mOctree;
    RangeRunner mRunner;
    const VoxelBricks& mBricks;
    SurfaceSheets mSheets;
    SurfaceParts mParts;
    OutlinePoints mPoints;
};
} // namespace KORV::NavMesh
