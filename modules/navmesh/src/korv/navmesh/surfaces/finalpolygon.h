#pragma once

#include "korv/navmesh/surfaces/borders.h"

namespace KORV::NavMesh
{
/// World positions of the points that outlines are made of: on the top faces of voxels.
class OutlinePoints
{
public:
    OutlinePoints(const NavMeshOctree& octree, const PlaneDirections& directions);

    /// Middle of a voxel's top face.
    Vec3<float> getCentre(const Vec3<int32>& position) const { return mOctree.getCentre(position) + mUpOffset; }
    /// The corner that ends a side of it.
    Vec3<float> getCorner(const Vec3<int32>& position, uint32 side) const
    {
        return getCentre(position) + mCornerOffsets[side];
    }

private:
    const NavMeshOctree& mOctree;
    Vec3<float> mUpOffset;                                  // from a voxel's centre to its top face
    Vec3<float> mCornerOffsets[PlaneDirections::NUM_SIDES]; // on along the face
};

/// What leaves the centre of a voxel, as a number that grows counter-clockwise: 2 * i is the bridge to the neighbour on
/// side i, 2 * i + 1 the way out to the corner that ends side i.
struct CentreWays
{
    static constexpr uint32 NUM_WAYS = 8;

    /// A bit for each way. @param bridges,waysOut  a bit for each side.
    static uint32 get(uint32 bridges, uint32 waysOut);
    /// The first way clockwise from the one the walk came by; that one itself at a dead end.
    static uint32 turnClockwise(uint32 ways, uint32 cameBy);
};

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
    Vec3<float> getCorner(const State& state) const { return mPoints.getCorner(state.mPosition, state.mSide); }

    NavMeshOctree& mOctree;
    LeafCursor mCursor;
    BorderWalk mWalk;
    SurfacePolygonList& mPolygons;
    uint32 mRayLength;
    OutlinePoints mPoints;
};
} // namespace KORV::NavMesh
