#pragma once

#include "korv/common/memory/memorymanaged.h"
#include "korv/common/threading/spinlock.h"
#include "korv/navmesh/chordsolver.h"
#include "korv/navmesh/piecelist.h"

namespace KORV::NavMesh
{
/// Turns outlines into convex nodes, each with the least total length of chords between its pieces.
/// One thread at a time; the container is only touched under its lock.
class ConvexPolygonCreator : public Common::Memory::MemoryManaged
{
public:
    /// How an outline came to be cut.
    enum class Rescue
    {
        NONE,      ///< as usual
        INSET,     ///< drawn in from the unmoved corners, in units of the cube size
        TRIANGLES, ///< cut into triangles, merged to convex pieces
        EMPTY      ///< nothing to cut: the outline has no area
    };

    /// @param shrinkDistance  how far the outline is drawn in for the decisions: a quarter of the cube size.
    explicit ConvexPolygonCreator(float shrinkDistance);
    ~ConvexPolygonCreator() override;

    /// Cuts an outline and appends its corners and pieces to a container.
    /// @param lock  guards the container.
    /// @param axis  the main surface axis.
    void createConvexPolygons(Common::Threading::SpinLock& lock, NavMeshContainer& container,
                              const SurfacePolygon& polygon, const Vec3<float>& axis);

    /// The first half: cuts an outline, clockwise in the plane of the axis.
    /// @param pieces  receives the cut.
    /// @param watch  may abandon the work; @p pieces is then empty.
    Rescue decompose(PieceList& pieces, const SurfacePolygon& polygon, const Vec3<float>& axis, WorkWatch& watch);

private:
    void project(const Vector<Vec3<float>>& points, const Vec3<float>& axis, const Vec3<float>& origin, float scale);
    void insetInPlace();
    void insetFromUnmoved(float distance);
    bool markReflexCorners();
    bool cut(PieceList& pieces, WorkWatch& watch);
    bool collectPieces(PieceList& pieces, ChordSolver& solver) const;
    void clear();

    Vec2<float> getInward(const Vec2<float>& before, const Vec2<float>& at, const Vec2<float>& after) const;

    Vector<Vec2<float>> mPolygon;
    int32 mN = 0;
    Vector<uint8> mReflex;
    float mShrinkDistance;
};
} // namespace KORV::NavMesh
