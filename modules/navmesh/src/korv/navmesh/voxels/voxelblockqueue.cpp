#include "korv/navmesh/voxels/voxelblockqueue.h"

namespace KORV::NavMesh
{
namespace
{
constexpr uint32 BLOCKS_PER_WORKER = 4; // enough that nobody waits for one large block

class BuildBlocksTask : public Common::Threading::Task
{
public:
    explicit BuildBlocksTask(VoxelBlockQueue& queue) : mQueue(queue) {}
    void run() override { mQueue.work(); }

private:
    VoxelBlockQueue& mQueue;
};
} // namespace

VoxelBlockQueue::VoxelBlockQueue(const InputTriangles& input, Common::Threading::ThreadPool* pool,
                                 Common::Memory::Allocator* allocator)
    : mInput(input), mPool(pool), mSlots(allocator), mRing(allocator)
{
    addSlots(1);
}

VoxelBlockQueue::~VoxelBlockQueue()
{
    stopWorkers();
}

/// Only while the queue is empty.
void VoxelBlockQueue::addSlots(uint32 capacity)
{
    mRing.reserve(capacity);
    while (mRing.size() < capacity)
        mRing.push_back(&mSlots.emplace_back(mRing.get_allocator().getAllocator()));
    mCapacity = capacity;
    mNumPushed = 0;
    mNumPopped = 0;
}

void VoxelBlockQueue::startWorkers()
{
    if (mPool == nullptr || mPool->getNumThreads() < 2 || hasWorkers())
        return;
    mPool->start(); // tells how many there are: without any, the task would wait here for blocks to come
    if (mPool->getNumThreads() < 2)
        return;
    const uint32 numWorkers = mPool->getNumThreads();
    addSlots(numWorkers * BLOCKS_PER_WORKER);
    for (; mNumWorkers < numWorkers; ++mNumWorkers)
        mPool->appendTask(new (mPool->getAllocator()) BuildBlocksTask(*this));
}

void VoxelBlockQueue::stopWorkers()
{
    if (mNumWorkers == 0)
        return;
    mStopped.store(true, std::memory_order_release);
    for (; mNumWorkers > 0; --mNumWorkers)
        mAvailable.signal();
    mPool->waitForTasks();
}

VoxelBlock& VoxelBlockQueue::getNext()
{
    return getSlot(mNumPushed).mBlock;
}

void VoxelBlockQueue::push(uint32 octant, const Vec3<int32>& corner)
{
    Slot& slot = getSlot(mNumPushed++);
    slot.mOctant = octant;
    slot.mCorner = corner;
    slot.mState.store(State::QUEUED, std::memory_order_release);
    if (hasWorkers())
        mAvailable.signal();
}

bool VoxelBlockQueue::take(Slot& slot)
{
    State expected = State::QUEUED;
    return slot.mState.compare_exchange_strong(expected, State::TAKEN, std::memory_order_acquire);
}

VoxelBlock& VoxelBlockQueue::getOldest(uint32& octant, Vec3<int32>& corner)
{
    Slot& slot = getSlot(mNumPopped);
    octant = slot.mOctant;
    corner = slot.mCorner;
    if (take(slot))
    {
        slot.mBlock.build(mInput);
        return slot.mBlock;
    }
    slot.mBuilt.wait();
    if (mErrors.hasError())
    {
        stopWorkers();
        mErrors.rethrow();
    }
    return slot.mBlock;
}

void VoxelBlockQueue::work()
{
    for (;;)
    {
        mAvailable.wait();
        if (mStopped.load(std::memory_order_acquire))
            return;
        // The run's thread may have taken the block of this unit, and even have put another one into its place.
        Slot& slot = getSlot(mNumOffered.fetch_add(1, std::memory_order_relaxed));
        if (!take(slot))
            continue;
        mErrors.run([&] { slot.mBlock.build(mInput); });
        slot.mBuilt.signal();
    }
}
} // namespace KORV::NavMesh
