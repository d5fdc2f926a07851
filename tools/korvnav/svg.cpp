#include "svg.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace KORV::Tool
{
namespace
{
std::int64_t tenths(float value)
{
    return std::isfinite(value) ? std::llround(std::clamp(value, -1e6f, 1e6f) * 10.0f) : 0;
}

std::string decimalOf(std::int64_t value)
{
    const std::int64_t size = std::abs(value);
    std::string text = value < 0 ? "-" : "";
    if (size >= 10 || size % 10 == 0)
        text += std::to_string(size / 10);
    if (size % 10 != 0)
        text += "." + std::to_string(size % 10);
    return text;
}

/// Bytes of the well-formed UTF-8 character at the start of the text, 0 if there is none.
std::size_t characterLength(std::string_view text)
{
    const auto byte = [&](std::size_t index) { return static_cast<unsigned char>(text[index]); };
    const std::size_t length = byte(0) < 0x80                      ? 1
                               : byte(0) >= 0xC2 && byte(0) < 0xE0 ? 2
                               : byte(0) >= 0xE0 && byte(0) < 0xF0 ? 3
                               : byte(0) >= 0xF0 && byte(0) < 0xF5 ? 4
                                                                   : 0;
    if (length == 0 || length > text.size())
        return 0;
    for (std::size_t index = 1; index < length; ++index)
        if ((byte(index) & 0xC0) != 0x80)
            return 0;
    return length;
}
} // namespace

void SvgPath::moveTo(float x, float y)
{
    mX = tenths(x);
    mY = tenths(y);
    mData += 'M';
    append(mX, false);
    append(mY, true);
}

void SvgPath::lineTo(float x, float y)
{
    const std::int64_t nextX = tenths(x);
    const std::int64_t nextY = tenths(y);
    mData += 'l';
    append(nextX - mX, false);
    append(nextY - mY, true);
    mX = nextX;
    mY = nextY;
}

void SvgPath::append(std::int64_t value, bool separate)
{
    if (separate && value >= 0)
        mData += ' ';
    mData += decimalOf(value);
}

std::string pixels(float value)
{
    return decimalOf(tenths(value));
}

std::string escaped(std::string_view text)
{
    std::string result;
    while (!text.empty())
    {
        const std::size_t length = characterLength(text);
        const char first = text.front();
        if (length == 0 || static_cast<unsigned char>(first) < 32)
            result += '?';
        else if (first == '&')
            result += "&amp;";
        else if (first == '<')
            result += "&lt;";
        else if (first == '>')
            result += "&gt;";
        else if (first == '"')
            result += "&quot;";
        else
            result += text.substr(0, length);
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return result;
}

std::string colour(float hue, float saturation, float lightness)
{
    const float chroma = saturation * std::min(lightness, 1.0f - lightness);
    const auto channel = [&](float offset)
    {
        const float k = std::fmod(offset + hue / 30.0f, 12.0f);
        const float value = lightness - chroma * std::max(-1.0f, std::min({k - 3.0f, 9.0f - k, 1.0f}));
        return static_cast<unsigned>(std::lround(std::clamp(value, 0.0f, 1.0f) * 255.0f));
    };
    char text[16];
    std::snprintf(text, sizeof text, "#%02x%02x%02x", channel(0.0f), channel(8.0f), channel(4.0f));
    return text;
}
} // namespace KORV::Tool
