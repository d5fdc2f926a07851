#pragma once

#include "korv/common/callback/memorycallback.h"
#include "korv/common/debug/trace.h"
#include "korv/common/exceptions/exception.h"
#include "korv/common/sharedptr.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace KORV::Testing
{
/// A host's memory that counts: blocks out, bytes asked for, calls that overlap. It can be told to fail.
class CountingMemory : public Common::Callback::MemoryCallback
{
public:
    void* allocate(uint32 size) override;
    void free(void* block) override;

    int64 mBlocks = 0;
    uint64 mAllocations = 0;
    std::vector<uint32> mSizes; ///< sizes asked for, recorded while mRecord is set
    bool mRecord = false;
    int64 mFailAfter = -1; ///< allocations that still succeed; negative: no limit

    /// Whether two threads were ever inside at once.
    static bool sOverlapped;
};

/// One trace message as received.
struct TraceLine
{
    uint32 mType;
    std::string mText;
};

/// Starts the foundation on a CountingMemory, gathers assertion reports and traces, and fails the test for reports that
/// nobody expected and for blocks that did not come back.
class LibraryTest : public testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    /// Expects that exactly the reports made since the last call are these, and forgets them.
    void expectReports(const std::vector<std::string>& texts);
    /// Forgets the reports made so far without looking at them; returns how many there were.
    size_t dropReports();

    CountingMemory* mMemory = nullptr;
    std::vector<TraceLine> mTraces;
    std::vector<std::string> mReports;

private:
    class Receiver;

    static void onReport(const char* text, const char* file, uint32 line, void* context);

    Receiver* mReceiver = nullptr;
};

/// Runs @p action, which must throw an X by pointer; deletes it and returns its message.
template <class X, class Action>
std::string expectThrow(Action&& action)
{
    try
    {
        action();
    }
    catch (X* error)
    {
        std::string message(error->getMessage().c_str());
        delete error;
        return message;
    }
    catch (Common::Exceptions::Exception* error)
    {
        ADD_FAILURE() << "another exception: " << error->getName().c_str() << ": " << error->getMessage().c_str();
        delete error;
        return {};
    }
    ADD_FAILURE() << "no exception";
    return {};
}
} // namespace KORV::Testing

/// A test that runs inside the initialised foundation: KORV_TEST(Area, truthThatHolds) { ... }
#define KORV_TEST(suite, name)                                                                                         \
    class suite##_##name : public ::KORV::Testing::LibraryTest                                                         \
    {                                                                                                                  \
    };                                                                                                                 \
    TEST_F(suite##_##name, holds)

/// Adds a context to the failures of the scope: KORV_CONTEXT("seed " << seed);
#define KORV_CONTEXT(message) SCOPED_TRACE(::testing::Message() << message)
