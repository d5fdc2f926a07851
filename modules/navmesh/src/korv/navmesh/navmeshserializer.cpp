#include "korv/navmesh/navmeshserializer.h"

#include "korv/common/debug/assert.h"
#include "korv/common/exceptions/exception.h"
#include "korv/common/io/ioexception.h"
#include "korv/common/parser/xml/xmlparser.h"
#include "korv/common/parser/xml/xmltreebuilder.h"
#include "korv/common/parser/xml/xmltreereader.h"
#include "korv/common/parser/xml/xmlwriter.h"
#include "korv/navmesh/binaryform.h"
#include "korv/navmesh/moduleallocator.h"
#include "korv/navmesh/resourceinterface.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

namespace KORV::NavMesh
{
using Common::Stream;
using Common::Debug::MessageText;
using Common::IO::FileException;
using Common::Parser::XML::XMLNodeElements;
using Common::Parser::XML::XMLParser;
using Common::Parser::XML::XMLTreeBuilder;
using Common::Parser::XML::XMLTreeReader;
using Common::Parser::XML::XMLWriter;
using Common::Serialize::SerializeException;

namespace
{
bool isInitialised()
{
    return KORV_ASSERT(ResourceInterface::getInstance() != nullptr, "ResourceInterface::getInstance() != NULL",
                       "NavMesh library is not initialised");
}

bool isMesh(const SharedPtr<NavMeshContainer>& navMesh)
{
    return KORV_ASSERT(navMesh != nullptr, "navMesh != NULL", "Navmesh container is a null pointer");
}

void buildTree(XMLTreeBuilder& builder, const NavMeshContainer& navMesh)
{
    builder.initTree("KORV", true);
    navMesh.writeToXML(&builder);
}

void writeTree(Stream* stream, const XMLTreeBuilder& builder)
{
    XMLWriter writer;
    writer.writeHeader(stream);
    writer.writeTree(stream, builder.getTree());
}

void printFileError(const FileException& error)
{
    std::fprintf(stderr, "Cannot handle file: '%s'\nError msg: %s\n", error.getFileName().c_str(),
                 error.getMessage().c_str());
}

/// Opens a file and reads it; what opening and closing it fails with is printed.
template <class Read>
SharedPtr<NavMeshContainer> readFile(const BasicString& fileName, Read read)
{
    if (!isInitialised())
        return nullptr;
    try
    {
        const SharedPtr<Stream> stream = ResourceInterface::getInstance()->openRead(fileName);
        SharedPtr<NavMeshContainer> navMesh = read(stream);
        stream->close();
        return navMesh;
    }
    catch (FileException* error)
    {
        printFileError(*error);
        delete error;
        return nullptr;
    }
}

/// The format that the first bytes of a file speak for. Spaces and the mark of UTF-8 may stand before the first tag.
NavMeshSerializer::MeshFormat formatOf(std::string_view bytes)
{
    constexpr std::string_view UTF8_MARK = "\xEF\xBB\xBF";
    if (bytes.empty())
        return NavMeshSerializer::FORMAT_UNKNOWN;
    if (bytes[0] == ENDIAN_BIG || bytes[0] == ENDIAN_LITTLE)
        return NavMeshSerializer::FORMAT_BINARY;
    if (bytes.substr(0, UTF8_MARK.size()) == UTF8_MARK)
        bytes.remove_prefix(UTF8_MARK.size());
    const size_t first = bytes.find_first_not_of(" \t\n\r");
    const bool isTag = first != std::string_view::npos && bytes[first] == '<';
    return isTag ? NavMeshSerializer::FORMAT_XML : NavMeshSerializer::FORMAT_UNKNOWN;
}

void checkMesh(const NavMeshContainer& navMesh, uint32 maxViolations)
{
    const uint32 shown = std::max<uint32>(maxViolations, 1);
    const uint32 sought = shown < UINT32_MAX ? shown + 1 : shown; // one more tells whether there are more
    const Vector<NavMeshContainer::Violation> violations = navMesh.checkInvariants(sought);
    if (violations.empty())
        return;
    BasicString text("The mesh breaks promises of a finished mesh:", navMesh.getMemory());
    for (size_t i = 0; i < violations.size() && i < shown; ++i)
    {
        const NavMeshContainer::Violation& violation = violations[i];
        MessageText line;
        line << "\n  ";
        if (violation.mNode >= 0)
            line << "node " << violation.mNode << (violation.mSide >= 0 ? ", " : ": ");
        if (violation.mSide >= 0)
            line << "side " << violation.mSide << ": ";
        line << violation.mText;
        text += line.view();
    }
    if (violations.size() > shown)
        text += "\n  and more";
    throw new InvalidMeshException(text);
}
} // namespace

BasicString InvalidMeshException::getName() const
{
    return "InvalidMeshException";
}

SharedPtr<NavMeshContainer> NavMeshSerializer::readNavMesh(const BasicString& fileName)
{
    return readFile(fileName, [](const SharedPtr<Stream>& stream) { return readNavMesh(stream.get()); });
}

SharedPtr<NavMeshContainer> NavMeshSerializer::readNavMesh(Stream* stream)
{
    if (!isInitialised())
        return nullptr;
    XMLParser parser(getModuleAllocator());
    XMLNodeElements* root = parser.parse(stream);
    XMLNodeElements* list = nullptr;
    if (!XMLTreeReader::readRequiredElement(list, *root, "navmesh"))
        return nullptr;
    SharedPtr<NavMeshContainer> navMesh(new (getModuleAllocator()) NavMeshContainer);
    if (!navMesh->initFromXML(list))
        return nullptr;
    return navMesh;
}

void NavMeshSerializer::writeNavMesh(const BasicString& fileName, const SharedPtr<NavMeshContainer>& navMesh)
{
    if (!isInitialised() || !isMesh(navMesh))
        return;
    XMLTreeBuilder builder(getModuleAllocator());
    buildTree(builder, *navMesh); // before the file is emptied: what can't be written must not cost the old one
    const SharedPtr<Stream> stream = ResourceInterface::getInstance()->openWrite(fileName);
    writeTree(stream.get(), builder);
    stream->close();
}

void NavMeshSerializer::writeNavMesh(Stream* stream, const SharedPtr<NavMeshContainer>& navMesh)
{
    if (!isInitialised() || !isMesh(navMesh))
        return;
    XMLTreeBuilder builder(getModuleAllocator());
    buildTree(builder, *navMesh);
    writeTree(stream, builder);
}

SharedPtr<NavMeshContainer> NavMeshSerializer::readNavMeshBinary(const BasicString& fileName)
{
    return readFile(fileName, [](const SharedPtr<Stream>& stream) { return readNavMeshBinary(stream); });
}

SharedPtr<NavMeshContainer> NavMeshSerializer::readNavMeshBinary(const SharedPtr<Stream>& stream)
{
    if (!isInitialised())
        return nullptr;
    SharedPtr<NavMeshContainer> navMesh(new (getModuleAllocator()) NavMeshContainer);
    if (!navMesh->initFromBinary(stream))
        return nullptr;
    return navMesh;
}

void NavMeshSerializer::writeNavMeshBinary(const BasicString& fileName, const SharedPtr<NavMeshContainer>& navMesh,
                                           Endiness endiness)
{
    if (!isInitialised() || !isMesh(navMesh))
        return;
    checkBinaryForm(*navMesh); // before the file is emptied
    const SharedPtr<Stream> stream = ResourceInterface::getInstance()->openWrite(fileName);
    navMesh->writeToBinary(stream, endiness);
    stream->close();
}

void NavMeshSerializer::writeNavMeshBinary(const SharedPtr<Stream>& stream, const SharedPtr<NavMeshContainer>& navMesh,
                                           Endiness endiness)
{
    if (isInitialised() && isMesh(navMesh))
        navMesh->writeToBinary(stream, endiness);
}

NavMeshSerializer::MeshFormat NavMeshSerializer::detectFormat(const BasicString& fileName)
{
    if (!isInitialised())
        return FORMAT_UNKNOWN;
    const SharedPtr<Stream> stream = ResourceInterface::getInstance()->openRead(fileName);
    const MeshFormat format = detectFormat(stream.get());
    stream->close();
    return format;
}

NavMeshSerializer::MeshFormat NavMeshSerializer::detectFormat(Stream* stream)
{
    if (!KORV_ASSERT(stream != nullptr, "stream != NULL", "Stream is a null pointer"))
        return FORMAT_UNKNOWN;
    const uint64 position = stream->getPosition();
    char bytes[256];
    const uint64 count = std::min<uint64>(stream->read(bytes, sizeof(bytes)), sizeof(bytes));
    stream->seek(static_cast<int64>(position), Common::IO::SORIGIN_START);
    return formatOf({bytes, static_cast<size_t>(count)});
}

SharedPtr<NavMeshContainer> NavMeshSerializer::readCheckedNavMesh(const BasicString& fileName, uint32 maxViolations)
{
    return readFile(fileName,
                    [&](const SharedPtr<Stream>& stream) { return readCheckedNavMesh(stream, maxViolations); });
}

SharedPtr<NavMeshContainer> NavMeshSerializer::readCheckedNavMesh(const SharedPtr<Stream>& stream, uint32 maxViolations)
{
    const MeshFormat format = detectFormat(stream.get());
    if (format == FORMAT_UNKNOWN)
        throw new SerializeException("This is no mesh, neither an XML document nor in binary form");
    SharedPtr<NavMeshContainer> navMesh = format == FORMAT_XML ? readNavMesh(stream.get()) : readNavMeshBinary(stream);
    if (navMesh != nullptr)
        checkMesh(*navMesh, maxViolations);
    return navMesh;
}
} // namespace KORV::NavMesh
