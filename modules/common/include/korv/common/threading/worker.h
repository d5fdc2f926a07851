#pragma once

#include "korv/common/threading/semaphore.h"
#include "korv/common/threading/task.h"

namespace KORV::Common::Threading
{
class ThreadPool;

/// The loop of one thread of a ThreadPool.
class KORV_COMMON_API Worker : public Threaded
{
public:
    Worker(ThreadPool* pool, const Memory::AllocatorPtr& workerAllocator);
    ~Worker() override;

    int32 run() override;

    ThreadPool* mPool;
    Semaphore mIdle; ///< holds one unit exactly while the worker waits for work
    Memory::AllocatorPtr mWorkerAllocator;
};
} // namespace KORV::Common::Threading
