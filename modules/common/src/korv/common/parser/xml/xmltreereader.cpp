#include "korv/common/parser/xml/xmltreereader.h"

#include "korv/common/container/vector.h"
#include "korv/common/debug/assert.h"

namespace KORV::Common::Parser::XML
{
namespace
{
/// The names from the root down to a node: 'KORV'->'navmesh'->'nodes'.
Debug::MessageText pathOf(const XMLNode& node)
{
    Vector<const XMLNode*> nodes;
    for (const XMLNode* ancestor = &node; ancestor != nullptr; ancestor = ancestor->getParent())
        nodes.push_back(ancestor);
    Debug::MessageText path;
    for (size_t i = nodes.size(); i-- > 0;)
        path << "'" << nodes[i]->name << (i > 0 ? "'->" : "'");
    return path;
}
} // namespace

bool XMLTreeReader::readRequiredElement(XMLNodeElements*& out, XMLNodeElements& elements, const char* name)
{
    if (readOptionalElement(out, elements, name))
        return true;
    PrintTagNameError(elements, name);
    return false;
}

bool XMLTreeReader::readOptionalElement(XMLNodeElements*& out, XMLNodeElements& elements, const char* name)
{
    out = elements.getNextElementNode(name);
    return out != nullptr;
}

void XMLTreeReader::PrintTagNameError(const XMLNode& elements, const char* name)
{
    KORV_COMMON_FAIL("KORV::Common::Parser::XML::XMLTreeReader::PrintTagNameError",
                     "In " << pathOf(elements) << " the tag '" << name << "' is required !");
}

void XMLTreeReader::PrintAttribNameError(const XMLNode& elements, const char* name)
{
    KORV_COMMON_FAIL("KORV::Common::Parser::XML::XMLTreeReader::PrintAttribNameError",
                     "In " << pathOf(elements) << " the attribute '" << name << "' is required !");
}
} // namespace KORV::Common::Parser::XML
