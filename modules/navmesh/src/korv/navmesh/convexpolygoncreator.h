#pragma once

#include "korv/common/memory/memorymanaged.h"
#include "korv/common/threading/spinlock.h"
#include "korv/navmesh/pieces/chordsolver.h"
#include "korv/navmesh/pieces/outlineinset.h"
#include "korv/navmesh/rules.h"

namespace KORV::NavMesh
{
/// Splits outlines into convex nodes, each outline with the least total length of chords between its nodes.
/// One thread at a time; containers are touched under their lock only.
class ConvexPolygonCreator : public Common::Memory::MemoryManaged
{
public:
    /// How an outline came to be split.
    enum class Rescue : uint8
    {
        NONE,      ///< as usual
        INSET,     ///< only after an inset from the unmoved corners, in units of the cube size
        TRIANGLES, ///< cut into triangles, merged to convex pieces
        EMPTY      ///< not at all: the outline has no area, or the work was stopped
    };

    /// @param shrinkDistance  how far outlines are drawn in for the decisions; a quarter of the cube size. [world
    /// units]
    explicit ConvexPolygonCreator(float shrinkDistance, Rules rules = Rules::SPECIFIED);
    ~ConvexPolygonCreator() override;

    /// Splits an outline and appends its corners and nodes to a container. Fewer than three corners are reported, and
    /// nothing is appended.
    /// @param lock  guards the container.
    /// @param axis  the main surface axis, seen against which the outline runs counter-clockwise.
    void createConvexPolygons(Common::Threading::SpinLock& lock, NavMeshContainer& container,
                              const SurfacePolygon& polygon, const Vec3<float>& axis);

    /// The first half of it: splits an outline.
    /// @param pieces  receives the result.
    /// @param stop  may be raised by any thread; the work ends soon then.
    Rescue decompose(ConvexPieces& pieces, const SurfacePolygon& polygon, const Vec3<float>& axis,
                     const std::atomic<bool>& stop);
    /// Takes several outlines, which must not change until they have been split.
    void begin(const Vector<const SurfacePolygon*>& polygons, const Vec3<float>& axis);
    /// Splits the next one of them, as decompose does.
    Rescue decomposeNext(ConvexPieces& pieces, const std::atomic<bool>& stop);

private:
    Rescue decomposeAsSpecified(ConvexPieces& pieces, const SurfacePolygon& polygon, const Vec3<float>& axis,
                                const std::atomic<bool>& stop);
    Rescue decomposeRefined(ConvexPieces& pieces, const SurfacePolygon& polygon, const Vec3<float>& axis,
                            const std::atomic<bool>& stop);
    void cutTriangles(ConvexPieces& pieces, const SurfacePolygon& polygon, const Vec3<float>& axis,
                      const std::atomic<bool>& stop);
    /// Cube units for the rescues; a shrink distance of 0, which only tests use, leaves the unit as it is.
    float cubeScale() const { return mShrinkDistance > 0.0f ? SHRINK_SHARE / mShrinkDistance : 1.0f; }
    void drawIn();
    void takeDrawnIn();
    void project(Vec2<float>* corners, const Vector<Vec3<float>>& points) const;
    void projectInCubes(const Vector<Vec3<float>>& points, const Vec3<float>& axis);
    void insetFromUnmoved(float distance);
    void snapToHalfCubes();
    void insetSides(float distance);
    bool areAllConvex(const ConvexPieces& pieces) const;
    bool isConvex(const int32* corners, size_t size) const;
    void markReflexCorners();
    bool solve(ConvexPieces& pieces, const std::atomic<bool>& stop);
    bool arePiecesSound(const ConvexPieces& pieces, const Vector<Vec3<float>>& points, const Vec3<float>& axis,
                        float inset);
    bool turnsOneWay(const int32* corners, size_t size, double maxDepth) const;
    bool isPieceSound(const int32* corners, size_t size) const;
    bool crossesItself(const int32* corners, size_t size) const;
    Vec2<double> exactSide(int32 from, int32 to) const;
    void clear();

    static constexpr float SHRINK_SHARE = 0.25f;

    PlaneOutline mPolygon;
    ChordSolver mSolver; // on mPolygon
    Vector<const SurfacePolygon*> mBatch;
    Vec3<float> mAxis;
    size_t mNext = 0;              // of the batch
    Vector<Vec2<float>> mDrawnIn;  // all outlines of the batch, as the specified rules have them
    Vector<CornerRange> mOutlines; // in there
    int32 mN = 0;
    bool mHasReflex = false;
    bool mFinite = true; // no arithmetic on the outline has overflowed so far
    float mShrinkDistance;
    Rules mRules;
};
} // namespace KORV::NavMesh
