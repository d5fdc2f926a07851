#pragma once

#include "korv/common/threading/semaphore.h"
#include "korv/common/threading/spinlock.h"
#include "korv/navmesh/convexpolygoncreator.h"
#include "korv/navmesh/taskerrors.h"

#include <atomic>

namespace KORV::NavMesh
{
/// Takes the pieces of many outlines in whatever order they are finished, and appends them to the container in the
/// order of the outlines. Nobody waits for a turn: whoever delivers appends all that is next. Any thread may deliver.
class PieceSequencer
{
public:
    /// @param lock  guards the container.
    /// @param allocator  thread-safe; keeps what is not appended yet.
    PieceSequencer(Common::Threading::SpinLock& lock, NavMeshContainer& container, size_t numOutlines,
                   const Common::Memory::AllocatorPtr& allocator);
    ~PieceSequencer();
    PieceSequencer(const PieceSequencer&) = delete;
    PieceSequencer& operator=(const PieceSequencer&) = delete;

    /// Takes the result of an outline, also one without pieces; each outline delivers once. Dropped after stop.
    /// @param pieces  copied unless it is their turn, so that they may live on the caller's own allocator.
    void deliver(size_t outline, const SurfacePolygon& polygon, const ConvexPieces& pieces,
                 ConvexPolygonCreator::Rescue rescue);

    /// Carries what tasks throw to the thread that waits.
    TaskErrors& getErrors() { return mErrors; }

    /// Tells the tasks that are left, and long ones that run, to end.
    void stop() { mStopped.store(true, std::memory_order_relaxed); }
    bool isStopped() const { return mStopped.load(std::memory_order_relaxed); }
    const std::atomic<bool>& getStopFlag() const { return mStopped; }

    /// Counts a task of that many outlines as ended, however it ended, and wakes the one that watches.
    void countEnded(size_t numOutlines);
    /// Waits until another task has ended, or for that time at most. @return whether one has.
    bool waitForEnd(uint32 milliseconds) { return mTaskEnded.tryWaitFor(milliseconds); }
    /// Outlines of tasks that have ended.
    size_t getNumEnded() const { return mNumEnded.load(std::memory_order_acquire); }
    size_t getNumEndedTasks() const { return mNumEndedTasks.load(std::memory_order_acquire); }

    /// How many outlines have been split that way so far.
    uint32 getNumRescues(ConvexPolygonCreator::Rescue rescue) const;

private:
    class Delivery;

    static constexpr size_t NUM_RESCUES = 4;

    Common::Threading::SpinLock& mLock;
    NavMeshContainer& mContainer;
    Common::Memory::AllocatorPtr mAllocator;
    Vector<Delivery*> mWaiting; // by outline; owned
    size_t mNext = 0;
    uint32 mNumRescues[NUM_RESCUES] = {};
    TaskErrors mErrors;
    std::atomic<bool> mStopped{false};
    std::atomic<size_t> mNumEnded{0};
    std::atomic<size_t> mNumEndedTasks{0};
    Common::Threading::Semaphore mTaskEnded;
};
} // namespace KORV::NavMesh
