#include "korv/common/memory/memorymanaged.h"

#include "korv/common/interface.h"
#include "korv/common/memory/objectmemory.h"
#include "korv/common/memory/stlallocator.h"

namespace KORV::Common::Memory
{
namespace
{
void* createObject(size_t size, size_t alignment, const AllocatorPtr& allocator)
{
    void* object = ObjectMemory<AllocatorPtr>::create(size, alignment, allocator);
    if (object == nullptr)
        throwOutOfMemory();
    return object;
}
} // namespace

MemoryManaged::MemoryManaged() : mAllocator(ObjectMemory<AllocatorPtr>::adopt(this))
{
    if (mAllocator == nullptr)
        mAllocator = Interface::getSharedAllocator();
}

MemoryManaged::~MemoryManaged() = default;

void* MemoryManaged::operator new(size_t size, const AllocatorPtr& allocator)
{
    return createObject(size, alignof(std::max_align_t), allocator);
}

void* MemoryManaged::operator new(size_t size, std::align_val_t alignment, const AllocatorPtr& allocator)
{
    return createObject(size, static_cast<size_t>(alignment), allocator);
}

void MemoryManaged::operator delete(void* object, const AllocatorPtr&)
{
    ObjectMemory<AllocatorPtr>::destroy(object);
}

void MemoryManaged::operator delete(void* object, std::align_val_t, const AllocatorPtr&)
{
    ObjectMemory<AllocatorPtr>::destroy(object);
}

void MemoryManaged::operator delete(void* object)
{
    ObjectMemory<AllocatorPtr>::destroy(object);
}

void MemoryManaged::operator delete(void* object, std::align_val_t)
{
    ObjectMemory<AllocatorPtr>::destroy(object);
}
} // namespace KORV::Common::Memory
