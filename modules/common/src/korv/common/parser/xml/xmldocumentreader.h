#pragma once

#include "korv/common/debug/messagetext.h"
#include "korv/common/parser/xml/linecounter.h"
#include "korv/common/parser/xml/xmlparser.h"

namespace KORV::Common::Parser::XML
{
/// Reads one document out of a buffer into a builder.
class XMLDocumentReader
{
public:
    /// @param parser  resolves included documents; its builder takes the tree.
    XMLDocumentReader(XMLParser& parser, char* buffer, uint64 length);

    /// @return the root.
    XMLNodeElements* readDocument();

private:
    /// What stands at a position, as far as the tag there tells. The first three are node types too.
    enum TagCode : int32
    {
        TAG_EMPTY = XMLNODE_EMPTY,
        TAG_TEXT = XMLNODE_TEXT,
        TAG_ELEMENTS = XMLNODE_ELEMENTS,
        TAG_INCLUDE = 3,
        TAG_COMMENT = -1,
        TAG_INSTRUCTION = -2,
        TAG_END = -3,
        TAG_INVALID = -4
    };

    TagCode classifyTag();
    TagCode classifySkipped(const char* from, const char* mark, size_t length, TagCode code);
    TagCode classifyStart();

    void readContents();
    void readChild(TagCode code);
    void openNodeElement();
    void closeNodeElement();
    void readNodeEmpty();
    void readNodeText();
    void readNodeInclude();
    void readStartTag();
    void readStartTagEnd(const char* place);
    void readAttributes();
    void readAttribute();
    char* readName();
    void readEndTag(const char* startName);

    void skipWhitespace();
    bool expect(char c);
    void expectIn(char c, const char* before, const char* after);
    uint64 offset() const { return static_cast<uint64>(mPos - mBegin); }
    void setErrorPosition() { mLines.setErrorPosition(offset()); }
    bool startsWith(const char* text, size_t length) const;
    [[noreturn]] void fail(const Debug::MessageText& message) const;
    [[noreturn]] void fail(const char* message) const;
    [[noreturn]] void failAtByte(const char* before, char byte, const char* after) const;
    [[noreturn]] void failAtEnd() const;

    XMLParser& mParser;
    XMLTreeBuilder& mBuilder;
    char* const mBegin;
    char* const mEnd;
    char* mPos;
    char* mTagEnd = nullptr; // behind a tag that is skipped
    LineCounter mLines;
    uint32 mDepth; // elements open, those around an included document counted in
};
} // namespace KORV::Common::Parser::XML
