#include "korv/common/interface.h"
#include "korv/common/io/filesystem.h"
#include "korv/common/io/ioexception.h"
#include "korv/common/memory/freelistallocator.h"
#include "korv/common/memory/memoryexception.h"
#include "korv/common/parser/xml/xmlparser.h"
#include "korv/common/parser/xml/xmltreereader.h"
#include "korv/common/parser/xml/xmlwriter.h"
#include "support/memorystream.h"
#include "support/test.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>

#include <unistd.h>

using namespace KORV;
using namespace KORV::Common;
using namespace KORV::Common::Parser;
using namespace KORV::Common::Parser::XML;
using Testing::expectThrow;
using Testing::MemoryStream;

namespace
{
const Memory::AllocatorPtr& allocator()
{
    return Interface::getSharedAllocator();
}

std::string writtenTree(const XMLNode* root)
{
    MemoryStream stream;
    XMLWriter().writeTree(&stream, root);
    return std::string(stream.text());
}

/// What a document looks like when it is written back.
std::string rewritten(std::string_view document)
{
    MemoryStream stream(document);
    XMLParser parser(allocator());
    return writtenTree(parser.parse(&stream));
}

/// "message @line:row" of the exception that a document ends in.
std::string refusal(std::string_view document)
{
    MemoryStream stream(document);
    XMLParser parser(allocator());
    try
    {
        parser.parse(&stream);
    }
    catch (XMLParserException* error)
    {
        std::string text = std::string(error->getMessage().c_str()) + " @" + std::to_string(error->getLine()) + ":" +
                           std::to_string(error->getRow());
        delete error;
        return text;
    }
    return "accepted";
}

std::string nested(size_t depth, std::string_view innermost)
{
    std::string text;
    for (size_t i = 0; i < depth; ++i)
        text += "<a>";
    text += innermost;
    for (size_t i = 0; i < depth; ++i)
        text += "</a>";
    return text;
}

/// XML files in a directory of their own, removed afterwards.
class Folder
{
public:
    Folder() : mPath(std::filesystem::path(testing::TempDir()) / ("korv_xml_" + std::to_string(::getpid())))
    {
        std::filesystem::remove_all(mPath);
        std::filesystem::create_directories(mPath);
    }
    ~Folder() { std::filesystem::remove_all(mPath); }

    /// Writes a file; each @ in the text stands for the directory.
    BasicString write(const char* name, std::string text) const
    {
        for (size_t at = text.find('@'); at != std::string::npos; at = text.find('@', at))
            text.replace(at, 1, mPath.string());
        std::ofstream(mPath / name) << text;
        return BasicString((mPath / name).c_str());
    }

private:
    std::filesystem::path mPath;
};
} // namespace

KORV_TEST(Xml, documentIsReadAndWrittenInItsCanonicalForm)
{
    EXPECT_EQ(rewritten("junk <?xml version=\"1.0\"?>\r\n<!-- a > b -- -->\n"
                        "<KORV>\n<?pi?><navmesh version = \"2.5.0\"id=\"1\" empty=\"\"><!----><h > 7 </h>"
                        "<e\n/><list></list><p><q>a&amp;b>\n</q ></p\n></navmesh></KORV> what follows < is not read"),
              "<KORV>\n"
              "\t<navmesh empty=\"\" id=\"1\" version=\"2.5.0\">\n"
              "\t\t<h> 7 </h>\n"
              "\t\t<e/>\n"
              "\t\t<list>\n"
              "\t\t</list>\n"
              "\t\t<p>\n"
              "\t\t\t<q>a&amp;b>\n</q>\n"
              "\t\t</p>\n"
              "\t</navmesh>\n"
              "</KORV>\n");
    MemoryStream header;
    XMLWriter().writeHeader(&header);
    EXPECT_EQ(header.text(), "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>\n");
}

KORV_TEST(Xml, malformedDocumentsAreRefusedAtTheirPlace)
{
    const struct
    {
        const char *mDocument, *mRefusal;
    } rows[] = {
        {"", "XMLParser: End of buffer reached. @1:0"},
        {"no tag", "XMLParser: End of buffer reached. @1:0"},
        {"<!-- unterminated", "XMLParser: Invalid XML format. Found nodetype : -4 @1:0"},
        {"<!DOCTYPE x><a></a>", "XMLParser: Invalid XML format. Found nodetype : -4 @1:0"},
        {"</a>", "XMLParser: Invalid XML format. Found nodetype : -3 @1:0"},
        {"<a/>", "XMLParser: First tag must be a root node @1:0"},
        {"<a>text</a>", "XMLParser: First tag must be a root node @1:0"},
        {"<a>\n<b>\n</c></a>", "XMLParser: Name in starttag and endtag are not equal @3:1"},
        {"<a>\n<b>1</b>text</a>", "XMLParser: Invalid tag found. @2:9"},
        {"<a>\n<b>1</b><![CDATA[x]]></a>", "XMLParser: Invalid tag found. @2:9"},
        {"<a>\n\n<b>1</c></a>", "XMLParser: Name in starttag and endtag are not equal @3:1"},
        {"<a>\n <b\n x=1/></a>", "XMLParser: Expected envelop char '\"' , found '1' @3:2"},
        {"<a><b x /></a>", "XMLParser: Expected assign operator '=' but found '/' @1:6"},
        {"<a><b x=\"1\" <c/></a>",
         "name has invalid first char '<' , must be in 'abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_' @1:12"},
        {"<a><b$></b></a>", "XMLParser: Invalid character '$' in name. @1:3"},
        {"<a></a$>", "XMLParser: Invalid character '$' in starttag. @1:3"},
        {"<a><b>1", "XMLParser: End of buffer reached. @1:3"},
        {"<a><b/></a", "XMLParser: Reached end of buffer during name read @1:7"},
        {"<a><xi:include href=\"b\"/></a>", "XMLParser: We have no FileSystem defined, but there is an xi:include tag "
                                            "in the current xml definition @1:23"},
        // Line feeds in texts, values and comments don't count; those in front of a text do.
        {"<a><b>\n1\n</b><c d=\"\n\"/><!--\n-->$</a>", "XMLParser: Invalid tag found. @2:25"},
        // White space behind a '>' in a value is looked at before the value is read.
        {"<a><b c=\">\n\" $/></a>",
         "name has invalid first char '$' , must be in 'abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_' @2:3"},
    };
    for (const auto& row : rows)
    {
        KORV_CONTEXT(row.mDocument);
        EXPECT_EQ(refusal(row.mDocument), row.mRefusal);
    }
}

KORV_TEST(Xml, everyCutDocumentIsRefused)
{
    const std::string_view whole = "<?xml a?>\n<r x=\"1\" y = \"2\">\n<!-- c --><t>text</t><e />\n<l z=\"\">"
                                   "<m>5</m></l ></r>";
    EXPECT_EQ(refusal(whole), "accepted");
    for (size_t length = 0; length < whole.size(); ++length)
    {
        KORV_CONTEXT("cut to " << length);
        EXPECT_NE(refusal(whole.substr(0, length)), "accepted");
        const std::unique_ptr<char[]> exact(new char[length + 1]); // a sanitizer sees the first byte too far
        std::memcpy(exact.get(), whole.data(), length);
        XMLParser parser(allocator());
        expectThrow<XMLParserException>([&] { parser.parseBuffer(exact.get(), length, true); });
    }
}

KORV_TEST(Xml, hugeNamesAndValuesAreReadOrRefusedAtTheirPlace)
{
    const std::string huge(500000, 'x');
    EXPECT_EQ(rewritten("<a " + huge + "=\"" + huge + "\"><b/></a>"),
              "<a " + huge + "=\"" + huge + "\">\n\t<b/>\n</a>\n");
    EXPECT_EQ(refusal("<a>\n<b x=\"" + huge + "></b></a>"), "XMLParser: End of buffer reached. @2:4");
    EXPECT_EQ(refusal("<a>\n<" + huge + "></b></a>"), "XMLParser: Name in starttag and endtag are not equal @2:500003");
}

KORV_TEST(Xml, zeroBytesAreWhiteSpaceAndPartsOfNames)
{
    using namespace std::string_view_literals;
    EXPECT_EQ(rewritten("<a>\0<b\0c>1\0002</b>\0</a\0x>"sv), "<a>\n\t<b>1</b>\n</a>\n");
}

KORV_TEST(Xml, depthIsLimitedInDocumentsAndNotInTrees)
{
    EXPECT_EQ(refusal(nested(1024, "")), "accepted");
    EXPECT_EQ(refusal(nested(1025, "")), "XMLParser: Elements are nested deeper than 1024 levels @1:3072");
    EXPECT_EQ(refusal(nested(1023, "<b>1</b>")), "accepted");
    EXPECT_EQ(refusal(nested(1024, "<b/>")), "XMLParser: Elements are nested deeper than 1024 levels @1:3072");
    EXPECT_EQ(refusal(nested(200000, "")), "XMLParser: Elements are nested deeper than 1024 levels @1:3072");

    XMLTreeBuilder builder(allocator());
    builder.initTree("r", true);
    for (int i = 0; i < 100000; ++i)
        builder.openElement("a");
    const std::string text = writtenTree(builder.getTree());
    EXPECT_NE(text.find("\n" + std::string(1024, '\t') + "<a>\n" + std::string(1024, '\t') + "</a>\n"),
              std::string::npos);
    builder.deleteXMLNode(builder.getTree()->elements.front());
    EXPECT_EQ(writtenTree(builder.getTree()), "<r>\n</r>\n");
}

KORV_TEST(Xml, attributesFormAMapOfAnySize)
{
    constexpr int COUNT = 20000; // a list searched on every insertion would take its time here
    XMLTreeBuilder builder(allocator());
    builder.initTree("r", true);
    for (int i = 0; i < COUNT; ++i)
    {
        const int scrambled = i * 7919 % COUNT;
        builder.addAttribInt32(("a" + std::to_string(scrambled)).c_str(), -1);
        builder.addAttribInt32(("a" + std::to_string(i)).c_str(), i);
    }
    const XMLNode* root = builder.getTree();
    int count = 0;
    const char* previous = "";
    for (const XMLAttribute* a = root->getFirstAttribute(); a != nullptr; a = a->mNext, ++count)
    {
        EXPECT_TRUE(StringComp()(previous, a->mName));
        previous = a->mName;
    }
    EXPECT_EQ(count, COUNT);
    int32 value = 0;
    EXPECT_TRUE(root->getAttribValue(value, "a19999"));
    EXPECT_EQ(value, 19999); // the scrambled one came first
    EXPECT_FALSE(root->getAttribValue(value, "b"));
}

KORV_TEST(Xml, cursorTakesChildrenInOrderOnly)
{
    MemoryStream stream("<r><a>1</a><a>2</a><l><x/></l><b/><c>5</c></r>");
    XMLParser parser(allocator());
    XMLNodeElements* root = parser.parse(&stream);
    int32 value = 0;
    EXPECT_EQ(root->getPreviousElement(), nullptr);
    EXPECT_FALSE(root->getElementValue(value, "b"));
    EXPECT_TRUE(root->getElementValue(value, "a"));
    EXPECT_EQ(root->getNextElementNode("a"), nullptr); // a text element, but the cursor has passed it
    EXPECT_STREQ(root->getPreviousElement()->getText(), "2");
    EXPECT_FALSE(root->getElementValue(value, "l")); // passed as well
    XMLNodeElements* empty = root->getNextElementNode("b");
    ASSERT_NE(empty, nullptr);
    EXPECT_TRUE(empty->elements.empty());
    EXPECT_STREQ(root->getNextElement()->name, "c");
    EXPECT_EQ(root->getNextElement(), nullptr);

    EXPECT_EQ(root->getLastElement()->getText(), std::string("5"));
    root->removeLastElement();
    root->removeLastElement();
    EXPECT_STREQ(root->getLastElement()->name, "l");
    EXPECT_EQ(root->elements.size(), 3u);
    EXPECT_EQ(root->getPreviousElement(), nullptr);

    EXPECT_EQ(empty->getLastElement(), nullptr);
    empty->removeLastElement();
    expectReports({"!elements.empty()\nError Message: Cannot get last element from an empty elements node",
                   "!elements.empty()\nError Message: Cannot remove last element from an empty node list"});
}

KORV_TEST(Xml, missingTagIsReportedWithItsPath)
{
    MemoryStream stream("<KORV><navmesh><nodes></nodes></navmesh></KORV>");
    XMLParser parser(allocator());
    XMLNodeElements* list = parser.parse(&stream);
    ASSERT_TRUE(XMLTreeReader::readRequiredElement(list, *list, "navmesh"));
    ASSERT_TRUE(XMLTreeReader::readRequiredElement(list, *list, "nodes"));
    XMLNodeElements* none = nullptr;
    EXPECT_FALSE(XMLTreeReader::readOptionalElement(none, *list, "node"));
    EXPECT_FALSE(XMLTreeReader::readRequiredElement(none, *list, "node"));
    XMLTreeReader::PrintAttribNameError(*list, "id");
    expectReports({"\nError Message: In 'KORV'->'navmesh'->'nodes' the tag 'node' is required !",
                   "\nError Message: In 'KORV'->'navmesh'->'nodes' the attribute 'id' is required !"});
}

KORV_TEST(Xml, valuesKeepTheirTypesThroughADocument)
{
    XMLTreeBuilder builder(allocator());
    builder.initTree("r", true);
    builder.addElemBool("v", true);
    builder.addAttribBool("b", true);
    builder.addAttribFloat32("f", 0.1f);
    builder.addAttribUInt32("u", 4000000000u);
    builder.addElemInt64("v", INT64_MIN);
    builder.addElemUInt64("v", UINT64_MAX);
    builder.addElemFloat32("v", 1234567.0f);
    builder.addElemFloat64("v", 1e300);
    builder.addElemVec3f("v", {-0.5f, 1e-7f, 3e38f});
    builder.addElemVec3i32("v", {INT32_MIN, 0, INT32_MAX});
    builder.addElemVec3u32("v", {UINT32_MAX, 0, 1});
    builder.addElemVec2f("v", {1, 2});
    builder.addElemVec2i32("v", {-1, 2});
    builder.addElemVec2u32("v", {1, 2});
    builder.addElemUInt32("v", UINT32_MAX);
    XMLNodeElements* r = builder.getTree();
    EXPECT_EQ(writtenTree(r), "<r>\n\t<v b=\"1\" f=\"0.100000\" u=\"4000000000\">true</v>\n"
                              "\t<v>-9223372036854775808</v>\n\t<v>18446744073709551615</v>\n\t<v>1.23457e+06</v>\n"
                              "\t<v>1e+300</v>\n\t<v>-0.5/1e-07/3e+38</v>\n\t<v>-2147483648/0/2147483647</v>\n"
                              "\t<v>4294967295/0/1</v>\n\t<v>1/2</v>\n\t<v>-1/2</v>\n\t<v>1/2</v>\n"
                              "\t<v>4294967295</v>\n</r>\n");
    bool b = false;
    int64 i = 0;
    uint64 u = 0;
    float f = 0;
    double d = 0;
    Math::Vec3<float> v3;
    Math::Vec3<int32> v3i;
    Math::Vec3<uint32> v3u;
    Math::Vec2<float> v2;
    Math::Vec2<int32> v2i;
    Math::Vec2<uint32> v2u;
    uint32 u32 = 0;
    EXPECT_TRUE(r->getElementValue(b, "v") && r->getElementValue(i, "v") && r->getElementValue(u, "v") &&
                r->getElementValue(f, "v") && r->getElementValue(d, "v") && r->getElementValue(v3, "v") &&
                r->getElementValue(v3i, "v") && r->getElementValue(v3u, "v") && r->getElementValue(v2, "v") &&
                r->getElementValue(v2i, "v") && r->getElementValue(v2u, "v") && r->getElementValue(u32, "v"));
    EXPECT_TRUE(b && i == INT64_MIN && u == UINT64_MAX && f == 1234570.0f && d == 1e300 && u32 == UINT32_MAX);
    EXPECT_EQ(v3, (Math::Vec3<float>{-0.5f, 1e-7f, 3e38f}));
    EXPECT_EQ(v3i, (Math::Vec3<int32>{INT32_MIN, 0, INT32_MAX}));
    EXPECT_EQ(v3u, (Math::Vec3<uint32>{UINT32_MAX, 0, 1}));
    EXPECT_TRUE(v2 == (Math::Vec2<float>{1, 2}) && v2i == (Math::Vec2<int32>{-1, 2}) &&
                v2u == (Math::Vec2<uint32>{1, 2}));
}

KORV_TEST(Xml, looseValuesReadAsTheCLibraryReadsThem)
{
    MemoryStream stream(
        "<r a=\"TRUE\" b=\"0\" c=\"yes\" d=\"trueish\"><v>Trueish</v><v>2</v><v/><v></v><v>4294967296</v>"
        "<v>99999999999</v><v>1/2x</v><v> 7 </v></r>");
    XMLParser parser(allocator());
    XMLNodeElements* r = parser.parse(&stream);
    bool b = false;
    EXPECT_TRUE(r->getAttribValue(b, "a") && b);
    EXPECT_TRUE(r->getAttribValue(b, "b") && !b);
    EXPECT_FALSE(r->getAttribValue(b, "c") || r->getAttribValue(b, "d"));
    EXPECT_TRUE(r->getElementValue(b, "v") && b);
    EXPECT_TRUE(r->getElementValue(b, "v") && !b);
    Math::Vec3<float> v{9, 9, 9};
    EXPECT_TRUE(r->getElementValue(v, "v"));
    EXPECT_EQ(v, (Math::Vec3<float>{0, 0, 0}));
    const char* text = nullptr;
    EXPECT_TRUE(r->getElementValue(text, "v"));
    EXPECT_STREQ(text, "");
    uint32 u = 1;
    EXPECT_TRUE(r->getElementValue(u, "v"));
    EXPECT_EQ(u, 0u); // cut to 32 bits
    int32 i = 0;
    EXPECT_TRUE(r->getElementValue(i, "v"));
    EXPECT_EQ(i, INT32_MAX); // saturated
    EXPECT_TRUE(r->getElementValue(v, "v"));
    EXPECT_EQ(v, (Math::Vec3<float>{1, 2, 0}));
    EXPECT_TRUE(r->getElementValue(i, "v"));
    EXPECT_EQ(i, 7);
}

KORV_TEST(Xml, builderMisuseIsReportedAndChangesNothing)
{
    XMLTreeBuilder builder(allocator());
    builder.addElem("early", "1");
    EXPECT_EQ(dropReports(), 1u);
    builder.initTree("r", false);
    builder.addElemInt32("n", 1);
    builder.addAttribInt32("n", 1);
    builder._addNode(7);
    builder._setText("t");
    builder._addTree(nullptr);
    XMLTreeBuilder copying(allocator());
    copying.initTree("s", true);
    builder._addTree(&copying);
    const Memory::AllocatorPtr other(new (allocator()) Memory::FreeListAllocator(allocator()));
    {
        XMLTreeBuilder foreign(other);
        builder._addTree(&foreign);
    }
    expectReports({
        "copyStrings\nError Message: Used without copyStrings enabled !",
        "copyStrings\nError Message: Used without copyStrings enabled !",
        "\nError Message: Unknown node type: 7",
        "\nError Message: Cannot set text for node of type : 2",
        "tree\nError Message: Tree cannot be a NULL pointer",
        "tree->copyStrings == copyStrings\nError Message: We cannot add a tree with a different copyStrings flag",
        "tree->mAllocator == mAllocator\nError Message: We cannot add a tree with a different allocator",
    });
    EXPECT_FALSE(builder.closeElement("other"));
    EXPECT_FALSE(builder.closeElement());
    EXPECT_EQ(writtenTree(builder.getTree()), "<r>\n</r>\n");
    EXPECT_EQ(writtenTree(copying.getTree()), "<s>\n</s>\n");
}

KORV_TEST(Xml, subtreesMoveAndGoWithTheirStrings)
{
    XMLTreeBuilder builder(allocator());
    builder.initTree("r", true);
    builder.openElement("kept");
    {
        XMLTreeBuilder other(allocator());
        other.initTree("s", true);
        other.addElem("t", std::string(100000, 'x').c_str());
        builder._addTree(&other);
        EXPECT_EQ(other.getTree(), nullptr);
    }
    EXPECT_STREQ(builder.getCurrentNode()->name, "s");
    builder.addAttrib("moved", "1");
    builder.openElement("gone");
    builder.addElem("child", "1");
    builder.deleteXMLNode(builder.getOpenElement()); // goes while it is open
    builder.addEmptyNode("last");
    EXPECT_TRUE(builder.closeElement("kept"));
    EXPECT_EQ(writtenTree(builder.getTree()), "<r>\n\t<kept>\n\t\t<s moved=\"1\">\n\t\t\t<t>" +
                                                  std::string(100000, 'x') +
                                                  "</t>\n\t\t</s>\n\t\t<last/>\n\t</kept>\n</r>\n");
}

KORV_TEST(Xml, writerAsksTheStreamSeldomAndPassesItsFailuresOn)
{
    XMLTreeBuilder builder(allocator());
    builder.initTree("r", true);
    for (int i = 0; i < 10000; ++i)
        builder.addElemInt32("value", i);
    MemoryStream stream;
    XMLWriter writer;
    writer.writeTree(&stream, builder.getTree());
    EXPECT_GT(stream.mBytes.size(), 200000u);
    EXPECT_LT(stream.mWrites, 20u);
    MemoryStream full;
    full.mCapacity = 20000;
    expectThrow<IO::OutOfSpaceException>([&] { writer.writeTree(&full, builder.getTree()); });
    full.mCapacity = 1000000;
    full.mBytes.clear(), full.rewind();
    writer.writeTree(&full, builder.getTree()); // nothing of the failed attempt is left
    EXPECT_EQ(full.text(), stream.text());
    EXPECT_EQ(expectThrow<Exceptions::ArgumentNullException>([&] { writer.writeTree(&full, nullptr); }),
              "NULL pointer node in the tree");
}

KORV_TEST(Xml, includedDocumentsTakeThePlaceOfTheirTags)
{
    const Folder folder;
    folder.write("leaf.xml", "<leaf><v>1</v></leaf>");
    folder.write("middle.xml", "<middle><xi:include href=\"@/leaf.xml\" parse=\"xml\"/></middle>");
    const BasicString path = folder.write("top.xml", "<top><xi:include href=\"@/middle.xml\"/><b/>"
                                                     "<xi:include href=\"@/leaf.xml\"/></top>");
    IO::FileSystem files;
    XMLParser parser(allocator());
    for (int round = 0; round < 2; ++round)
        EXPECT_EQ(writtenTree(parser.parseFile(path, &files)),
                  "<top>\n\t<middle>\n\t\t<leaf>\n\t\t\t<v>1</v>\n\t\t</leaf>\n\t</middle>\n\t<b/>\n\t<leaf>\n"
                  "\t\t<v>1</v>\n\t</leaf>\n</top>\n");
    expectThrow<Exceptions::ArgumentNullException>([&] { parser.parseFile(path, nullptr); });
    expectThrow<Exceptions::ArgumentNullException>([&] { parser.parse(nullptr); });
}

KORV_TEST(Xml, includesThatNeverEndAreRefused)
{
    const Folder folder;
    const std::string self = "<a>\n<xi:include href=\"@/self.xml\"/></a>";
    folder.write("ring1.xml", "<a><xi:include href=\"@/./ring2.xml\"/></a>");
    const std::string ring = "<a>\n\n<xi:include href=\"@//./ring1.xml\"/></a>";
    // Each level includes the next one twice: no ring, but 2^30 documents.
    for (int i = 0; i < 30; ++i)
    {
        const std::string include = "<xi:include href=\"@/d" + std::to_string(i + 1) + ".xml\"/>";
        folder.write(("d" + std::to_string(i) + ".xml").c_str(), "<a>" + include + include + "</a>");
    }
    folder.write("d30.xml", "<a><b/></a>");
    for (int i = 0; i < 100; ++i)
        folder.write(("c" + std::to_string(i) + ".xml").c_str(),
                     "<a><xi:include href=\"@/c" + std::to_string(i + 1) + ".xml\"/></a>");
    const struct
    {
        BasicString mPath;
        const char* mMessage;
        uint32 mLine;
    } rows[] = {
        {folder.write("self.xml", self), "XMLParser: A document includes itself", 2},
        {folder.write("ring2.xml", ring), "XMLParser: A document includes itself", 1},
        {folder.write("top.xml", "<a><xi:include href=\"@/d0.xml\"/></a>"),
         "XMLParser: Too many documents are included", 1},
        {folder.write("chain.xml", "<a><xi:include href=\"@/c0.xml\"/></a>"),
         "XMLParser: Included documents are nested too deeply", 1},
        {folder.write("text.xml", "<a><xi:include parse=\"text\" href=\"x\"/></a>"),
         "XMLParser: We support currently only xi:include tags with attribute parse=\"xml\" or no parse attribute.", 1},
        {folder.write("nohref.xml", "<a>\n<xi:include x=\"y\"/></a>"),
         "XMLParser: xi:include tag without href attribute found", 2},
    };
    IO::FileSystem files;
    for (const auto& row : rows)
    {
        KORV_CONTEXT(row.mPath.c_str());
        XMLParser parser(allocator());
        try
        {
            parser.parseFile(row.mPath, &files);
            ADD_FAILURE() << "accepted";
        }
        catch (XMLParserException* error)
        {
            EXPECT_EQ(error->getMessage(), row.mMessage);
            EXPECT_EQ(error->getLine(), row.mLine);
            delete error;
        }
    }
    XMLParser parser(allocator());
    const BasicString missing = folder.write("missing.xml", "<a><xi:include href=\"@/none.xml\"/></a>");
    expectThrow<IO::FileNotFoundException>([&] { parser.parseFile(missing, &files); });
}

KORV_TEST(Xml, streamsThatGiveLessThanTheyPromiseAreRefused)
{
    MemoryStream stream("<a></a>");
    XMLParser parser(allocator());
    stream.mClaimed = 1;
    EXPECT_EQ(expectThrow<IO::IOException>([&] { parser.parse(&stream); }),
              "XMLParser: Cannot read complete file from stream");
    stream.mClaimed = std::numeric_limits<uint64>::max() - stream.mBytes.size();
    expectThrow<Memory::OutOfMemoryException>([&] { parser.parse(&stream); });
}

KORV_TEST(Xml, parserSurvivesRunningOutOfMemory)
{
    std::string document = "<r>";
    for (int i = 0; i < 3000; ++i)
        document += "<e a=\"1\"><v>" + std::to_string(i) + "</v></e>";
    document += "</r>";
    MemoryStream stream(document);
    int failures = 0;
    for (int64 after = 0; after < 1000; ++after)
    {
        stream.rewind();
        try
        {
            XMLParser parser(allocator());
            mMemory->mFailAfter = after;
            parser.parse(&stream);
            break;
        }
        catch (Memory::OutOfMemoryException* error)
        {
            delete error;
            ++failures;
        }
    }
    mMemory->mFailAfter = -1;
    EXPECT_GT(failures, 3);
    dropReports(); // of the allocators
}
