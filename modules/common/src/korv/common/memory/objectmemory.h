#pragma once

#include "korv/common/memory/allocator.h"
#include "korv/common/types.h"

#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <utility>

namespace KORV::Common::Memory
{
/// Memory for single objects, with a header in front that says where it came from.
///
/// operator new can't leave anything in the object itself: the compiler may drop stores made before construction. So
/// the header keeps a reference to the source, and stands in a list of this thread until the constructor of the
/// object's base adopts it. An object on the stack or inside another one finds no header of its own there.
///
/// Source: a smart pointer with allocate and deallocate overloads of allocateFrom and freeTo.
template <class Source>
class ObjectMemory
{
public:
    /// @return aligned memory, or null when the source has none.
    static void* create(size_t size, size_t alignment, const Source& source)
    {
        if (alignment < alignof(Header))
            alignment = alignof(Header);
        const size_t overhead = sizeof(Header) + alignment;
        if (size > std::numeric_limits<size_t>::max() - overhead)
            return nullptr;
        void* block = allocateFrom(source, size + overhead);
        if (block == nullptr)
            return nullptr;
        const auto first = reinterpret_cast<std::uintptr_t>(block) + sizeof(Header);
        const std::uintptr_t place = (first + alignment - 1) & ~(static_cast<std::uintptr_t>(alignment) - 1);
        sPending = ::new (reinterpret_cast<void*>(place - sizeof(Header))) Header{source, block, sPending, size, true};
        return reinterpret_cast<void*>(place);
    }

    /// The source of the object whose base is being constructed at @p part; empty for one that create did not make.
    static Source adopt(const void* part)
    {
        for (Header** link = &sPending; *link != nullptr; link = &(*link)->mNext)
        {
            Header* header = *link;
            const auto object = reinterpret_cast<std::uintptr_t>(header + 1);
            const auto address = reinterpret_cast<std::uintptr_t>(part);
            if (address < object || address - object >= header->mSize)
                continue;
            *link = header->mNext;
            header->mPending = false;
            return header->mSource;
        }
        return Source();
    }

    /// Gives the memory of an object back; its destructor has run, or its constructor has thrown.
    static void destroy(void* object)
    {
        if (object == nullptr)
            return;
        Header* header = static_cast<Header*>(object) - 1;
        if (header->mPending)
            forget(header);
        // The reference must outlive the header, which lies in memory of the source.
        const Source source = std::move(header->mSource);
        void* block = header->mBlock;
        std::destroy_at(header);
        freeTo(source, block);
    }

private:
    struct Header
    {
        Source mSource;
        void* mBlock;
        Header* mNext;
        size_t mSize;
        bool mPending;
    };

    static void forget(const Header* header)
    {
        for (Header** link = &sPending; *link != nullptr; link = &(*link)->mNext)
        {
            if (*link != header)
                continue;
            *link = header->mNext;
            return;
        }
    }

    static inline thread_local Header* sPending = nullptr;
};

/// Objects on an allocator; without one, on the C heap.
void* allocateFrom(const AllocatorPtr& source, size_t size);
void freeTo(const AllocatorPtr& source, void* block);
} // namespace KORV::Common::Memory
