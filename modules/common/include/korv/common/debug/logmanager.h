#pragma once

#include "korv/common/container/nodecontainers.h"
#include "korv/common/container/vector.h"
#include "korv/common/debug/logdispatcher.h"
#include "korv/common/debug/logreporter.h"
#include "korv/common/singleton.h"

namespace KORV::Common
{
namespace Debug
{
class LogManager;
}

// The one pointer lives in the library, not once more in every program that includes this.
extern template class KORV_COMMON_API Singleton<Debug::LogManager>;

namespace Debug
{
/// Knows the log reporters by name and the dispatchers by type. Lists and names are not locked: set them up on one
/// thread, before others log.
class KORV_COMMON_API LogManager : public Singleton<LogManager>
{
public:
    static constexpr const char* SINGLETON_NAME =
        "KORV::Common::Singleton<class KORV::Common::Debug::LogManager>::createInstance";

    LogManager();
    /// Deletes the reporters that are left; dispatchers belong to whoever added them.
    ~LogManager() override;
    LogManager(const LogManager&) = delete;
    LogManager& operator=(const LogManager&) = delete;

    /// @return a new reporter with the default masks, owned by the manager, or null when the name is in use.
    LogReporter* createReporter(const BasicString& name);
    /// Deletes a reporter of this manager; anything else, null included, is ignored.
    void deleteReporter(LogReporter* reporter);

    /// Appends a dispatcher (not owned, null is ignored) to the lists of the types in the mask.
    /// @param exclusive  whether those lists are emptied first.
    void addDispatcher(LogDispatcher* dispatcher, uint32 typeMask, bool exclusive);
    /// Takes a dispatcher off the lists of the types in the mask.
    void removeDispatcher(LogDispatcher* dispatcher, uint32 typeMask);

    /// Gives every registered reporter the same log mask.
    void setLogMask(uint32 logMask);

    /// Hands an entry to every dispatcher of its type, in the order they were added.
    void dispatch(const LogEntry& entry);

private:
    using DispatcherList = Vector<LogDispatcher*>;

    LogReporter* mReporter = nullptr;
    Container::Map<BasicString, LogReporter*> mReporters;
    DispatcherList mDispatchers[NUM_LOG_TYPES];
};
} // namespace Debug
} // namespace KORV::Common
