#pragma once

#include "korv/common/memory/allocator.h"
#include "korv/common/threading/spinlock.h"

namespace KORV::Common::Memory
{
/// The C heap. Serialises its own calls, since several wrappers with locks of their own may stand on it.
class KORV_COMMON_API DefaultAllocator : public Allocator
{
public:
    DefaultAllocator();
    /// Reports blocks that are still out.
    ~DefaultAllocator() override;

    /// Throws OutOfMemoryException "No Memory available" when the heap has none.
    void* allocate(uint64 size) override;
    void deallocate(void* block) override;
    bool isClean() override;

    /// The one object of the library that comes from the C heap itself.
    static void* operator new(size_t size);
    static void operator delete(void* object);

private:
    Threading::SpinLock mLock;
    uint64 mAllocationCount = 0;
};
} // namespace KORV::Common::Memory
