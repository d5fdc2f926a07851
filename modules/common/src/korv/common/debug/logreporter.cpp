#include "korv/common/debug/logreporter.h"

#include "korv/common/debug/assert.h"
#include "korv/common/debug/logmanager.h"

namespace KORV::Common::Debug
{
namespace
{
void setBits(uint32& mask, uint32 bits, bool on)
{
    mask = on ? mask | bits : mask & ~bits;
}
} // namespace

const char* getLogTypeName(uint32 type)
{
    switch (type)
    {
    case LOG_DEBUG_MESSAGE:
        return "DbgMsg";
    case LOG_DEBUG_ERROR:
        return "DbgErr";
    case LOG_MESSAGE:
        return "Message";
    case LOG_WARNING:
        return "Warning";
    case LOG_ERROR:
        return "Error";
    default:
        return "UNKNOWN";
    }
}

LogReporter::LogReporter(const BasicString& name, LogManager* manager) : mName(name, getMemory()), mManager(manager) {}

LogReporter::~LogReporter() = default;

void LogReporter::reportLog(uint32 type, std::string_view message, std::string_view functionName,
                            std::string_view fileName, uint32 line)
{
    if (isLogging(type))
    {
        LogEntry entry(getMemory());
        entry.mType = type;
        entry.mMessage = message;
        entry.mReporterName = mName;
        entry.mFunctionName = functionName;
        entry.mFileName = fileName;
        entry.mLine = line;
        mManager->dispatch(entry);
    }
    if ((mBreakMask & type) != 0)
        KORV_COMMON_FAIL("KORV::Common::Debug::LogReporter::reportLog",
                         message << "\nLogBreak ErrorType: " << getLogTypeName(type) << "\nInstance: " << mName);
}

void LogReporter::setLogMaskBits(uint32 bits, bool on)
{
    setBits(mLogMask, bits, on);
}

void LogReporter::setBreakMaskBits(uint32 bits, bool on)
{
    setBits(mBreakMask, bits, on);
}
} // namespace KORV::Common::Debug
