#include "korv/common/memory/stlallocator.h"

#include <cstdint>
#include <cstring>

namespace KORV::Common::Memory
{
namespace
{
/// What the base layers promise. A stricter type gets a 4-byte word in front of its block: the distance to the block's
/// real start.
constexpr size_t BLOCK_ALIGNMENT = 4;
} // namespace

void* allocateAligned(Allocator& allocator, uint64 size, size_t alignment)
{
    const uint64 padding = alignment > BLOCK_ALIGNMENT ? alignment : 0;
    if (size > std::numeric_limits<uint64>::max() - padding)
        throwOutOfMemory();
    void* block = allocator.allocate(size + padding);
    if (block == nullptr)
        throwOutOfMemory();
    if (padding == 0)
        return block;

    const auto start = reinterpret_cast<std::uintptr_t>(block);
    const std::uintptr_t place =
        (start + BLOCK_ALIGNMENT + alignment - 1) & ~(static_cast<std::uintptr_t>(alignment) - 1);
    const auto distance = static_cast<uint32>(place - start);
    std::memcpy(reinterpret_cast<void*>(place - sizeof(distance)), &distance, sizeof(distance));
    return reinterpret_cast<void*>(place);
}

void deallocateAligned(Allocator& allocator, void* block, size_t alignment)
{
    if (block == nullptr || alignment <= BLOCK_ALIGNMENT)
    {
        allocator.deallocate(block);
        return;
    }
    uint32 distance = 0;
    std::memcpy(&distance, static_cast<unsigned char*>(block) - sizeof(distance), sizeof(distance));
    allocator.deallocate(static_cast<unsigned char*>(block) - distance);
}
} // namespace KORV::Common::Memory
