#pragma once

#include "korv/common/exceptions/exception.h"
#include "korv/common/memory/memoryexception.h"
#include "korv/common/memory/stlallocator.h"
#include "korv/common/threading/spinlock.h"

#include <atomic>
#include <exception>
#include <new>
#include <utility>

namespace KORV::NavMesh
{
/// Carries the first failure of a set of tasks from the workers, which must not let anything escape, to the thread that
/// waits for them. The object must outlive the tasks.
class TaskErrors
{
public:
    TaskErrors() = default;
    ~TaskErrors() { delete mError; }
    TaskErrors(const TaskErrors&) = delete;
    TaskErrors& operator=(const TaskErrors&) = delete;

    /// Does a piece of work and captures what it throws. Nothing is done once some task has failed.
    template <class Work>
    void run(const Work& work) noexcept
    {
        if (hasError())
            return;
        try
        {
            work();
        }
        catch (Common::Exceptions::Exception* error)
        {
            capture(error);
        }
        catch (...)
        {
            captureForeign();
        }
    }

    /// Takes over an exception that is being handled; all but the first are deleted. To be called inside the handler
    /// that caught it, because the type it was thrown with is kept too.
    void capture(Common::Exceptions::Exception* error) noexcept
    {
        const Common::Threading::ScopedLock guard(mLock);
        if (mError != nullptr)
        {
            delete error;
            return;
        }
        mError = error;
        mThrown = std::current_exception();
        mFailed.store(true, std::memory_order_release);
    }

    /// Whether a task has failed; the others then return early.
    bool hasError() const { return mFailed.load(std::memory_order_acquire); }

    /// Throws the first failure with the type it had, if there was one; the catcher owns it. Call it when the pool is
    /// idle.
    void rethrow()
    {
        if (!hasError())
            return;
        mError = nullptr;
        mFailed.store(false, std::memory_order_release);
        std::rethrow_exception(std::exchange(mThrown, nullptr));
    }

private:
    /// Turns the standard library's exception that is being handled into one of the tree.
    void captureForeign() noexcept
    {
        try
        {
            translateCurrent();
        }
        catch (Common::Exceptions::Exception* error)
        {
            capture(error);
        }
    }

    [[noreturn]] static void translateCurrent()
    {
        try
        {
            throw;
        }
        catch (const std::bad_alloc&)
        {
            Common::Memory::throwOutOfMemory();
        }
        catch (const std::exception& error)
        {
            throw new Common::Exceptions::Exception(Common::BasicString(error.what()));
        }
        catch (...)
        {
            throw new Common::Exceptions::Exception(Common::BasicString("a task failed"));
        }
    }

    Common::Threading::SpinLock mLock;
    std::atomic<bool> mFailed{false};
    Common::Exceptions::Exception* mError = nullptr;
    std::exception_ptr mThrown;
};
} // namespace KORV::NavMesh
