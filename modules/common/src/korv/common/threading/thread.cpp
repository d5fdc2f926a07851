#include "korv/common/threading/thread.h"

#include "korv/common/debug/assert.h"
#include "korv/common/platform/thread.h"

#include <cstring>

namespace KORV::Common::Threading
{
namespace
{
constexpr size_t MAX_THREAD_NAME = 26;

int32 runThreaded(void* argument)
{
    Threaded* threaded = static_cast<Threaded*>(argument);
    threaded->mExitCode = threaded->run();
    return threaded->mExitCode;
}
} // namespace

Thread::Thread(StartFunction function, void* argument, const char* name, uint32 stackSize)
{
    start(function, argument, name, stackSize);
}

Thread::Thread(Threaded* threaded, const char* name, uint32 stackSize)
{
    start(&runThreaded, threaded, name, stackSize);
}

Thread::Thread(ThreadHandle handle) : mHandle(handle), mPsydoInstance(true) {}

Thread::~Thread()
{
    if (!mPsydoInstance)
        closeHandle();
}

void Thread::start(StartFunction function, void* argument, const char* name, uint32 stackSize)
{
    mHandle = Platform::createThread(function, argument, stackSize);
    if (!KORV_COMMON_ASSERT("KORV::Common::Threading::Thread::Thread", mHandle != THREAD_INVALID_HANDLE,
                            "mHandle != THREAD_INVALID_HANDLE", "cannot create new thread"))
        return;
    char shownName[MAX_THREAD_NAME + 1] = {};
    std::strncpy(shownName, name != nullptr ? name : "", MAX_THREAD_NAME);
    Platform::setThreadName(mHandle, shownName);
}

int32 Thread::join()
{
    if (mJoined)
        return mJoinedExitCode;
    if (!KORV_COMMON_ASSERT("KORV::Common::Threading::Thread::join", mHandle != THREAD_INVALID_HANDLE,
                            "mHandle != THREAD_INVALID_HANDLE", "Invalid thread handle"))
        return -1;
    bool hasExitCode = false;
    mJoined = Platform::joinThread(mHandle, mJoinedExitCode, hasExitCode);
    if (!KORV_COMMON_ASSERT("KORV::Common::Threading::Thread::join", mJoined, "retVal != WAIT_FAILED",
                            "cannot join thread"))
        return -1;
    [[maybe_unused]] const bool ended = KORV_COMMON_ASSERT("KORV::Common::Threading::Thread::join", hasExitCode,
                                                           "retVal", "cannot get exit code from joined thread");
    return mJoinedExitCode;
}

void Thread::closeHandle()
{
    if (!KORV_COMMON_ASSERT("KORV::Common::Threading::Thread::closeHandle", !mPsydoInstance, "!mPsydoInstance",
                            "cannot close pysdo instances of thread classes"))
        return;
    if (mHandle != THREAD_INVALID_HANDLE && !mJoined)
        Platform::closeThread(mHandle);
    mHandle = THREAD_INVALID_HANDLE;
    mJoined = false;
}

ThreadHandle Thread::detach()
{
    const ThreadHandle handle = mJoined ? THREAD_INVALID_HANDLE : mHandle;
    mHandle = THREAD_INVALID_HANDLE;
    mJoined = false;
    return handle;
}

void Thread::setPriority(int32 priority)
{
    if (!KORV_COMMON_ASSERT("KORV::Common::Threading::Thread::setPriority", priority <= TPRIO_TIME_CRITICAL,
                            "priority <= TPRIO_TIME_CRITICAL", "priority out of range"))
        return;
    if (!KORV_COMMON_ASSERT("KORV::Common::Threading::Thread::setPriority", mHandle != THREAD_INVALID_HANDLE,
                            "mHandle != THREAD_INVALID_HANDLE", "Invalid thread handle"))
        return;
    mPriority = priority;
    if (!mJoined)
        Platform::setThreadPriority(mHandle, priority);
}

int32 Thread::getPriority() const
{
    [[maybe_unused]] const bool valid =
        KORV_COMMON_ASSERT("KORV::Common::Threading::Thread::getPriority", mHandle != THREAD_INVALID_HANDLE,
                           "mHandle != THREAD_INVALID_HANDLE", "Invalid thread handle");
    return mPriority;
}

Thread Thread::getCurrentThread()
{
    return Thread(Platform::getCurrentThread());
}

uint32 Thread::getCurrentThreadId()
{
    return Platform::getCurrentThreadId();
}

void Thread::exit(int32 code)
{
    Platform::exitThread(code);
}

void Thread::sleep(uint32 milliseconds)
{
    Platform::sleepThread(milliseconds);
}

uint32 Thread::getNumberOfProcessors()
{
    return Platform::getNumberOfProcessors();
}
} // namespace KORV::Common::Threading
