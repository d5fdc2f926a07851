#pragma once

#include "korv/common/threading/task.h"
#include "korv/navmesh/pieces/piecesequencer.h"

namespace KORV::NavMesh
{
/// Splits outlines into convex pieces on a worker, and hands them over. Owns nothing of what it is given, all
/// of which must outlive it. What the work throws goes to the sequencer, which then stops the others.
class PolygonCreateTask : public Common::Threading::Task
{
public:
    /// @param outline  the first polygon's place in the order of the outlines.
    /// @param axis  the main surface axis.
    PolygonCreateTask(float cubeSize, Rules rules, PieceSequencer& sequencer, size_t outline,
                      const SurfacePolygon& polygon, const Vec3<float>& axis);

    /// Adds the outline behind the last one.
    void append(const SurfacePolygon& polygon) { mSurfacePolygons.push_back(&polygon); }

    void run() override;

private:
    void split();

    float mCubeSize;
    Rules mRules;
    Vector<const SurfacePolygon*> mSurfacePolygons;
    PieceSequencer& mSequencer;
    size_t mOutline;
    const Vec3<float>& mAxis;
};
} // namespace KORV::NavMesh
