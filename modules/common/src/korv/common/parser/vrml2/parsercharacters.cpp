// The bytes of a scene file and the words they form: block reading, places in the file, names, strings and numbers.

#include "korv/common/debug/assert.h"
#include "korv/common/parser/numbertext.h"
#include "korv/common/parser/vrml2/parser.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>

namespace KORV::Common::Parser::VRML2
{
namespace
{
/// Bytes of a block, those kept from the one before included.
constexpr uint32 BLOCK_BYTES = 65536;
/// Bytes kept from the block before, so that steps back over its end are possible. A step back after a comment takes
/// two, since the comment's line feed has been stepped back over already.
constexpr uint32 HISTORY_BYTES = 8;
constexpr int END_OF_FILE = -1;

/// Whether a byte ends a name, and can't begin one.
bool isNameBreak(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 32)
        return byte != 0 && byte != 15;
    return byte == 127 || std::strchr(" \"'#,.[]\\{}", c) != nullptr;
}
} // namespace

bool Parser::isWhitespace(char c)
{
    return c == ',' || c == ' ' || c == '\n' || c == '\r' || c == '\t';
}

void Parser::fillBuffer()
{
    if (mReadBuffer.empty())
        mReadBuffer.resize(BLOCK_BYTES);
    const uint32 kept = std::min(mReadBufferPos, HISTORY_BYTES);
    const uint32 first = mReadBufferPos - kept;
    std::memmove(mReadBuffer.data(), mReadBuffer.data() + first, mReadBufferLength - first);
    mReadBufferLength -= first;
    mReadBufferPos = kept;

    const uint32 room = BLOCK_BYTES - mReadBufferLength;
    const uint64 count = std::min<uint64>(mStream->read(mReadBuffer.data() + mReadBufferLength, room), room);
    mReadBufferLength += static_cast<uint32>(count);
    mReadTotal += count;
}

char Parser::readNextChar(bool raw)
{
    if (mReadBufferPos == mReadBufferLength)
        fillBuffer();
    if (mReadBufferPos == mReadBufferLength)
        fail("VRML2::Parser: End of file reached - corrupt VRML2 file",
             mStatement != nullptr ? "the file ends before what was begun is complete" : nullptr);
    const char c = mReadBuffer[mReadBufferPos++];
    if (c == '\0')
        fail("VRML2::Parser: Invalid character in VRML2 file.");
    ++mColumn;
    if (c == '\n')
    {
        ++mLine;
        mPrevLineLength = mColumn - 1;
        mColumn = 0;
    }
    if (raw || c != '#')
        return c;

    // The line feed stands for the whole comment: who steps back over it reads it again, not the comment's last byte.
    while (readNextChar(true) != '\n')
        continue;
    return '\n';
}

void Parser::gotoPrevChar()
{
    constexpr const char* FUNCTION = "KORV::Common::Parser::VRML2::Parser::gotoPrevChar";
    const bool isFirstBlock = mReadTotal == mReadBufferLength;
    if (isFirstBlock &&
        !KORV_COMMON_ASSERT(FUNCTION, mReadBufferPos > 0, "mReadBufferPos > 0", "no previous character, start of file"))
        return;
    if (!KORV_COMMON_ASSERT(
            FUNCTION, mReadBufferPos > 0, "mReadBufferPos > 0",
            "cannot go to previous character - uses gotoPrevChar twice without readNextChar in between ?"))
        return;
    --mReadBufferPos;
    if (mReadBuffer[mReadBufferPos] != '\n')
    {
        --mColumn;
        return;
    }
    --mLine;
    mColumn = mPrevLineLength;
}

/// The byte some places ahead, or END_OF_FILE; nothing is consumed.
int Parser::peek(uint32 distance)
{
    while (mReadBufferLength - mReadBufferPos <= distance)
    {
        const uint64 before = mReadTotal;
        fillBuffer();
        if (mReadTotal == before)
            return END_OF_FILE;
    }
    return static_cast<unsigned char>(mReadBuffer[mReadBufferPos + distance]);
}

void Parser::skipWhitespace()
{
    while (isWhitespace(readNextChar()))
        continue;
    gotoPrevChar();
}

bool Parser::testKeyword(const char* keyword)
{
    // Looking ahead leaves nothing to step back over when the word turns out to be another one.
    skipWhitespace();
    const auto length = static_cast<uint32>(std::strlen(keyword));
    uint32 matched = 0;
    while (matched < length && peek(matched) == keyword[matched])
        ++matched;
    const int next = matched < length ? peek(matched) : 0;
    if (matched < length && next != 0 && next != END_OF_FILE)
        return false;

    // Over the whole keyword, or up to the end or the zero byte that interrupts it, where this throws.
    const uint32 count = matched < length ? matched + 1 : length;
    for (uint32 i = 0; i < count; ++i)
        readNextChar(true);
    return true;
}

bool Parser::expect(char character)
{
    skipWhitespace();
    if (peek(0) != static_cast<unsigned char>(character))
        return false;
    readNextChar(true);
    return true;
}

BasicString Parser::readName(const char* hint)
{
    skipWhitespace();
    char c = readNextChar();
    if (isNameBreak(c))
        fail(Debug::MessageText() << "invalid character '" << c << "' in name", hint);
    if (c >= '0' && c <= '9')
        fail(Debug::MessageText() << "a digit '" << c << "' as first char in a name is not allowed", hint);
    BasicString name(getMemory());
    for (; !isNameBreak(c); c = readNextChar())
        name += c;
    gotoPrevChar();
    return name;
}

BasicString Parser::readString()
{
    if (!expect('"'))
        fail("string must begin with '\"'");
    return readStringRest();
}

BasicString Parser::readStringRest()
{
    BasicString text(getMemory());
    for (char c = readNextChar(true); c != '"'; c = readNextChar(true))
        text += c == '\\' ? readNextChar(true) : c;
    return text;
}

BasicString Parser::readNumber(std::string_view characters)
{
    skipWhitespace();
    BasicString number(getMemory());
    for (char c = readNextChar(); characters.find(c) != std::string_view::npos; c = readNextChar())
        number += c;
    gotoPrevChar();
    return number;
}

void Parser::failNumber(const BasicString& number, bool outOfRange) const
{
    if (number.empty())
        fail("number wanted but not found while parsing!");
    fail(Debug::MessageText() << "number '" << number << (outOfRange ? "' is out of range" : "' is malformed"));
}

int32 Parser::readInt32()
{
    const BasicString number = readNumber("0123456789-");
    int32 value = 0;
    const std::from_chars_result result = std::from_chars(number.data(), number.data() + number.size(), value);
    if (result.ec != std::errc())
        failNumber(number, result.ec == std::errc::result_out_of_range);
    return value;
}

float Parser::readFloat()
{
    const BasicString number = readNumber("0123456789.-e");
    float value = 0.0f;
    const std::from_chars_result result = std::from_chars(number.data(), number.data() + number.size(), value);
    if (result.ec == std::errc())
        return value;
    if (result.ec != std::errc::result_out_of_range)
        failNumber(number, false);
    value = parseFloat(number);
    if (std::isinf(value))
        failNumber(number, true);
    return value; // too small for a float
}

Math::Vec3<float> Parser::readVec3()
{
    Math::Vec3<float> value;
    value.mX = readFloat();
    value.mY = readFloat();
    value.mZ = readFloat();
    return value;
}
} // namespace KORV::Common::Parser::VRML2
