#pragma once

#include "korv/common/api.h"
#include "korv/common/types.h"

#include <condition_variable>
#include <mutex>

namespace KORV::Common::Threading
{
/// Counts units that threads wait for, up to a maximum. Any thread may wait and signal.
class KORV_COMMON_API Semaphore
{
public:
    /// A semaphore that fails every operation until init is called.
    Semaphore() = default;
    Semaphore(uint32 initial, uint32 maximum);
    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;

    /// Sets the units and their limit. A limit of 0 or more initial units than that are reported, and the semaphore is
    /// then without function. Not while another thread uses it.
    void init(uint32 initial, uint32 maximum);
    /// Takes a unit, waiting for one as long as it takes. Reports and returns at once before init.
    void wait();
    /// @return whether a unit was there to take.
    bool tryWait();
    /// As tryWait, but waits for a unit for that time at most.
    bool tryWaitFor(uint32 milliseconds);
    /// Adds a unit and wakes one waiting thread. A unit beyond the maximum is reported and not added.
    void signal();

private:
    std::mutex mMutex;
    std::condition_variable mUnitAdded;
    uint32 mCount = 0;
    uint32 mMaximum = 0; // 0 until init
};
} // namespace KORV::Common::Threading
