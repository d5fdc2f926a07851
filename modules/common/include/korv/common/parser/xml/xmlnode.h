#pragma once

#include "korv/common/api.h"
#include "korv/common/math/vec2.h"
#include "korv/common/math/vec3.h"
#include "korv/common/types.h"

#include <cstddef>
#include <iterator>

namespace KORV::Common::Parser::XML
{
class XMLNodeElements;

enum XMLNodeType : uint32
{
    XMLNODE_EMPTY = 0,   ///< <a/>
    XMLNODE_TEXT = 1,    ///< <a>text</a>
    XMLNODE_ELEMENTS = 2 ///< an element with child elements, or with nothing between its tags
};

/// Order of C strings by content.
struct KORV_COMMON_API StringComp
{
    bool operator()(const char* a, const char* b) const;
};

struct XMLAttribute
{
    const char* mName;
    const char* mValue;
    XMLAttribute* mNext; ///< the next in order of names, or null
};

/// An element of an XML tree. Nodes and their strings belong to the XMLTreeBuilder (and with it the XMLParser) that
/// made them. One thread at a time, reading included: looking at attributes sorts them.
class KORV_COMMON_API XMLNode
{
public:
    XMLNode(const XMLNode&) = delete;
    XMLNode& operator=(const XMLNode&) = delete;

    /// An XMLNodeType.
    uint32 getType() const { return mType; }
    /// The element that holds this one; null for the root.
    XMLNodeElements* getParent() const { return mParent; }
    /// The next child of the same parent, or null.
    XMLNode* getNextSibling() const { return mNext; }
    /// Empty for elements without text; never null.
    const char* getText() const { return mText; }
    /// This node as an element list, or null when it is a text element.
    XMLNodeElements* toElements();
    const XMLNodeElements* toElements() const { return const_cast<XMLNode*>(this)->toElements(); }

    /// The first attribute in ascending order of names, or null. Names are unique.
    const XMLAttribute* getFirstAttribute() const;
    /// @return the value, or null when there is no such attribute.
    const char* getAttribute(const char* attribute) const;
    /// Converts the value of an attribute as the C library does.
    /// @return false when there is no such attribute; @p out then stays.
    bool getAttribValue(int32& out, const char* attribute) const;
    bool getAttribValue(int64& out, const char* attribute) const;
    bool getAttribValue(float& out, const char* attribute) const;
    /// "1", "0", "true" or "false" in any case; false for any other value too.
    bool getAttribValue(bool& out, const char* attribute) const;

    const char* name = "";

private:
    friend class XMLNodeElements;
    friend class XMLNodeList;
    friend class XMLTreeBuilder;

    explicit XMLNode(uint32 type) : mType(type) {}

    void sortAttributes() const;

    const char* mText = "";
    XMLNodeElements* mParent = nullptr;
    XMLNode* mNext = nullptr;
    mutable XMLAttribute* mAttributes = nullptr; // the latest first, until somebody looks
    uint32 mType;
    mutable bool mSorted = true;
};

/// The children of an element, linked through the nodes themselves.
class KORV_COMMON_API XMLNodeList
{
public:
    class Iterator
    {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = XMLNode*;
        using difference_type = std::ptrdiff_t;
        using pointer = XMLNode* const*;
        using reference = XMLNode*;

        explicit Iterator(XMLNode* node = nullptr) : mNode(node) {}
        XMLNode* operator*() const { return mNode; }
        Iterator& operator++()
        {
            mNode = mNode->getNextSibling();
            return *this;
        }
        Iterator operator++(int)
        {
            const Iterator before(*this);
            ++*this;
            return before;
        }
        friend bool operator==(const Iterator&, const Iterator&) = default;

    private:
        XMLNode* mNode;
    };

    bool empty() const { return mFirst == nullptr; }
    size_t size() const { return mSize; }
    /// Null when empty.
    XMLNode* front() const { return mFirst; }
    XMLNode* back() const { return mLast; }
    Iterator begin() const { return Iterator(mFirst); }
    Iterator end() const { return Iterator(); }

private:
    friend class XMLNodeElements;
    friend class XMLTreeBuilder;

    void append(XMLNode* node);
    /// Unlinks a child. Cost: linear in the number of children before it, but for the child appended last.
    void remove(XMLNode* node);
    XMLNode* findBefore(const XMLNode* node) const;

    XMLNode* mFirst = nullptr;
    XMLNode* mLast = nullptr;
    XMLNode* mBeforeLast = nullptr; // null where it is not known
    size_t mSize = 0;
};

/// An element with children, or without any text. A cursor walks the children: asking for a named child succeeds only
/// if it is the one under the cursor, and advances.
class KORV_COMMON_API XMLNodeElements : public XMLNode
{
public:
    /// The child under the cursor, if it has that name; then advances. Null, and no advance, otherwise.
    XMLNode* getNextElement(const char* childName);
    /// The child under the cursor, whatever its name; null at the end.
    XMLNode* getNextElement();
    /// As getNextElement, but null for a text element, which is passed all the same.
    XMLNodeElements* getNextElementNode(const char* childName);
    /// The child taken last, or null when the cursor is at the first one.
    XMLNode* getPreviousElement() const { return mTaken; }
    /// Cursor to the first child.
    void resetCursor() { mTaken = nullptr; }

    /// Takes the next child of that name and converts its text as the C library does; components of a vector that the
    /// text lacks are 0.
    /// @return false when there is no such child, or it has children of its own.
    bool getElementValue(const char*& out, const char* childName); ///< the text itself, valid as long as the tree
    bool getElementValue(int32& out, const char* childName);
    bool getElementValue(uint32& out, const char* childName);
    bool getElementValue(int64& out, const char* childName);
    bool getElementValue(uint64& out, const char* childName);
    bool getElementValue(float& out, const char* childName);
    bool getElementValue(double& out, const char* childName);
    bool getElementValue(bool& out, const char* childName);
    bool getElementValue(Math::Vec3<float>& out, const char* childName);
    bool getElementValue(Math::Vec3<int32>& out, const char* childName);
    bool getElementValue(Math::Vec3<uint32>& out, const char* childName);
    bool getElementValue(Math::Vec2<float>& out, const char* childName);
    bool getElementValue(Math::Vec2<int32>& out, const char* childName);
    bool getElementValue(Math::Vec2<uint32>& out, const char* childName);

    /// The last child of the list. There must be one; null (after a report) when there is none.
    XMLNode* getLastElement() const;
    /// Takes the last child out of the list, without deleting it, and resets the cursor. There must be one.
    void removeLastElement();

    XMLNodeList elements;

private:
    friend class XMLTreeBuilder;

    explicit XMLNodeElements(uint32 type) : XMLNode(type) {}

    XMLNode* getCursor() const { return mTaken != nullptr ? mTaken->mNext : elements.front(); }
    /// The text of the next child of that name, or null when it has none to convert.
    const char* takeText(const char* childName);

    XMLNode* mTaken = nullptr; // the child before the cursor
};

inline XMLNodeElements* XMLNode::toElements()
{
    return mType == XMLNODE_TEXT ? nullptr : static_cast<XMLNodeElements*>(this);
}
} // namespace KORV::Common::Parser::XML
