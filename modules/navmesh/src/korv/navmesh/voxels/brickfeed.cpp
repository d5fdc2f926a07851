#include "korv/navmesh/voxels/brickfeed.h"

#include <algorithm>

namespace KORV::NavMesh
{
using Common::Threading::ScopedLock;

namespace
{
class FillBricksTask : public Common::Threading::Task
{
public:
    explicit FillBricksTask(BrickFeed& feed) : mFeed(feed) {}
    void run() override { mFeed.work(); }

private:
    BrickFeed& mFeed;
};
} // namespace

BrickFeed::BrickFeed(const InputTriangles& input, Common::Threading::ThreadPool* pool,
                     Common::Memory::Allocator* allocator)
    : mInput(input), mPool(pool), mBatches{Vector<Entry>(allocator), Vector<Entry>(allocator)}, mShares(allocator)
{
}

BrickFeed::~BrickFeed()
{
    stopWorkers();
}

void BrickFeed::startWorkers()
{
    if (mPool == nullptr || mPool->getNumThreads() < 2)
        return;
    mPool->start(); // tells how many there are: without any, the task would wait here for triangles to come
    const uint32 numThreads = mPool->getNumThreads();
    if (numThreads < 2)
        return;
    for (Vector<Entry>& batch : mBatches)
        batch.reserve(BATCH);
    mShares.resize(size_t{numThreads} * SHARES_PER_THREAD);
    for (; mNumWorkers + 1 < numThreads; ++mNumWorkers)
        mPool->appendTask(new (mPool->getAllocator()) FillBricksTask(*this));
}

void BrickFeed::add(uint32 triangle, const TriangleClass& triangleClass, BlockBricks& block, uint32 share)
{
    Vector<Entry>& batch = getBatch(mNumQueued);
    batch.push_back({&block, share % static_cast<uint32>(mShares.size()), triangle, triangleClass});
    if (batch.size() == BATCH)
        queueBatch();
}

/// Hands the batch over that has been filled, and sees to it that another one is free.
void BrickFeed::queueBatch()
{
    {
        const ScopedLock guard(mLock);
        ++mNumQueued;
    }
    for (uint32 worker = 0; worker < mNumWorkers; ++worker)
        mQueued.signal();
    if (mNumQueued >= NUM_BATCHES)
        waitFor(mNumQueued + 1 - NUM_BATCHES);
    getBatch(mNumQueued).clear();
}

/// Until so many batches are done. Works on them meanwhile.
void BrickFeed::waitFor(uint32 numBatches)
{
    while (!areDone(numBatches))
    {
        if (!workOnShare())
            mDone.wait();
    }
    if (!mErrors.hasError())
        return;
    stopWorkers();
    mErrors.rethrow();
}

bool BrickFeed::areDone(uint32 numBatches)
{
    const ScopedLock guard(mLock);
    return std::all_of(mShares.begin(), mShares.end(),
                       [numBatches](const Share& share) { return share.mNumDone >= numBatches; });
}

void BrickFeed::finish()
{
    if (!hasWorkers())
        return;
    queueBatch();
    waitFor(mNumQueued);
    stopWorkers();
}

void BrickFeed::stopWorkers()
{
    if (!hasWorkers())
        return;
    mStopped.store(true, std::memory_order_release);
    for (; mNumWorkers > 0; --mNumWorkers)
        mQueued.signal();
    mPool->waitForTasks();
}

void BrickFeed::work()
{
    while (!mStopped.load(std::memory_order_acquire))
    {
        if (workOnShare())
            mDone.signal();
        else
            mQueued.wait();
    }
}

/// Adds the next triangles of some share. @return false if there are none that nobody works on.
bool BrickFeed::workOnShare()
{
    Share* const share = takeShare();
    if (share == nullptr)
        return false;
    mErrors.run([&] { addEntries(getBatch(share->mNumDone), static_cast<uint32>(share - mShares.data())); });
    const ScopedLock guard(mLock);
    ++share->mNumDone;
    share->mIsTaken = false;
    return true;
}

/// The share that is furthest behind, of those that nobody works on; null if none has anything to do.
BrickFeed::Share* BrickFeed::takeShare()
{
    const ScopedLock guard(mLock);
    Share* found = nullptr;
    for (Share& share : mShares)
    {
        if (!share.mIsTaken && share.mNumDone < mNumQueued && (found == nullptr || share.mNumDone < found->mNumDone))
            found = &share;
    }
    if (found != nullptr)
        found->mIsTaken = true;
    return found;
}

void BrickFeed::addEntries(const Vector<Entry>& batch, uint32 share) const
{
    TriangleReader reader(mInput);
    Vec3<float> corners[3];
    for (const Entry& entry : batch)
    {
        if (entry.mShare != share)
            continue;
        reader.read(entry.mTriangle, corners);
        entry.mBlock->addTriangle(corners, entry.mClass);
    }
}
} // namespace KORV::NavMesh
