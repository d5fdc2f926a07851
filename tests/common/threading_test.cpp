#include "korv/common/callback/callbackallocator.h"
#include "korv/common/interface.h"
#include "korv/common/memory/memoryexception.h"
#include "korv/common/threading/thread.h"
#include "korv/common/threading/threadpool.h"
#include "korv/common/threading/worker.h"
#include "support/test.h"

#include <atomic>
#include <memory>
#include <pthread.h>
#include <thread>
#include <vector>

using namespace KORV;
using namespace KORV::Common;
using namespace KORV::Common::Threading;

namespace
{
constexpr uint32 MANY = 1000;

/// Blocks the thread that runs it until the test lets it go.
struct Gate
{
    Semaphore mEntered{0, MANY};
    Semaphore mOpen{0, MANY};
};

class GateTask : public Task
{
public:
    explicit GateTask(Gate& gate) : mGate(gate) {}
    void run() override
    {
        mGate.mEntered.signal();
        mGate.mOpen.wait();
    }

private:
    Gate& mGate;
};

/// Writes its number down, and uses the worker's memory.
class NumberTask : public Task
{
public:
    NumberTask(int number, std::vector<int>& numbers, SpinLock& lock) : mNumber(number), mNumbers(numbers), mLock(lock)
    {
    }
    void run() override
    {
        EXPECT_TRUE(mRunning && !mFinished);
        const Container::Vector<int> scratch(static_cast<size_t>(mNumber + 1), mNumber, mTaskAllocator.get());
        const ScopedLock guard(mLock);
        mNumbers.push_back(scratch.back());
    }

private:
    int mNumber;
    std::vector<int>& mNumbers;
    SpinLock& mLock;
};

/// A pool with a list that its tasks write to.
struct PoolScene
{
    PoolScene(uint32 threads, uint32 maxTasks)
        : mPool(ThreadPool::create(Interface::getSharedAllocator(), threads, maxTasks))
    {
    }
    Task* gate() { return new (mPool->getAllocator()) GateTask(mGate); }
    Task* number(int value) { return new (mPool->getAllocator()) NumberTask(value, mNumbers, mLock); }

    Gate mGate;
    std::vector<int> mNumbers;
    SpinLock mLock;
    std::unique_ptr<ThreadPool> mPool;
};

int32 returnArgument(void* argument)
{
    return *static_cast<int32*>(argument);
}

int32 exitEarly(void*)
{
    Thread::exit(-7);
}

int32 cancelYourself(void*)
{
    pthread_cancel(pthread_self());
    pthread_testcancel();
    return 0;
}
} // namespace

KORV_TEST(Semaphore, countsUpToItsMaximum)
{
    Semaphore semaphore(1, 2);
    semaphore.signal();
    semaphore.signal();
    expectReports({"res > 0\nError Message: Cannot release the semaphore"});
    EXPECT_TRUE(semaphore.tryWait());
    semaphore.wait();
    EXPECT_FALSE(semaphore.tryWait());
    EXPECT_FALSE(semaphore.tryWaitFor(1));
}

KORV_TEST(Semaphore, isWithoutFunctionUntilItsCountsAreValid)
{
    Semaphore semaphore;
    semaphore.wait();
    semaphore.init(3, 2);
    semaphore.signal();
    expectReports({"res != WAIT_FAILED\nError Message: Failed to wait on a semaphore",
                   "mHandle\nError Message: Cannot create semaphore",
                   "res > 0\nError Message: Cannot release the semaphore"});
    EXPECT_FALSE(semaphore.tryWait());
    semaphore.init(1, 1);
    EXPECT_TRUE(semaphore.tryWait());
}

KORV_TEST(Thread, exitCodeComesBackFromEveryJoin)
{
    int32 code = 42;
    Thread function(&returnArgument, &code, "function", 65536);
    EXPECT_EQ(function.join(), 42);
    EXPECT_EQ(function.join(), 42);
    EXPECT_EQ(function.detach(), THREAD_INVALID_HANDLE);

    struct Answer : Threaded
    {
        int32 run() override { return 5; }
    } answer;
    EXPECT_EQ(answer.mExitCode, -1);
    Thread object(&answer, "object");
    EXPECT_EQ(object.join(), 5);
    EXPECT_EQ(answer.mExitCode, 5);

    Thread early(&exitEarly, nullptr, "early");
    EXPECT_EQ(early.join(), -7);

    Thread owner(&returnArgument, &code, "owner");
    Thread wrapper(owner.detach());
    EXPECT_EQ(wrapper.join(), 42);
}

KORV_TEST(Thread, misuseIsReported)
{
    Thread none(THREAD_INVALID_HANDLE);
    EXPECT_EQ(none.join(), -1);
    none.setPriority(TPRIO_NORMAL);
    none.getPriority();
    const std::string invalid = "mHandle != THREAD_INVALID_HANDLE\nError Message: Invalid thread handle";
    expectReports({invalid, invalid, invalid});

    Thread self = Thread::getCurrentThread();
    EXPECT_TRUE(self.isValid());
    EXPECT_EQ(self.join(), -1);
    self.closeHandle();
    self.setPriority(16);
    expectReports({"retVal != WAIT_FAILED\nError Message: cannot join thread",
                   "!mPsydoInstance\nError Message: cannot close pysdo instances of thread classes",
                   "priority <= TPRIO_TIME_CRITICAL\nError Message: priority out of range"});
    EXPECT_EQ(self.getPriority(), 0);

    Thread cancelled(&cancelYourself, nullptr, "cancelled");
    EXPECT_EQ(cancelled.join(), -1);
    expectReports({"retVal\nError Message: cannot get exit code from joined thread"});
}

KORV_TEST(Thread, nameAndPriorityReachTheSystem)
{
    struct Named : Threaded
    {
        int32 run() override
        {
            mGo.wait();
            pthread_getname_np(pthread_self(), mName, sizeof(mName));
            mId = Thread::getCurrentThreadId();
            return 0;
        }
        Semaphore mGo{0, 1};
        char mName[64] = {};
        uint32 mId = 0;
    } named;
    Thread thread(&named, "abcdefghijklmnopqrstuvwxyz0123456789");
    thread.setPriority(-1);
    EXPECT_EQ(thread.getPriority(), -1);
    named.mGo.signal();
    thread.join();
    EXPECT_STREQ(named.mName, "abcdefghijklmno"); // 15 characters are all that this system takes
    EXPECT_NE(named.mId, Thread::getCurrentThreadId());
    EXPECT_GE(Thread::getNumberOfProcessors(), 1u);
}

KORV_TEST(ThreadPool, takesItsSizeFromTheMachineUnlessTold)
{
    const uint32 processors = Thread::getNumberOfProcessors();
    const struct
    {
        uint32 mThreads;
        uint32 mTasks;
        uint32 mExpectedThreads;
        uint32 mExpectedTasks;
    } rows[] = {{0, 0, processors, 2 * processors}, {3, 0, 3, 6}, {1, 5, 1, 5}, {1, UINT32_MAX, 1, 2147483646}};
    for (const auto& row : rows)
    {
        mTraces.clear();
        const PoolScene scene(row.mThreads, row.mTasks);
        EXPECT_EQ(scene.mPool->getNumThreads(), row.mExpectedThreads);
        EXPECT_EQ(scene.mPool->getMaxTasks(), row.mExpectedTasks);
        ASSERT_EQ(mTraces.size(), 1u);
        EXPECT_EQ(mTraces[0].mType, 1u);
        EXPECT_EQ(mTraces[0].mText, "KORV::Common::Threading::ThreadPool::ThreadPool : Number of threads: " +
                                        std::to_string(row.mExpectedThreads));
        scene.mPool->waitForTasks();
    }
}

KORV_TEST(ThreadPool, runsTasksInOrderAndPrependedOnesFirst)
{
    PoolScene scene(1, 10);
    scene.mPool->appendTask(scene.gate());
    scene.mGate.mEntered.wait();
    scene.mPool->appendTask(scene.number(2));
    scene.mPool->appendTask(scene.number(3));
    scene.mPool->prependTask(scene.number(1));
    scene.mPool->appendTask(nullptr);
    scene.mPool->prependTask(nullptr);
    const std::string refused = "task\nError Message: Cannot add null-pointer task";
    expectReports({refused, refused});
    scene.mGate.mOpen.signal();
    scene.mPool->waitForTasks();
    EXPECT_EQ(scene.mNumbers, (std::vector<int>{1, 2, 3}));
}

KORV_TEST(ThreadPool, fullQueueHoldsTheProducerUp)
{
    PoolScene scene(2, 4);
    for (int i = 0; i < 2; ++i)
        scene.mPool->appendTask(scene.gate());
    scene.mGate.mEntered.wait();
    scene.mGate.mEntered.wait();
    for (int i = 0; i < 4; ++i)
        scene.mPool->appendTask(scene.number(i));

    struct Producer : Threaded
    {
        explicit Producer(PoolScene& scene) : mScene(scene) {}
        int32 run() override
        {
            mScene.mPool->appendTask(mScene.number(4));
            mDone.signal();
            return 0;
        }
        PoolScene& mScene;
        Semaphore mDone{0, 1};
    } producer(scene);
    Thread thread(&producer, "producer");
    EXPECT_FALSE(producer.mDone.tryWaitFor(50));
    scene.mGate.mOpen.signal();
    producer.mDone.wait();
    scene.mGate.mOpen.signal();
    thread.join();
    scene.mPool->waitForTasks();
    EXPECT_EQ(scene.mNumbers.size(), 5u);
}

KORV_TEST(ThreadPool, waitingEndsWhenAllTasksHaveRun)
{
    PoolScene scene(4, 0);
    scene.mPool->waitForTasks();
    for (int round = 1; round <= 100; ++round)
    {
        for (int i = 0; i < 20; ++i)
            scene.mPool->appendTask(scene.number(i));
        scene.mPool->waitForTasks();
        ASSERT_EQ(scene.mNumbers.size(), static_cast<size_t>(20 * round)); // no lock: nobody else may be at it
    }
}

KORV_TEST(ThreadPool, runsWhatIsQueuedBeforeItEnds)
{
    PoolScene scene(3, 100);
    for (int i = 0; i < 100; ++i)
        scene.mPool->appendTask(scene.number(i));
    scene.mPool.reset();
    EXPECT_EQ(scene.mNumbers.size(), 100u);
}

KORV_TEST(ThreadPool, startsOnDemandWithTheFirstTask)
{
    Testing::CountingMemory* memory = new Testing::CountingMemory;
    const SharedPtr<Callback::MemoryCallback> callback(memory);
    const Memory::AllocatorPtr base(new (callback) Callback::CallbackAllocator);
    class CountTask : public Task
    {
    public:
        explicit CountTask(std::atomic<int>& count) : mCount(count) {}
        void run() override { ++mCount; }

    private:
        std::atomic<int>& mCount;
    };
    std::atomic<int> count = 0;
    {
        const std::unique_ptr<ThreadPool> pool(ThreadPool::createOnDemand(base, 3, 0));
        EXPECT_EQ(pool->getNumThreads(), 3u);
        pool->waitForTasks();
        for (const int64 allowed : {1, 7}) // the task, and then not all of the workers
        {
            memory->mFailAfter = allowed;
            Testing::expectThrow<Memory::OutOfMemoryException>(
                [&] { pool->appendTask(new (pool->getAllocator()) CountTask(count)); });
        }
        memory->mFailAfter = -1;
        std::vector<std::jthread> producers;
        producers.reserve(4);
        for (int i = 0; i < 4; ++i)
            producers.emplace_back([&] { pool->appendTask(new (pool->getAllocator()) CountTask(count)); });
        producers.clear();
        pool->waitForTasks();
        EXPECT_EQ(count, 4);
        EXPECT_EQ(pool->getNumThreads(), 3u);
    }
    EXPECT_TRUE(base->isClean());
    const std::unique_ptr<ThreadPool> unused(ThreadPool::createOnDemand(Interface::getSharedAllocator(), 2, 0));
}

KORV_TEST(ThreadPool, endsCleanlyWhereverMemoryRunsOut)
{
    bool complete = false;
    for (int64 allowed = 0; !complete && allowed < 500; ++allowed)
    {
        KORV_CONTEXT("allocations allowed: " << allowed);
        Testing::CountingMemory* memory = new Testing::CountingMemory;
        const SharedPtr<Callback::MemoryCallback> callback(memory);
        const Memory::AllocatorPtr base(new (callback) Callback::CallbackAllocator);
        memory->mFailAfter = allowed;
        try
        {
            const std::unique_ptr<ThreadPool> pool(ThreadPool::create(base, 3, 0)); // on a locked wrapper of its own
            EXPECT_TRUE(pool->getAllocator()->isThreadSafe());
            class PlainTask : public Task
            {
                void run() override {}
            };
            for (int i = 0; i < 3; ++i)
                pool->appendTask(new (pool->getAllocator()) PlainTask);
            complete = true;
        }
        catch (Memory::OutOfMemoryException* error)
        {
            delete error;
        }
        EXPECT_TRUE(base->isClean());
    }
    EXPECT_TRUE(complete);
}
