#pragma once

#include "korv/common/api.h"
#include "korv/common/debug/messagetext.h"
#include "korv/common/memory/allocator.h"
#include "korv/common/types.h"

namespace KORV::Common::Debug
{
/// Types of trace messages.
enum TraceType : uint32
{
    TRACE_ERROR = 0,
    TRACE_MESSAGE = 1
};

/// Takes the place of a trace viewer: receives every trace message. Calls may come from worker threads at the same
/// time, and must not call back into the library.
class KORV_COMMON_API TraceReceiver
{
public:
    virtual ~TraceReceiver();
    /// @param type  TRACE_ERROR, TRACE_MESSAGE or the code of a typed data message.
    /// @param data  @p size bytes; a text does not count its terminating zero.
    virtual void receive(uint32 type, const void* data, size_t size) = 0;
};

/// The trace sink. Without a receiver every message is dropped and the result is 0.
class KORV_COMMON_API Trace
{
public:
    /// Size of the buffer that the formatted variants share; they are not meant for several threads at once.
    static constexpr size_t BUFFER_SIZE = 4096;

    /// Installs the receiver (not owned), null for none. Call it while no other thread uses the library.
    static void setReceiver(TraceReceiver* receiver);

    /// Allocates the buffer of the formatted variants; a second call is reported and changes nothing.
    static void init(const Memory::AllocatorPtr& allocator);
    /// Gives the buffer back.
    static void shutdown();

    /// @return the number of characters delivered, 0 when there is no receiver.
    static size_t send(uint32 type, const MessageText& text);
    static size_t error(const MessageText& text) { return send(TRACE_ERROR, text); }
    static size_t message(const MessageText& text) { return send(TRACE_MESSAGE, text); }
    /// Sends a typed data message.
    static size_t sendData(uint32 type, const void* data, size_t size);

    /// printf-like, with the name written as "%s: " in front unless it is null. Texts are cut to the buffer.
    [[gnu::format(printf, 2, 3)]] static size_t errorFormatted(const char* name, const char* format, ...);
    [[gnu::format(printf, 2, 3)]] static size_t messageFormatted(const char* name, const char* format, ...);
};
} // namespace KORV::Common::Debug
