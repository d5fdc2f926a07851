#include "korv/common/debug/messagetext.h"

#include <charconv>
#include <cstring>

namespace KORV::Common::Debug
{
namespace
{
/// Digits of the stream's default float format.
constexpr int PRECISION = 6;

template <class Number, class... Format>
std::string_view print(char (&buffer)[64], Number value, Format... format)
{
    const std::to_chars_result result = std::to_chars(buffer, buffer + sizeof(buffer), value, format...);
    return {buffer, static_cast<size_t>(result.ptr - buffer)};
}
} // namespace

MessageText& MessageText::operator<<(std::string_view text)
{
    const size_t room = CAPACITY - mLength;
    const size_t length = text.size() < room ? text.size() : room;
    std::memcpy(mText + mLength, text.data(), length);
    mLength += length;
    mText[mLength] = '\0';
    return *this;
}

MessageText& MessageText::operator<<(float value)
{
    return *this << static_cast<double>(value);
}

MessageText& MessageText::operator<<(double value)
{
    char buffer[64];
    return *this << print(buffer, value, std::chars_format::general, PRECISION);
}

MessageText& MessageText::appendSigned(int64 value)
{
    char buffer[64];
    return *this << print(buffer, value);
}

MessageText& MessageText::appendUnsigned(uint64 value)
{
    char buffer[64];
    return *this << print(buffer, value);
}
} // namespace KORV::Common::Debug
