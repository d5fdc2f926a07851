#pragma once

#include "korv/common/api.h"
#include "korv/common/memory/memorymanaged.h"
#include "korv/common/threading/task.h"
#include "korv/common/types.h"

namespace KORV::Common::Threading
{
/// The operating system's name for a thread.
using ThreadHandle = uint64;
inline constexpr ThreadHandle THREAD_INVALID_HANDLE = 0;

/// Thread priorities; what lies between them is allowed too.
enum ThreadPriority : int32
{
    TPRIO_IDLE = -15,
    TPRIO_LOWEST = -2,
    TPRIO_BELOW_NORMAL = -1,
    TPRIO_NORMAL = 0,
    TPRIO_ABOVE_NORMAL = 1,
    TPRIO_HIGHEST = 2,
    TPRIO_TIME_CRITICAL = 15
};

/// One thread of the operating system. One thread at a time may use the object.
class KORV_COMMON_API Thread : public Memory::MemoryManaged
{
public:
    using StartFunction = int32 (*)(void* argument);

    /// Starts a thread at once. A failure is reported; the object is then without a thread.
    /// @param name  shown by debuggers; the first 26 characters count, fewer where the system takes fewer.
    /// @param stackSize  [bytes; 0: the system's default]
    Thread(StartFunction start, void* argument, const char* name, uint32 stackSize = 0);
    /// Runs an object, which must outlive the thread, and leaves the result in its mExitCode.
    Thread(Threaded* threaded, const char* name, uint32 stackSize = 0);
    /// Wraps a thread that belongs to somebody else; its handle is never closed.
    explicit Thread(ThreadHandle handle);
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;
    /// A thread that has not been joined goes on by itself.
    ~Thread() override;

    /// Waits for the thread's end. May be called again.
    /// @return its exit code; -1 after a report when there is no thread, waiting for it failed or it was cancelled.
    int32 join();
    /// Gives the handle up; the thread goes on. Refused, after a report, for a wrapped one.
    void closeHandle();
    /// Hands the handle out without closing it; THREAD_INVALID_HANDLE once the thread has been joined.
    ThreadHandle detach();

    bool isValid() const { return mHandle != THREAD_INVALID_HANDLE; }

    /// @param priority  at most TPRIO_TIME_CRITICAL, more is reported and refused. The system follows as far as it can.
    void setPriority(int32 priority);
    /// @return the priority set last, 0 at first.
    int32 getPriority() const;

    /// The calling thread, wrapped.
    static Thread getCurrentThread();
    static uint32 getCurrentThreadId();
    /// Ends the calling thread.
    [[noreturn]] static void exit(int32 code);
    static void sleep(uint32 milliseconds);
    /// @return at least 1.
    static uint32 getNumberOfProcessors();

private:
    void start(StartFunction function, void* argument, const char* name, uint32 stackSize);

    ThreadHandle mHandle = THREAD_INVALID_HANDLE;
    bool mPsydoInstance = false;
    bool mJoined = false;
    int32 mJoinedExitCode = -1;
    int32 mPriority = TPRIO_NORMAL;
};
} // namespace KORV::Common::Threading
