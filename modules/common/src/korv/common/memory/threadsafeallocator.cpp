#include "korv/common/memory/threadsafeallocator.h"

namespace KORV::Common::Memory
{
ThreadSafeAllocator::ThreadSafeAllocator(const AllocatorPtr& wrapped) : Allocator("ThreadSafe"), mWrapped(wrapped) {}

ThreadSafeAllocator::~ThreadSafeAllocator() = default;

void* ThreadSafeAllocator::allocate(uint64 size)
{
    const Threading::ScopedLock guard(mLock);
    return mWrapped->allocate(size);
}

void ThreadSafeAllocator::deallocate(void* block)
{
    const Threading::ScopedLock guard(mLock);
    mWrapped->deallocate(block);
}

bool ThreadSafeAllocator::isClean()
{
    return mWrapped->isClean();
}

bool ThreadSafeAllocator::isThreadSafe()
{
    return true;
}

uint64 ThreadSafeAllocator::releaseUnusedMemory()
{
    return mWrapped->releaseUnusedMemory();
}
} // namespace KORV::Common::Memory
