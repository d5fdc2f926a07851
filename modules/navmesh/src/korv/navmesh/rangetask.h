#pragma once

#include "korv/common/threading/threadpool.h"
#include "korv/navmesh/runcontrol.h"
#include "korv/navmesh/taskerrors.h"

#include <algorithm>
#include <atomic>

namespace KORV::NavMesh
{
/// Tells one thread which ranges have ended, well or not.
class EndedRanges
{
public:
    EndedRanges(uint32 count, uint32 batch, Common::Memory::Allocator* allocator)
        : mBatch(batch), mEnded((count + batch - 1) / batch, 0, allocator)
    {
    }

    void add(uint32 begin)
    {
        std::atomic_ref<uint32>(mEnded[begin / mBatch]).store(1, std::memory_order_release);
        mOneEnded.signal();
    }

    /// Until the range that begins at an index has ended. All of them must have been queued.
    void waitFor(uint32 begin)
    {
        while (std::atomic_ref<uint32>(mEnded[begin / mBatch]).load(std::memory_order_acquire) == 0)
            mOneEnded.wait();
    }

private:
    uint32 mBatch;
    Vector<uint32> mEnded;
    Common::Threading::Semaphore mOneEnded{0, Common::Threading::ThreadPool::MAX_UNITS};
};

/// Does the work of one range of indices.
template <class Work>
class RangeTask : public Common::Threading::Task
{
public:
    /// @param ended  who wants to know the end of the task; may be null.
    RangeTask(const Work& work, TaskErrors& errors, EndedRanges* ended, uint32 begin, uint32 end)
        : mWork(work), mErrors(errors), mEnded(ended), mBegin(begin), mEnd(end)
    {
    }

    void run() override
    {
        mErrors.run([this] { mWork(mBegin, mEnd); });
        if (mEnded != nullptr)
            mEnded->add(mBegin);
    }

private:
    const Work& mWork;
    TaskErrors& mErrors;
    EndedRanges* mEnded;
    uint32 mBegin;
    uint32 mEnd;
};

/// Splits the steps of a stage over the workers of the pool and tells the host how far they are.
class RangeRunner
{
public:
    RangeRunner(Common::Threading::ThreadPool& pool, const RunControl& control, const char* stage)
        : mPool(pool), mControl(control), mStage(stage)
    {
    }

    /// The fractions of the stage at which the next steps begin and end.
    void setSpan(float begin, float end)
    {
        mBegin = begin;
        mEnd = end;
    }

    /// Calls work(begin, end) for the indices from 0 to @p count in ranges of @p batch. A single range is done at once
    /// on this thread, so that a small scene pays nothing. Throws what the first failing range threw, and RunCancelled;
    /// the pool is idle when this ends.
    template <class Work>
    void run(uint32 count, uint32 batch, const Work& work) const
    {
        if (count <= batch)
        {
            runHere(count, work);
            return;
        }
        TaskErrors errors;
        const WaitAtEnd waitAtEnd{mPool}; // the tasks refer to what is here
        queueRanges(count, batch, work, errors, nullptr);
        mPool.waitForTasks();
        errors.rethrow();
    }

    /// The same, and calls collect(begin, end) on this thread for one range after the other, each as soon as it is
    /// done: the workers go on with later ones meanwhile.
    template <class Work, class Collect>
    void run(uint32 count, uint32 batch, const Work& work, const Collect& collect) const
    {
        if (count <= batch)
        {
            runHere(count, work);
            if (count > 0)
                collect(uint32{0}, count);
            return;
        }
        TaskErrors errors;
        EndedRanges ended(count, batch, mPool.getMemory());
        const WaitAtEnd waitAtEnd{mPool};
        queueRanges(count, batch, work, errors, &ended);
        for (uint32 begin = 0; begin < count && !errors.hasError(); begin += std::min(batch, count - begin))
        {
            ended.waitFor(begin);
            if (!errors.hasError())
                collect(begin, begin + std::min(batch, count - begin));
        }
        mPool.waitForTasks();
        errors.rethrow();
    }

private:
    /// Lets no task outlive what it refers to.
    struct WaitAtEnd
    {
        ~WaitAtEnd() { mPool.waitForTasks(); }
        Common::Threading::ThreadPool& mPool;
    };

    template <class Work>
    void runHere(uint32 count, const Work& work) const
    {
        if (count > 0)
            work(uint32{0}, count);
        mControl.report(mStage, mEnd);
    }

    template <class Work>
    void queueRanges(uint32 count, uint32 batch, const Work& work, TaskErrors& errors, EndedRanges* ended) const
    {
        for (uint32 begin = 0; begin < count;)
        {
            const uint32 end = begin + std::min(batch, count - begin);
            mPool.appendTask(new (mPool.getAllocator()) RangeTask<Work>(work, errors, ended, begin, end));
            const float done = static_cast<float>(end) / static_cast<float>(count);
            mControl.report(mStage, std::min(mBegin + (mEnd - mBegin) * done, mEnd));
            begin = end;
        }
    }

    Common::Threading::ThreadPool& mPool;
    const RunControl& mControl;
    const char* mStage;
    float mBegin = 0.0f;
    float mEnd = 1.0f;
};

/// What the ranges of a step made, each on its own, to be put together in their order.
template <class T>
class RangeResults
{
public:
    RangeResults(uint32 count, uint32 batch, Common::Memory::Allocator* allocator) : mBatch(batch), mParts(allocator)
    {
        const uint32 numRanges = count / batch + 1;
        mParts.reserve(numRanges);
        for (uint32 i = 0; i < numRanges; ++i)
            mParts.emplace_back(allocator);
    }

    /// The results of the range that begins at an index.
    Vector<T>& getPart(uint32 begin) { return mParts[begin / mBatch]; }

    /// Calls a function with the results of each range in order.
    template <class Function>
    void forEachPart(const Function& function)
    {
        for (Vector<T>& part : mParts)
            function(part);
    }

    /// Moves all into one array.
    void moveTo(Vector<T>& all)
    {
        if (mParts.size() == 1)
        {
            all.swap(mParts[0]);
            return;
        }
        size_t size = 0;
        for (const Vector<T>& part : mParts)
            size += part.size();
        all.reserve(size);
        for (Vector<T>& part : mParts)
        {
            all.insert(all.end(), part.begin(), part.end());
            Vector<T>(part.get_allocator()).swap(part); // given back at once
        }
    }

private:
    uint32 mBatch;
    Vector<Vector<T>> mParts;
};
} // namespace KORV::NavMesh
