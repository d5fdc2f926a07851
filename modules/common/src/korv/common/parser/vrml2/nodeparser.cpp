#include "korv/common/parser/vrml2/nodeparser.h"

#include "korv/common/debug/assert.h"
#include "korv/common/parser/vrml2/parser.h"

namespace KORV::Common::Parser::VRML2
{
namespace
{
/// The functions' names as messages tell them.
template <class Base>
struct FunctionNames;

template <>
struct FunctionNames<SceneNode>
{
    static constexpr const char* REGISTER =
        "KORV::Common::Parser::VRML2::NodeParser<class KORV::Common::Parser::VRML2::SceneNode>::registerNode";
    static constexpr const char* PARSE =
        "KORV::Common::Parser::VRML2::NodeParser<class KORV::Common::Parser::VRML2::SceneNode>::parseNode";
};

template <>
struct FunctionNames<GeometryNode>
{
    static constexpr const char* REGISTER =
        "KORV::Common::Parser::VRML2::NodeParser<class KORV::Common::Parser::VRML2::GeometryNode>::registerNode";
    static constexpr const char* PARSE =
        "KORV::Common::Parser::VRML2::NodeParser<class KORV::Common::Parser::VRML2::GeometryNode>::parseNode";
};

template <>
struct FunctionNames<GeometricProperty>
{
    static constexpr const char* REGISTER =
        "KORV::Common::Parser::VRML2::NodeParser<class KORV::Common::Parser::VRML2::GeometricProperty>::registerNode";
    static constexpr const char* PARSE =
        "KORV::Common::Parser::VRML2::NodeParser<class KORV::Common::Parser::VRML2::GeometricProperty>::parseNode";
};
} // namespace

template <class Base>
NodeParser<Base>::NodeParser() : mRegisteredNodes(getMemory()), mDefinedNodes(getMemory())
{
}

template <class Base>
NodeParser<Base>::~NodeParser() = default;

template <class Base>
void NodeParser<Base>::registerNode(const SharedPtr<Base>& prototype)
{
    const char* nodeName = prototype != nullptr ? prototype->getNodeName() : nullptr;
    if (!KORV_COMMON_ASSERT(FunctionNames<Base>::REGISTER, nodeName != nullptr, "nodeName",
                            "NULL-Pointer node name is not allowed"))
        return;
    const BasicString name(nodeName, getMemory());
    if (!KORV_COMMON_ASSERT(FunctionNames<Base>::REGISTER, mRegisteredNodes.find(name) == mRegisteredNodes.end(),
                            "!mRegisteredNodes.exists(nodeName)",
                            "There is already a node registered with name: " << name))
        return;
    mRegisteredNodes.emplace(name, prototype);
}

// Part of the recursion over nested nodes: its frame must stay small, so messages are built elsewhere.
template <class Base>
SharedPtr<Base> NodeParser<Base>::parseNode(Parser& parser)
{
    Parser::Statement statement(parser);
    if (parser.testKeyword("DEF"))
    {
        statement.mName = parser.readName("DEF takes a name and a node");
        parser.checkNotDefined(statement.mName);
    }
    else if (parser.testKeyword("USE"))
        return useNode(parser);

    BasicString type = parser.readName("the type name of a node must stand here");
    const auto registered = mRegisteredNodes.find(type);
    if (registered == mRegisteredNodes.end())
    {
        parser.skipUnknownNode(FunctionNames<Base>::PARSE, type);
        return nullptr;
    }

    statement.mType = std::move(type);
    SharedPtr<Base> node = readBody(parser, *registered->second);
    if (!statement.mName.empty())
        define(parser, statement.mName, node);
    return node;
}

template <class Base>
[[gnu::noinline]] void NodeParser<Base>::define(Parser& parser, const BasicString& name, const SharedPtr<Base>& node)
{
    mDefinedNodes[name] = node;
    parser.addDefineName(name);
}

template <class Base>
SharedPtr<Base> NodeParser<Base>::readBody(Parser& parser, const Base& prototype) const
{
    parser.countNode();
    SharedPtr<Base> node(prototype.clone(parser.getAllocator()));
    Base* const body = node.get();
    body->describeMembers(parser);
    body->mHeight = parser.finishHeight();
    return node;
}

template <class Base>
[[gnu::noinline]] SharedPtr<Base> NodeParser<Base>::useNode(Parser& parser) const
{
    const BasicString name = parser.readName("USE takes the name that a DEF has given");
    const auto defined = mDefinedNodes.find(name);
    if (defined == mDefinedNodes.end())
    {
        parser.checkUnknownUse(name);
        return nullptr;
    }
    parser.countNode();
    SharedPtr<Base> node(defined->second->clone(parser.getAllocator()));
    node->mHeight = defined->second->mHeight;
    return node;
}

template class NodeParser<SceneNode>;
template class NodeParser<GeometryNode>;
template class NodeParser<GeometricProperty>;
} // namespace KORV::Common::Parser::VRML2
