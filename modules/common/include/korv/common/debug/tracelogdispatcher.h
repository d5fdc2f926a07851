#pragma once

#include "korv/common/debug/logdispatcher.h"
#include "korv/common/memory/memorymanaged.h"

namespace KORV::Common::Debug
{
/// Echoes entries as "Log: " lines on standard output and sends them to the trace sink. The foundation's
/// initialisation registers one for all types.
class KORV_COMMON_API TraceLogDispatcher : public Memory::MemoryManaged, public LogDispatcher
{
public:
    TraceLogDispatcher();
    ~TraceLogDispatcher() override;

    void dispatch(const LogEntry& entry) override;
};
} // namespace KORV::Common::Debug
