#include "korv/common/memory/allocator.h"

#include "korv/common/interface.h"
#include "korv/common/memory/defaultallocator.h"
#include "korv/common/memory/objectmemory.h"
#include "korv/common/memory/stlallocator.h"

#include <cstdlib>
#include <cstring>

namespace KORV::Common::Memory
{
void* allocateFrom(const AllocatorPtr& source, size_t size)
{
    return source != nullptr ? source->allocate(size) : std::malloc(size);
}

void freeTo(const AllocatorPtr& source, void* block)
{
    if (source != nullptr)
        source->deallocate(block);
    else
        std::free(block);
}

Allocator::Allocator(const char* name) : mParent(ObjectMemory<AllocatorPtr>::adopt(this)), mName{}
{
    std::strncpy(mName, name, MAX_NAME);
}

Allocator::~Allocator() = default;

bool Allocator::isThreadSafe()
{
    return false;
}

uint64 Allocator::releaseUnusedMemory()
{
    return 0;
}

void* Allocator::operator new(size_t size, const AllocatorPtr& parent)
{
    void* object = ObjectMemory<AllocatorPtr>::create(size, alignof(std::max_align_t), parent);
    if (object == nullptr)
        throwOutOfMemory();
    return object;
}

void Allocator::operator delete(void* object, const AllocatorPtr&)
{
    ObjectMemory<AllocatorPtr>::destroy(object);
}

void Allocator::operator delete(void* object)
{
    ObjectMemory<AllocatorPtr>::destroy(object);
}

Allocator* getDefaultAllocator()
{
    if (Allocator* shared = Interface::getSharedAllocator().get())
        return shared;
    // Never destroyed: strings of the host's static objects may still use it at the very end.
    alignas(DefaultAllocator) static unsigned char storage[sizeof(DefaultAllocator)];
    static Allocator* const heap = ::new (storage) DefaultAllocator;
    return heap;
}
} // namespace KORV::Common::Memory
