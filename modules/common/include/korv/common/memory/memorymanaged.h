#pragma once

#include "korv/common/api.h"
#include "korv/common/memory/allocator.h"

#include <new>

namespace KORV::Common::Memory
{
/// Base of library objects. They are created by `new (allocator) T(...)`, remember that allocator, keep it alive and
/// give their memory back to it when deleted. An object on the stack or inside another one works with the default
/// allocator. A copy keeps its own allocator.
class KORV_COMMON_API MemoryManaged
{
public:
    virtual ~MemoryManaged();

    /// The allocator that the object's own containers use; never null once the library is initialised.
    const AllocatorPtr& getAllocator() const { return mAllocator; }
    /// The same as a cheap handle for containers; never null.
    Allocator* getMemory() const { return mAllocator == nullptr ? getDefaultAllocator() : mAllocator.get(); }

    /// Memory aligned for the type. Throws OutOfMemoryException when the allocator has none.
    static void* operator new(size_t size, const AllocatorPtr& allocator);
    static void* operator new(size_t size, std::align_val_t alignment, const AllocatorPtr& allocator);
    static void operator delete(void* object, const AllocatorPtr& allocator);
    static void operator delete(void* object, std::align_val_t alignment, const AllocatorPtr& allocator);
    static void operator delete(void* object);
    static void operator delete(void* object, std::align_val_t alignment);
    static void* operator new(size_t) = delete;
    static void* operator new[](size_t) = delete;

protected:
    MemoryManaged();
    MemoryManaged(const MemoryManaged&) : MemoryManaged() {}
    MemoryManaged& operator=(const MemoryManaged&) { return *this; }

private:
    AllocatorPtr mAllocator;
};
} // namespace KORV::Common::Memory
