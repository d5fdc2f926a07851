#pragma once

#include "korv/common/api.h"
#include "korv/common/memory/allocator.h"

#include <limits>
#include <type_traits>

namespace KORV::Common::Memory
{
/// Gets a block aligned to @p alignment (a power of two) for an array. Throws OutOfMemoryException, never returns null.
KORV_COMMON_API void* allocateAligned(Allocator& allocator, uint64 size, size_t alignment);
/// Gives back a block of allocateAligned.
KORV_COMMON_API void deallocateAligned(Allocator& allocator, void* block, size_t alignment);
/// Throws the OutOfMemoryException of this layer.
[[noreturn]] KORV_COMMON_API void throwOutOfMemory();

/// Lets the standard containers live on a library allocator. Holds a plain pointer: the allocator must outlive the
/// container, as that of a MemoryManaged owner does.
template <class T>
class STLAllocator
{
public:
    using value_type = T;
    using propagate_on_container_move_assignment = std::true_type;
    using propagate_on_container_swap = std::true_type;

    /// Takes the default allocator of the moment.
    STLAllocator() noexcept : mAllocator(getDefaultAllocator()) {}
    STLAllocator(Allocator* allocator) noexcept : mAllocator(allocator) {} // NOLINT: containers are given allocators
    template <class U>
    STLAllocator(const STLAllocator<U>& other) noexcept : mAllocator(other.getAllocator()) // NOLINT
    {
    }

    T* allocate(size_t count)
    {
        if (count > std::numeric_limits<size_t>::max() / sizeof(T))
            throwOutOfMemory();
        return static_cast<T*>(allocateAligned(*mAllocator, count * sizeof(T), alignof(T)));
    }
    void deallocate(T* block, size_t) noexcept { deallocateAligned(*mAllocator, block, alignof(T)); }

    Allocator* getAllocator() const noexcept { return mAllocator; }

    template <class U>
    friend bool operator==(const STLAllocator& a, const STLAllocator<U>& b) noexcept
    {
        return a.getAllocator() == b.getAllocator();
    }

private:
    Allocator* mAllocator;
};
} // namespace KORV::Common::Memory
