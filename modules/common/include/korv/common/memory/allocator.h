#pragma once

#include "korv/common/api.h"
#include "korv/common/sharedptr.h"
#include "korv/common/types.h"

namespace KORV::Common
{
namespace Memory
{
class Allocator;
}

// An allocator holds a handle to its own kind, which must be named before the class is complete.
template <>
struct DefaultCountPolicy<Memory::Allocator>
{
    using Type = LockedMemberReferenceCount<LockedReferenceCounted, ReferenceCounter, Threading::SpinLock, 4, 8>;
};

namespace Memory
{
using AllocatorPtr = SharedPtr<Allocator>;

/// Hands out raw blocks, aligned to 4 bytes. Objects and containers on top of it add the alignment of their types.
class KORV_COMMON_API Allocator : public LockedReferenceCounted
{
public:
    ~Allocator() override;

    /// @return a block of at least @p size bytes, or null (or an OutOfMemoryException, where the class says so).
    virtual void* allocate(uint64 size) = 0;
    /// Takes back a block of this allocator; null is ignored.
    virtual void deallocate(void* block) = 0;
    /// @return whether no block is outstanding.
    virtual bool isClean() = 0;
    /// @return whether allocate and deallocate may be called by several threads at once.
    virtual bool isThreadSafe();
    /// Gives internal storage without live blocks back to the parent.
    /// @return a byte count that says whether anything went back, not how much.
    virtual uint64 releaseUnusedMemory();

    const char* getName() const { return mName; }

    /// Creates an allocator object in memory of @p parent, which it keeps alive and gives that memory back to.
    static void* operator new(size_t size, const AllocatorPtr& parent);
    static void operator delete(void* object, const AllocatorPtr& parent);
    static void operator delete(void* object);
    static void* operator new(size_t) = delete;
    static void* operator new[](size_t) = delete;

protected:
    /// @param name  up to 14 characters are kept.
    explicit Allocator(const char* name);
    Allocator(const Allocator&) = delete;
    Allocator& operator=(const Allocator&) = delete;

    /// The allocator that supplied this object's own memory; null for the C heap and a host callback.
    AllocatorPtr mParent;

private:
    static constexpr size_t MAX_NAME = 14;

    char mName[16];
};

/// The allocator that objects and containers use when nobody gives them one: the foundation's shared allocator while
/// the library is initialised, else the C heap. Not owned by the caller; never null.
KORV_COMMON_API Allocator* getDefaultAllocator();
} // namespace Memory
} // namespace KORV::Common
