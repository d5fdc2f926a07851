#include "korv/common/memory/defaultallocator.h"

#include "korv/common/memory/objectmemory.h"
#include "korv/common/memory/stlallocator.h"

#include <cstdlib>

namespace KORV::Common::Memory
{
DefaultAllocator::DefaultAllocator() : Allocator("Default") {}

DefaultAllocator::~DefaultAllocator()
{
    KORV_COMMON_ASSERT("KORV::Common::Memory::DefaultAllocator::~DefaultAllocator", mAllocationCount == 0, "isClean()",
                       "Allocator has '" << mAllocationCount
                                         << "' blocks allocated, memory leak or wrong order of Allocator object -> "
                                            "allocated object deletion");
}

void* DefaultAllocator::allocate(uint64 size)
{
    void* block = std::malloc(size > 0 ? size : 1);
    if (block == nullptr)
        throwOutOfMemory();
    const Threading::ScopedLock guard(mLock);
    ++mAllocationCount;
    return block;
}

void DefaultAllocator::deallocate(void* block)
{
    if (block == nullptr)
        return;
    std::free(block);
    const Threading::ScopedLock guard(mLock);
    --mAllocationCount;
}

bool DefaultAllocator::isClean()
{
    const Threading::ScopedLock guard(mLock);
    return mAllocationCount == 0;
}

void* DefaultAllocator::operator new(size_t size)
{
    void* object = ObjectMemory<AllocatorPtr>::create(size, alignof(DefaultAllocator), nullptr);
    if (object == nullptr)
        throwOutOfMemory();
    return object;
}

void DefaultAllocator::operator delete(void* object)
{
    ObjectMemory<AllocatorPtr>::destroy(object);
}
} // namespace KORV::Common::Memory
