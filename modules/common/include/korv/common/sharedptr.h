#pragma once

#include "korv/common/api.h"
#include "korv/common/debug/assert.h"
#include "korv/common/threading/spinlock.h"
#include "korv/common/types.h"

#include <cstdlib>
#include <type_traits>
#include <utility>

namespace KORV::Common
{
using ReferenceCounter = uint32;

/// Base of objects held by SharedPtr with a count of their own. The count is not atomic: one object's pointers belong
/// to one thread at a time. Copies start without references.
class KORV_COMMON_API ReferenceCounted
{
public:
    ReferenceCounted() = default;
    ReferenceCounted(const ReferenceCounted&) {}
    ReferenceCounted& operator=(const ReferenceCounted&) { return *this; }
    virtual ~ReferenceCounted();

    mutable ReferenceCounter mReferenceCount = 0;
};

/// As ReferenceCounted, with the count changed under the object's own lock.
class KORV_COMMON_API LockedReferenceCounted
{
public:
    LockedReferenceCounted() = default;
    LockedReferenceCounted(const LockedReferenceCounted&) {}
    LockedReferenceCounted& operator=(const LockedReferenceCounted&) { return *this; }
    virtual ~LockedReferenceCounted();

    mutable ReferenceCounter mReferenceCount = 0;
    mutable Threading::SpinLock mReferenceLock;
};

// A count policy says where the count of a pointee lives. acquire and release return the count after the change.

/// The count is a heap word of its own, so that it can outlive the library; for host callbacks and streams.
template <class T>
class SimpleReferenceCount
{
public:
    ReferenceCounter attach(T*)
    {
        mCount = static_cast<ReferenceCounter*>(std::malloc(sizeof(ReferenceCounter)));
        if (mCount == nullptr)
            std::abort(); // four bytes: nothing sensible is left to do, and a pointer without a count would be worse
        *mCount = 1;
        return 1;
    }
    ReferenceCounter share(const SimpleReferenceCount& other, T*)
    {
        mCount = other.mCount;
        return ++*mCount;
    }
    ReferenceCounter release(T*)
    {
        const ReferenceCounter left = --*mCount;
        if (left == 0)
            std::free(mCount);
        mCount = nullptr;
        return left;
    }
    ReferenceCounter count(const T*) const { return *mCount; }

private:
    ReferenceCounter* mCount = nullptr;
};

/// The count lies in the pointee's ReferenceCounted base.
template <class Counted, class Counter, int>
class MemberReferenceCount
{
public:
    template <class T>
    Counter attach(T* object)
    {
        return ++counted(object)->mReferenceCount;
    }
    template <class T>
    Counter share(const MemberReferenceCount&, T* object)
    {
        return attach(object);
    }
    template <class T>
    Counter release(T* object)
    {
        return --counted(object)->mReferenceCount;
    }
    template <class T>
    Counter count(const T* object) const
    {
        return counted(object)->mReferenceCount;
    }

private:
    static const Counted* counted(const Counted* object) { return object; }
};

/// The count lies in the pointee's LockedReferenceCounted base and changes under its lock.
template <class Counted, class Counter, class Lock, int, int>
class LockedMemberReferenceCount
{
public:
    template <class T>
    Counter attach(T* object)
    {
        const Threading::ScopedLock guard(counted(object)->mReferenceLock);
        return ++counted(object)->mReferenceCount;
    }
    template <class T>
    Counter share(const LockedMemberReferenceCount&, T* object)
    {
        return attach(object);
    }
    template <class T>
    Counter release(T* object)
    {
        const Threading::ScopedLock guard(counted(object)->mReferenceLock);
        return --counted(object)->mReferenceCount;
    }
    template <class T>
    Counter count(const T* object) const
    {
        const Threading::ScopedLock guard(counted(object)->mReferenceLock);
        return counted(object)->mReferenceCount;
    }

private:
    static const Counted* counted(const Counted* object) { return object; }
};

/// Deletes the object through its virtual destructor.
template <class T>
struct StandartObjectPolicy
{
    static void destroy(T* object) { delete object; }
};

/// The count policy that a type asks for by its bases. Specialise it where a type must be named before it is complete.
template <class T>
struct DefaultCountPolicy
{
    using Type = std::conditional_t<
        std::is_base_of_v<LockedReferenceCounted, T>,
        LockedMemberReferenceCount<LockedReferenceCounted, ReferenceCounter, Threading::SpinLock, 4, 8>,
        std::conditional_t<std::is_base_of_v<ReferenceCounted, T>,
                           MemberReferenceCount<ReferenceCounted, ReferenceCounter, 4>, SimpleReferenceCount<T>>>;
};

namespace Detail
{
// Reports build their text in place, which takes a large frame. These keep it out of every function that dereferences.

[[gnu::noinline, gnu::cold]] inline void reportNullDereference()
{
    KORV_COMMON_FAIL_CONDITION("KORV::Common::SharedPtr::operator ->", "mPtr", "Try to dereference a NULL pointer");
}

[[gnu::noinline, gnu::cold]] inline void reportLostCount()
{
    KORV_COMMON_FAIL_CONDITION("KORV::Common::SharedPtr::SharedPtr", "!(CP::isZero(this->mPtr))",
                               "reference count was < 0");
}

[[gnu::noinline, gnu::cold]] inline void reportHeldTwice()
{
    KORV_COMMON_FAIL_CONDITION("KORV::Common::SharedPtr::operator =", "ptr != this->mPtr || this->mPtr == NULL",
                               "No shared pointer should pointer to ptr yet");
}

[[gnu::noinline, gnu::cold]] inline void reportOtherReferences()
{
    KORV_COMMON_FAIL("KORV::Common::SharedPtr::forceDestroy",
                     "there are other references to the object, delete it anyways");
}
} // namespace Detail

/// Reference-counting pointer. Dereferencing a null pointer is reported; the access itself is then undefined.
template <class T, class CP = typename DefaultCountPolicy<T>::Type, class OP = StandartObjectPolicy<T>>
class SharedPtr
{
public:
    SharedPtr() = default;
    SharedPtr(std::nullptr_t) {} // NOLINT: null converts like a raw null pointer does
    explicit SharedPtr(T* object) { take(object); }
    SharedPtr(const SharedPtr& other) { share(other); }
    SharedPtr(SharedPtr&& other) noexcept : mCount(other.mCount), mPtr(std::exchange(other.mPtr, nullptr)) {}
    ~SharedPtr() { release(); }

    SharedPtr& operator=(SharedPtr other) noexcept
    {
        swap(other);
        return *this;
    }
    /// Releases the object held and takes another one; null only releases. The object must not be the one held already.
    SharedPtr& operator=(T* object)
    {
        if (object == mPtr && mPtr != nullptr)
        {
            Detail::reportHeldTwice();
            return *this;
        }
        release();
        take(object);
        return *this;
    }

    T* get() const { return mPtr; }
    T* operator->() const { return checked(); }
    T& operator*() const { return *checked(); }
    explicit operator bool() const { return mPtr != nullptr; }

    /// True when null or when nobody else holds the object.
    bool isLastReference() const { return mPtr == nullptr || mCount.count(mPtr) == 1; }

    /// Gives the reference up; the last one destroys the object.
    void release()
    {
        T* object = std::exchange(mPtr, nullptr);
        if (object != nullptr && mCount.release(object) == 0)
            OP::destroy(object);
    }

    /// Gives the reference up at shutdown and reports when others remain; the object then goes with its last holder.
    void forceDestroy()
    {
        if (!isLastReference())
            Detail::reportOtherReferences();
        release();
    }

    void swap(SharedPtr& other) noexcept
    {
        std::swap(mCount, other.mCount);
        std::swap(mPtr, other.mPtr);
    }

    friend bool operator==(const SharedPtr& a, const SharedPtr& b) { return a.mPtr == b.mPtr; }
    friend bool operator==(const SharedPtr& a, std::nullptr_t) { return a.mPtr == nullptr; }

private:
    void take(T* object)
    {
        mPtr = object;
        if (object != nullptr)
            mCount.attach(object);
    }
    void share(const SharedPtr& other)
    {
        mPtr = other.mPtr;
        if (mPtr == nullptr)
            return;
        if (mCount.share(other.mCount, mPtr) == 0)
            Detail::reportLostCount();
    }
    T* checked() const
    {
        if (mPtr == nullptr)
            Detail::reportNullDereference();
        return mPtr;
    }

    CP mCount;
    T* mPtr = nullptr;
};
} // namespace KORV::Common
