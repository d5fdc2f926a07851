#include "korv/navmesh/pieces/polygoncreatetask.h"

#include <memory>

namespace KORV::NavMesh
{
namespace
{
/// Share of a cube by which outlines are drawn in.
constexpr float SHRINK_SHARE = 0.25f;
} // namespace

PolygonCreateTask::PolygonCreateTask(float cubeSize, Rules rules, PieceSequencer& sequencer, size_t outline,
                                     const SurfacePolygon& polygon, const Vec3<float>& axis)
    : mCubeSize(cubeSize), mRules(rules), mSurfacePolygons(1, &polygon, getMemory()), mSequencer(sequencer),
      mOutline(outline), mAxis(axis)
{
}

void PolygonCreateTask::run()
{
    if (!mSequencer.isStopped())
        mSequencer.getErrors().run([this] { split(); });
    if (mSequencer.getErrors().hasError())
        mSequencer.stop();
    mSequencer.countEnded(mSurfacePolygons.size());
}

void PolygonCreateTask::split()
{
    // the worker's own allocator: nothing of it is left when this returns
    const Common::Memory::AllocatorPtr& allocator = mTaskAllocator != nullptr ? mTaskAllocator : getAllocator();
    const std::unique_ptr<ConvexPolygonCreator> creator(new (allocator)
                                                            ConvexPolygonCreator(mCubeSize * SHRINK_SHARE, mRules));
    ConvexPieces pieces(allocator.get());
    PieceBatch batch(allocator.get());
    creator->begin(mSurfacePolygons, mAxis);
    for (const SurfacePolygon* polygon : mSurfacePolygons)
    {
        const ConvexPolygonCreator::Rescue rescue = creator->decomposeNext(pieces, mSequencer.getStopFlag());
        if (mSequencer.isStopped())
            return;
        batch.add(*polygon, pieces, rescue);
    }
    mSequencer.deliver(mOutline, batch);
}
} // namespace KORV::NavMesh
