#pragma once

#include "korv/common/container/nodecontainers.h"
#include "korv/common/parser/vrml2/nodes.h"

namespace KORV::Common::Parser::VRML2
{
/// Knows the node types of one kind and the nodes of that kind that the file has named.
template <class Base>
class KORV_COMMON_API NodeParser : public Memory::MemoryManaged
{
public:
    NodeParser();
    ~NodeParser() override;
    NodeParser(const NodeParser&) = delete;
    NodeParser& operator=(const NodeParser&) = delete;

    /// Adds a node type, read from then on into clones of @p prototype. A type without a name, or whose name is taken
    /// already, is reported and not added.
    void registerNode(const SharedPtr<Base>& prototype);

    /// Reads one node statement: a node, DEF with a node, or USE.
    /// @return the node; null for what was skipped. Throws VRML2ParserException.
    SharedPtr<Base> parseNode(Parser& parser);

private:
    SharedPtr<Base> useNode(Parser& parser) const;
    SharedPtr<Base> readBody(Parser& parser, const Base& prototype) const;
    void define(Parser& parser, const BasicString& name, const SharedPtr<Base>& node);

    Container::Map<BasicString, SharedPtr<Base>> mRegisteredNodes;
    Container::Map<BasicString, SharedPtr<Base>> mDefinedNodes;
};

extern template class NodeParser<SceneNode>;
extern template class NodeParser<GeometryNode>;
extern template class NodeParser<GeometricProperty>;
} // namespace KORV::Common::Parser::VRML2
