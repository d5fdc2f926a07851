#pragma once

#include "korv/common/api.h"
#include "korv/common/container/basicstring.h"
#include "korv/common/types.h"

namespace KORV::Common::Debug
{
/// Kinds of log entries; bits, so that masks can name several.
enum LogType : uint32
{
    LOG_DEBUG_MESSAGE = 1,
    LOG_DEBUG_ERROR = 2,
    LOG_MESSAGE = 4,
    LOG_WARNING = 8,
    LOG_ERROR = 16
};

/// How many LogType bits there are.
inline constexpr uint32 NUM_LOG_TYPES = 5;
/// A mask that names every type.
inline constexpr uint32 ALL_LOG_TYPES = 0xFF;

/// @return "DbgMsg", "DbgErr", "Message", "Warning" or "Error"; "UNKNOWN" for anything but one of the five bits.
KORV_COMMON_API const char* getLogTypeName(uint32 type);

/// What dispatchers receive.
struct LogEntry
{
    LogEntry() = default;
    /// An entry whose texts live on the given allocator.
    explicit LogEntry(Memory::Allocator* allocator)
        : mMessage(allocator), mReporterName(allocator), mFunctionName(allocator), mFileName(allocator)
    {
    }

    uint32 mType = 0; ///< one LogType bit
    BasicString mMessage;
    BasicString mReporterName;
    BasicString mFunctionName;
    BasicString mFileName; ///< source file of the call
    uint32 mLine = 0;
};
} // namespace KORV::Common::Debug
