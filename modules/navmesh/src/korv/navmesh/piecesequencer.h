#pragma once

#include "korv/common/threading/semaphore.h"
#include "korv/common/threading/spinlock.h"
#include "korv/navmesh/convexpolygoncreator.h"
#include "korv/navmesh/taskerrors.h"

#include <atomic>
#include <optional>

namespace KORV::NavMesh
{
/// Takes the finished cuts of many outlines, in whatever order they come, and appends them to the container in the order
/// of the outlines. Nobody waits for a turn: whoever delivers appends all that is next. Any thread may deliver.
class PieceSequencer
{
public:
    /// @param lock  guards the container.
    /// @param allocator  thread-safe; keeps what is not yet appended.
    PieceSequencer(Common::Threading::SpinLock& lock, NavMeshContainer& container, size_t numOutlines,
                   const Common::Memory::AllocatorPtr& allocator);

    /// Takes the cut of an outline over. Each outline delivers once, also an empty cut.
    void deliver(size_t outline, const SurfacePolygon& polygon, PieceList&& pieces, ConvexPolygonCreator::Rescue rescue);

    Common::Memory::Allocator* getMemory() const { return mAllocator.get(); }
    /// Carries what tasks throw to the thread that waits.
    TaskErrors& getErrors() { return mErrors; }

    /// Tells the tasks that are left to do nothing.
    void stop() { mStopped.store(true, std::memory_order_relaxed); }
    bool isStopped() const { return mStopped.load(std::memory_order_relaxed) || mErrors.hasError(); }

    /// Counts a task as ended, however it ended, and wakes the one that watches.
    void countEnded();
    /// Waits until another task has ended, or for that time at most.
    void waitForEnd(uint32 milliseconds) { mChanged.tryWaitFor(milliseconds); }
    size_t getNumEnded() const { return mNumEnded.load(std::memory_order_acquire); }

    uint32 getNumRescues(ConvexPolygonCreator::Rescue rescue) const;

private:
    struct Delivery
    {
        const SurfacePolygon* mPolygon;
        PieceList mPieces;
    };

    Common::Threading::SpinLock& mLock;
    NavMeshContainer& mContainer;
    Common::Memory::AllocatorPtr mAllocator;
    Vector<std::optional<Delivery>> mWaiting;
    size_t mNext = 0;
    uint32 mNumInsets = 0;
    uint32 mNumTriangles = 0;
    TaskErrors mErrors;
    std::atomic<bool> mStopped{false};
    std::atomic<size_t> mNumEnded{0};
    Common::Threading::Semaphore mChanged;
};
} // namespace KORV::NavMesh
