// The mesh as an XML document. Elements come in a fixed order and are read back in that order with a cursor; a list of
// equal elements ends at the first of another name.

#include "korv/common/debug/assert.h"
#include "korv/common/exceptions/exception.h"
#include "korv/common/parser/xml/xmltreebuilder.h"
#include "korv/common/parser/xml/xmltreereader.h"
#include "korv/navmesh/navmeshcontainer.h"

#include <string_view>

namespace KORV::NavMesh
{
using Common::Parser::XML::XMLNodeElements;
using Common::Parser::XML::XMLTreeBuilder;
using Common::Parser::XML::XMLTreeReader;

namespace
{
constexpr const char* FORMAT_VERSION = "2.5.0";

// Nothing is escaped in a document. White space alone reads as no text at all.
void checkName(const BasicString& name, const char* what)
{
    const std::string_view text(name);
    const bool isCarried = text.find_first_of(std::string_view("<\0", 2)) == std::string_view::npos &&
                           (text.empty() || text.find_first_not_of(" \t\n\r") != std::string_view::npos);
    if (isCarried)
        return;
    const Common::Debug::MessageText message = Common::Debug::MessageText()
                                               << "The name of a " << what << " cannot be stored in an XML document: '"
                                               << name << "'";
    throw new Common::Exceptions::ArgumentException("navMesh", message.c_str());
}

void writeHeights(XMLTreeBuilder& builder, const Vector<float>& heights)
{
    builder.openElement("heightmap");
    for (size_t i = 0; i < heights.size(); ++i)
    {
        builder.addElemFloat32("height", heights[i]);
        builder.addAttribInt32("id", static_cast<int32>(i));
    }
    builder.closeElement();
}

void writeVertices(XMLTreeBuilder& builder, const Vector<Vec3<float>>& vertices)
{
    builder.openElement("vertices");
    for (const Vec3<float>& vertex : vertices)
        builder.addElemVec3f("pos", vertex);
    builder.closeElement();
}

void writeNode(XMLTreeBuilder& builder, const NavMeshContainer::NavNode& node)
{
    builder.openElement("node");
    builder.addElemInt32("heightclass", node.mHeightClass);
    builder.openElement("polygon");
    for (const uint32 vertexID : node.mPolygon)
        builder.addElemUInt32("vert_id", vertexID);
    builder.closeElement();
    builder.openElement("neighbour");
    for (const int32 nodeID : node.mNeighbours)
        builder.addElemInt32("node_id", nodeID);
    builder.closeElement();
    builder.addElemUInt32("surfacetypeid", node.mSurfaceTypeID);
    builder.closeElement();
}

void writeNodes(XMLTreeBuilder& builder, const Vector<NavMeshContainer::NavNode>& nodes)
{
    builder.openElement("nodes");
    for (const NavMeshContainer::NavNode& node : nodes)
        writeNode(builder, node);
    builder.closeElement();
}

void writeCharacters(XMLTreeBuilder& builder, const Vector<CharacterInfo>& characters)
{
    builder.openElement("characters");
    for (const CharacterInfo& character : characters)
    {
        builder.openElement("character");
        builder.addElem("name", character.mName.c_str());
        builder.addElemInt64("userid", character.mUserID);
        builder.addElemFloat32("physicalheight", character.mPhysicalHeight);
        builder.addElemFloat32("jumpheight", character.mJumpHeight);
        builder.addElemFloat32("fallheight", character.mFallHeight);
        builder.addElemUInt32("maxheightclassid", character.mMaxHeightClassID);
        builder.closeElement();
    }
    builder.closeElement();
}

void writeSurfaceTypes(XMLTreeBuilder& builder, const Vector<SurfaceType>& surfaceTypes)
{
    builder.openElement("surfacetypes");
    for (const SurfaceType& surfaceType : surfaceTypes)
    {
        builder.openElement("surfacetype");
        builder.addElem("name", surfaceType.mName.c_str());
        builder.addElemUInt32("id", surfaceType.mID);
        builder.closeElement();
    }
    builder.closeElement();
}

/// Takes a value that must be there; reports when it is not.
template <class T>
bool readRequired(XMLNodeElements& list, T& value, const char* name)
{
    if (list.getElementValue(value, name))
        return true;
    XMLTreeReader::PrintTagNameError(list, name);
    return false;
}

bool readRequiredName(XMLNodeElements& list, BasicString& value, Common::Memory::Allocator* allocator)
{
    const char* text = nullptr;
    if (!readRequired(list, text, "name"))
        return false;
    value = BasicString(text, allocator);
    return true;
}

/// Takes an unsigned number and keeps its low 16 bits.
bool readUInt16(XMLNodeElements& list, uint16& value, const char* name)
{
    uint32 wide = 0;
    if (!list.getElementValue(wide, name))
        return false;
    value = static_cast<uint16>(wide);
    return true;
}

/// Takes all values of that name that follow each other.
template <class T>
void readValues(XMLNodeElements& list, Vector<T>& values, const char* name)
{
    values.reserve(list.elements.size());
    for (T value{}; list.getElementValue(value, name);)
        values.push_back(value);
}

bool readHeights(XMLNodeElements& list, Vector<float>& heights)
{
    XMLNodeElements* heightMap = nullptr;
    if (!XMLTreeReader::readRequiredElement(heightMap, list, "heightmap"))
        return false;
    heights.clear();
    for (float height = 0.0f; heightMap->getElementValue(height, "height");)
    {
        int32 id = 0; // must be there, but the order of the elements counts
        if (!heightMap->getPreviousElement()->getAttribValue(id, "id"))
        {
            XMLTreeReader::PrintAttribNameError(*heightMap->getPreviousElement(), "id");
            return false;
        }
        heights.push_back(height);
    }
    return true;
}

bool readVertices(XMLNodeElements& list, Vector<Vec3<float>>& vertices)
{
    XMLNodeElements* positions = nullptr;
    if (!XMLTreeReader::readRequiredElement(positions, list, "vertices"))
        return false;
    readValues(*positions, vertices, "pos");
    return true;
}

bool readNode(XMLNodeElements& list, NavMeshContainer::NavNode& node)
{
    XMLNodeElements* polygon = nullptr;
    XMLNodeElements* neighbours = nullptr;
    if (!readRequired(list, node.mHeightClass, "heightclass") ||
        !XMLTreeReader::readRequiredElement(polygon, list, "polygon"))
        return false;
    readValues(*polygon, node.mPolygon, "vert_id");
    if (!XMLTreeReader::readRequiredElement(neighbours, list, "neighbour"))
        return false;
    readValues(*neighbours, node.mNeighbours, "node_id");
    readUInt16(list, node.mSurfaceTypeID, "surfacetypeid"); // a node without one keeps the default
    return true;
}

bool readNodes(XMLNodeElements& list, Vector<NavMeshContainer::NavNode>& nodes, Common::Memory::Allocator* allocator)
{
    XMLNodeElements* nodeList = nullptr;
    if (!XMLTreeReader::readRequiredElement(nodeList, list, "nodes"))
        return false;
    nodes.reserve(nodeList->elements.size());
    while (XMLNodeElements* element = nodeList->getNextElementNode("node"))
    {
        NavMeshContainer::NavNode& node = nodes.emplace_back(allocator);
        if (!readNode(*element, node))
            return false;
    }
    return true;
}

bool readCharacter(XMLNodeElements& list, CharacterInfo& character, Common::Memory::Allocator* allocator)
{
    return readRequiredName(list, character.mName, allocator) && readRequired(list, character.mUserID, "userid") &&
           readRequired(list, character.mPhysicalHeight, "physicalheight") &&
           readRequired(list, character.mJumpHeight, "jumpheight") &&
           readRequired(list, character.mFallHeight, "fallheight") &&
           readRequired(list, character.mMaxHeightClassID, "maxheightclassid");
}

bool readCharacters(XMLNodeElements& list, Vector<CharacterInfo>& characters, Common::Memory::Allocator* allocator)
{
    characters.clear();
    while (XMLNodeElements* element = list.getNextElementNode("character"))
    {
        CharacterInfo character;
        if (!readCharacter(*element, character, allocator))
            return false;
        characters.push_back(std::move(character));
    }
    return true;
}

bool readSurfaceTypes(XMLNodeElements& list, Vector<SurfaceType>& surfaceTypes, Common::Memory::Allocator* allocator)
{
    surfaceTypes.clear();
    while (XMLNodeElements* element = list.getNextElementNode("surfacetype"))
    {
        SurfaceType surfaceType;
        if (!readRequiredName(*element, surfaceType.mName, allocator))
            return false;
        if (!readUInt16(*element, surfaceType.mID, "id"))
        {
            XMLTreeReader::PrintTagNameError(*element, "id");
            return false;
        }
        surfaceTypes.push_back(std::move(surfaceType));
    }
    return true;
}
} // namespace

void NavMeshContainer::writeToXML(XMLTreeBuilder* builder) const
{
    if (!KORV_ASSERT(builder != nullptr, "builder != NULL", "XML tree builder is a null pointer"))
        return;
    for (const CharacterInfo& character : mCharacters)
        checkName(character.mName, "character");
    for (const SurfaceType& surfaceType : mSurfaceTypes)
        checkName(surfaceType.mName, "surface type");

    builder->openElement("navmesh");
    builder->addAttrib("version", FORMAT_VERSION);
    writeHeights(*builder, mHeight);
    builder->addElemVec3f("normal", mNormal);
    writeVertices(*builder, mVertices);
    writeNodes(*builder, mNodes);
    builder->addElemVec3f("xaxis", mXAxis);
    builder->addElemVec3f("yaxis", mYAxis);
    builder->addElemFloat32("cubesize", mCubeSize);
    writeCharacters(*builder, mCharacters);
    writeSurfaceTypes(*builder, mSurfaceTypes);
    builder->closeElement();
}

bool NavMeshContainer::initFromXML(XMLNodeElements* list)
{
    if (!KORV_ASSERT(list != nullptr, "list != NULL", "XML element list is a null pointer"))
        return false;
    clear();
    if (!readHeights(*list, mHeight) || !readRequired(*list, mNormal, "normal") || !readVertices(*list, mVertices) ||
        !readNodes(*list, mNodes, getMemory()) || !readRequired(*list, mXAxis, "xaxis") ||
        !readRequired(*list, mYAxis, "yaxis") || !readRequired(*list, mCubeSize, "cubesize"))
        return false;
    XMLNodeElements* records = nullptr;
    if (XMLTreeReader::readOptionalElement(records, *list, "characters") &&
        !readCharacters(*records, mCharacters, getMemory()))
        return false;
    return !XMLTreeReader::readOptionalElement(records, *list, "surfacetypes") ||
           readSurfaceTypes(*records, mSurfaceTypes, getMemory());
}
} // namespace KORV::NavMesh
