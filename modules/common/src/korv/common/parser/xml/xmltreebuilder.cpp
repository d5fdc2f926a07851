// Nodes are small and many, so they come from blocks: objects are taken from the front of a block, copied strings from
// its end (so that neither wastes room for alignment), and the blocks go back together. Nothing here recurses.

#include "korv/common/parser/xml/xmltreebuilder.h"

#include "korv/common/debug/assert.h"
#include "korv/common/memory/stlallocator.h"
#include "korv/common/parser/numbertext.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace KORV::Common::Parser::XML
{
namespace
{
constexpr size_t FIRST_BLOCK = 4096;
constexpr size_t LARGEST_BLOCK = size_t(1) << 20;

const char* orEmpty(const char* text)
{
    return text != nullptr ? text : "";
}

size_t hashOf(const char* text)
{
    uint32 hash = 2166136261u; // FNV-1a
    for (; *text != '\0'; ++text)
        hash = (hash ^ static_cast<unsigned char>(*text)) * 16777619u;
    return hash ^ (hash >> 16);
}
} // namespace

struct alignas(std::max_align_t) XMLTreeBuilder::Block
{
    Block* mOlder = nullptr;
    size_t mSize = 0; // header included
};

XMLTreeBuilder::XMLTreeBuilder(const Memory::AllocatorPtr& allocator)
    : mAllocator(allocator != nullptr ? allocator : getAllocator())
{
}

XMLTreeBuilder::~XMLTreeBuilder()
{
    clear();
}

void XMLTreeBuilder::initTree(const char* rootName, bool copy)
{
    reset(copy);
    openElement(rootName);
}

void XMLTreeBuilder::openElement(const char* elementName)
{
    addNode(XMLNODE_ELEMENTS);
    setNodeName(elementName);
}

bool XMLTreeBuilder::closeElement(const char* elementName)
{
    if (mOpen == nullptr || (elementName != nullptr && std::strcmp(mOpen->name, elementName) != 0))
        return false;
    mOpen->resetCursor();
    if (mOpen->mParent == nullptr)
        return false;
    mOpen = mOpen->mParent;
    return true;
}

void XMLTreeBuilder::addEmptyNode(const char* elementName)
{
    addNode(XMLNODE_EMPTY);
    setNodeName(elementName);
}

void XMLTreeBuilder::addElem(const char* elementName, const char* value)
{
    addNode(XMLNODE_TEXT);
    setNodeName(elementName);
    if (mCurrent != nullptr)
        mCurrent->mText = copyOf(value);
}

void XMLTreeBuilder::addAttrib(const char* attribute, const char* value)
{
    if (!KORV_COMMON_ASSERT("KORV::Common::Parser::XML::XMLTreeBuilder::addAttrib", mCurrent != nullptr,
                            "currentNode != NULL", "There is no node to add an attribute to"))
        return;
    const char* nameText = copyOfName(attribute);
    const char* valueText = copyOf(value);
    void* memory = takeObject(sizeof(XMLAttribute));
    mCurrent->mSorted = mCurrent->mAttributes == nullptr;
    mCurrent->mAttributes = new (memory) XMLAttribute{nameText, valueText, mCurrent->mAttributes};
}

void XMLTreeBuilder::reset(bool copy)
{
    while (mBlocks != nullptr)
    {
        Block* block = mBlocks;
        mBlocks = block->mOlder;
        Memory::deallocateAligned(getNodeMemory(), block, alignof(Block));
    }
    forgetMemory();
    copyStrings = copy;
}

void XMLTreeBuilder::forgetMemory()
{
    mRoot = nullptr;
    mOpen = nullptr;
    mCurrent = nullptr;
    mBlocks = nullptr;
    mOldestBlock = nullptr;
    mFront = nullptr;
    mBack = nullptr;
    mFreeTexts = nullptr;
    mFreeElements = nullptr;
    std::fill(std::begin(mNames), std::end(mNames), nullptr);
}

void XMLTreeBuilder::deleteXMLNode(XMLNode* node)
{
    if (node == nullptr)
        return;
    if (!KORV_COMMON_ASSERT("KORV::Common::Parser::XML::XMLTreeBuilder::deleteXMLNode", node->mType <= XMLNODE_ELEMENTS,
                            "", "Undefined node type: " << node->mType))
        return;
    for (const XMLNode* open = mOpen; open != nullptr; open = open->mParent)
    {
        if (open == node) // nothing inside the subtree stays open
            mOpen = node->mParent;
    }
    if (node->mParent != nullptr)
    {
        node->mParent->elements.remove(node);
        node->mParent->resetCursor();
    }
    if (node == mRoot)
        mRoot = nullptr;
    mCurrent = mOpen;
    recycle(node);
}

void XMLTreeBuilder::recycle(XMLNode* node)
{
    node->mNext = nullptr;
    for (XMLNode* next = nullptr; node != nullptr; node = next)
    {
        next = node->mNext;
        XMLNodeElements* list = node->toElements();
        if (list != nullptr && !list->elements.empty())
        {
            list->elements.mLast->mNext = next;
            next = list->elements.mFirst;
        }
        XMLNode*& free = list != nullptr ? mFreeElements : mFreeTexts;
        node->mNext = free;
        free = node;
    }
}

void XMLTreeBuilder::_addNode(uint32 code)
{
    if (!KORV_COMMON_ASSERT("KORV::Common::Parser::XML::XMLTreeBuilder::_addNode", code <= XMLNODE_ELEMENTS, "",
                            "Unknown node type: " << code))
        return;
    addNode(code);
}

void XMLTreeBuilder::setNodeName(const char* nodeName)
{
    if (mCurrent != nullptr)
        mCurrent->name = copyOfName(nodeName);
}

void XMLTreeBuilder::_setText(const char* text)
{
    if (mCurrent == nullptr)
        return;
    if (!KORV_COMMON_ASSERT("KORV::Common::Parser::XML::XMLTreeBuilder::_setText", mCurrent->mType == XMLNODE_TEXT, "",
                            "Cannot set text for node of type : " << mCurrent->mType))
        return;
    mCurrent->mText = copyOf(text);
}

void XMLTreeBuilder::_addTree(XMLTreeBuilder* tree)
{
    constexpr const char* FUNCTION = "KORV::Common::Parser::XML::XMLTreeBuilder::_addTree";
    if (!KORV_COMMON_ASSERT(FUNCTION, tree != nullptr, "tree", "Tree cannot be a NULL pointer") ||
        !KORV_COMMON_ASSERT(FUNCTION, tree->mAllocator == mAllocator, "tree->mAllocator == mAllocator",
                            "We cannot add a tree with a different allocator") ||
        !KORV_COMMON_ASSERT(FUNCTION, tree->copyStrings == copyStrings, "tree->copyStrings == copyStrings",
                            "We cannot add a tree with a different copyStrings flag"))
        return;
    XMLNodeElements* root = tree->mRoot;
    if (tree == this || root == nullptr || (mOpen == nullptr && mRoot != nullptr))
        return;
    if (mOldestBlock != nullptr)
        mOldestBlock->mOlder = tree->mBlocks; // our newest block stays in front: it is the one with room
    else
        mBlocks = tree->mBlocks;
    mOldestBlock = tree->mOldestBlock;
    tree->forgetMemory();
    mCurrent = root;
    if (mOpen == nullptr)
    {
        mRoot = mOpen = root;
        return;
    }
    root->mParent = mOpen;
    mOpen->elements.append(root);
}

void XMLTreeBuilder::addNode(uint32 code)
{
    // An element list may become the root; anything else needs an open element.
    const bool possible = mOpen != nullptr || (mRoot == nullptr && code == XMLNODE_ELEMENTS);
    if (!KORV_COMMON_ASSERT("KORV::Common::Parser::XML::XMLTreeBuilder::_addNode", possible, "openNode != NULL",
                            "There is no open element to add a node to"))
    {
        mCurrent = nullptr;
        return;
    }
    XMLNode* node = createNode(code);
    node->mParent = mOpen;
    if (mOpen != nullptr)
        mOpen->elements.append(node);
    mCurrent = node;
    if (code != XMLNODE_ELEMENTS)
        return;
    mOpen = node->toElements();
    if (mRoot == nullptr)
        mRoot = mOpen;
}

XMLNode* XMLTreeBuilder::createNode(uint32 code)
{
    const bool isText = code == XMLNODE_TEXT;
    XMLNode*& free = isText ? mFreeTexts : mFreeElements;
    void* memory = free;
    if (memory != nullptr)
        free = free->mNext;
    else
        memory = takeObject(isText ? sizeof(XMLNode) : sizeof(XMLNodeElements));
    if (isText)
        return new (memory) XMLNode(code);
    return new (memory) XMLNodeElements(code);
}

const char* XMLTreeBuilder::copyOf(const char* text)
{
    text = orEmpty(text);
    if (!copyStrings)
        return text;
    const size_t count = std::strlen(text) + 1;
    return static_cast<const char*>(std::memcpy(takeChars(count), text, count));
}

const char* XMLTreeBuilder::copyOfName(const char* text)
{
    if (!copyStrings)
        return orEmpty(text);
    const char*& known = mNames[hashOf(orEmpty(text)) % NUM_NAMES];
    if (known == nullptr || std::strcmp(known, orEmpty(text)) != 0)
        known = copyOf(text);
    return known;
}

void* XMLTreeBuilder::takeObject(size_t size)
{
    static_assert(sizeof(XMLNode) % alignof(void*) == 0 && sizeof(XMLNodeElements) % alignof(void*) == 0 &&
                  sizeof(XMLAttribute) % alignof(void*) == 0);
    if (static_cast<size_t>(mBack - mFront) < size)
        addBlock(size);
    void* object = mFront;
    mFront += size;
    return object;
}

char* XMLTreeBuilder::takeChars(size_t count)
{
    if (static_cast<size_t>(mBack - mFront) < count)
        addBlock(count);
    mBack -= count;
    return mBack;
}

void XMLTreeBuilder::addBlock(size_t size)
{
    const size_t usual = mBlocks != nullptr ? std::min(mBlocks->mSize * 2, LARGEST_BLOCK) : FIRST_BLOCK;
    const size_t blockSize = std::max(usual, size + sizeof(Block));
    void* memory = Memory::allocateAligned(getNodeMemory(), blockSize, alignof(Block));
    Block* block = new (memory) Block{mBlocks, blockSize};
    mBlocks = block;
    if (mOldestBlock == nullptr)
        mOldestBlock = block;
    mFront = reinterpret_cast<char*>(block + 1);
    mBack = reinterpret_cast<char*>(block) + blockSize;
}

Memory::Allocator& XMLTreeBuilder::getNodeMemory() const
{
    return mAllocator == nullptr ? *getMemory() : *mAllocator;
}

bool XMLTreeBuilder::checkCopyStrings(const char* function) const
{
    return KORV_COMMON_ASSERT(function, copyStrings, "copyStrings", "Used without copyStrings enabled !");
}

void XMLTreeBuilder::addTypedElem(const char* function, const char* tag, const NumberText& value)
{
    if (checkCopyStrings(function))
        addElem(tag, value.c_str());
}

void XMLTreeBuilder::addTypedAttrib(const char* function, const char* tag, const NumberText& value)
{
    if (checkCopyStrings(function))
        addAttrib(tag, value.c_str());
}

void XMLTreeBuilder::addElemBool(const char* tag, bool value)
{
    addTypedElem("KORV::Common::Parser::XML::XMLTreeBuilder::addElemBool", tag,
                 NumberText().append(value ? "true" : "false"));
}

void XMLTreeBuilder::addElemInt32(const char* tag, int32 value)
{
    addTypedElem("KORV::Common::Parser::XML::XMLTreeBuilder::addElemInt32", tag, NumberText().append(value));
}

void XMLTreeBuilder::addElemUInt32(const char* tag, uint32 value)
{
    addTypedElem("KORV::Common::Parser::XML::XMLTreeBuilder::addElemUInt32", tag, NumberText().append(value));
}

void XMLTreeBuilder::addElemInt64(const char* tag, int64 value)
{
    addTypedElem("KORV::Common::Parser::XML::XMLTreeBuilder::addElemInt64", tag, NumberText().append(value));
}

void XMLTreeBuilder::addElemUInt64(const char* tag, uint64 value)
{
    addTypedElem("KORV::Common::Parser::XML::XMLTreeBuilder::addElemUInt64", tag, NumberText().append(value));
}

void XMLTreeBuilder::addElemFloat32(const char* tag, float value)
{
    addTypedElem("KORV::Common::Parser::XML::XMLTreeBuilder::addElemFloat32", tag, NumberText().append(value));
}

void XMLTreeBuilder::addElemFloat64(const char* tag, double value)
{
    addTypedElem("KORV::Common::Parser::XML::XMLTreeBuilder::addElemFloat64", tag, NumberText().append(value));
}

void XMLTreeBuilder::addElemVec3f(const char* tag, const Math::Vec3<float>& v)
{
    addTypedElem("KORV::Common::Parser::XML::XMLTreeBuilder::addElemVec3f", tag,
                 NumberText().append(v.mX).append("/").append(v.mY).append("/").append(v.mZ));
}

void XMLTreeBuilder::addElemVec3u32(const char* tag, const Math::Vec3<uint32>& v)
{
    addTypedElem("KORV::Common::Parser::XML::XMLTreeBuilder::addElemVec3u32", tag,
                 NumberText().append(v.mX).append("/").append(v.mY).append("/").append(v.mZ));
}

void XMLTreeBuilder::addElemVec3i32(const char* tag, const Math::Vec3<int32>& v)
{
    addTypedElem("KORV::Common::Parser::XML::XMLTreeBuilder::addElemVec3i32", tag,
                 NumberText().append(v.mX).append("/").append(v.mY).append("/").append(v.mZ));
}

void XMLTreeBuilder::addElemVec2f(const char* tag, const Math::Vec2<float>& v)
{
    addTypedElem("KORV::Common::Parser::XML::XMLTreeBuilder::addElemVec2f", tag,
                 NumberText().append(v.mX).append("/").append(v.mY));
}

void XMLTreeBuilder::addElemVec2u32(const char* tag, const Math::Vec2<uint32>& v)
{
    addTypedElem("KORV::Common::Parser::XML::XMLTreeBuilder::addElemVec2u32", tag,
                 NumberText().append(v.mX).append("/").append(v.mY));
}

void XMLTreeBuilder::addElemVec2i32(const char* tag, const Math::Vec2<int32>& v)
{
    addTypedElem("KORV::Common::Parser::XML::XMLTreeBuilder::addElemVec2i32", tag,
                 NumberText().append(v.mX).append("/").append(v.mY));
}

void XMLTreeBuilder::addAttribInt32(const char* tag, int32 value)
{
    addTypedAttrib("KORV::Common::Parser::XML::XMLTreeBuilder::addAttribInt32", tag, NumberText().append(value));
}

void XMLTreeBuilder::addAttribUInt32(const char* tag, uint32 value)
{
    addTypedAttrib("KORV::Common::Parser::XML::XMLTreeBuilder::addAttribUInt32", tag, NumberText().append(value));
}

void XMLTreeBuilder::addAttribBool(const char* tag, bool value)
{
    addTypedAttrib("KORV::Common::Parser::XML::XMLTreeBuilder::addAttribBool", tag,
                   NumberText().append(value ? "1" : "0"));
}

void XMLTreeBuilder::addAttribFloat32(const char* tag, float value)
{
    addTypedAttrib("KORV::Common::Parser::XML::XMLTreeBuilder::addAttribFloat32", tag,
                   NumberText().appendFixed(static_cast<double>(value)));
}
} // namespace KORV::Common::Parser::XML
