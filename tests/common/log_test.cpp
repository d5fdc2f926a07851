#include "korv/common/debug/logmanager.h"
#include "korv/common/interface.h"
#include "support/test.h"

#include <memory>

using namespace KORV;
using namespace KORV::Common::Debug;

namespace
{
/// Notes what it receives, in one line an entry.
class Recorder : public LogDispatcher
{
public:
    Recorder(std::string tag, std::vector<std::string>& lines) : mTag(std::move(tag)), mLines(lines) {}
    void dispatch(const LogEntry& entry) override
    {
        mLines.push_back(mTag + ":" + std::to_string(entry.mType) + ":" + entry.mReporterName.c_str() + ":" +
                         entry.mFunctionName.c_str() + ":" + entry.mFileName.c_str() + ":" +
                         std::to_string(entry.mLine) + ":" + entry.mMessage.c_str());
    }

private:
    std::string mTag;
    std::vector<std::string>& mLines;
};

/// A manager of the test's own, without the dispatcher that echoes.
std::unique_ptr<LogManager> createManager()
{
    return std::unique_ptr<LogManager>(new (Common::Interface::getSharedAllocator()) LogManager);
}
} // namespace

KORV_TEST(Log, entriesReachTheDispatchersOfTheirTypeInOrder)
{
    const auto manager = createManager();
    LogReporter* reporter = manager->createReporter("R");
    std::vector<std::string> lines;
    Recorder all("all", lines), warnings("warn", lines), only("only", lines);
    manager->addDispatcher(&all, ALL_LOG_TYPES, false);
    manager->addDispatcher(&warnings, LOG_WARNING | LOG_ERROR, false);

    reporter->reportLog(LOG_WARNING, "low", "F", "f.cpp", 7);
    EXPECT_EQ(lines, (std::vector<std::string>{"all:8:R:F:f.cpp:7:low", "warn:8:R:F:f.cpp:7:low"}));
    lines.clear();

    manager->addDispatcher(&only, LOG_WARNING, true);
    reporter->reportLog(LOG_WARNING, "w", "F", "f", 1);
    reporter->reportLog(LOG_DEBUG_MESSAGE, "d", "F", "f", 1);
    EXPECT_EQ(lines, (std::vector<std::string>{"only:8:R:F:f:1:w", "all:1:R:F:f:1:d"}));
    lines.clear();

    manager->removeDispatcher(&all, LOG_MESSAGE);
    reporter->reportLog(LOG_MESSAGE, "m", "F", "f", 1);
    EXPECT_TRUE(lines.empty());
    reporter->reportLog(LOG_DEBUG_ERROR, "e", "F", "f", 1);
    EXPECT_EQ(lines.size(), 1u);
}

KORV_TEST(Log, masksDecideWhatIsLoggedAndWhatBreaks)
{
    const auto manager = createManager();
    LogReporter* reporter = manager->createReporter("Net");
    std::vector<std::string> lines;
    Recorder recorder("x", lines);
    manager->addDispatcher(&recorder, ALL_LOG_TYPES, false);

    reporter->reportLog(LOG_ERROR, "boom", "F", "f", 1);
    EXPECT_EQ(lines.size(), 1u);
    const std::string text = "boom\nLogBreak ErrorType: Error\nInstance: Net";
    expectReports({"\nError Message: " + text});
    ASSERT_EQ(mTraces.size(), 1u);
    EXPECT_EQ(mTraces[0].mType, 0u);
    EXPECT_EQ(mTraces[0].mText, "KORV::Common::Debug::LogReporter::reportLog : Error: " + text);

    // the two masks work apart from each other
    manager->setLogMask(LOG_MESSAGE);
    EXPECT_FALSE(reporter->isLogging(LOG_ERROR));
    reporter->reportLog(LOG_ERROR, "boom", "F", "f", 1);
    EXPECT_EQ(lines.size(), 1u);
    EXPECT_EQ(dropReports(), 1u);
    reporter->setLogMaskBits(LOG_WARNING, true);
    reporter->setLogMaskBits(LOG_MESSAGE, false);
    reporter->setBreakMaskBits(LOG_ERROR, false);
    reporter->setBreakMaskBits(LOG_WARNING | 32, true);
    reporter->reportLog(LOG_MESSAGE, "m", "F", "f", 1);
    reporter->reportLog(LOG_ERROR, "e", "F", "f", 1);
    EXPECT_EQ(lines.size(), 1u);
    reporter->reportLog(32, "?", "F", "f", 1);
    expectReports({"\nError Message: ?\nLogBreak ErrorType: UNKNOWN\nInstance: Net"});
}

KORV_TEST(Log, reporterNamesAreTakenOnceAndFreedByDeleting)
{
    const auto manager = createManager();
    LogReporter* first = manager->createReporter("A");
    EXPECT_EQ(manager->createReporter("A"), nullptr);
    EXPECT_EQ(manager->createReporter("LogManager"), nullptr);
    LogReporter* foreign = Common::Interface::getLogReporter();
    manager->deleteReporter(foreign);
    manager->deleteReporter(nullptr);
    manager->deleteReporter(first);
    EXPECT_NE(manager->createReporter("A"), nullptr);
    EXPECT_EQ(foreign->getName(), "Common");
}

KORV_TEST(Log, theFoundationEchoesEntriesOnStandardOutputAndTrace)
{
    testing::internal::CaptureStdout();
    Common::Interface::getLogReporter()->reportLog(LOG_MESSAGE, "hello", "F", "f.cpp", 3);
    Common::Interface::getLogReporter()->reportLog(LOG_WARNING, "mind", "G", "f.cpp", 4);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Log: hello\nLog: mind\n");
    ASSERT_EQ(mTraces.size(), 2u);
    EXPECT_EQ(mTraces[0].mType, 1u);
    EXPECT_EQ(mTraces[0].mText, "(Common) F : hello");
    EXPECT_EQ(mTraces[1].mType, 0u);
    EXPECT_EQ(mTraces[1].mText, "(Common) G : mind");
}

KORV_TEST(Log, aSecondManagerIsReportedAndNotTaken)
{
    LogManager* first = LogManager::getInstance();
    const auto second = createManager();
    LogManager::createInstance(second.get());
    EXPECT_EQ(LogManager::getInstance(), first);
    expectReports({"\nError Message: there is already an instance of this singleton object"});
    ASSERT_EQ(mTraces.size(), 1u);
    EXPECT_EQ(mTraces[0].mText, "KORV::Common::Singleton<class KORV::Common::Debug::LogManager>::createInstance : "
                                "Error: there is already an instance of this singleton object");
}
