#pragma once

#include "korv/common/callback/memorycallback.h"
#include "korv/common/memory/allocator.h"
#include "korv/common/threading/spinlock.h"

namespace KORV::Common::Callback
{
/// The host's memory callback as an allocator; its own object lies in memory of the callback too. Serialises its calls,
/// so that the host is never entered by two threads at once.
class KORV_COMMON_API CallbackAllocator : public Memory::Allocator
{
public:
    CallbackAllocator();
    /// Reports blocks that are still out.
    ~CallbackAllocator() override;

    /// @return null when the callback has no memory, or when the size does not fit its 32 bits.
    void* allocate(uint64 size) override;
    void deallocate(void* block) override;
    bool isClean() override;

    /// Throws OutOfMemoryException when the callback has no memory.
    static void* operator new(size_t size, const SharedPtr<MemoryCallback>& callback);
    static void operator delete(void* object, const SharedPtr<MemoryCallback>& callback);
    static void operator delete(void* object);

private:
    Threading::SpinLock mLock;
    uint64 mAllocationCount = 0;
    SharedPtr<MemoryCallback> mCallback;
};
} // namespace KORV::Common::Callback
