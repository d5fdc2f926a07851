#pragma once

#include "korv/common/container/nodecontainers.h"
#include "korv/common/threading/threadpool.h"
#include "korv/navmesh/taskerrors.h"
#include "korv/navmesh/voxels/voxelblock.h"

#include <atomic>

namespace KORV::NavMesh
{
/// Blocks of voxels on their way through the workers: filled in and taken out by one thread, in the same order.
/// Until workers are started that thread builds each block itself, in memory that stays in its cache.
/// Thread use: everything but work belongs to the thread of the run. The pool is idle when the object has gone.
class VoxelBlockQueue
{
public:
    /// @param input  what the blocks' triangles are; must outlive the object.
    /// @param allocator  thread-safe when the pool has several workers.
    VoxelBlockQueue(const InputTriangles& input, Common::Threading::ThreadPool* pool,
                    Common::Memory::Allocator* allocator);
    ~VoxelBlockQueue();
    VoxelBlockQueue(const VoxelBlockQueue&) = delete;
    VoxelBlockQueue& operator=(const VoxelBlockQueue&) = delete;

    /// Lets the pool's workers build blocks from now on, if there are several of them. Only while the queue is empty.
    void startWorkers();
    bool hasWorkers() const { return mNumWorkers > 0; }

    bool empty() const { return mNumPushed == mNumPopped; }
    bool isFull() const { return mNumPushed - mNumPopped == mCapacity; }
    /// The block to fill in next, while the queue is not full.
    VoxelBlock& getNext();
    /// Queues that block.
    /// @param octant,corner  what the taker wants to know with it.
    void push(uint32 octant, const Vec3<int32>& corner);

    /// Builds the oldest block, or waits until a worker has. Throws what the building threw.
    VoxelBlock& getOldest(uint32& octant, Vec3<int32>& corner);
    void popOldest() { ++mNumPopped; }

    /// What a worker does, until the queue is stopped.
    void work();

private:
    enum class State : uint32
    {
        IDLE,
        QUEUED,
        TAKEN
    };

    struct Slot
    {
        explicit Slot(Common::Memory::Allocator* allocator) : mBlock(allocator) {}

        VoxelBlock mBlock;
        uint32 mOctant = 0;
        Vec3<int32> mCorner;
        std::atomic<State> mState{State::IDLE};
        Common::Threading::Semaphore mBuilt{0, 1}; // by a worker
    };

    Slot& getSlot(uint32 number) { return *mRing[number % mCapacity]; }
    void addSlots(uint32 capacity);
    static bool take(Slot& slot);
    void stopWorkers();

    const InputTriangles& mInput;
    Common::Threading::ThreadPool* mPool;
    Common::Container::List<Slot> mSlots;
    Vector<Slot*> mRing; // the slots, taken in turn
    uint32 mCapacity = 0;
    uint32 mNumPushed = 0;
    uint32 mNumPopped = 0;

    uint32 mNumWorkers = 0;
    Common::Threading::Semaphore mAvailable{0, Common::Threading::ThreadPool::MAX_UNITS}; // a unit per block pushed
    std::atomic<uint32> mNumOffered{0}; // of these units, how many workers have got
    std::atomic<bool> mStopped{false};
    TaskErrors mErrors;
};
} // namespace KORV::NavMesh
