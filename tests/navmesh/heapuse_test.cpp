// Counts what slips past the host's memory: this program's global operator new is replaced by one that counts.

#include "korv/common/callback/standardcallbacks.h"
#include "korv/common/debug/trace.h"
#include "korv/navmesh/interface.h"
#include "korv/navmesh/navmeshserializer.h"
#include "support/generate.h"
#include "support/test.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <new>

namespace
{
std::atomic<bool> gCounting{false};
std::atomic<uint64_t> gCount{0};

void* countedNew(size_t size)
{
    if (gCounting.load(std::memory_order_relaxed))
        gCount.fetch_add(1, std::memory_order_relaxed);
    void* block = std::malloc(size > 0 ? size : 1);
    if (block == nullptr)
        throw std::bad_alloc();
    return block;
}
} // namespace

void* operator new(size_t size)
{
    return countedNew(size);
}
void* operator new[](size_t size)
{
    return countedNew(size);
}
void* operator new(size_t size, const std::nothrow_t&) noexcept
{
    if (gCounting.load(std::memory_order_relaxed))
        gCount.fetch_add(1, std::memory_order_relaxed);
    return std::malloc(size > 0 ? size : 1);
}
void operator delete(void* block) noexcept
{
    std::free(block);
}
void operator delete[](void* block) noexcept
{
    std::free(block);
}
void operator delete(void* block, size_t) noexcept
{
    std::free(block);
}
void operator delete[](void* block, size_t) noexcept
{
    std::free(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept
{
    std::free(block);
}

using namespace KORV;
using namespace KORV::NavMesh;

TEST(HeapUse, aWholeRunTakesItsMemoryFromTheHostAlone)
{
    const std::string fileName = testing::TempDir() + "heapuse.xml";
    auto* memory = new Testing::CountingMemory;
    const SharedPtr<Common::Callback::MemoryCallback> memoryCallback(memory);
    Interface::initLibrary(memoryCallback,
                           SharedPtr<Common::Callback::FileIOCallback>(new Common::Callback::StandardFileIOCallback));
    {
        Testing::SceneRun run(Scenes::courtyard(), 0.4f);
        run.mParameter.mNumThreads = 2;
        gCounting = true;
        const auto mesh = run.run();
        gCounting = false;
        ASSERT_NE(mesh, nullptr);
        EXPECT_EQ(gCount.exchange(0), 0u) << "allocations of a generation went past the host's memory";

        gCounting = true;
        NavMeshSerializer::writeNavMesh(fileName.c_str(), mesh);
        const auto copy = NavMeshSerializer::readNavMesh(BasicString(fileName.c_str()));
        gCounting = false;
        ASSERT_NE(copy, nullptr);
        EXPECT_EQ(copy->mNodes.size(), mesh->mNodes.size());
        EXPECT_LT(gCount.exchange(0), 8u) << "only the host's own file handles may allocate here";
    }
    Interface::closeLibrary();
    EXPECT_EQ(memory->mBlocks, 0);
    std::remove(fileName.c_str());
}
