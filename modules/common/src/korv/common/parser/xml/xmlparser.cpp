#include "korv/common/parser/xml/xmlparser.h"

#include "korv/common/exceptions/exception.h"
#include "korv/common/io/filepath.h"
#include "korv/common/io/filesystem.h"
#include "korv/common/io/ioexception.h"
#include "korv/common/memory/stlallocator.h"
#include "korv/common/parser/xml/xmldocumentreader.h"

#include <limits>

namespace KORV::Common::Parser::XML
{
using Exceptions::ArgumentNullException;

namespace
{
/// Lends a file system to the parser for as long as a file is read.
class FileSystemLoan
{
public:
    FileSystemLoan(IO::FileSystem*& place, IO::FileSystem* fileSystem) : mPlace(place) { mPlace = fileSystem; }
    FileSystemLoan(const FileSystemLoan&) = delete;
    FileSystemLoan& operator=(const FileSystemLoan&) = delete;
    ~FileSystemLoan() { mPlace = nullptr; }

private:
    IO::FileSystem*& mPlace;
};

/// Links that have no common spelling are not seen through; the limits on nesting and number stop those.
BasicString makeKey(const BasicString& fileName)
{
    BasicString full = IO::makeFullPath(fileName);
    return full.empty() ? fileName : full;
}
} // namespace

XMLParser::XMLParser(const Memory::AllocatorPtr& allocator)
    : mAllocator(allocator != nullptr ? allocator : getAllocator()), mBuilder(mAllocator), mIncluded(mAllocator.get()),
      mFullPath(mAllocator.get())
{
}

XMLParser::~XMLParser()
{
    releaseDocument();
}

void XMLParser::releaseDocument()
{
    mBuilder.reset(false);
    for (XMLParser* parser : mIncluded)
        delete parser;
    mIncluded.clear();
    mNumIncludes = 0;
    if (mBuffer != nullptr)
        Memory::deallocateAligned(*mAllocator, mBuffer, alignof(char));
    mBuffer = nullptr;
}

XMLNodeElements* XMLParser::parse(IO::Stream* stream)
{
    if (stream == nullptr)
        throw new ArgumentNullException("stream", "XMLParser: Stream is a null pointer");
    const uint64 length = loadBuffer(*stream);
    return XMLDocumentReader(*this, mBuffer, length).readDocument();
}

uint64 XMLParser::loadBuffer(IO::Stream& stream)
{
    releaseDocument();
    const uint64 length = stream.getLength();
    if (length >= std::numeric_limits<size_t>::max())
        Memory::throwOutOfMemory();
    mBuffer = static_cast<char*>(Memory::allocateAligned(*mAllocator, length + 1, alignof(char)));
    if (stream.read(mBuffer, length) != length)
        throw new IO::IOException("XMLParser: Cannot read complete file from stream");
    mBuffer[length] = '\0';
    return length;
}

XMLNodeElements* XMLParser::parseFile(const BasicString& fileName, IO::FileSystem* fSystem)
{
    if (fSystem == nullptr)
        throw new ArgumentNullException("fSystem", "XMLParser: FileSystem cannot be a NULL pointer in parseFile");
    mFullPath = makeKey(fileName);
    uint64 length = 0;
    {
        const SharedPtr<IO::Stream> stream = fSystem->openForReading(fileName);
        length = loadBuffer(*stream);
    }
    const FileSystemLoan loan(mFileSystem, fSystem);
    return XMLDocumentReader(*this, mBuffer, length).readDocument();
}

XMLNodeElements* XMLParser::parseBuffer(char* buffer, uint64 length, bool copyStrings)
{
    if (buffer == nullptr)
        throw new ArgumentNullException("buffer", "XMLParser: Buffer is a null pointer");
    releaseDocument();
    mBuilder.reset(copyStrings);
    return XMLDocumentReader(*this, buffer, length).readDocument();
}

const char* XMLParser::refuseInclude(const BasicString& fileName)
{
    const BasicString key = makeKey(fileName);
    uint32 depth = 0;
    XMLParser* first = this;
    for (XMLParser* parser = this; parser != nullptr; parser = parser->mIncluder)
    {
        if (parser->mFullPath == key)
            return "XMLParser: A document includes itself";
        ++depth;
        first = parser;
    }
    if (depth > MAX_INCLUDE_DEPTH)
        return "XMLParser: Included documents are nested too deeply";
    if (++first->mNumIncludes > MAX_INCLUDES)
        return "XMLParser: Too many documents are included";
    return nullptr;
}

void XMLParser::includeFile(const BasicString& fileName, uint32 depth)
{
    mIncluded.push_back(nullptr); // before there is something to lose
    XMLParser* parser = new (mAllocator) XMLParser(mAllocator);
    mIncluded.back() = parser;
    parser->mIncluder = this;
    parser->mDepth = depth;
    parser->parseFile(fileName, mFileSystem);
    mBuilder._addTree(&parser->mBuilder);
}
} // namespace KORV::Common::Parser::XML
