#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace KORV::Tool
{
/// The data of an SVG path. Places are kept to a tenth of a pixel and written relative to the one before, which keeps
/// large pictures small.
class SvgPath
{
public:
    void moveTo(float x, float y);
    void lineTo(float x, float y);
    void close() { mData += 'z'; }
    bool empty() const { return mData.empty(); }
    const std::string& data() const { return mData; }

private:
    void append(std::int64_t tenths, bool separate);

    std::string mData;
    std::int64_t mX = 0;
    std::int64_t mY = 0;
};

/// A place or length in pixels, to a tenth.
std::string pixels(float value);
/// Text for the inside of an element or attribute; bytes that are not allowed in XML become '?'.
std::string escaped(std::string_view text);
/// "#rrggbb" of a hue in degrees, saturation and lightness in [0, 1].
std::string colour(float hue, float saturation, float lightness);
} // namespace KORV::Tool
