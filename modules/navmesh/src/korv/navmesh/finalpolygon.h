#pragma once

#include "korv/navmesh/borders.h"

namespace KORV::NavMesh
{
/// Appends one closed outline for every surface: around its borders, and to and fro over the bridges between them.
/// The voxels must carry the bridges; traced sides and data must be cleared before.
class BuildFinalPolygon : public LeafFunctional
{
public:
    BuildFinalPolygon(NavMeshOctree& octree, uint32 mainAxis, SurfacePolygonList& polygons);
    void operator()(const Vec3<int32>& position, LeafOctant& leaf) override;

private:
    using State = BorderWalk::State;
    using Points = Vector<Vec3<float>>;

    SurfacePolygon& addPolygon(const Vec3<int32>& position, const LeafOctant& leaf);
    void traceOutline(Points& points, const State& start);
    bool meetsBridge(const State& state) const;
    void crossBridges(Points& points, State& state);
    void prepareWaysOut(LeafOctant& leaf) const;
    Vec3<float> getCentrePoint(const Vec3<int32>& position) const;
    Vec3<float> getCorner(const State& state) const;

    NavMeshOctree& mOctree;
    LeafCursor mCursor;
    BorderWalk mWalk;
    SurfacePolygonList& mPolygons;
    uint32 mRayLength;
    Vec3<float> mUpOffset;                                  ///< from a voxel's centre to its top face
    Vec3<float> mCornerOffsets[PlaneDirections::NUM_SIDES]; ///< on along the face to the corner that ends a side
};
} // namespace KORV::NavMesh
