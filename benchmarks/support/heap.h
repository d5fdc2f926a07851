#pragma once

#include "korv/common/callback/memorycallback.h"

#include <cstddef>

/// The heap that everything measured allocates from, so that peaks compare byte for byte. Calls must not overlap: the
/// library sees to that, and the peer has one thread.
namespace KORV::Benchmarks::Heap
{
void* allocate(std::size_t size);
void release(void* block);

/// Counts peaks from here on.
void resetPeak();
/// Most bytes in use at once since the last reset, beyond what was in use then.
std::size_t getPeak();

/// Gives the library that heap.
class Callback : public Common::Callback::MemoryCallback
{
public:
    void* allocate(uint32 size) override { return Heap::allocate(size); }
    void free(void* block) override { release(block); }
};
} // namespace KORV::Benchmarks::Heap
