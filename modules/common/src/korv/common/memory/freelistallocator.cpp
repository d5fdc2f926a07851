// Free lists of equal chunks in pages of about 16 KB, or smaller ones, one size class for every 4 bytes.
//
// Chunks name each other and their pages by 32-bit references instead of pointers, so that a block costs one 4-byte
// word on a 64-bit machine too. A page's number indexes a table of addresses; its first entries lie in the allocator
// itself, so that a small allocator asks its parent for pages only. Numbers of released pages are used again.
//
// Cost: a list pop or push per block, no search. 2,097,151 pages are the limit: 32 GB, with small pages 2 GB.
#include "korv/common/memory/freelistallocator.h"

#include "korv/common/memory/memoryexception.h"
#include "korv/common/memory/stlallocator.h"

#include <cstring>
#include <limits>

namespace KORV::Common::Memory
{
struct FreeListAllocator::Page
{
    uint32 mNextPage; // number of the next page of the allocator's list, 0 at its end
    uint16 mCount;
    uint16 mUnits;

    uint32 getStride() const { return mUnits * 4u + 4u; }
};

namespace
{
constexpr uint32 MAX_SMALL_UNITS = 62; // size / 4 beyond this goes to the parent
constexpr uint32 CHUNK_MASK = (1u << 11) - 1;

unsigned char* bytesOf(void* block)
{
    return static_cast<unsigned char*>(block);
}
} // namespace

FreeListAllocator::FreeListAllocator(const AllocatorPtr& source, uint32 pageBytes)
    : Allocator("FreeList"), mSource(source), mPageBytes(pageBytes)
{
}

FreeListAllocator::~FreeListAllocator()
{
    for (uint32 number = mFirstPage; number != 0;)
    {
        Page* page = mTable[number - 1];
        number = page->mNextPage;
        mSource->deallocate(page);
    }
    releaseTable();
}

void* FreeListAllocator::allocate(uint64 size)
{
    if (size / 4 > MAX_SMALL_UNITS)
    {
        if (size > std::numeric_limits<uint64>::max() - sizeof(Reference))
            return nullptr;
        void* block = mSource->allocate(size + sizeof(Reference));
        if (block == nullptr)
            return nullptr;
        *static_cast<Reference*>(block) = 0;
        return bytesOf(block) + sizeof(Reference);
    }
    const auto units = static_cast<uint32>(size / 4 + 1);
    if (mLists[units] == 0)
        allocBlock(units);
    const Reference first = mLists[units];
    if (first == 0)
        return nullptr;
    Reference* chunk = getChunk(getPage(first), first);
    mLists[units] = *chunk;
    return chunk;
}

void FreeListAllocator::deallocate(void* block)
{
    if (block == nullptr)
        return;
    Reference* chunk = static_cast<Reference*>(block);
    const Reference reference = chunk[-1];
    if (reference == 0)
    {
        mSource->deallocate(chunk - 1);
        return;
    }
    Reference& list = mLists[getPage(reference)->mUnits];
    *chunk = list;
    list = reference;
}

bool FreeListAllocator::isClean()
{
    return true;
}

/// The payload of a chunk.
FreeListAllocator::Reference* FreeListAllocator::getChunk(Page* page, Reference reference)
{
    const size_t offset = sizeof(Page) + size_t{reference & CHUNK_MASK} * page->getStride() + sizeof(Reference);
    return reinterpret_cast<Reference*>(bytesOf(page) + offset);
}

void FreeListAllocator::allocBlock(uint32 units)
{
    const uint32 stride = units * 4 + 4;
    const uint32 count = mPageBytes / stride;
    const uint32 size = count * stride + static_cast<uint32>(sizeof(Page));

    const uint32 number = takePageNumber();
    Page* header = number != 0 ? static_cast<Page*>(mSource->allocate(size)) : nullptr;
    if (!KORV_COMMON_ASSERT("KORV::Common::Memory::FreeListAllocator::allocBlock", header != nullptr, "header",
                            "Cannot allocate memory block of size: " << size))
        return;

    if (number > mNumPages)
        mNumPages = number;
    else
        --mNumReleased;
    *header = {mFirstPage, static_cast<uint16>(count), static_cast<uint16>(units)};
    mFirstPage = number;
    mTable[number - 1] = header;
    for (uint32 index = 0; index < count; ++index)
    {
        const Reference reference = (number << CHUNK_BITS) | index;
        Reference* chunk = getChunk(header, reference);
        chunk[-1] = reference;
        *chunk = mLists[units];
        mLists[units] = reference;
    }
}

uint32 FreeListAllocator::takePageNumber()
{
    if (mNumReleased > 0)
    {
        for (; mFirstReleased < mNumPages; ++mFirstReleased)
        {
            if (mTable[mFirstReleased] == nullptr)
                return mFirstReleased + 1;
        }
    }
    if (mNumPages == MAX_PAGES || (mNumPages == mTableSize && !growTable()))
        return 0;
    return mNumPages + 1;
}

bool FreeListAllocator::growTable()
{
    const uint64 entries = uint64{mTableSize} * 2;
    Page** table = nullptr;
    try
    {
        table = static_cast<Page**>(allocateAligned(*mSource, entries * sizeof(Page*), alignof(Page*)));
    }
    catch (OutOfMemoryException* error)
    {
        delete error;
        return false;
    }
    std::memcpy(table, mTable, mNumPages * sizeof(Page*));
    std::memset(table + mNumPages, 0, (entries - mNumPages) * sizeof(Page*));
    releaseTable();
    mTable = table;
    mTableSize = static_cast<uint32>(entries);
    return true;
}

void FreeListAllocator::releaseTable()
{
    if (mTable != mLocalTable)
        deallocateAligned(*mSource, mTable, alignof(Page*));
}

uint64 FreeListAllocator::releaseUnusedMemory()
{
    for (const Reference head : mLists)
    {
        for (Reference reference = head; reference != 0; reference = *getChunk(getPage(reference), reference))
            --getPage(reference)->mCount;
    }
    for (Reference& head : mLists)
    {
        for (Reference* link = &head; *link != 0;)
        {
            Page* page = getPage(*link);
            Reference* chunk = getChunk(page, *link);
            if (page->mCount == 0)
                *link = *chunk;
            else
                link = chunk;
        }
    }

    uint64 released = 0;
    for (uint32* link = &mFirstPage; *link != 0;)
    {
        Page*& entry = mTable[*link - 1];
        Page* page = entry;
        if (page->mCount != 0)
        {
            page->mCount = static_cast<uint16>(mPageBytes / page->getStride());
            link = &page->mNextPage;
            continue;
        }
        released += page->getStride();
        *link = page->mNextPage;
        entry = nullptr;
        ++mNumReleased;
        mSource->deallocate(page);
    }
    mFirstReleased = 0;
    return released;
}
} // namespace KORV::Common::Memory
