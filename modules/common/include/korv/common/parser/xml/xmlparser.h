#pragma once

#include "korv/common/container/vector.h"
#include "korv/common/parser/parserexception.h"
#include "korv/common/parser/xml/xmltreebuilder.h"

namespace KORV::Common::IO
{
class FileSystem;
class Stream;
} // namespace KORV::Common::IO

namespace KORV::Common::Parser::XML
{
/// Reads XML documents: elements, attributes, text elements; comments and processing instructions are skipped. There is
/// no mixed content, CDATA, DOCTYPE or entity. A tree belongs to its parser and lasts until the next parse.
/// Malformed input throws an XMLParserException with line and row.
class KORV_COMMON_API XMLParser : public Memory::MemoryManaged
{
public:
    /// Deepest nesting of elements, those of included documents counted in.
    static constexpr uint32 MAX_DEPTH = 1024;
    /// Deepest nesting of included documents, and the most of them under one document.
    static constexpr uint32 MAX_INCLUDE_DEPTH = 64;
    static constexpr uint32 MAX_INCLUDES = 4096;

    /// @param allocator  where text and tree live.
    explicit XMLParser(const Memory::AllocatorPtr& allocator);
    XMLParser(const XMLParser&) = delete;
    XMLParser& operator=(const XMLParser&) = delete;
    ~XMLParser() override;

    /// Reads a whole stream, which must stand at its start.
    /// Throws ArgumentNullException without a stream and IOException when it gives less than its length.
    /// @return the root element.
    XMLNodeElements* parse(IO::Stream* stream);
    /// Reads a file and the documents that it names by xi:include.
    XMLNodeElements* parseFile(const BasicString& fileName, IO::FileSystem* fSystem);
    /// Reads a document in place: the buffer is changed, and must outlive the tree unless strings are copied.
    XMLNodeElements* parseBuffer(char* buffer, uint64 length, bool copyStrings);

private:
    friend class XMLDocumentReader;

    void releaseDocument();
    /// @return the length of what the buffer now holds.
    uint64 loadBuffer(IO::Stream& stream);
    /// Why a document must not be included here, or null.
    const char* refuseInclude(const BasicString& fileName);
    /// Reads an included document and puts its tree under the open element.
    void includeFile(const BasicString& fileName, uint32 depth);

    Memory::AllocatorPtr mAllocator;
    char* mBuffer = nullptr; // owned; null while a buffer of the caller's is read
    XMLTreeBuilder mBuilder;
    IO::FileSystem* mFileSystem = nullptr; // while parseFile runs
    Vector<XMLParser*> mIncluded;          // their buffers hold the strings of our tree
    XMLParser* mIncluder = nullptr;
    BasicString mFullPath;
    uint32 mDepth = 0; // nesting of the place that this document goes to
    uint32 mNumIncludes = 0;
};
} // namespace KORV::Common::Parser::XML
