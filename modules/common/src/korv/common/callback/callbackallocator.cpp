#include "korv/common/callback/callbackallocator.h"

#include "korv/common/memory/objectmemory.h"
#include "korv/common/memory/stlallocator.h"

#include <limits>

namespace KORV::Common::Callback
{
// Found by argument-dependent look-up from ObjectMemory.
static void* allocateFrom(const SharedPtr<MemoryCallback>& source, size_t size)
{
    return size <= std::numeric_limits<uint32>::max() ? source->allocate(static_cast<uint32>(size)) : nullptr;
}

static void freeTo(const SharedPtr<MemoryCallback>& source, void* block)
{
    source->free(block);
}

namespace
{
using CallbackMemory = Memory::ObjectMemory<SharedPtr<MemoryCallback>>;
}

MemoryCallback::~MemoryCallback() = default;

CallbackAllocator::CallbackAllocator() : Allocator("Callback"), mCallback(CallbackMemory::adopt(this)) {}

CallbackAllocator::~CallbackAllocator()
{
    KORV_COMMON_ASSERT("KORV::Common::Callback::CallbackAllocator::~CallbackAllocator", mAllocationCount == 0,
                       "isClean()", "callbackallocator has still an allocationcount of: " << mAllocationCount);
}

void* CallbackAllocator::allocate(uint64 size)
{
    if (size > std::numeric_limits<uint32>::max())
        return nullptr;
    const Threading::ScopedLock guard(mLock);
    void* block = mCallback->allocate(static_cast<uint32>(size));
    if (block != nullptr)
        ++mAllocationCount;
    return block;
}

void CallbackAllocator::deallocate(void* block)
{
    if (block == nullptr)
        return;
    const Threading::ScopedLock guard(mLock);
    --mAllocationCount;
    mCallback->free(block);
}

bool CallbackAllocator::isClean()
{
    const Threading::ScopedLock guard(mLock);
    return mAllocationCount == 0;
}

void* CallbackAllocator::operator new(size_t size, const SharedPtr<MemoryCallback>& callback)
{
    void* object = CallbackMemory::create(size, alignof(CallbackAllocator), callback);
    if (object == nullptr)
        Memory::throwOutOfMemory();
    return object;
}

void CallbackAllocator::operator delete(void* object, const SharedPtr<MemoryCallback>&)
{
    CallbackMemory::destroy(object);
}

void CallbackAllocator::operator delete(void* object)
{
    CallbackMemory::destroy(object);
}
} // namespace KORV::Common::Callback
