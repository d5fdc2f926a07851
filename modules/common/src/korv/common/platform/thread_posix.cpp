#include "korv/common/platform/thread.h"

#include "korv/common/memory/stlallocator.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <pthread.h>
#include <sched.h>
#include <unistd.h>

namespace KORV::Common::Platform
{
namespace
{
/// What a new thread needs to begin; it frees the record itself, since nobody else knows when it has read it.
struct Entry
{
    ThreadMain mMain;
    void* mArgument;
    Memory::Allocator* mAllocator;
};

// pthread_t is a number on some systems and a pointer on others.
static_assert(sizeof(pthread_t) <= sizeof(uint64));

uint64 toHandle(pthread_t thread)
{
    uint64 handle = 0;
    std::memcpy(&handle, &thread, sizeof(thread));
    return handle;
}

pthread_t toThread(uint64 handle)
{
    pthread_t thread;
    std::memcpy(&thread, &handle, sizeof(thread));
    return thread;
}

// An exit code is extended by zeros, so that none looks like PTHREAD_CANCELED, which is all ones.
static_assert(sizeof(void*) > sizeof(int32));

void* toResult(int32 exitCode)
{
    return reinterpret_cast<void*>(std::uintptr_t{static_cast<uint32>(exitCode)});
}

void freeEntry(Entry* entry)
{
    Memory::deallocateAligned(*entry->mAllocator, entry, alignof(Entry));
}

void* enterThread(void* argument)
{
    const Entry entry = *static_cast<Entry*>(argument);
    freeEntry(static_cast<Entry*>(argument));
    return toResult(entry.mMain(entry.mArgument));
}

size_t getStackSize(uint32 wanted)
{
    const size_t page = static_cast<size_t>(std::max(sysconf(_SC_PAGESIZE), 4096l));
    const size_t size = std::max<size_t>(wanted, static_cast<size_t>(PTHREAD_STACK_MIN));
    return (size + page - 1) / page * page;
}
} // namespace

uint64 createThread(ThreadMain main, void* argument, uint32 stackSize)
{
    Memory::Allocator* allocator = Memory::getDefaultAllocator();
    void* block = Memory::allocateAligned(*allocator, sizeof(Entry), alignof(Entry));
    Entry* entry = ::new (block) Entry{main, argument, allocator};

    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    if (stackSize != 0)
        pthread_attr_setstacksize(&attributes, getStackSize(stackSize));
    pthread_t thread;
    const bool started = pthread_create(&thread, &attributes, &enterThread, entry) == 0;
    pthread_attr_destroy(&attributes);
    if (!started)
    {
        freeEntry(entry);
        return 0;
    }
    return toHandle(thread);
}

bool joinThread(uint64 handle, int32& exitCode, bool& hasExitCode)
{
    void* result = nullptr;
    if (pthread_join(toThread(handle), &result) != 0)
        return false;
    hasExitCode = result != PTHREAD_CANCELED;
    if (hasExitCode)
        exitCode = static_cast<int32>(static_cast<uint32>(reinterpret_cast<std::uintptr_t>(result)));
    return true;
}

void closeThread(uint64 handle)
{
    pthread_detach(toThread(handle));
}

void setThreadName(uint64 handle, const char* name)
{
    constexpr size_t MAX_SYSTEM_NAME = 15; // Linux refuses longer ones
    char text[MAX_SYSTEM_NAME + 1] = {};
    std::strncpy(text, name, MAX_SYSTEM_NAME);
    pthread_setname_np(toThread(handle), text);
}

void setThreadPriority(uint64 handle, int32 priority)
{
    // Without privileges a thread can only step back: the batch class does so gently, the idle class altogether.
    int policy = SCHED_OTHER;
    if (priority <= -15)
        policy = SCHED_IDLE;
    else if (priority < 0)
        policy = SCHED_BATCH;
    sched_param parameter = {};
    pthread_setschedparam(toThread(handle), policy, &parameter);
}

uint64 getCurrentThread()
{
    return toHandle(pthread_self());
}

uint32 getCurrentThreadId()
{
    return static_cast<uint32>(gettid());
}

void exitThread(int32 exitCode)
{
    pthread_exit(toResult(exitCode));
}

void sleepThread(uint32 milliseconds)
{
    timespec left = {};
    left.tv_sec = static_cast<time_t>(milliseconds / 1000);
    left.tv_nsec = static_cast<long>(milliseconds % 1000) * 1000000l;
    while (nanosleep(&left, &left) != 0 && errno == EINTR)
    {
    }
}

uint32 getNumberOfProcessors()
{
    return static_cast<uint32>(std::max(sysconf(_SC_NPROCESSORS_ONLN), 1l));
}
} // namespace KORV::Common::Platform
