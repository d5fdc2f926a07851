#pragma once

#include "korv/common/types.h"

#include <string_view>

namespace KORV::Common::Parser
{
// Numbers as text, the way the C library's conversions give them in the "C" locale, whatever locale the host has set.
// Reading: leading white space is skipped and the longest number at the front counts; what is no number reads as 0.
// A value beyond the range of an integer gives the nearest one in range, beyond that of a float infinity or zero.

int32 parseInt32(std::string_view text);
int64 parseInt64(std::string_view text);
/// A minus sign negates modulo 2^64.
uint64 parseUInt64(std::string_view text);
/// The 64-bit signed value, cut to its low 32 bits.
uint32 parseUInt32(std::string_view text);
/// Decimal or hexadecimal ("0x"), "inf" or "nan".
double parseDouble(std::string_view text);
/// Rounded once; a double narrowed to float can differ in the last bit.
float parseFloat(std::string_view text);

/// Reads "1/2/3" into the components of a vector: stops at the first that is missing, which leaves it and the ones
/// behind it as they were.
/// @return the number of components read.
size_t scanFloats(std::string_view text, float* values, size_t count);
size_t scanInt32s(std::string_view text, int32* values, size_t count);
size_t scanUInt32s(std::string_view text, uint32* values, size_t count);

/// Collects the text of a few numbers, zero-terminated. What does not fit is cut.
class NumberText
{
public:
    static constexpr size_t CAPACITY = 127;

    NumberText() { mText[0] = '\0'; }

    NumberText& append(std::string_view text);
    /// As "%d" and "%u" give it.
    NumberText& append(int32 value) { return append(static_cast<int64>(value)); }
    NumberText& append(uint32 value) { return append(static_cast<uint64>(value)); }
    NumberText& append(int64 value);
    NumberText& append(uint64 value);
    /// As "%g" gives it: six significant digits.
    NumberText& append(float value) { return append(static_cast<double>(value)); }
    NumberText& append(double value);
    /// As "%f" gives it: six digits behind the point.
    NumberText& appendFixed(double value);

    const char* c_str() const { return mText; }
    std::string_view view() const { return {mText, mLength}; }

private:
    NumberText& finish(char* end);
    char* end() { return mText + mLength; }
    char* limit() { return mText + CAPACITY; }

    size_t mLength = 0;
    char mText[CAPACITY + 1];
};
} // namespace KORV::Common::Parser
