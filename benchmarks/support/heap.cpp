#include "heap.h"

#include <algorithm>
#include <cstdlib>

namespace KORV::Benchmarks::Heap
{
namespace
{
// Keeps the alignment of malloc.
struct alignas(std::max_align_t) Header
{
    std::size_t mSize;
};

std::size_t gInUse = 0;
std::size_t gPeak = 0;
std::size_t gBase = 0;
} // namespace

void* allocate(std::size_t size)
{
    auto* const header = static_cast<Header*>(std::malloc(sizeof(Header) + size));
    if (header == nullptr)
        return nullptr;
    header->mSize = size;
    gInUse += size;
    gPeak = std::max(gPeak, gInUse);
    return header + 1;
}

void release(void* block)
{
    if (block == nullptr)
        return;
    Header* const header = static_cast<Header*>(block) - 1;
    gInUse -= header->mSize;
    std::free(header);
}

void resetPeak()
{
    gBase = gInUse;
    gPeak = gInUse;
}

std::size_t getPeak()
{
    return gPeak - gBase;
}
} // namespace KORV::Benchmarks::Heap
