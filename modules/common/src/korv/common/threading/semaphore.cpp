#include "korv/common/threading/semaphore.h"

#include "korv/common/debug/assert.h"

#include <chrono>

namespace KORV::Common::Threading
{
Semaphore::Semaphore(uint32 initial, uint32 maximum)
{
    init(initial, maximum);
}

void Semaphore::init(uint32 initial, uint32 maximum)
{
    const bool valid = maximum > 0 && initial <= maximum;
    {
        const std::lock_guard<std::mutex> guard(mMutex);
        mCount = valid ? initial : 0;
        mMaximum = valid ? maximum : 0;
    }
    [[maybe_unused]] const bool created =
        KORV_COMMON_ASSERT("KORV::Common::Threading::Semaphore::init", valid, "mHandle", "Cannot create semaphore");
}

void Semaphore::wait()
{
    bool valid;
    {
        std::unique_lock<std::mutex> guard(mMutex);
        valid = mMaximum > 0;
        mUnitAdded.wait(guard, [this] { return mCount > 0 || mMaximum == 0; });
        if (mCount > 0)
            --mCount;
    }
    [[maybe_unused]] const bool waited = KORV_COMMON_ASSERT("KORV::Common::Threading::Semaphore::wait", valid,
                                                            "res != WAIT_FAILED", "Failed to wait on a semaphore");
}

bool Semaphore::tryWait()
{
    const std::lock_guard<std::mutex> guard(mMutex);
    if (mCount == 0)
        return false;
    --mCount;
    return true;
}

bool Semaphore::tryWaitFor(uint32 milliseconds)
{
    std::unique_lock<std::mutex> guard(mMutex);
    if (!mUnitAdded.wait_for(guard, std::chrono::milliseconds(milliseconds), [this] { return mCount > 0; }))
        return false;
    --mCount;
    return true;
}

void Semaphore::signal()
{
    bool added;
    {
        // Notified under the lock: once it is free, the woken thread may destroy the semaphore.
        const std::lock_guard<std::mutex> guard(mMutex);
        added = mCount < mMaximum;
        if (added)
        {
            ++mCount;
            mUnitAdded.notify_one();
        }
    }
    [[maybe_unused]] const bool released = KORV_COMMON_ASSERT("KORV::Common::Threading::Semaphore::signal", added,
                                                              "res > 0", "Cannot release the semaphore");
}
} // namespace KORV::Common::Threading
