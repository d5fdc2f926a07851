#pragma once

#include "korv/common/memory/memorymanaged.h"
#include "korv/common/parser/xml/xmlnode.h"

namespace KORV::Common::Parser
{
class NumberText;
}

namespace KORV::Common::Parser::XML
{
/// Builds an XML tree and owns it. Strings are either copied or must outlive the tree.
/// Nodes and copied strings come from a few large blocks, which go back when the tree is deleted.
/// Null strings count as empty ones.
class KORV_COMMON_API XMLTreeBuilder : public Memory::MemoryManaged
{
public:
    /// @param allocator  where nodes and strings live.
    explicit XMLTreeBuilder(const Memory::AllocatorPtr& allocator);
    XMLTreeBuilder(const XMLTreeBuilder&) = delete;
    XMLTreeBuilder& operator=(const XMLTreeBuilder&) = delete;
    ~XMLTreeBuilder() override;

    /// Deletes any tree and opens a new root.
    void initTree(const char* rootName, bool copy);
    /// Opens an element under the open one, or as root.
    void openElement(const char* elementName);
    /// Closes the open element; the root stays open.
    /// @return false when the open element has another name (and stays open) or is the root.
    bool closeElement(const char* elementName = nullptr);

    /// Each adds a child under the open element and makes it current.
    void addEmptyNode(const char* elementName);
    void addElem(const char* elementName, const char* value);
    /// Sets an attribute of the current node; a repeated name overwrites the value.
    void addAttrib(const char* attribute, const char* value);

    // The typed forms need copied strings; without them they report and add nothing.
    void addElemBool(const char* elementName, bool value);
    void addElemInt32(const char* elementName, int32 value);
    void addElemUInt32(const char* elementName, uint32 value);
    void addElemInt64(const char* elementName, int64 value);
    void addElemUInt64(const char* elementName, uint64 value);
    void addElemFloat32(const char* elementName, float value);
    void addElemFloat64(const char* elementName, double value);
    void addElemVec3f(const char* elementName, const Math::Vec3<float>& value);
    void addElemVec3u32(const char* elementName, const Math::Vec3<uint32>& value);
    void addElemVec3i32(const char* elementName, const Math::Vec3<int32>& value);
    void addElemVec2f(const char* elementName, const Math::Vec2<float>& value);
    void addElemVec2u32(const char* elementName, const Math::Vec2<uint32>& value);
    void addElemVec2i32(const char* elementName, const Math::Vec2<int32>& value);
    void addAttribInt32(const char* attribute, int32 value);
    void addAttribUInt32(const char* attribute, uint32 value);
    void addAttribBool(const char* attribute, bool value);
    void addAttribFloat32(const char* attribute, float value);

    /// The root, or null.
    XMLNodeElements* getTree() const { return mRoot; }
    /// The node created last, or null.
    XMLNode* getCurrentNode() const { return mCurrent; }
    /// The element that new nodes go under, or null.
    XMLNodeElements* getOpenElement() const { return mOpen; }
    /// Deletes the tree.
    void reset(bool copy);
    void clear() { reset(copyStrings); }
    /// Takes a node out of the tree and reuses the memory of the subtree's nodes; that of its strings goes back with
    /// the tree.
    void deleteXMLNode(XMLNode* node);

    // Steps of the parser.

    /// Adds an unnamed node of a type; one with elements is opened too.
    void _addNode(uint32 code);
    /// Names the current node.
    void setNodeName(const char* nodeName);
    /// Sets the text of the current node, which must be a text element.
    void _setText(const char* text);
    /// Moves the whole tree of another builder under the open element, whose last child becomes current.
    void _addTree(XMLTreeBuilder* tree);

    Memory::AllocatorPtr mAllocator;
    bool copyStrings = false;

private:
    struct Block;
    static constexpr size_t NUM_NAMES = 64;

    bool checkCopyStrings(const char* function) const;
    void addTypedElem(const char* function, const char* elementName, const NumberText& value);
    void addTypedAttrib(const char* function, const char* attribute, const NumberText& value);
    const char* copyOf(const char* text);
    /// A copy that equal names share: a tree has few of them.
    const char* copyOfName(const char* text);
    void* takeObject(size_t size);
    char* takeChars(size_t count);
    void addBlock(size_t size);
    Memory::Allocator& getNodeMemory() const;
    XMLNode* createNode(uint32 code);
    void addNode(uint32 code);
    void recycle(XMLNode* node);
    void forgetMemory();

    XMLNodeElements* mRoot = nullptr;
    XMLNodeElements* mOpen = nullptr; // its ancestors are the other open elements
    XMLNode* mCurrent = nullptr;

    Block* mBlocks = nullptr; // the newest first; objects grow from its front, strings from its end
    Block* mOldestBlock = nullptr;
    char* mFront = nullptr;
    char* mBack = nullptr;
    XMLNode* mFreeTexts = nullptr;
    XMLNode* mFreeElements = nullptr;
    const char* mNames[NUM_NAMES] = {};
};
} // namespace KORV::Common::Parser::XML
