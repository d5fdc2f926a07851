#pragma once

#include "korv/common/memory/allocator.h"
#include "korv/common/memory/freelistallocator.h"
#include "korv/common/threading/spinlock.h"

namespace KORV::Common::Memory
{
/// Another allocator behind a lock. isClean and releaseUnusedMemory are not locked.
class KORV_COMMON_API ThreadSafeAllocator : public Allocator
{
public:
    explicit ThreadSafeAllocator(const AllocatorPtr& wrapped);
    ~ThreadSafeAllocator() override;

    void* allocate(uint64 size) override;
    void deallocate(void* block) override;
    bool isClean() override;
    bool isThreadSafe() override;
    uint64 releaseUnusedMemory() override;

private:
    AllocatorPtr mWrapped;
    Threading::SpinLock mLock;
};

/// An allocator with a lock of its own around allocate and deallocate.
template <class Base>
class ThreadSafeAllocWrapper : public Base
{
public:
    explicit ThreadSafeAllocWrapper(const AllocatorPtr& source) : Base(source) {}

    void* allocate(uint64 size) override
    {
        const Threading::ScopedLock guard(mLock);
        return Base::allocate(size);
    }
    void deallocate(void* block) override
    {
        const Threading::ScopedLock guard(mLock);
        Base::deallocate(block);
    }
    bool isThreadSafe() override { return true; }

private:
    Threading::SpinLock mLock;
};
} // namespace KORV::Common::Memory
