// Numbers as text, by std::from_chars and std::to_chars, which know no locale. They differ from the C library's
// conversions in the front matter (white space, plus sign, "0x") and at the ends of the range, where they give no
// value; both are added here.

#include "korv/common/parser/numbertext.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace KORV::Common::Parser
{
namespace
{
bool isSpace(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

bool isHexDigit(char c)
{
    return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

/// Takes white space and a sign off the front.
/// @return whether the sign is a minus.
bool takeSign(std::string_view& text)
{
    while (!text.empty() && isSpace(text.front()))
        text.remove_prefix(1);
    if (text.empty() || (text.front() != '-' && text.front() != '+'))
        return false;
    const bool negative = text.front() == '-';
    text.remove_prefix(1);
    return negative;
}

/// Takes the digits of an integer off the front.
/// @return false when there are none; @p text is then of no use.
bool takeMagnitude(std::string_view& text, uint64& magnitude)
{
    const char* const end = text.data() + text.size();
    const std::from_chars_result result = std::from_chars(text.data(), end, magnitude);
    if (result.ec == std::errc::invalid_argument)
        return false;
    if (result.ec == std::errc::result_out_of_range)
        magnitude = std::numeric_limits<uint64>::max();
    text.remove_prefix(static_cast<size_t>(result.ptr - text.data()));
    return true;
}

bool takeInt64(std::string_view& text, int64& value)
{
    const bool negative = takeSign(text);
    uint64 magnitude = 0;
    if (!takeMagnitude(text, magnitude))
        return false;
    const uint64 largest = static_cast<uint64>(std::numeric_limits<int64>::max()) + (negative ? 1 : 0);
    magnitude = std::min(magnitude, largest);
    value = static_cast<int64>(negative ? 0 - magnitude : magnitude);
    return true;
}

/// Whether a number that has no value in range is too large, rather than too small: whether its first digit other than
/// zero stands at the power 10^0 or above. The exponent alone tells that of a hexadecimal number.
bool isTooLarge(std::string_view number, std::chars_format format)
{
    if (format == std::chars_format::hex)
        return parseInt32(number.substr(std::min(number.find_first_of("pP"), number.size() - 1) + 1)) >= 0;
    int64 power = 0; // of the first significant digit
    bool significant = false;
    bool fraction = false;
    size_t i = 0;
    for (; i < number.size() && (isDigit(number[i]) || number[i] == '.'); ++i)
    {
        if (number[i] == '.')
            fraction = true;
        else if (!significant && number[i] != '0')
            significant = true, power -= fraction ? 1 : 0;
        else if (significant != fraction)
            power += significant ? 1 : -1;
    }
    if (i < number.size())
        power += parseInt32(number.substr(i + 1)); // behind the 'e'
    return power >= 0;
}

bool hasHexPrefix(std::string_view text)
{
    if (text.size() < 3 || text[0] != '0' || (text[1] != 'x' && text[1] != 'X'))
        return false;
    return isHexDigit(text[2]) || (text[2] == '.' && text.size() > 3 && isHexDigit(text[3]));
}

/// Takes a floating-point number off the front.
template <class Float>
bool takeFloat(std::string_view& text, Float& value)
{
    const bool negative = takeSign(text);
    if (!text.empty() && text.front() == '-')
        return false; // from_chars would take a second sign
    std::chars_format format = std::chars_format::general;
    if (hasHexPrefix(text))
    {
        format = std::chars_format::hex;
        text.remove_prefix(2);
    }
    Float magnitude = 0;
    const std::from_chars_result result = std::from_chars(text.data(), text.data() + text.size(), magnitude, format);
    if (result.ec == std::errc::invalid_argument)
        return false;
    const size_t length = static_cast<size_t>(result.ptr - text.data());
    if (result.ec == std::errc::result_out_of_range)
        magnitude = isTooLarge(text.substr(0, length), format) ? std::numeric_limits<Float>::infinity() : Float(0);
    text.remove_prefix(length);
    value = negative ? -magnitude : magnitude;
    return true;
}

bool takeComponent(std::string_view& text, float& value)
{
    return takeFloat(text, value);
}

bool takeComponent(std::string_view& text, int32& value)
{
    int64 wide = 0;
    if (!takeInt64(text, wide))
        return false;
    value = static_cast<int32>(
        std::clamp<int64>(wide, std::numeric_limits<int32>::min(), std::numeric_limits<int32>::max()));
    return true;
}

bool takeComponent(std::string_view& text, uint32& value)
{
    int64 wide = 0;
    if (!takeInt64(text, wide))
        return false;
    // Negative values wrap, as a scan of unsigned numbers has them.
    value = static_cast<uint32>(std::min<int64>(wide, std::numeric_limits<uint32>::max()));
    return true;
}

template <class T>
size_t scanComponents(std::string_view text, T* values, size_t count)
{
    for (size_t i = 0; i < count; ++i)
    {
        if (i > 0)
        {
            if (text.empty() || text.front() != '/')
                return i;
            text.remove_prefix(1);
        }
        if (!takeComponent(text, values[i]))
            return i;
    }
    return count;
}
} // namespace

int32 parseInt32(std::string_view text)
{
    int32 value = 0;
    return takeComponent(text, value) ? value : 0;
}

int64 parseInt64(std::string_view text)
{
    int64 value = 0;
    return takeInt64(text, value) ? value : 0;
}

uint64 parseUInt64(std::string_view text)
{
    const bool negative = takeSign(text);
    uint64 magnitude = 0;
    if (!takeMagnitude(text, magnitude))
        return 0;
    const bool saturated = magnitude == std::numeric_limits<uint64>::max();
    return negative && !saturated ? 0 - magnitude : magnitude;
}

uint32 parseUInt32(std::string_view text)
{
    return static_cast<uint32>(parseInt64(text));
}

double parseDouble(std::string_view text)
{
    double value = 0.0;
    return takeFloat(text, value) ? value : 0.0;
}

float parseFloat(std::string_view text)
{
    float value = 0.0f;
    return takeFloat(text, value) ? value : 0.0f;
}

size_t scanFloats(std::string_view text, float* values, size_t count)
{
    return scanComponents(text, values, count);
}

size_t scanInt32s(std::string_view text, int32* values, size_t count)
{
    return scanComponents(text, values, count);
}

size_t scanUInt32s(std::string_view text, uint32* values, size_t count)
{
    return scanComponents(text, values, count);
}

NumberText& NumberText::append(std::string_view text)
{
    const size_t length = std::min(text.size(), CAPACITY - mLength);
    return finish(std::copy_n(text.data(), length, end()));
}

NumberText& NumberText::append(int64 value)
{
    const std::to_chars_result result = std::to_chars(end(), limit(), value);
    return finish(result.ec == std::errc() ? result.ptr : end());
}

NumberText& NumberText::append(uint64 value)
{
    const std::to_chars_result result = std::to_chars(end(), limit(), value);
    return finish(result.ec == std::errc() ? result.ptr : end());
}

NumberText& NumberText::append(double value)
{
    const std::to_chars_result result = std::to_chars(end(), limit(), value, std::chars_format::general, 6);
    return finish(result.ec == std::errc() ? result.ptr : end());
}

NumberText& NumberText::appendFixed(double value)
{
    const std::to_chars_result result = std::to_chars(end(), limit(), value, std::chars_format::fixed, 6);
    return finish(result.ec == std::errc() ? result.ptr : end());
}

NumberText& NumberText::finish(char* end)
{
    *end = '\0';
    mLength = static_cast<size_t>(end - mText);
    return *this;
}
} // namespace KORV::Common::Parser
