#pragma once

#include "korv/common/parser/xml/xmlnode.h"

namespace KORV::Common::IO
{
class Stream;
}

namespace KORV::Common::Parser::XML
{
/// Writes a tree as text, a line per tag, indented by tabs. Nothing is escaped: names, values and texts must be fit to
/// be read back. Exceptions of the stream pass through; a null stream or node throws ArgumentNullException.
class KORV_COMMON_API XMLWriter
{
public:
    XMLWriter();
    virtual ~XMLWriter();

    /// Writes the XML declaration.
    virtual void writeHeader(IO::Stream* stream);
    /// Writes a node and everything under it.
    virtual void writeTree(IO::Stream* stream, const XMLNode* root);

private:
    static constexpr uint32 MAX_INDENTATION = 1024;
    static constexpr size_t BUFFER_SIZE = 16384;

    void begin(IO::Stream* stream);
    void put(const char* text);
    void put(const char* text, size_t length);
    void putIndentation(uint32 depth) { put(mIndentation, depth); }
    void putStart(const XMLNode& node, uint32 depth);
    void putEnd(const XMLNode& node);
    void putTree(const XMLNode& root);
    void flush();

    char mIndentation[MAX_INDENTATION + 1];
    IO::Stream* mStream = nullptr;
    size_t mLength = 0;
    char mBuffer[BUFFER_SIZE]; // streams of the host are slow on small pieces
};
} // namespace KORV::Common::Parser::XML
