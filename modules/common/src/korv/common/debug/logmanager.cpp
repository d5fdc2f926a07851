#include "korv/common/debug/logmanager.h"

#include <algorithm>
#include <memory>

namespace KORV::Common
{
template class Singleton<Debug::LogManager>;

namespace Debug
{
LogDispatcher::~LogDispatcher() = default;

LogManager::LogManager() : mReporters(getMemory())
{
    for (DispatcherList& list : mDispatchers)
        list = DispatcherList(getMemory());
    mReporter = createReporter("LogManager");
}

LogManager::~LogManager()
{
    for (const auto& [name, reporter] : mReporters)
        delete reporter;
}

LogReporter* LogManager::createReporter(const BasicString& name)
{
    if (mReporters.find(name) != mReporters.end())
        return nullptr;
    std::unique_ptr<LogReporter> reporter(new (getAllocator()) LogReporter(name, this));
    mReporters.emplace(BasicString(name, getMemory()), reporter.get());
    return reporter.release();
}

void LogManager::deleteReporter(LogReporter* reporter)
{
    // by address, because a pointer that is not ours must not be looked into
    const auto found = std::find_if(mReporters.begin(), mReporters.end(),
                                    [reporter](const auto& entry) { return entry.second == reporter; });
    if (found == mReporters.end())
        return;
    if (reporter == mReporter)
        mReporter = nullptr;
    mReporters.erase(found);
    delete reporter;
}

void LogManager::addDispatcher(LogDispatcher* dispatcher, uint32 typeMask, bool exclusive)
{
    if (dispatcher == nullptr)
        return;
    for (uint32 bit = 0; bit < NUM_LOG_TYPES; ++bit)
    {
        if ((typeMask & (1u << bit)) == 0)
            continue;
        if (exclusive)
            mDispatchers[bit].clear();
        mDispatchers[bit].push_back(dispatcher);
    }
}

void LogManager::removeDispatcher(LogDispatcher* dispatcher, uint32 typeMask)
{
    for (uint32 bit = 0; bit < NUM_LOG_TYPES; ++bit)
    {
        if ((typeMask & (1u << bit)) != 0)
            std::erase(mDispatchers[bit], dispatcher);
    }
}

void LogManager::setLogMask(uint32 logMask)
{
    for (const auto& [name, reporter] : mReporters)
        reporter->mLogMask = logMask;
}

void LogManager::dispatch(const LogEntry& entry)
{
    for (uint32 bit = 0; bit < NUM_LOG_TYPES; ++bit)
    {
        if ((entry.mType & (1u << bit)) == 0)
            continue;
        for (LogDispatcher* dispatcher : mDispatchers[bit])
            dispatcher->dispatch(entry);
    }
}
} // namespace Debug
} // namespace KORV::Common
