// Reads a document in one pass over its buffer. Before a node is made, a look at its start tag and the byte behind it
// tells what kind it will be; so every tag is scanned twice, and nothing else is. Names, values and texts get their
// terminating zero in place: over the byte behind them, once that byte has been looked at. A zero byte in the input
// counts as white space and as part of a name.
//
// Elements nest without recursion: the builder knows which one is open. Cost: linear in the length.

#include "korv/common/parser/xml/xmldocumentreader.h"

#include "korv/common/debug/assert.h"

#include <array>
#include <cstring>

namespace KORV::Common::Parser::XML
{
namespace
{
constexpr const char* NAME_START_CHARS = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_";
constexpr const char* NAME_CHARS = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_.,-:";
constexpr const char* SPACE_CHARS = " \t\n\r";

enum CharClass : uint8
{
    SPACE = 1,
    NAME_START = 2,
    NAME = 4
};

constexpr std::array<uint8, 256> makeCharClasses()
{
    std::array<uint8, 256> classes{};
    const auto mark = [&classes](const char* chars, CharClass bit)
    {
        for (; *chars != '\0'; ++chars)
            classes[static_cast<unsigned char>(*chars)] |= bit;
        classes[0] |= bit;
    };
    mark(SPACE_CHARS, SPACE);
    mark(NAME_START_CHARS, NAME_START);
    mark(NAME_CHARS, NAME);
    return classes;
}

constexpr std::array<uint8, 256> CHAR_CLASSES = makeCharClasses();

bool isIn(char c, CharClass charClass)
{
    return (CHAR_CLASSES[static_cast<unsigned char>(c)] & charClass) != 0;
}

char* find(char* begin, char* end, char c)
{
    return static_cast<char*>(std::memchr(begin, c, static_cast<size_t>(end - begin)));
}
} // namespace

XMLDocumentReader::XMLDocumentReader(XMLParser& parser, char* buffer, uint64 length)
    : mParser(parser), mBuilder(parser.mBuilder), mBegin(buffer), mEnd(buffer + length), mPos(buffer), mLines(buffer),
      mDepth(parser.mDepth)
{
}

XMLNodeElements* XMLDocumentReader::readDocument()
{
    mPos = find(mBegin, mEnd, '<');
    if (mPos == nullptr)
        failAtEnd();
    TagCode code = classifyTag();
    for (; code == TAG_COMMENT || code == TAG_INSTRUCTION; code = classifyTag())
        mPos = mTagEnd;
    if (code == TAG_END || code == TAG_INVALID)
        fail(Debug::MessageText() << "XMLParser: Invalid XML format. Found nodetype : " << static_cast<int32>(code));
    if (code != TAG_ELEMENTS)
        fail("XMLParser: First tag must be a root node");
    openNodeElement();
    readContents();
    return mBuilder.getTree();
}

/// Steps over white space and looks at the tag there, without passing it.
XMLDocumentReader::TagCode XMLDocumentReader::classifyTag()
{
    constexpr std::string_view INCLUDE = "<xi:include ";

    skipWhitespace();
    setErrorPosition();
    if (*mPos != '<')
        return TAG_INVALID;
    if (startsWith("<?", 2))
        return classifySkipped(mPos + 2, "?>", 2, TAG_INSTRUCTION);
    if (startsWith("<!--", 4))
        return classifySkipped(mPos + 4, "-->", 3, TAG_COMMENT);
    if (startsWith("<!", 2))
        return TAG_INVALID;
    if (startsWith(INCLUDE.data(), INCLUDE.size()))
        return TAG_INCLUDE;
    if (startsWith("</", 2))
        return TAG_END;
    return classifyStart();
}

/// Finds the end of a comment or an instruction.
XMLDocumentReader::TagCode XMLDocumentReader::classifySkipped(const char* from, const char* mark, size_t length,
                                                              TagCode code)
{
    const std::string_view rest(from, static_cast<size_t>(mEnd - from));
    const size_t place = rest.find(mark, 0, length);
    if (place == std::string_view::npos)
        return TAG_INVALID;
    mTagEnd = mBegin + (from - mBegin) + place + length;
    return code;
}

/// Tells the kind of an element by its start tag and the byte behind it.
XMLDocumentReader::TagCode XMLDocumentReader::classifyStart()
{
    const char* const tagEnd = find(mPos + 1, mEnd, '>');
    if (tagEnd == nullptr)
        failAtEnd();
    if (tagEnd[-1] == '/')
        return TAG_EMPTY;
    const char* next = tagEnd + 1;
    while (next != mEnd && isIn(*next, SPACE))
        ++next;
    mLines.recordAhead(static_cast<uint64>(tagEnd + 1 - mBegin), static_cast<uint64>(next - mBegin));
    if (next == mEnd)
        failAtEnd();
    return *next == '<' ? TAG_ELEMENTS : TAG_TEXT;
}

void XMLDocumentReader::readContents()
{
    const uint32 outerDepth = mParser.mDepth;
    while (mDepth > outerDepth)
    {
        const TagCode code = classifyTag();
        switch (code)
        {
        case TAG_INVALID:
            fail("XMLParser: Invalid tag found.");
        case TAG_END:
            closeNodeElement();
            break;
        case TAG_INSTRUCTION:
        case TAG_COMMENT:
            mPos = mTagEnd;
            break;
        default:
            readChild(code);
        }
    }
}

void XMLDocumentReader::readChild(TagCode code)
{
    if (mDepth >= XMLParser::MAX_DEPTH)
        fail(Debug::MessageText() << "XMLParser: Elements are nested deeper than " << XMLParser::MAX_DEPTH
                                  << " levels");
    switch (code)
    {
    case TAG_EMPTY:
        return readNodeEmpty();
    case TAG_TEXT:
        return readNodeText();
    case TAG_ELEMENTS:
        return openNodeElement();
    case TAG_INCLUDE:
        return readNodeInclude();
    default:
        KORV_COMMON_FAIL("KORV::Common::Parser::XML::XMLParser::readNodeElement",
                         "unknown node type: " << static_cast<int32>(code));
    }
}

void XMLDocumentReader::openNodeElement()
{
    mBuilder._addNode(XMLNODE_ELEMENTS);
    readStartTag();
    ++mDepth;
}

void XMLDocumentReader::closeNodeElement()
{
    const char* startName = mBuilder.getOpenElement()->name;
    mBuilder.closeElement(nullptr);
    readEndTag(startName);
    --mDepth;
}

void XMLDocumentReader::readNodeEmpty()
{
    mBuilder._addNode(XMLNODE_EMPTY);
    readStartTag();
}

void XMLDocumentReader::readNodeText()
{
    mBuilder._addNode(XMLNODE_TEXT);
    readStartTag();
    char* const text = mPos;
    mPos = find(mPos, mEnd, '<');
    if (mPos == nullptr)
        failAtEnd();
    char* const textEnd = mPos;
    readEndTag(mBuilder.getCurrentNode()->name);
    *textEnd = '\0';
    mBuilder._setText(text);
}

void XMLDocumentReader::readNodeInclude()
{
    readNodeEmpty();
    XMLNode* node = mBuilder.getCurrentNode();
    if (!KORV_COMMON_ASSERT("KORV::Common::Parser::XML::XMLParser::readNodeInclude",
                            std::strcmp(node->name, "xi:include") == 0, "",
                            "Error in xi:include tag read, wrong behaviour of readNodeEmpty"))
        return;
    if (mParser.mFileSystem == nullptr)
        fail("XMLParser: We have no FileSystem defined, but there is an xi:include tag in the current xml definition");
    const char* kind = node->getAttribute("parse");
    if (kind != nullptr && std::strcmp(kind, "xml") != 0)
        fail(
            "XMLParser: We support currently only xi:include tags with attribute parse=\"xml\" or no parse attribute.");
    const char* href = node->getAttribute("href");
    if (href == nullptr)
        fail("XMLParser: xi:include tag without href attribute found");
    const BasicString fileName(href, mParser.getMemory());
    if (const char* reason = mParser.refuseInclude(fileName))
        fail(reason);
    mBuilder.getOpenElement()->removeLastElement();
    mBuilder.deleteXMLNode(node);
    mParser.includeFile(fileName, mDepth);
}

/// Reads a start tag to its end and names the current node.
void XMLDocumentReader::readStartTag()
{
    skipWhitespace();
    setErrorPosition();
    expectIn('<', "XMLParser: expected '<' and found '", "");
    char* const tagName = mPos;
    char* const nameEnd = readName();
    const char next = *nameEnd;
    if (next == '>' || next == '/')
    {
        readStartTagEnd("' in name.");
        *nameEnd = '\0';
        return mBuilder.setNodeName(tagName);
    }
    if (!isIn(next, SPACE))
        failAtByte("XMLParser: Invalid character '", next, "' in name.");
    if (next == '\n')
        mLines.record(offset());
    ++mPos;
    *nameEnd = '\0';
    mBuilder.setNodeName(tagName);
    readAttributes();
    readStartTagEnd("' in starttag.");
}

/// Reads ">" or "/>".
void XMLDocumentReader::readStartTagEnd(const char* place)
{
    if (expect('/'))
        return expectIn('>', "XMLParser: Invalid character '", place);
    expectIn('>', "XMLParser: Invalid character '", place);
}

void XMLDocumentReader::readAttributes()
{
    for (;;)
    {
        setErrorPosition();
        skipWhitespace();
        setErrorPosition();
        if (*mPos == '>' || *mPos == '/')
            return;
        readAttribute();
    }
}

void XMLDocumentReader::readAttribute()
{
    char* const attribute = mPos;
    char* const nameEnd = readName();
    skipWhitespace();
    expectIn('=', "XMLParser: Expected assign operator '=' but found '", "'");
    *nameEnd = '\0';
    skipWhitespace();
    expectIn('"', "XMLParser: Expected envelop char '\"' , found '", "'");
    char* const value = mPos;
    char* const valueEnd = find(mPos, mEnd, '"');
    if (valueEnd == nullptr)
        failAtEnd();
    *valueEnd = '\0';
    mBuilder.addAttrib(attribute, value);
    mPos = valueEnd + 1;
}

/// Passes a name.
/// @return its end; whatever stands there has not been looked at.
char* XMLDocumentReader::readName()
{
    if (mPos != mEnd && !isIn(*mPos, NAME_START))
        fail(Debug::MessageText() << "name has invalid first char '" << *mPos << "' , must be in '" << NAME_START_CHARS
                                  << "'");
    char* end = mPos;
    while (end != mEnd && isIn(*end, NAME))
        ++end;
    mPos = end;
    if (end == mEnd)
        fail("XMLParser: Reached end of buffer during name read");
    return end;
}

void XMLDocumentReader::readEndTag(const char* startName)
{
    skipWhitespace();
    expectIn('<', "XMLParser: Expected '<' but found '", "'");
    expectIn('/', "XMLParser: Expected '/' but found '", "'");
    const size_t length = std::strlen(startName);
    if (length > 0 && startsWith(startName, length) && mPos + length != mEnd && mPos[length] == '>')
    {
        mPos += length + 1; // the usual case, without a look at every character's class
        return;
    }
    const char* const endName = mPos;
    char* const nameEnd = readName();
    if (*nameEnd != '>' && !isIn(*nameEnd, SPACE))
        failAtByte("XMLParser: Invalid character '", *nameEnd, "' in starttag.");
    skipWhitespace();
    expectIn('>', "XMLParser: Invalid character '", "' in starttag.");
    *nameEnd = '\0';
    if (std::strcmp(endName, startName) != 0)
        fail("XMLParser: Name in starttag and endtag are not equal");
}

void XMLDocumentReader::skipWhitespace()
{
    if (mPos != mEnd && !isIn(*mPos, SPACE))
        return;
    mLines.enterSpace(offset());
    for (; mPos != mEnd; ++mPos)
    {
        if (!isIn(*mPos, SPACE))
            return;
        if (*mPos == '\n')
            mLines.record(offset());
    }
    failAtEnd();
}

/// Passes a certain character, if it stands there.
bool XMLDocumentReader::expect(char c)
{
    if (mPos == mEnd)
        failAtEnd();
    if (*mPos != c)
        return false;
    ++mPos;
    return true;
}

void XMLDocumentReader::expectIn(char c, const char* before, const char* after)
{
    if (!expect(c))
        failAtByte(before, *mPos, after);
}

bool XMLDocumentReader::startsWith(const char* text, size_t length) const
{
    return static_cast<size_t>(mEnd - mPos) >= length && std::memcmp(mPos, text, length) == 0;
}

void XMLDocumentReader::fail(const Debug::MessageText& message) const
{
    fail(message.c_str());
}

void XMLDocumentReader::fail(const char* message) const
{
    throw new XMLParserException(message, mLines.getErrorLine(), mLines.getErrorRow());
}

void XMLDocumentReader::failAtByte(const char* before, char byte, const char* after) const
{
    fail(Debug::MessageText() << before << byte << after);
}

void XMLDocumentReader::failAtEnd() const
{
    fail("XMLParser: End of buffer reached.");
}
} // namespace KORV::Common::Parser::XML
