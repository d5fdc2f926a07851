#pragma once

#include "korv/common/memory/allocator.h"

namespace KORV::Common::Memory
{
/// Small blocks (up to 251 bytes) from pages of equal chunks, one list pop or push each; larger ones from the parent.
/// One thread at a time.
///
/// A 4-byte word in front of every block says where it came from: 0 for the parent, else the reference of the chunk,
/// which is the page's number (from 1) shifted left by 11, or-ed with the chunk's place in the page. A free chunk keeps
/// the reference of the next free one in its first word.
class KORV_COMMON_API FreeListAllocator : public Allocator
{
public:
    /// Size of a page, about. [bytes]
    static constexpr uint32 PAGE_BYTES = 16384;
    /// The same for allocators that live for a while only, or beside many others: each keeps a page for every size in
    /// use.
    static constexpr uint32 SMALL_PAGE_BYTES = 1024;

    /// @param pageBytes  256 at least, for a chunk of every size, and PAGE_BYTES at most.
    explicit FreeListAllocator(const AllocatorPtr& source, uint32 pageBytes = PAGE_BYTES);
    /// Gives every page back to the parent.
    ~FreeListAllocator() override;

    void* allocate(uint64 size) override;
    void deallocate(void* block) override;
    bool isClean() override;
    uint64 releaseUnusedMemory() override;

private:
    struct Page;
    using Reference = uint32;

    static constexpr uint32 NUM_LISTS = 64;
    static constexpr uint32 CHUNK_BITS = 11; // a page has at most 16384 / 8 = 2048 chunks
    static constexpr uint32 MAX_PAGES = (1u << (32 - CHUNK_BITS)) - 1;
    static constexpr uint32 NUM_LOCAL_PAGES = 64;

    void allocBlock(uint32 units);
    /// Finds a number for a new page and room for its entry; 0 when there is none.
    uint32 takePageNumber();
    bool growTable();
    void releaseTable();
    Page* getPage(Reference reference) const { return mTable[(reference >> CHUNK_BITS) - 1]; }
    static Reference* getChunk(Page* page, Reference reference);

    AllocatorPtr mSource;
    uint32 mPageBytes;
    Reference mLists[NUM_LISTS] = {};
    uint32 mFirstPage = 0;
    uint32 mNumPages = 0; // entries of the table in use, those of released pages included
    uint32 mNumReleased = 0;
    uint32 mFirstReleased = 0; // index of a page: none before it is released
    uint32 mTableSize = NUM_LOCAL_PAGES;
    Page** mTable = mLocalTable;
    Page* mLocalTable[NUM_LOCAL_PAGES] = {};
};
} // namespace KORV::Common::Memory
