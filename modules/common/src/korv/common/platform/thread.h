#pragma once

#include "korv/common/types.h"

namespace KORV::Common::Platform
{
// Threads of the operating system. A handle is 0 for none.

using ThreadMain = int32 (*)(void* argument);

/// @param stackSize  [bytes; 0: the system's default] raised to the system's minimum.
/// @return the handle, or 0 when the system gives none. Throws OutOfMemoryException.
uint64 createThread(ThreadMain main, void* argument, uint32 stackSize);
/// Waits for the thread's end, which also closes the handle.
/// @param hasExitCode  receives false when the thread ended without one, because it was cancelled.
/// @return false when waiting is not possible, as for the calling thread itself.
bool joinThread(uint64 handle, int32& exitCode, bool& hasExitCode);
/// Closes the handle; the thread goes on.
void closeThread(uint64 handle);
/// Names the thread for debuggers, cut to what the system takes.
void setThreadName(uint64 handle, const char* name);
/// Follows a priority (-15 idle, 0 normal, 15 the most) as far as the system lets us.
void setThreadPriority(uint64 handle, int32 priority);

uint64 getCurrentThread();
uint32 getCurrentThreadId();
[[noreturn]] void exitThread(int32 exitCode);
void sleepThread(uint32 milliseconds);
/// @return at least 1.
uint32 getNumberOfProcessors();
} // namespace KORV::Common::Platform
