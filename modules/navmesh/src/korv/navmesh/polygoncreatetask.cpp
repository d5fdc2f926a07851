#include "korv/navmesh/polygoncreatetask.h"

#include <memory>

namespace KORV::NavMesh
{
namespace
{
/// The creator draws its outlines in by this share of a cube.
constexpr float SHRINK_SHARE = 0.25f;

/// Ends the work when the run is given up.
class RunWatch : public WorkWatch
{
public:
    explicit RunWatch(const PieceSequencer& sequencer) : mSequencer(sequencer) {}
    bool keepGoing() override { return !mSequencer.isStopped(); }

private:
    const PieceSequencer& mSequencer;
};
} // namespace

PolygonCreateTask::PolygonCreateTask(float cubeSize, PieceSequencer& sequencer, size_t outline,
                                     const SurfacePolygon& polygon, const Vec3<float>& axis)
    : mCubeSize(cubeSize), mSurfacePolygon(polygon), mSequencer(sequencer), mOutline(outline), mAxis(axis)
{
}

void PolygonCreateTask::run()
{
    if (!mSequencer.isStopped())
        mSequencer.getErrors().run([this] { cut(); });
    mSequencer.countEnded();
}

void PolygonCreateTask::cut()
{
    const std::unique_ptr<ConvexPolygonCreator> creator(new (mTaskAllocator)
                                                            ConvexPolygonCreator(mCubeSize * SHRINK_SHARE));
    // The result outlives the worker's own allocator.
    PieceList pieces(mSequencer.getMemory());
    RunWatch watch(mSequencer);
    const ConvexPolygonCreator::Rescue rescue = creator->decompose(pieces, mSurfacePolygon, mAxis, watch);
    if (!mSequencer.isStopped())
        mSequencer.deliver(mOutline, mSurfacePolygon, std::move(pieces), rescue);
}
} // namespace KORV::NavMesh
