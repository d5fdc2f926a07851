#include "korv/navmesh/piecesequencer.h"

#include <limits>

namespace KORV::NavMesh
{
using Common::Threading::ScopedLock;

/// A result that waits for its turn.
class PieceSequencer::Delivery : public Common::Memory::MemoryManaged
{
public:
    Delivery(const SurfacePolygon& polygon, const ConvexPieces& pieces)
        : mPolygon(polygon), mPieces(pieces, getMemory())
    {
    }

    const SurfacePolygon& mPolygon;
    ConvexPieces mPieces;
};

PieceSequencer::PieceSequencer(Common::Threading::SpinLock& lock, NavMeshContainer& container, size_t numOutlines,
                               const Common::Memory::AllocatorPtr& allocator)
    : mLock(lock), mContainer(container), mAllocator(allocator), mWaiting(numOutlines, nullptr, allocator.get()),
      mTaskEnded(0, std::numeric_limits<int32>::max() - 1)
{
}

PieceSequencer::~PieceSequencer()
{
    for (Delivery* delivery : mWaiting)
        delete delivery;
}

void PieceSequencer::deliver(size_t outline, const SurfacePolygon& polygon, const ConvexPieces& pieces,
                             ConvexPolygonCreator::Rescue rescue)
{
    const ScopedLock guard(mLock);
    if (isStopped())
        return;
    ++mNumRescues[static_cast<size_t>(rescue)];
    if (outline != mNext)
    {
        mWaiting[outline] = new (mAllocator) Delivery(polygon, pieces);
        return;
    }
    pieces.appendTo(mContainer, polygon);
    for (++mNext; mNext < mWaiting.size() && mWaiting[mNext] != nullptr; ++mNext)
    {
        Delivery*& delivery = mWaiting[mNext];
        delivery->mPieces.appendTo(mContainer, delivery->mPolygon);
        delete delivery;
        delivery = nullptr;
    }
}

void PieceSequencer::countEnded(size_t numOutlines)
{
    mNumEnded.fetch_add(numOutlines, std::memory_order_release);
    mNumEndedTasks.fetch_add(1, std::memory_order_release);
    mTaskEnded.signal();
}

uint32 PieceSequencer::getNumRescues(ConvexPolygonCreator::Rescue rescue) const
{
    const ScopedLock guard(mLock);
    return mNumRescues[static_cast<size_t>(rescue)];
}
} // namespace KORV::NavMesh
