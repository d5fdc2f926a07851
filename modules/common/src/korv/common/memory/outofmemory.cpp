#include "korv/common/memory/outofmemory.h"

#include "korv/common/memory/memoryexception.h"
#include "korv/common/memory/objectmemory.h"
#include "korv/common/memory/stlallocator.h"

#include <cstdlib>

namespace KORV::Common::Memory
{
namespace
{
/// A few equal slots in one object. When they are used up the C heap is the last resort.
class ReserveAllocator : public Allocator
{
public:
    ReserveAllocator() : Allocator("Reserve") {}

    void* allocate(uint64 size) override
    {
        const Threading::ScopedLock guard(mLock);
        for (Slot& slot : mSlots)
        {
            if (slot.mUsed || size > sizeof(slot.mBytes))
                continue;
            slot.mUsed = true;
            return slot.mBytes;
        }
        void* block = std::malloc(size);
        if (block == nullptr)
            std::abort(); // an exception can't be reported at all: nothing that was promised can be kept
        return block;
    }

    void deallocate(void* block) override
    {
        const Threading::ScopedLock guard(mLock);
        for (Slot& slot : mSlots)
        {
            if (block != slot.mBytes)
                continue;
            slot.mUsed = false;
            return;
        }
        std::free(block);
    }

    bool isClean() override { return true; }
    bool isThreadSafe() override { return true; }

private:
    // An exception object with its header, or its text.
    struct Slot
    {
        alignas(std::max_align_t) unsigned char mBytes[240];
        bool mUsed = false;
    };

    Slot mSlots[16];
    Threading::SpinLock mLock;
};

AllocatorPtr gReserve;
} // namespace

void openReserve(const AllocatorPtr& base)
{
    gReserve = new (base) ReserveAllocator;
}

void closeReserve()
{
    gReserve.release();
}

OutOfMemoryException::OutOfMemoryException(const char* message)
    : MemoryException(KeepText(), BasicString(message, STLAllocator<char>(gReserve != nullptr ? gReserve.get()
                                                                                              : getDefaultAllocator())))
{
}

void* OutOfMemoryException::operator new(size_t size)
{
    void* object = ObjectMemory<AllocatorPtr>::create(size, alignof(OutOfMemoryException), gReserve);
    if (object == nullptr)
        std::abort();
    return object;
}

void OutOfMemoryException::operator delete(void* object)
{
    ObjectMemory<AllocatorPtr>::destroy(object);
}

void throwOutOfMemory()
{
    throw new OutOfMemoryException("No Memory available");
}
} // namespace KORV::Common::Memory
