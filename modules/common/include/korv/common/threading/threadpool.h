#pragma once

#include "korv/common/container/nodecontainers.h"
#include "korv/common/container/vector.h"
#include "korv/common/threading/semaphore.h"
#include "korv/common/threading/spinlock.h"
#include "korv/common/threading/task.h"

#include <atomic>

namespace KORV::Common::Threading
{
class Thread;
class Worker;

/// A fixed set of threads that take tasks from one bounded queue, first in, first out. Several threads may append.
/// Tasks must come from a thread-safe allocator (such as the pool's own, see getAllocator), because a worker gives
/// them back.
class KORV_COMMON_API ThreadPool : public Memory::MemoryManaged
{
public:
    /// Upper limit of the pool's counts.
    static constexpr uint32 MAX_UNITS = 2147483646;

    /// Creates a pool on an allocator, which is put behind a lock unless it has one.
    /// @param threadCount  [0: one thread per processor]
    /// @param maxTasks  tasks that may wait in the queue. [0: two per thread]
    /// @return the pool; the caller deletes it.
    static ThreadPool* create(const Memory::AllocatorPtr& allocator, uint32 threadCount, uint32 maxTasks);
    /// The same, but the threads start with the first task: a pool that gets none costs next to nothing.
    static ThreadPool* createOnDemand(const Memory::AllocatorPtr& allocator, uint32 threadCount, uint32 maxTasks);

    /// Starts the threads. When the system refuses one, that is reported and the pool makes do with fewer.
    ThreadPool(uint32 threadCount, uint32 maxTasks);
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;
    /// Runs all queued tasks, then ends the threads.
    ~ThreadPool() override;

    /// Starts the threads unless they have been. Throws OutOfMemoryException; there are none then.
    void start();
    /// Queues a task behind all others; blocks while the queue is full. Owns the task from the call on, also when
    /// memory runs out. A null task is reported and refused. A pool without any thread runs the task at once.
    void appendTask(Task* task);
    /// The same in front of all others.
    void prependTask(Task* task);
    /// Takes the front entry, which is null when the worker shall end. For workers only, after they have taken a unit
    /// of mTasksAvailable.
    Task* getNextTask();
    /// Returns when the queue is empty and every worker waits for work. One thread at a time, and not while others
    /// append.
    void waitForTasks();
    /// Gives back what the workers keep of the memory of past tasks. The pool must be idle.
    void releaseUnusedMemory();

    /// Threads that run, or will with the first task.
    uint32 getNumThreads() const { return mStarted ? static_cast<uint32>(mThreads.size()) : mNumWanted; }
    uint32 getMaxTasks() const { return mMaxTasks; }
    /// One unit per queued entry.
    Semaphore& getTasksAvailable() { return mTasksAvailable; }

private:
    using TaskList = Container::List<Task*>;

    static constexpr uint32 LONGEST_PAUSE = 100; // between two looks at the queue [milliseconds]

    ThreadPool(uint32 threadCount, uint32 maxTasks, bool startAtOnce);
    template <class... Wanted>
    static ThreadPool* createOn(const Memory::AllocatorPtr& allocator, Wanted... wanted);
    bool startWorker();
    void stopWorkers();
    void runHere(Task* task);
    void queueTask(Task* task, bool atFront);

    SpinLock mLock; // guards the queue and mEmptyAwaited
    TaskList mTaskQueue;
    Semaphore mTasksAvailable;
    uint32 mMaxTasks = 0;
    Semaphore mFreeSlots;
    uint32 mNumWanted; // threads to start
    SpinLock mStartLock;
    std::atomic<bool> mStarted{false};
    Container::Vector<Thread*> mThreads;
    Container::Vector<Worker*> mWorkers;
    TaskList mEndEntries;  // null entries that will end the workers, made early: a destructor must not need memory
    Semaphore mQueueEmpty; // wakes waitForTasks
    bool mEmptyAwaited = false;
};
} // namespace KORV::Common::Threading
