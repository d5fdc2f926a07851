#include "korv/common/debug/trace.h"

#include "korv/common/debug/assert.h"
#include "korv/common/memory/stlallocator.h"

#include <cstdarg>
#include <cstdio>

namespace KORV::Common::Debug
{
namespace
{
TraceReceiver* gReceiver = nullptr;
char* gBuffer = nullptr;
Memory::AllocatorPtr gBufferOwner;
} // namespace

TraceReceiver::~TraceReceiver() = default;

void Trace::setReceiver(TraceReceiver* receiver)
{
    gReceiver = receiver;
}

void Trace::init(const Memory::AllocatorPtr& allocator)
{
    if (!KORV_COMMON_ASSERT("KORV::Common::Debug::Trace::init", gBuffer == nullptr, "!m_writestr",
                            "Debug::Trace is already initialised"))
        return;
    gBuffer = static_cast<char*>(Memory::allocateAligned(*allocator, BUFFER_SIZE, 1));
    gBufferOwner = allocator;
}

void Trace::shutdown()
{
    if (gBuffer == nullptr)
        return;
    Memory::deallocateAligned(*gBufferOwner, gBuffer, 1);
    gBuffer = nullptr;
    gBufferOwner.release();
}

size_t Trace::send(uint32 type, const MessageText& text)
{
    return sendData(type, text.c_str(), text.size());
}

size_t Trace::sendData(uint32 type, const void* data, size_t size)
{
    if (gReceiver == nullptr)
        return 0;
    gReceiver->receive(type, data, size);
    return size;
}

namespace
{
[[gnu::format(printf, 3, 0)]] size_t sendFormatted(uint32 type, const char* name, const char* format,
                                                   std::va_list arguments)
{
    if (gBuffer == nullptr)
        return 0;
    size_t length = 0;
    const auto advance = [&length](int written)
    {
        if (written > 0)
            length += static_cast<size_t>(written);
        if (length > Trace::BUFFER_SIZE - 1)
            length = Trace::BUFFER_SIZE - 1;
    };
    if (name != nullptr)
        advance(std::snprintf(gBuffer, Trace::BUFFER_SIZE, "%s: ", name));
    advance(std::vsnprintf(gBuffer + length, Trace::BUFFER_SIZE - length, format, arguments));
    return Trace::sendData(type, gBuffer, length);
}
} // namespace

size_t Trace::errorFormatted(const char* name, const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    const size_t delivered = sendFormatted(TRACE_ERROR, name, format, arguments);
    va_end(arguments);
    return delivered;
}

size_t Trace::messageFormatted(const char* name, const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    const size_t delivered = sendFormatted(TRACE_MESSAGE, name, format, arguments);
    va_end(arguments);
    return delivered;
}
} // namespace KORV::Common::Debug
