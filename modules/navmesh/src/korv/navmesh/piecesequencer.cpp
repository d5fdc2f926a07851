#include "korv/navmesh/piecesequencer.h"

#include <limits>

namespace KORV::NavMesh
{
using Common::Threading::ScopedLock;
using Rescue = ConvexPolygonCreator::Rescue;

PieceSequencer::PieceSequencer(Common::Threading::SpinLock& lock, NavMeshContainer& container, size_t numOutlines,
                               const Common::Memory::AllocatorPtr& allocator)
    : mLock(lock), mContainer(container), mAllocator(allocator), mWaiting(numOutlines, std::nullopt, allocator.get()),
      mChanged(0, std::numeric_limits<int32>::max() - 1)
{
}

void PieceSequencer::deliver(size_t outline, const SurfacePolygon& polygon, PieceList&& pieces, Rescue rescue)
{
    const ScopedLock guard(mLock);
    mNumInsets += rescue == Rescue::INSET ? 1 : 0;
    mNumTriangles += rescue == Rescue::TRIANGLES ? 1 : 0;
    mWaiting[outline] = Delivery{&polygon, std::move(pieces)};
    for (; mNext < mWaiting.size() && mWaiting[mNext].has_value(); ++mNext)
    {
        if (mWaiting[mNext]->mPieces.size() > 0)
            mWaiting[mNext]->mPieces.appendTo(mContainer, *mWaiting[mNext]->mPolygon);
        mWaiting[mNext].reset();
    }
}

void PieceSequencer::countEnded()
{
    mNumEnded.fetch_add(1, std::memory_order_release);
    mChanged.signal();
}

uint32 PieceSequencer::getNumRescues(Rescue rescue) const
{
    const ScopedLock guard(mLock);
    return rescue == Rescue::INSET ? mNumInsets : rescue == Rescue::TRIANGLES ? mNumTriangles : 0;
}
} // namespace KORV::NavMesh
