#include "korv/common/parser/xml/xmlnode.h"

#include "korv/common/debug/assert.h"
#include "korv/common/parser/numbertext.h"

#include <cstring>

namespace KORV::Common::Parser::XML
{
namespace
{
/// Whether the first characters of a text, lower-cased, are these.
bool startsWithLower(std::string_view text, std::string_view lower)
{
    if (text.size() < lower.size())
        return false;
    for (size_t i = 0; i < lower.size(); ++i)
    {
        const char c = text[i];
        if ((c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c) != lower[i])
            return false;
    }
    return true;
}

/// atof, narrowed: rounded twice.
float parseNarrowed(std::string_view text)
{
    return static_cast<float>(parseDouble(text));
}

bool parseBool(std::string_view text)
{
    return text == "1" || startsWithLower(text, "true");
}

template <class T>
bool convert(T& out, const char* text, T (*parse)(std::string_view))
{
    if (text == nullptr)
        return false;
    out = parse(text);
    return true;
}

template <class T>
bool scan(Math::Vec3<T>& out, const char* text, size_t (*scanValues)(std::string_view, T*, size_t))
{
    if (text == nullptr)
        return false;
    T values[3] = {};
    scanValues(text, values, 3);
    out = {values[0], values[1], values[2]};
    return true;
}

template <class T>
bool scan(Math::Vec2<T>& out, const char* text, size_t (*scanValues)(std::string_view, T*, size_t))
{
    if (text == nullptr)
        return false;
    T values[2] = {};
    scanValues(text, values, 2);
    out = {values[0], values[1]};
    return true;
}

/// Merges two sorted lists; of equal names those of the first list come first.
XMLAttribute* mergeAttributes(XMLAttribute* a, XMLAttribute* b)
{
    XMLAttribute* first = nullptr;
    XMLAttribute** end = &first;
    while (a != nullptr && b != nullptr)
    {
        XMLAttribute*& smaller = std::strcmp(b->mName, a->mName) < 0 ? b : a;
        *end = smaller;
        end = &smaller->mNext;
        smaller = smaller->mNext;
    }
    *end = a != nullptr ? a : b;
    return first;
}

/// Keeps the first of equal names in a sorted list.
void dropRepeated(XMLAttribute* attribute)
{
    while (attribute != nullptr && attribute->mNext != nullptr)
    {
        if (std::strcmp(attribute->mName, attribute->mNext->mName) == 0)
            attribute->mNext = attribute->mNext->mNext;
        else
            attribute = attribute->mNext;
    }
}
} // namespace

bool StringComp::operator()(const char* a, const char* b) const
{
    return std::strcmp(a, b) < 0;
}

// Attributes are put in front of their list as they come, and sorted when somebody looks: a map that costs nothing to
// nodes without attributes, and n log n to a node with many. The latest of equal names is met first, and stays.
void XMLNode::sortAttributes() const
{
    if (mSorted)
        return;
    constexpr int NUM_RUNS = 64; // run i holds 2^i attributes, or none
    XMLAttribute* runs[NUM_RUNS] = {};
    for (XMLAttribute* attribute = mAttributes; attribute != nullptr;)
    {
        XMLAttribute* run = attribute;
        attribute = attribute->mNext;
        run->mNext = nullptr;
        int i = 0;
        for (; runs[i] != nullptr; ++i)
        {
            run = mergeAttributes(runs[i], run);
            runs[i] = nullptr;
        }
        runs[i] = run;
    }
    mAttributes = nullptr;
    for (XMLAttribute* run : runs)
        mAttributes = mergeAttributes(run, mAttributes);
    dropRepeated(mAttributes);
    mSorted = true;
}

const XMLAttribute* XMLNode::getFirstAttribute() const
{
    sortAttributes();
    return mAttributes;
}

const char* XMLNode::getAttribute(const char* attribute) const
{
    for (const XMLAttribute* a = getFirstAttribute(); a != nullptr; a = a->mNext)
    {
        if (std::strcmp(a->mName, attribute) == 0)
            return a->mValue;
    }
    return nullptr;
}

bool XMLNode::getAttribValue(int32& out, const char* attribute) const
{
    return convert(out, getAttribute(attribute), parseInt32);
}

bool XMLNode::getAttribValue(int64& out, const char* attribute) const
{
    return convert(out, getAttribute(attribute), parseInt64);
}

bool XMLNode::getAttribValue(float& out, const char* attribute) const
{
    return convert(out, getAttribute(attribute), parseNarrowed);
}

bool XMLNode::getAttribValue(bool& out, const char* attribute) const
{
    const char* value = getAttribute(attribute);
    if (value == nullptr)
        return false;
    const std::string_view text(value);
    const bool isTrue = text == "1" || (text.size() == 4 && startsWithLower(text, "true"));
    const bool isFalse = text == "0" || (text.size() == 5 && startsWithLower(text, "false"));
    if (isTrue || isFalse)
        out = isTrue;
    return isTrue || isFalse;
}

void XMLNodeList::append(XMLNode* node)
{
    node->mNext = nullptr;
    (mLast != nullptr ? mLast->mNext : mFirst) = node;
    mBeforeLast = mLast;
    mLast = node;
    ++mSize;
}

XMLNode* XMLNodeList::findBefore(const XMLNode* node) const
{
    if (node == mLast && mBeforeLast != nullptr)
        return mBeforeLast;
    XMLNode* before = nullptr;
    for (XMLNode* child = mFirst; child != nullptr && child != node; child = child->mNext)
        before = child;
    return before;
}

void XMLNodeList::remove(XMLNode* node)
{
    XMLNode* before = findBefore(node);
    (before != nullptr ? before->mNext : mFirst) = node->mNext;
    if (mLast == node)
        mLast = before;
    mBeforeLast = nullptr;
    node->mNext = nullptr;
    --mSize;
}

XMLNode* XMLNodeElements::getNextElement(const char* childName)
{
    XMLNode* child = getCursor();
    if (child == nullptr || std::strcmp(child->name, childName) != 0)
        return nullptr;
    mTaken = child;
    return child;
}

XMLNode* XMLNodeElements::getNextElement()
{
    XMLNode* child = getCursor();
    if (child != nullptr)
        mTaken = child;
    return child;
}

XMLNodeElements* XMLNodeElements::getNextElementNode(const char* childName)
{
    XMLNode* child = getNextElement(childName);
    return child != nullptr ? child->toElements() : nullptr;
}

const char* XMLNodeElements::takeText(const char* childName)
{
    const XMLNode* child = getNextElement(childName);
    return child != nullptr && child->mType != XMLNODE_ELEMENTS ? child->mText : nullptr;
}

bool XMLNodeElements::getElementValue(const char*& out, const char* childName)
{
    const XMLNode* child = getNextElement(childName);
    if (child == nullptr)
        return false;
    const XMLNodeElements* list = child->toElements();
    if (list != nullptr && !list->elements.empty())
        return false;
    out = child->mText;
    return true;
}

bool XMLNodeElements::getElementValue(int32& out, const char* childName)
{
    return convert(out, takeText(childName), parseInt32);
}

bool XMLNodeElements::getElementValue(uint32& out, const char* childName)
{
    return convert(out, takeText(childName), parseUInt32);
}

bool XMLNodeElements::getElementValue(int64& out, const char* childName)
{
    return convert(out, takeText(childName), parseInt64);
}

bool XMLNodeElements::getElementValue(uint64& out, const char* childName)
{
    return convert(out, takeText(childName), parseUInt64);
}

bool XMLNodeElements::getElementValue(float& out, const char* childName)
{
    return convert(out, takeText(childName), parseNarrowed);
}

bool XMLNodeElements::getElementValue(double& out, const char* childName)
{
    return convert(out, takeText(childName), parseDouble);
}

bool XMLNodeElements::getElementValue(bool& out, const char* childName)
{
    return convert(out, takeText(childName), parseBool);
}

bool XMLNodeElements::getElementValue(Math::Vec3<float>& out, const char* childName)
{
    return scan(out, takeText(childName), scanFloats);
}

bool XMLNodeElements::getElementValue(Math::Vec3<int32>& out, const char* childName)
{
    return scan(out, takeText(childName), scanInt32s);
}

bool XMLNodeElements::getElementValue(Math::Vec3<uint32>& out, const char* childName)
{
    return scan(out, takeText(childName), scanUInt32s);
}

bool XMLNodeElements::getElementValue(Math::Vec2<float>& out, const char* childName)
{
    return scan(out, takeText(childName), scanFloats);
}

bool XMLNodeElements::getElementValue(Math::Vec2<int32>& out, const char* childName)
{
    return scan(out, takeText(childName), scanInt32s);
}

bool XMLNodeElements::getElementValue(Math::Vec2<uint32>& out, const char* childName)
{
    return scan(out, takeText(childName), scanUInt32s);
}

XMLNode* XMLNodeElements::getLastElement() const
{
    if (!KORV_COMMON_ASSERT("KORV::Common::Parser::XML::XMLNodeElements::getLastElement", !elements.empty(),
                            "!elements.empty()", "Cannot get last element from an empty elements node"))
        return nullptr;
    return elements.back();
}

void XMLNodeElements::removeLastElement()
{
    if (!KORV_COMMON_ASSERT("KORV::Common::Parser::XML::XMLNodeElements::removeLastElement", !elements.empty(),
                            "!elements.empty()", "Cannot remove last element from an empty node list"))
        return;
    XMLNode* last = elements.back();
    elements.remove(last);
    last->mParent = nullptr;
    resetCursor();
}
} // namespace KORV::Common::Parser::XML
