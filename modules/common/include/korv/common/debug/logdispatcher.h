#pragma once

#include "korv/common/debug/logtypes.h"

namespace KORV::Common::Debug
{
/// Receives log entries; hosts may derive. Called on the thread that logs; it must neither add nor remove dispatchers.
class KORV_COMMON_API LogDispatcher
{
public:
    virtual ~LogDispatcher();
    virtual void dispatch(const LogEntry& entry) = 0;
};
} // namespace KORV::Common::Debug
