#pragma once

#include "korv/common/container/vector.h"
#include "korv/common/debug/assert.h"

#include <new>

namespace KORV::Common::Container
{
/// A growing array of segments of equal size, 65,536 elements unless another power of two is given. Elements never
/// move, and growing never copies them. Several threads may read while nobody appends.
template <class T, uint32 SEGMENT = 0x10000>
class SegmentVector
{
public:
    static constexpr uint32 SEGMENT_SIZE = SEGMENT;
    static_assert((SEGMENT & (SEGMENT - 1)) == 0);

    SegmentVector() = default;
    explicit SegmentVector(Memory::Allocator* allocator) : mSegments(allocator) {}
    SegmentVector(const SegmentVector&) = delete;
    SegmentVector& operator=(const SegmentVector&) = delete;
    ~SegmentVector() { clear(); }

    uint32 size() const { return mSize; }
    bool empty() const { return mSize == 0; }
    /// Elements that the segments have room for.
    uint64 capacity() const { return static_cast<uint64>(mSegments.size()) * SEGMENT_SIZE; }

    /// Appends a copy.
    /// @return its index. Throws OutOfMemoryException, also when 32-bit indices run out; nothing is then appended.
    uint32 append(const T& element)
    {
        if (mSize == UINT32_MAX)
            Memory::throwOutOfMemory();
        if (mSize == capacity())
            addSegment();
        ::new (static_cast<void*>(address(mSize))) T(element);
        return mSize++;
    }

    /// Appends copies of consecutive elements.
    /// @return the index of the first. Throws as the other append does; nothing is then appended.
    uint32 append(const T* elements, uint32 count)
    {
        if (count > UINT32_MAX - mSize)
            Memory::throwOutOfMemory();
        while (static_cast<uint64>(mSize) + count > capacity())
            addSegment();
        const uint32 first = mSize;
        const uint32 end = first + count;
        while (mSize < end)
        {
            const uint32 room = SEGMENT_SIZE - mSize % SEGMENT_SIZE;
            const uint32 length = end - mSize < room ? end - mSize : room;
            for (T* target = address(mSize); target != address(mSize) + length; ++target, ++elements)
                ::new (static_cast<void*>(target)) T(*elements);
            mSize += length;
        }
        return first;
    }

    /// The element at an index; one out of range is reported and gives a default element that nobody else sees.
    T& operator[](uint32 index) { return isValid(index) ? *address(index) : strayElement(); }
    const T& operator[](uint32 index) const { return isValid(index) ? *address(index) : strayElement(); }

    /// The element at an index that the caller knows to be in range; for hot loops.
    T& getUnchecked(uint32 index) { return *address(index); }
    const T& getUnchecked(uint32 index) const { return *address(index); }

    /// Destroys all elements and gives the segments back.
    void clear()
    {
        for (uint32 i = mSize; i > 0; --i)
            address(i - 1)->~T();
        mSize = 0;
        for (T* segment : mSegments)
            Memory::deallocateAligned(*mSegments.get_allocator().getAllocator(), segment, alignof(T));
        mSegments.clear();
    }

private:
    bool isValid(uint32 index) const { return index < mSize || reportIndex(); }
    /// Out of line: a report's text takes 4 KB of stack.
    [[gnu::noinline, gnu::cold]] static bool reportIndex()
    {
        return KORV_COMMON_ASSERT("KORV::Common::Container::SegmentVector::operator []", false, "index < mSize",
                                  "index out of range");
    }
    T* address(uint32 index) const { return mSegments[index / SEGMENT_SIZE] + index % SEGMENT_SIZE; }

    void addSegment()
    {
        mSegments.push_back(nullptr); // room first: what follows can't be lost then
        try
        {
            mSegments.back() = static_cast<T*>(Memory::allocateAligned(*mSegments.get_allocator().getAllocator(),
                                                                       uint64{SEGMENT_SIZE} * sizeof(T), alignof(T)));
        }
        catch (...)
        {
            mSegments.pop_back();
            throw;
        }
    }

    static T& strayElement()
    {
        static thread_local T sElement;
        sElement = T();
        return sElement;
    }

    uint32 mSize = 0;
    Vector<T*> mSegments;
};
} // namespace KORV::Common::Container
