#pragma once

#include "korv/common/debug/logtypes.h"
#include "korv/common/memory/memorymanaged.h"

#include <string_view>

namespace KORV::Common::Debug
{
class LogManager;

/// A named source of log entries. Created and owned by the LogManager.
class KORV_COMMON_API LogReporter : public Memory::MemoryManaged
{
public:
    static constexpr uint32 DEFAULT_LOG_MASK = 0xFF;
    static constexpr uint32 DEFAULT_BREAK_MASK = LOG_ERROR;

    ~LogReporter() override;

    /// Hands an entry to the dispatchers of its type when the log mask lets it pass; afterwards makes an assertion
    /// report when the break mask names the type.
    /// @param type  one LogType bit.
    void reportLog(uint32 type, std::string_view message, std::string_view functionName, std::string_view fileName,
                   uint32 line);
    /// Whether entries of the type pass the log mask. Ask before building an expensive message.
    bool isLogging(uint32 type) const { return (mLogMask & type) != 0; }

    /// Sets or clears bits of the mask of types that are logged.
    void setLogMaskBits(uint32 bits, bool on);
    /// Sets or clears bits of the mask of types that make an assertion report.
    void setBreakMaskBits(uint32 bits, bool on);

    const BasicString& getName() const { return mName; }

private:
    friend class LogManager;

    LogReporter(const BasicString& name, LogManager* manager);

    uint32 mLogMask = DEFAULT_LOG_MASK;
    uint32 mBreakMask = DEFAULT_BREAK_MASK;
    BasicString mName;
    LogManager* mManager;
};
} // namespace KORV::Common::Debug
