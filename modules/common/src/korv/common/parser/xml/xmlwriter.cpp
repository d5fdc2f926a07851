#include "korv/common/parser/xml/xmlwriter.h"

#include "korv/common/exceptions/exception.h"
#include "korv/common/io/stream.h"

#include <algorithm>
#include <cstring>

namespace KORV::Common::Parser::XML
{
using Exceptions::ArgumentNullException;

XMLWriter::XMLWriter()
{
    std::fill(std::begin(mIndentation), std::end(mIndentation), '\t');
}

XMLWriter::~XMLWriter() = default;

void XMLWriter::writeHeader(IO::Stream* stream)
{
    begin(stream);
    put("<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>\n");
    flush();
}

void XMLWriter::writeTree(IO::Stream* stream, const XMLNode* root)
{
    begin(stream);
    if (root == nullptr)
        throw new ArgumentNullException("node", "NULL pointer node in the tree");
    putTree(*root);
    flush();
}

void XMLWriter::begin(IO::Stream* stream)
{
    if (stream == nullptr)
        throw new ArgumentNullException("stream", "XMLWriter: Stream is a null pointer");
    mStream = stream;
    mLength = 0; // a write that failed may have left something
}

// Walks by the links of the nodes: a tree may be deeper than the stack.
void XMLWriter::putTree(const XMLNode& root)
{
    uint32 depth = 0;
    for (const XMLNode* node = &root;;)
    {
        putStart(*node, std::min(depth, MAX_INDENTATION));
        const XMLNodeElements* list = node->toElements();
        if (list != nullptr && !list->elements.empty())
        {
            node = list->elements.front();
            ++depth;
            continue;
        }
        if (node->getType() == XMLNODE_ELEMENTS)
        {
            putIndentation(std::min(depth, MAX_INDENTATION));
            putEnd(*node);
        }
        while (node != &root && node->getNextSibling() == nullptr)
        {
            node = node->getParent();
            --depth;
            putIndentation(std::min(depth, MAX_INDENTATION));
            putEnd(*node);
        }
        if (node == &root)
            return;
        node = node->getNextSibling();
    }
}

/// Writes all of an element but its children and the end tag of an element list.
void XMLWriter::putStart(const XMLNode& node, uint32 depth)
{
    putIndentation(depth);
    put("<", 1);
    put(node.name);
    for (const XMLAttribute* attribute = node.getFirstAttribute(); attribute != nullptr; attribute = attribute->mNext)
    {
        put(" ", 1);
        put(attribute->mName);
        put("=\"", 2);
        put(attribute->mValue);
        put("\"", 1);
    }
    if (node.getType() == XMLNODE_EMPTY)
        return put("/>\n", 3);
    if (node.getType() == XMLNODE_ELEMENTS)
        return put(">\n", 2);
    put(">", 1);
    put(node.getText());
    putEnd(node);
}

void XMLWriter::putEnd(const XMLNode& node)
{
    put("</", 2);
    put(node.name);
    put(">\n", 2);
}

void XMLWriter::put(const char* text)
{
    put(text, std::strlen(text));
}

void XMLWriter::put(const char* text, size_t length)
{
    if (length > BUFFER_SIZE - mLength)
        flush();
    if (length > BUFFER_SIZE)
        return mStream->write(text, length);
    std::memcpy(mBuffer + mLength, text, length);
    mLength += length;
}

void XMLWriter::flush()
{
    const size_t length = mLength;
    mLength = 0;
    if (length > 0)
        mStream->write(mBuffer, length);
}
} // namespace KORV::Common::Parser::XML
