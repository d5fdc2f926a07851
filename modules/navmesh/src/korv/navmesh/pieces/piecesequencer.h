#pragma once

#include "korv/common/threading/semaphore.h"
#include "korv/common/threading/spinlock.h"
#include "korv/navmesh/convexpolygoncreator.h"
#include "korv/navmesh/meshdraft.h"
#include "korv/navmesh/taskerrors.h"

#include <atomic>

namespace KORV::NavMesh
{
/// The results of some outlines that follow each other.
class PieceBatch
{
public:
    explicit PieceBatch(Common::Memory::Allocator* allocator) : mOutlines(allocator), mPieces(allocator) {}
    /// A copy on another allocator.
    PieceBatch(const PieceBatch& other, Common::Memory::Allocator* allocator)
        : mOutlines(other.mOutlines, allocator), mPieces(other.mPieces, allocator)
    {
    }

    /// Adds the next outline, also one without pieces. @param polygon  is referred to.
    void add(const SurfacePolygon& polygon, const ConvexPieces& pieces, ConvexPolygonCreator::Rescue rescue);
    /// Makes them a block of a mesh, and is empty then.
    void moveTo(MeshDraft& draft);

    /// An outline with the end of its pieces.
    struct Outline
    {
        const SurfacePolygon* mPolygon;
        uint32 mEnd;
        ConvexPolygonCreator::Rescue mRescue;
    };
    Vector<Outline> mOutlines;
    ConvexPieces mPieces;
};

/// Takes the pieces of many outlines in whatever order they are finished, and appends them to a mesh in the order of
/// the outlines once all are there: vertices that grow under their users' hands would be copied again and again. Any
/// thread may deliver.
class PieceSequencer
{
public:
    /// @param allocator  thread-safe; keeps what is not appended yet.
    PieceSequencer(size_t numOutlines, const Common::Memory::AllocatorPtr& allocator);
    ~PieceSequencer();
    PieceSequencer(const PieceSequencer&) = delete;
    PieceSequencer& operator=(const PieceSequencer&) = delete;

    /// Takes the results of outlines; each outline is delivered once. Dropped after stop.
    /// @param first  place of the first of them in the order of the outlines.
    /// @param batch  copied, so that it may live on the caller's own allocator.
    void deliver(size_t first, const PieceBatch& batch);

    /// Appends all that has been delivered to a mesh, in the order of the outlines. Nobody may deliver meanwhile.
    void moveTo(MeshDraft& draft);

    /// Carries what tasks throw to the thread that waits.
    TaskErrors& getErrors() { return mErrors; }

    /// Tells the tasks that are left, and long ones that run, to end.
    void stop() { mStopped.store(true, std::memory_order_relaxed); }
    bool isStopped() const { return mStopped.load(std::memory_order_relaxed); }
    const std::atomic<bool>& getStopFlag() const { return mStopped; }

    /// Counts a task of that many outlines as ended, however it ended, and wakes the one that waits for it.
    void countEnded(size_t numOutlines);
    /// Waits until that many tasks have ended, or for that time at most; one thread only.
    void waitForEnded(size_t numTasks, uint32 milliseconds);
    /// Outlines of tasks that have ended.
    size_t getNumEnded() const { return mNumEnded.load(std::memory_order_acquire); }
    size_t getNumEndedTasks() const { return mNumEndedTasks.load(); }

    /// How many outlines have been split that way so far.
    uint32 getNumRescues(ConvexPolygonCreator::Rescue rescue) const;

private:
    class Delivery;

    static constexpr size_t NUM_RESCUES = 4;
    /// A guess: on most levels fewer than one in so many vertices come in addition where sides are split.
    static constexpr size_t SPARE_VERTICES = 32;

    mutable Common::Threading::SpinLock mLock;
    Common::Memory::AllocatorPtr mAllocator;
    Vector<Delivery*> mDeliveries; // by their first outline; owned
    uint32 mNumRescues[NUM_RESCUES] = {};
    TaskErrors mErrors;
    std::atomic<bool> mStopped{false};
    std::atomic<size_t> mNumEnded{0};
    std::atomic<size_t> mNumEndedTasks{0};
    std::atomic<size_t> mNumAwaited{0}; // tasks that somebody waits for: to be woken for each would take long
    Common::Threading::Semaphore mAwaitedEnded;
};
} // namespace KORV::NavMesh
