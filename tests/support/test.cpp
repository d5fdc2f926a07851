#include "support/test.h"

#include "korv/common/debug/assert.h"
#include "korv/common/interface.h"

#include <atomic>
#include <cstdlib>

namespace KORV::Testing
{
namespace
{
std::atomic<int> gInside{0};

struct Visit
{
    Visit()
    {
        if (gInside.fetch_add(1) != 0)
            CountingMemory::sOverlapped = true;
    }
    ~Visit() { gInside.fetch_sub(1); }
};
} // namespace

bool CountingMemory::sOverlapped = false;

void* CountingMemory::allocate(uint32 size)
{
    const Visit visit;
    if (mFailAfter == 0)
        return nullptr;
    if (mFailAfter > 0)
        --mFailAfter;
    if (mRecord)
        mSizes.push_back(size);
    ++mBlocks;
    ++mAllocations;
    return std::malloc(size);
}

void CountingMemory::free(void* block)
{
    const Visit visit;
    --mBlocks;
    std::free(block);
}

class LibraryTest::Receiver : public Common::Debug::TraceReceiver
{
public:
    explicit Receiver(std::vector<TraceLine>& lines) : mLines(lines) {}
    void receive(uint32 type, const void* data, size_t size) override
    {
        const Common::Threading::ScopedLock guard(mLock);
        mLines.push_back({type, std::string(static_cast<const char*>(data), size)});
    }

private:
    std::vector<TraceLine>& mLines;
    Common::Threading::SpinLock mLock;
};

void LibraryTest::SetUp()
{
    CountingMemory::sOverlapped = false;
    mReceiver = new Receiver(mTraces);
    Common::Debug::Trace::setReceiver(mReceiver);
    Common::Debug::setAssertionHandler(&LibraryTest::onReport, this);
    mMemory = new CountingMemory;
    Common::SharedPtr<Common::Callback::MemoryCallback> callback(mMemory);
    Common::Interface::initLibrary(callback);
    // The test keeps looking at the counts after the library has let go.
    static Common::SharedPtr<Common::Callback::MemoryCallback> sKeepAlive;
    sKeepAlive = callback;
}

void LibraryTest::TearDown()
{
    Common::Interface::closeLibrary();
    EXPECT_EQ(mMemory->mBlocks, 0) << "blocks were not given back to the host";
    EXPECT_FALSE(CountingMemory::sOverlapped) << "two threads were inside the host's memory callback at once";
    for (const std::string& report : mReports)
        ADD_FAILURE() << "unexpected report: " << report;
    Common::Debug::setAssertionHandler(nullptr);
    Common::Debug::Trace::setReceiver(nullptr);
    delete mReceiver;
}

void LibraryTest::expectReports(const std::vector<std::string>& texts)
{
    EXPECT_EQ(mReports, texts);
    mReports.clear();
}

size_t LibraryTest::dropReports()
{
    const size_t count = mReports.size();
    mReports.clear();
    return count;
}

void LibraryTest::onReport(const char* text, const char*, uint32, void* context)
{
    static Common::Threading::SpinLock sLock;
    const Common::Threading::ScopedLock guard(sLock);
    static_cast<LibraryTest*>(context)->mReports.emplace_back(text);
}
} // namespace KORV::Testing

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
