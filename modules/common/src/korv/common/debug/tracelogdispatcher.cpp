#include "korv/common/debug/tracelogdispatcher.h"

#include "korv/common/debug/trace.h"
#include "korv/common/platform/console.h"

namespace KORV::Common::Debug
{
TraceLogDispatcher::TraceLogDispatcher() = default;

TraceLogDispatcher::~TraceLogDispatcher() = default;

void TraceLogDispatcher::dispatch(const LogEntry& entry)
{
    // one string, so that lines of several threads do not mix
    BasicString line("Log: ", getMemory());
    line += entry.mMessage;
    line += '\n';
    Platform::writeStandardOutput(line);

    const bool harmless = entry.mType == LOG_DEBUG_MESSAGE || entry.mType == LOG_MESSAGE;
    MessageText text;
    text << '(' << entry.mReporterName << ") " << entry.mFunctionName << " : " << entry.mMessage;
    Trace::send(harmless ? TRACE_MESSAGE : TRACE_ERROR, text);
}
} // namespace KORV::Common::Debug
