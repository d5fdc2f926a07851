// A bounded queue of tasks and a fixed set of workers that empty it.
//
// Idea: three counts keep everybody in step. mFreeSlots has a unit per free place of the queue, so producers block when
// it is full. mTasksAvailable has a unit per queued entry; a worker takes a unit first and an entry then, so it never
// finds the queue empty. Each worker's mIdle holds a unit exactly while the worker waits for work, so whoever can take
// (and put back) the units of all workers knows that the pool is idle.
//
// Ending: a null entry makes one worker leave its loop. The list nodes of these entries are made with the workers, so
// that the destructor needs no memory. mLock guards the queue alone and is never held while waiting, running a task,
// allocating or reporting.
#include "korv/common/threading/threadpool.h"

#include "korv/common/debug/assert.h"
#include "korv/common/debug/trace.h"
#include "korv/common/memory/freelistallocator.h"
#include "korv/common/memory/threadsafeallocator.h"
#include "korv/common/threading/thread.h"
#include "korv/common/threading/worker.h"

#include <algorithm>

namespace KORV::Common::Threading
{
template <class... Wanted>
ThreadPool* ThreadPool::createOn(const Memory::AllocatorPtr& allocator, Wanted... wanted)
{
    if (allocator->isThreadSafe())
        return new (allocator) ThreadPool(wanted...);
    const Memory::AllocatorPtr locked(new (allocator) Memory::ThreadSafeAllocator(allocator));
    return new (locked) ThreadPool(wanted...);
}

ThreadPool* ThreadPool::create(const Memory::AllocatorPtr& allocator, uint32 threadCount, uint32 maxTasks)
{
    return createOn(allocator, threadCount, maxTasks);
}

ThreadPool* ThreadPool::createOnDemand(const Memory::AllocatorPtr& allocator, uint32 threadCount, uint32 maxTasks)
{
    return createOn(allocator, threadCount, maxTasks, false);
}

ThreadPool::ThreadPool(uint32 threadCount, uint32 maxTasks) : ThreadPool(threadCount, maxTasks, true) {}

ThreadPool::ThreadPool(uint32 threadCount, uint32 maxTasks, bool startAtOnce)
    : mTaskQueue(getMemory()), mTasksAvailable(0, MAX_UNITS),
      mNumWanted(threadCount != 0 ? threadCount : Thread::getNumberOfProcessors()), mThreads(getMemory()),
      mWorkers(getMemory()), mEndEntries(getMemory()), mQueueEmpty(0, MAX_UNITS)
{
    const uint64 places = maxTasks != 0 ? maxTasks : uint64{2} * mNumWanted;
    mMaxTasks = static_cast<uint32>(std::min<uint64>(places, MAX_UNITS));
    mFreeSlots.init(mMaxTasks, MAX_UNITS);
    Debug::Trace::message(Debug::MessageText() << "KORV::Common::Threading::ThreadPool::ThreadPool"
                                               << " : "
                                               << "Number of threads: " << mNumWanted);
    if (startAtOnce)
        start();
}

ThreadPool::~ThreadPool()
{
    waitForTasks();
    stopWorkers();
}

void ThreadPool::start()
{
    if (mStarted.load(std::memory_order_acquire))
        return;
    const ScopedLock guard(mStartLock); // several threads may bring the first task
    if (mStarted.load(std::memory_order_relaxed))
        return;
    try
    {
        bool started = true;
        for (uint32 i = 0; i < mNumWanted && started; ++i)
            started = startWorker();
    }
    catch (...)
    {
        stopWorkers(); // of a constructor that throws no destructor will run
        throw;
    }
    mStarted.store(true, std::memory_order_release);
}

bool ThreadPool::startWorker()
{
    using Memory::FreeListAllocator;
    const Memory::AllocatorPtr memory(new (getAllocator())
                                          FreeListAllocator(getAllocator(), FreeListAllocator::SMALL_PAGE_BYTES));
    // Room first: what exists is then always listed, and stopWorkers finds it.
    mEndEntries.push_back(nullptr);
    mWorkers.push_back(nullptr);
    mThreads.push_back(nullptr);
    mWorkers.back() = new (getAllocator()) Worker(this, memory);
    mThreads.back() = new (getAllocator()) Thread(mWorkers.back(), "Worker");
    if (mThreads.back()->isValid())
    {
        mThreads.back()->setPriority(TPRIO_BELOW_NORMAL);
        return true;
    }
    // A worker without a thread would never be idle.
    delete mThreads.back();
    delete mWorkers.back();
    mThreads.pop_back();
    mWorkers.pop_back();
    mEndEntries.pop_back();
    return false;
}

void ThreadPool::stopWorkers()
{
    for (Thread* thread : mThreads)
    {
        if (thread == nullptr)
            continue;
        {
            const ScopedLock guard(mLock);
            mTaskQueue.splice(mTaskQueue.end(), mEndEntries, mEndEntries.begin());
        }
        mTasksAvailable.signal();
    }
    for (Thread* thread : mThreads)
    {
        if (thread != nullptr)
            thread->join();
        delete thread;
    }
    mThreads.clear();
    for (Worker* worker : mWorkers)
        delete worker;
    mWorkers.clear();
    mEndEntries.clear(); // those of threads that have never started
}

void ThreadPool::appendTask(Task* task)
{
    if (KORV_COMMON_ASSERT("KORV::Common::Threading::ThreadPool::appendTask", task != nullptr, "task",
                           "Cannot add null-pointer task"))
        queueTask(task, false);
}

void ThreadPool::prependTask(Task* task)
{
    if (KORV_COMMON_ASSERT("KORV::Common::Threading::ThreadPool::prependTask", task != nullptr, "task",
                           "Cannot add null-pointer task"))
        queueTask(task, true);
}

void ThreadPool::queueTask(Task* task, bool atFront)
{
    TaskList entry(getMemory());
    try
    {
        start();
        if (!mThreads.empty())
            entry.push_back(task);
    }
    catch (...)
    {
        delete task;
        throw;
    }
    if (mThreads.empty())
    {
        runHere(task);
        return;
    }
    mFreeSlots.wait();
    {
        const ScopedLock guard(mLock);
        mTaskQueue.splice(atFront ? mTaskQueue.begin() : mTaskQueue.end(), entry);
    }
    mTasksAvailable.signal();
}

void ThreadPool::runHere(Task* task)
{
    task->mTaskAllocator = getAllocator();
    try
    {
        task->execute();
    }
    catch (...)
    {
        delete task;
        throw;
    }
    delete task;
}

Task* ThreadPool::getNextTask()
{
    TaskList entry(getMemory());
    bool wakeWaiter = false;
    {
        const ScopedLock guard(mLock);
        if (!mTaskQueue.empty())
            entry.splice(entry.begin(), mTaskQueue, mTaskQueue.begin());
        wakeWaiter = mEmptyAwaited && mTaskQueue.empty();
        if (wakeWaiter)
            mEmptyAwaited = false;
    }
    if (wakeWaiter)
        mQueueEmpty.signal();
    if (!KORV_COMMON_ASSERT("KORV::Common::Threading::ThreadPool::getNextTask", !entry.empty(), "!mTaskQueue.empty()",
                            "Task Queue is empty !"))
        return nullptr;
    Task* task = entry.front();
    if (task != nullptr) // a null entry has taken no place
        mFreeSlots.signal();
    return task;
}

void ThreadPool::waitForTasks()
{
    for (;;)
    {
        {
            const ScopedLock guard(mLock);
            mEmptyAwaited = !mTaskQueue.empty();
            if (!mEmptyAwaited)
                break;
        }
        mQueueEmpty.tryWaitFor(LONGEST_PAUSE);
    }
    for (Worker* worker : mWorkers)
    {
        worker->mIdle.wait();
        worker->mIdle.signal();
    }
}

void ThreadPool::releaseUnusedMemory()
{
    for (Worker* worker : mWorkers)
        worker->mWorkerAllocator->releaseUnusedMemory();
}
} // namespace KORV::Common::Threading
