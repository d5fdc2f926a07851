#include "korv/navmesh/navmeshserializer.h"

#include "korv/common/debug/assert.h"
#include "korv/common/io/ioexception.h"
#include "korv/common/parser/xml/xmlparser.h"
#include "korv/common/parser/xml/xmltreebuilder.h"
#include "korv/common/parser/xml/xmltreereader.h"
#include "korv/common/parser/xml/xmlwriter.h"
#include "korv/navmesh/moduleallocator.h"
#include "korv/navmesh/resourceinterface.h"

#include <cstdio>

namespace KORV::NavMesh
{
using Common::Stream;
using Common::IO::FileException;
using Common::Parser::XML::XMLNodeElements;
using Common::Parser::XML::XMLParser;
using Common::Parser::XML::XMLTreeBuilder;
using Common::Parser::XML::XMLTreeReader;
using Common::Parser::XML::XMLWriter;

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
} // namespace

SharedPtr<NavMeshContainer> NavMeshSerializer::readNavMesh(const BasicString& fileName)
{
    if (!isInitialised())
        return nullptr;
    try
    {
        const SharedPtr<Stream> stream = ResourceInterface::getInstance()->openRead(fileName);
        SharedPtr<NavMeshContainer> navMesh = readNavMesh(stream.get());
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
} // namespace KORV::NavMesh
