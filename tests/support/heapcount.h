#pragma once

#include "korv/common/types.h"

namespace KORV::Testing
{
/// Counts the program's own allocations by global operator new, on all threads. One count at a time.
void startHeapCount();
/// @return how many there were since the start.
uint64 stopHeapCount();
} // namespace KORV::Testing
