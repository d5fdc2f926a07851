#pragma once

#include "korv/common/threading/threadpool.h"
#include "korv/navmesh/navmeshoctree.h"
#include "korv/navmesh/taskerrors.h"

namespace KORV::NavMesh
{
/// Applies a copy of a functional to a batch of voxels.
template <class F, uint32 BATCH>
class LeafTask : public Common::Threading::Task
{
public:
    LeafTask(const F& prototype, TaskErrors& errors) : mPrototype(prototype), mErrors(errors) {}

    bool isFull() const { return mCount == BATCH; }
    void add(const Vec3<int32>& position, LeafOctant& leaf) { mEntries[mCount++] = {position, &leaf}; }

    void run() override
    {
        mErrors.run(
            [this]
            {
                F functional(mPrototype);
                for (uint32 i = 0; i < mCount; ++i)
                    functional(mEntries[i].mPosition, *mEntries[i].mLeaf);
            });
    }

private:
    struct Entry
    {
        Vec3<int32> mPosition;
        LeafOctant* mLeaf;
    };

    Entry mEntries[BATCH];
    uint32 mCount = 0;
    const F& mPrototype;
    TaskErrors& mErrors;
};

/// Carries a functional onto the pool, in batches of voxels; each batch works on a copy of it. The pool is idle when
/// the object has gone, also when the traversal was abandoned.
template <class F, uint32 BATCH>
class MultiThreadedLeafFunction : public LeafFunctional
{
public:
    MultiThreadedLeafFunction(const F& prototype, Common::Threading::ThreadPool& pool)
        : mPool(pool), mPrototype(prototype)
    {
        startBatch();
    }
    MultiThreadedLeafFunction(const MultiThreadedLeafFunction&) = delete;
    MultiThreadedLeafFunction& operator=(const MultiThreadedLeafFunction&) = delete;

    ~MultiThreadedLeafFunction() override
    {
        if (mFinished)
            return;
        delete mCurrent;
        mPool.waitForTasks();
    }

    void operator()(const Vec3<int32>& position, LeafOctant& leaf) override
    {
        if (mCurrent->isFull())
        {
            queueBatch();
            startBatch();
        }
        mCurrent->add(position, leaf);
    }

    /// Queues the last batch, waits for all and throws what the first failing one threw.
    void finish()
    {
        queueBatch();
        mPool.waitForTasks();
        mFinished = true;
        mErrors.rethrow();
    }

private:
    using Batch = LeafTask<F, BATCH>;

    void startBatch() { mCurrent = new (mPool.getAllocator()) Batch(mPrototype, mErrors); }
    void queueBatch() { mPool.appendTask(std::exchange(mCurrent, nullptr)); }

    Common::Threading::ThreadPool& mPool;
    const F& mPrototype;
    TaskErrors mErrors;
    Batch* mCurrent = nullptr;
    bool mFinished = false;
};
} // namespace KORV::NavMesh
