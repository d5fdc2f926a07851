#pragma once

#include "korv/common/api.h"
#include "korv/common/memory/memorymanaged.h"
#include "korv/common/types.h"

#include <atomic>

namespace KORV::Common::Threading
{
/// What a Thread runs.
class KORV_COMMON_API Threaded : public Memory::MemoryManaged
{
public:
    ~Threaded() override;
    /// @return the thread's exit code. Nothing may be thrown out of it.
    virtual int32 run() = 0;

    int32 mExitCode = -1; ///< result of run; look at it after the thread has been joined
};

/// A piece of work for a ThreadPool, which deletes it when it has run.
class KORV_COMMON_API Task : public Memory::MemoryManaged
{
public:
    ~Task() override;
    /// Does the work on a thread of the pool. Nothing may be thrown out of it: workers don't catch.
    virtual void run() = 0;
    /// Runs the task and keeps the two flags.
    void execute();

    std::atomic<bool> mRunning{false};  ///< while run executes; any thread may look
    std::atomic<bool> mFinished{false}; ///< once run has returned; any thread may look
    /// The running worker's own allocator, without a lock: only for what is given back before run returns.
    Memory::AllocatorPtr mTaskAllocator;
};
} // namespace KORV::Common::Threading
