// The global operators that count. They have a file of their own, so that no caller sees them inlined.

#include "support/heapcount.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace
{
std::atomic<bool> gCounting{false};
std::atomic<uint64_t> gCount{0};

void* countedNew(size_t size)
{
    if (gCounting.load(std::memory_order_relaxed))
        gCount.fetch_add(1, std::memory_order_relaxed);
    void* block = std::malloc(size > 0 ? size : 1);
    if (block == nullptr)
        throw std::bad_alloc();
    return block;
}
} // namespace

void* operator new(size_t size)
{
    return countedNew(size);
}
void* operator new[](size_t size)
{
    return countedNew(size);
}
void* operator new(size_t size, const std::nothrow_t&) noexcept
{
    if (gCounting.load(std::memory_order_relaxed))
        gCount.fetch_add(1, std::memory_order_relaxed);
    return std::malloc(size > 0 ? size : 1);
}
void operator delete(void* block) noexcept
{
    std::free(block);
}
void operator delete[](void* block) noexcept
{
    std::free(block);
}
void operator delete(void* block, size_t) noexcept
{
    std::free(block);
}
void operator delete[](void* block, size_t) noexcept
{
    std::free(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept
{
    std::free(block);
}

namespace KORV::Testing
{
void startHeapCount()
{
    gCount = 0;
    gCounting = true;
}

uint64 stopHeapCount()
{
    gCounting = false;
    return gCount;
}
} // namespace KORV::Testing
