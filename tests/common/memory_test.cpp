#include "korv/common/callback/callbackallocator.h"
#include "korv/common/container/basicstring.h"
#include "korv/common/container/vector.h"
#include "korv/common/debug/assert.h"
#include "korv/common/interface.h"
#include "korv/common/memory/defaultallocator.h"
#include "korv/common/memory/memoryexception.h"
#include "korv/common/memory/memorymanaged.h"
#include "korv/common/memory/threadsafeallocator.h"
#include "support/test.h"

#include <limits>
#include <random>

using namespace KORV;
using namespace KORV::Common;
using Memory::AllocatorPtr;
using Memory::FreeListAllocator;

namespace
{
/// Blocks of a host's memory, seen by an allocator under test.
AllocatorPtr callbackAllocator(Testing::CountingMemory*& memory)
{
    memory = new Testing::CountingMemory;
    const SharedPtr<Callback::MemoryCallback> callback(memory);
    return AllocatorPtr(new (callback) Callback::CallbackAllocator);
}

struct Payload : Memory::MemoryManaged
{
    explicit Payload(bool fail = false)
    {
        if (fail)
            throw 1;
    }
    Vector<int> mValues{getMemory()};
};

/// Over-aligned, and holding a part that is MemoryManaged itself.
struct alignas(64) Aligned : Memory::MemoryManaged
{
    Payload mPart;
    double mValue = 0.0;
};

/// Takes and gives blocks of all sizes, and checks what was written to them.
void useAtRandom(uint32 pageBytes)
{
    Testing::CountingMemory* memory = nullptr;
    const AllocatorPtr base = callbackAllocator(memory);
    const AllocatorPtr list(new (base) FreeListAllocator(base, pageBytes));
    std::mt19937 random(7);
    std::vector<std::pair<unsigned char*, size_t>> blocks;
    const auto check = [](const std::pair<unsigned char*, size_t>& block)
    {
        for (size_t i = 0; i < block.second; ++i)
            ASSERT_EQ(block.first[i], static_cast<unsigned char>(block.second + i));
    };
    for (int step = 0; step < 60000; ++step)
    {
        if (blocks.empty() || random() % 100 < (step < 45000 ? 70u : 20u))
        {
            const size_t size = random() % 300;
            auto* block = static_cast<unsigned char*>(list->allocate(size));
            ASSERT_EQ(reinterpret_cast<std::uintptr_t>(block) % 4, 0u);
            for (size_t i = 0; i < size; ++i)
                block[i] = static_cast<unsigned char>(size + i);
            blocks.emplace_back(block, size);
            continue;
        }
        std::swap(blocks[random() % blocks.size()], blocks.back());
        check(blocks.back());
        list->deallocate(blocks.back().first);
        blocks.pop_back();
        if (step % 9000 == 0)
            list->releaseUnusedMemory();
    }
    for (const auto& block : blocks)
    {
        check(block);
        list->deallocate(block.first);
    }
    const int64 before = memory->mBlocks;
    EXPECT_GT(list->releaseUnusedMemory(), 0u);
    EXPECT_LT(memory->mBlocks, before);
    EXPECT_LE(memory->mBlocks, 3); // the allocators themselves and the grown table of pages
}
} // namespace

KORV_TEST(FreeList, pagesAndBlocksHaveTheSizesThatHostsCountOn)
{
    Testing::CountingMemory* memory = nullptr;
    const AllocatorPtr base = callbackAllocator(memory);
    const AllocatorPtr list(new (base) FreeListAllocator(base));
    memory->mRecord = true;
    const struct
    {
        uint64 mSize;
        std::vector<uint32> mRequests;
    } rows[] = {
        {8, {16392}}, {11, {}},       {0, {16392}}, {4, {16380 + 8}}, {251, {64u * (252 + 4) + 8}},
        {252, {256}}, {1000, {1004}},
    };
    std::vector<void*> blocks;
    for (const auto& row : rows)
    {
        KORV_CONTEXT("size " << row.mSize);
        memory->mSizes.clear();
        blocks.push_back(list->allocate(row.mSize));
        EXPECT_EQ(memory->mSizes, row.mRequests);
    }
    for (void* block : blocks)
        list->deallocate(block);
    list->deallocate(nullptr);
    EXPECT_TRUE(list->isClean());
}

KORV_TEST(FreeList, blocksKeepTheirContentThroughRandomUse)
{
    useAtRandom(FreeListAllocator::PAGE_BYTES);
    useAtRandom(FreeListAllocator::SMALL_PAGE_BYTES);
}

KORV_TEST(Allocators, refuseSizesTheyCannotHold)
{
    Testing::CountingMemory* memory = nullptr;
    const AllocatorPtr base = callbackAllocator(memory);
    const AllocatorPtr list(new (base) FreeListAllocator(base));
    const uint64 huge[] = {uint64{1} << 32, std::numeric_limits<uint64>::max(), std::numeric_limits<uint64>::max() - 3};
    for (const uint64 size : huge)
    {
        EXPECT_EQ(base->allocate(size), nullptr);
        EXPECT_EQ(list->allocate(size), nullptr);
        Memory::STLAllocator<double> objects(list.get());
        Testing::expectThrow<Memory::OutOfMemoryException>([&] { objects.deallocate(objects.allocate(size), 0); });
    }
    EXPECT_TRUE(memory->mBlocks == 2);
}

KORV_TEST(Allocators, reportWhatIsMissing)
{
    Testing::CountingMemory* memory = nullptr;
    AllocatorPtr base = callbackAllocator(memory);
    const SharedPtr<Callback::MemoryCallback> keep; // the callback goes with its allocator
    {
        const AllocatorPtr list(new (base) FreeListAllocator(base));
        memory->mFailAfter = 0;
        EXPECT_EQ(list->allocate(8), nullptr);
        expectReports({"header\nError Message: Cannot allocate memory block of size: 16392"});
        memory->mFailAfter = -1;
    }
    void* lost = base->allocate(100);
    memory->free(lost);
    base.release();
    expectReports({"isClean()\nError Message: callbackallocator has still an allocationcount of: 1"});

    AllocatorPtr heap(new Memory::DefaultAllocator);
    void* blocks[] = {heap->allocate(1), heap->allocate(2)};
    heap->deallocate(nullptr);
    EXPECT_FALSE(heap->isClean());
    heap.release();
    expectReports(
        {"isClean()\nError Message: Allocator has '2' blocks allocated, memory leak or wrong order of Allocator "
         "object -> allocated object deletion"});
    for (void* block : blocks)
        std::free(block);
}

KORV_TEST(Objects, rememberTheAllocatorTheyCameFrom)
{
    Testing::CountingMemory* memory = nullptr;
    AllocatorPtr base = callbackAllocator(memory);
    EXPECT_STREQ(base->getName(), "Callback");
    auto* aligned = new (base) Aligned;
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(aligned) % 64, 0u);
    EXPECT_EQ(aligned->getAllocator().get(), base.get());
    EXPECT_NE(aligned->mPart.getAllocator().get(), base.get()) << "a part was not created on the allocator by itself";

    const Payload local;
    EXPECT_EQ(local.getMemory(), Interface::getSharedAllocator().get());
    auto* copy = new (base) Payload(local);
    EXPECT_EQ(copy->getAllocator().get(), base.get());

    EXPECT_THROW(new (base) Payload(true), int);
    EXPECT_EQ(memory->mBlocks, 3);
    base.release(); // the objects keep it alive
    delete copy;
    delete aligned;
}

KORV_TEST(Objects, runningOutOfMemoryIsATypedExceptionAtEveryAllocation)
{
    for (int64 allowed = 0; allowed < 40; ++allowed)
    {
        KORV_CONTEXT("after " << allowed << " allocations");
        Testing::CountingMemory* memory = nullptr;
        const AllocatorPtr base = callbackAllocator(memory);
        memory->mFailAfter = allowed;
        try
        {
            const AllocatorPtr list(new (base) Memory::ThreadSafeAllocWrapper<FreeListAllocator>(base));
            Vector<Vector<double>> rows(list.get());
            for (int row = 0; row < 50; ++row)
                rows.emplace_back(static_cast<size_t>(row) * 10, 1.0, Memory::STLAllocator<double>(list.get()));
        }
        catch (Memory::OutOfMemoryException* error)
        {
            EXPECT_EQ(error->getMessage(), "No Memory available");
            delete error;
        }
        dropReports();
        EXPECT_EQ(memory->mBlocks, 1);
    }
}

KORV_TEST(Containers, emptyOnesAllocateNothing)
{
    const uint64 before = mMemory->mAllocations;
    {
        const Vector<double> vector;
        const BasicString text;
        const Container::BasicString<char16_t> wide;
        EXPECT_EQ(mMemory->mAllocations, before);
    }
}

TEST(Foundation, startsAndStopsOnTheHeapAndReportsASecondStart)
{
    std::vector<std::string> reports;
    Debug::setAssertionHandler([](const char* text, const char*, uint32, void* context)
                               { static_cast<std::vector<std::string>*>(context)->emplace_back(text); },
                               &reports);
    for (int round = 0; round < 2; ++round)
    {
        Interface::initLibrary(nullptr);
        EXPECT_STREQ(Interface::getBaseAllocator()->getName(), "Default");
        EXPECT_STREQ(Interface::getSharedAllocator()->getName(), "FreeList");
        Interface::closeLibrary();
        EXPECT_EQ(Interface::getBaseAllocator(), nullptr);
    }
    EXPECT_TRUE(reports.empty());

    Interface::initLibrary(nullptr);
    Memory::Allocator* first = Interface::getBaseAllocator().get();
    Interface::initLibrary(nullptr);
    EXPECT_EQ(Interface::getBaseAllocator().get(), first);
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0], "gMemCallback == NULL\nError Message: Common is already initialized !");

    AllocatorPtr held = Interface::getBaseAllocator();
    Interface::closeLibrary();
    ASSERT_EQ(reports.size(), 2u);
    EXPECT_EQ(reports[1], "\nError Message: there are other references to the object, delete it anyways");
    held->deallocate(held->allocate(10)); // the last holder still has a whole allocator
    held.release();
    Debug::setAssertionHandler(nullptr);
}

KORV_TEST(SharedPointers, countAndReportMisuse)
{
    SharedPtr<Payload> simple(new (Interface::getSharedAllocator()) Payload);
    {
        const SharedPtr<Payload> second = simple;
        EXPECT_FALSE(simple.isLastReference());
        EXPECT_EQ(second, simple);
    }
    EXPECT_TRUE(simple.isLastReference());
    simple = simple.get();
    expectReports(
        {"ptr != this->mPtr || this->mPtr == NULL\nError Message: No shared pointer should pointer to ptr yet"});
    simple = nullptr;
    EXPECT_TRUE(simple.isLastReference());
    EXPECT_EQ(simple.operator->(), nullptr);
    expectReports({"mPtr\nError Message: Try to dereference a NULL pointer"});
    EXPECT_EQ(mTraces.back().mText, "KORV::Common::SharedPtr::operator -> : mPtr :  Try to dereference a NULL pointer");
}
