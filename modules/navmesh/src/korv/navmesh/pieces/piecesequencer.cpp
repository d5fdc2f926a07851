#include "korv/navmesh/pieces/piecesequencer.h"

#include <limits>

namespace KORV::NavMesh
{
using Common::Threading::ScopedLock;

void PieceBatch::add(const SurfacePolygon& polygon, const ConvexPieces& pieces, ConvexPolygonCreator::Rescue rescue)
{
    mPieces.append(pieces);
    mOutlines.push_back({&polygon, static_cast<uint32>(mPieces.size()), rescue});
}

void PieceBatch::moveTo(MeshDraft& draft)
{
    draft.appendBlock(std::move(mPieces));
    for (const Outline& outline : mOutlines)
        draft.appendOutline(*outline.mPolygon, outline.mEnd);
    mOutlines.clear();
}

/// Results that wait for the others.
class PieceSequencer::Delivery : public Common::Memory::MemoryManaged
{
public:
    explicit Delivery(const PieceBatch& batch) : mBatch(batch, getMemory()) {}

    PieceBatch mBatch;
};

PieceSequencer::PieceSequencer(size_t numOutlines, const Common::Memory::AllocatorPtr& allocator)
    : mAllocator(allocator), mDeliveries(numOutlines, nullptr, allocator.get()),
      mAwaitedEnded(0, std::numeric_limits<int32>::max() - 1)
{
}

PieceSequencer::~PieceSequencer()
{
    for (Delivery* delivery : mDeliveries)
        delete delivery;
}

void PieceSequencer::deliver(size_t first, const PieceBatch& batch)
{
    if (isStopped())
        return;
    mDeliveries[first] = new (mAllocator) Delivery(batch); // nobody else touches that place
    const ScopedLock guard(mLock);
    for (const PieceBatch::Outline& outline : batch.mOutlines)
        ++mNumRescues[static_cast<size_t>(outline.mRescue)];
}

void PieceSequencer::moveTo(MeshDraft& draft)
{
    size_t numVertices = 0;
    for (const Delivery* delivery : mDeliveries)
    {
        if (delivery == nullptr)
            continue;
        for (const PieceBatch::Outline& outline : delivery->mBatch.mOutlines)
            numVertices += outline.mPolygon->mPoints.size();
    }
    // some for the sides that will be split, so that the vertices need not be copied for them
    draft.reserveVertices(numVertices + numVertices / SPARE_VERTICES);
    for (Delivery*& delivery : mDeliveries)
    {
        if (delivery == nullptr)
            continue;
        delivery->mBatch.moveTo(draft);
        delete delivery;
        delivery = nullptr;
    }
}

void PieceSequencer::countEnded(size_t numOutlines)
{
    mNumEnded.fetch_add(numOutlines, std::memory_order_release);
    if (mNumEndedTasks.fetch_add(1) + 1 == mNumAwaited.load())
        mAwaitedEnded.signal();
}

void PieceSequencer::waitForEnded(size_t numTasks, uint32 milliseconds)
{
    mNumAwaited.store(numTasks); // before the look at what has ended, so that one of both sides sees the other
    if (getNumEndedTasks() < numTasks)
        mAwaitedEnded.tryWaitFor(milliseconds);
}

uint32 PieceSequencer::getNumRescues(ConvexPolygonCreator::Rescue rescue) const
{
    const ScopedLock guard(mLock);
    return mNumRescues[static_cast<size_t>(rescue)];
}
} // namespace KORV::NavMesh
