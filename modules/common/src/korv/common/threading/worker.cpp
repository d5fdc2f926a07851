#include "korv/common/threading/worker.h"

#include "korv/common/threading/threadpool.h"

namespace KORV::Common::Threading
{
Worker::Worker(ThreadPool* pool, const Memory::AllocatorPtr& workerAllocator)
    : mPool(pool), mIdle(0, ThreadPool::MAX_UNITS), mWorkerAllocator(workerAllocator)
{
}

Worker::~Worker() = default;

int32 Worker::run()
{
    Semaphore& available = mPool->getTasksAvailable();
    for (;;)
    {
        if (!available.tryWait())
        {
            mIdle.signal();
            available.wait();
            mIdle.wait();
        }
        Task* task = mPool->getNextTask();
        if (task == nullptr)
            return 0;
        task->mTaskAllocator = mWorkerAllocator;
        task->execute();
        delete task;
    }
}
} // namespace KORV::Common::Threading
