#include "korv/common/parser/vrml2/parser.h"
#include "support/stringfiles.h"
#include "support/test.h"

#include <memory>

using namespace KORV;
using namespace KORV::Common;
using namespace KORV::Common::Parser::VRML2;
using KORV::Testing::StringFiles;

namespace
{
const std::string HEADER = "#VRML V2.0 utf8\n";
const std::string BOX = "Shape { geometry Box { size 1 1 1 } }";

using VRMLParser = Common::Parser::VRML2::Parser;

std::unique_ptr<SceneNode> parseFiles(StringFiles& files, bool skip)
{
    VRMLParser parser;
    parser.setSkipUnknownNodes(skip);
    return std::unique_ptr<SceneNode>(parser.parse("main.wrl", &files));
}

std::unique_ptr<SceneNode> parseText(const std::string& text, bool skip = true)
{
    StringFiles files;
    files.mFiles["main.wrl"] = text;
    return parseFiles(files, skip);
}

const Vector<SceneNodePtr>& childrenOf(const SceneNode& node)
{
    if (const auto* transform = dynamic_cast<const TransformNode*>(&node))
        return transform->mChildren.get();
    if (const auto* reference = dynamic_cast<const InlineNode*>(&node))
        return reference->mChildren.get();
    return dynamic_cast<const GroupNode&>(node).mChildren.get();
}

/// "line:row message" of the refusal, or "" when the text is accepted.
std::string verdict(const std::string& text, bool skip)
{
    try
    {
        parseText(text, skip);
        return {};
    }
    catch (VRML2ParserException* refused)
    {
        const std::unique_ptr<VRML2ParserException> owner(refused);
        return std::to_string(refused->getLine()) + ":" + std::to_string(refused->getRow()) + " " +
               refused->getMessage().c_str();
    }
}

/// Types and heights of a tree, to compare trees.
std::string outline(const SceneNode* node)
{
    std::string text = std::string(node->getNodeName()) + std::to_string(node->mHeight);
    if (dynamic_cast<const ShapeNode*>(node) != nullptr || dynamic_cast<const SwitchNode*>(node) != nullptr)
        return text;
    text += "(";
    for (const SceneNodePtr& child : childrenOf(*node))
        text += outline(child.get());
    return text + ")";
}

std::string nested(int levels)
{
    std::string text;
    for (int i = 0; i < levels - 2; ++i)
        text += "Group { children ";
    text += BOX;
    for (int i = 0; i < levels - 2; ++i)
        text += "}";
    return HEADER + text + "\n";
}
} // namespace

KORV_TEST(VRML2Parser, everyRefusalNamesItsReasonAndPlace)
{
    const std::string endOfFile = "VRML2::Parser: End of file reached - corrupt VRML2 file";
    const std::string faces =
        "Shape { geometry IndexedFaceSet { coord Coordinate { point [ 0 0 0, 1 0 0 ] } coordIndex ";
    const struct
    {
        std::string mBody;
        bool mSkip;
        std::string mVerdict;
    } rows[] = {
        {"Group {\n }\n", true, "3:2 invalid character '}' in name"},
        {"DEF Transform {", true, "2:15 invalid character '{' in name"},
        {"DEF 1a Group { children [] }", true, "2:5 a digit '1' as first char in a name is not allowed"},
        {"Group { children [] } NULL\n]", true,
         "3:0 Was trying to skip a unknown node 'NULL' but the node does not start with '{'"},
        {"Material { diffuseColor 1 1 1 }", false, "2:8 unkown node: Material"},
        {"Viewpoint { a { b \"}\\\"}\" } # }\n} Foo{}", true, ""},
        {"Group [ ]", true, "2:6 memberdescription must begin with a '{'"},
        {"Group { radius 1 }", true, "2:14 field 'radius' not found in memberdescription"},
        {"USE a\n", true, ""},
        {"USE a\n", false, "2:5 Node name 'a' in USE statement is not known"},
        {"DEF a Group { children [] } DEF a Group { children [] }", true,
         "2:33 Name 'a' in DEF clause already defined."},
        {"DEF a Foo {} DEF a Group { children USE a }", true, ""},
        {"DEF a Group { children [] } Shape { geometry USE a }", true, ""},
        {faces + "[ 0 1 -1 -7 ] } }", true, ""},
        {faces + "[ 0 1 2 ] } }", true, "2:100 index '2' in the coordIndex field are to big for the coord field"},
        {faces + "[ 0 1-1 ] ccw FALSE#}\n } }", true, ""},
        {faces + "[ 0, 1\"\" ] } }", true, "2:96 elements in a multi field must be seperated by whitespace"},
        {faces + "0 ccw TRUEsolid FALSE } }", true, ""},
        {faces + "0 ccw true } }", true, "2:95 bool wanted but not found while parsing!"},
        {"Shape { geometry Box { size 1 0 1 } }", true, "2:35 all components of the boxsize must have positive values"},
        {"Shape { geometry Box { size 1e50 1 1 } }", true, "2:32 number '1e50' is out of range"},
        {"Shape { geometry Box { size 1 1 -.e } }", true, "2:35 number '-.e' is malformed"},
        {"Shape { geometry Box { size 1 1 +1 } }", true, "2:32 number wanted but not found while parsing!"},
        {"Switch { whichChoice 2147483648 }", true, "2:31 number '2147483648' is out of range"},
        {"Inline { url a.wrl }", true, "2:13 string must begin with '\"'"},
        {"Inline { url \"a", true, "2:15 " + endOfFile},
        {"Foo { { }", true, "2:9 " + endOfFile},
        {"USE a", true, "2:5 " + endOfFile},
        {"# no line end", true, ""},
        {std::string("\0 {", 3), true, ""},
        {std::string("Group {\0", 8), true, "2:7 VRML2::Parser: Invalid character in VRML2 file."},
    };
    for (const auto& row : rows)
    {
        KORV_CONTEXT(row.mBody);
        EXPECT_EQ(verdict(HEADER + row.mBody, row.mSkip), row.mVerdict);
    }
    EXPECT_EQ(verdict("#VRML V2.0 utf8 and more\n" + BOX, false), "");
    EXPECT_EQ(verdict("#VRML V1.0 ascii\n", false), "1:8 VRML2::Parser: Wrong header in VRML2 file.");
    EXPECT_EQ(verdict("#VRML V2.0 utf8", false), "1:15 " + endOfFile);
}

KORV_TEST(VRML2Parser, aRefusalNamesTheStatement)
{
    StringFiles files;
    files.mFiles["main.wrl"] = HEADER + "DEF wall Transform {\n children\n Group { children [ Lamp [] ] } }";
    try
    {
        parseFiles(files, true);
        ADD_FAILURE() << "accepted";
    }
    catch (VRML2ParserException* refused)
    {
        const std::unique_ptr<VRML2ParserException> owner(refused);
        EXPECT_STREQ(refused->getExplanation().c_str(),
                     "PROTO, EXTERNPROTO, ROUTE and NULL are not supported; in field "
                     "'children' of the Group that begins in line 4");
        EXPECT_STREQ(refused->getFileName().c_str(), "main.wrl");
    }
    EXPECT_EQ(Testing::expectThrow<Exceptions::ArgumentNullException>([] { VRMLParser().parse("main.wrl", nullptr); }),
              "VRML2::Parser: file system pointer cannot be NULL");
}

KORV_TEST(VRML2Parser, fieldsReceiveTheirValues)
{
    const std::unique_ptr<SceneNode> root = parseText(
        HEADER + "DEF t Transform { # the scale has commas\n scale 1,2,3 translation -.5 1e2 1-2\n"
                 "rotation 0 1 0 1.5 children [ Inline { bboxSize 1 1 1 url [] }, DEF g Group { children USE x }"
                 "]#end\n quaternion 1 2 3 4 bboxCenter 1e-60 -0 00012 }\n"
                 "USE t Switch { whichChoice -3 choice [ USE g USE g ] }\n"
                 "Shape { geometry IndexedFaceSet { coord Coordinate { point [] } ccw FALSE coordIndex -1 } }\n");
    const Vector<SceneNodePtr>& top = childrenOf(*root);
    ASSERT_EQ(top.size(), 4u);
    const auto& transform = dynamic_cast<const TransformNode&>(*top[0]);
    EXPECT_EQ(transform.mScale, Math::Vec3<float>(1, 2, 3));
    EXPECT_EQ(transform.mTranslation, Math::Vec3<float>(-0.5f, 100, 1)); // "1-2" is one word and reads as 1
    EXPECT_EQ(transform.mBBoxCenter, Math::Vec3<float>(0, 0, 12));
    EXPECT_EQ(transform.mBBoxSize, Math::Vec3<float>(-1, -1, -1));
    EXPECT_EQ(transform.mRotation.mAngle, 1.5f);
    EXPECT_EQ(transform.mQuaternion.mComponents[3], 4.0f);

    const auto& copy = dynamic_cast<const TransformNode&>(*top[1]);
    EXPECT_NE(&copy, &transform);
    EXPECT_EQ(copy.mScale, transform.mScale);
    EXPECT_EQ(copy.mHeight, transform.mHeight);
    EXPECT_EQ(&copy.mChildren.get(), &transform.mChildren.get()) << "a copy shares what lies below";
    EXPECT_EQ(childrenOf(copy)[1]->getTypeCode(), GROUP_NODE);

    const auto& choice = dynamic_cast<const SwitchNode&>(*top[2]);
    EXPECT_EQ(choice.mWhichChoice, -3);
    EXPECT_EQ(choice.mChoice.size(), 2u);
    const auto& shape = dynamic_cast<const ShapeNode&>(*top[3]);
    EXPECT_FALSE(dynamic_cast<const IndexedFaceSetNode&>(*shape.mGeometry).mCcw);
}

// A comment at a number or name is stepped back over only as far as its line feed: its last byte is read again.
KORV_TEST(VRML2Parser, commentsAreWhitespaceWhateverStandsInFrontOfThem)
{
    EXPECT_EQ(verdict(HEADER + "Group { children [ " + BOX + "#one\n" + BOX + "#two\n ]#three\n}#four\n", true), "");
    EXPECT_EQ(verdict(HEADER + "Switch { whichChoice 0 # zero\n}", true), "");
    EXPECT_EQ(verdict(HEADER + "Switch#one\n{ whichChoice#two\n0#zero\n}", true), "");
}

KORV_TEST(VRML2Parser, wordsMayLieAcrossBlocks)
{
    const std::string scene = "DEF DE Group { children [ DEF US Transform { scale 1 1 1 children USE DE } USE US ] }\n"
                              "DEFx Shape { geometry IndexedFaceSet { ccw FALSE solid TRUE } }#\nUSE DE\n";
    const std::string expected = outline(parseText(HEADER + scene).get());
    StringFiles files;
    for (size_t shift = 0; shift < scene.size(); ++shift)
    {
        // The block boundary moves through the whole scene.
        KORV_CONTEXT("shift " << shift);
        files.mFiles["main.wrl"] = HEADER + std::string(65536 - HEADER.size() - shift, ' ') + scene;
        EXPECT_EQ(outline(parseFiles(files, true).get()), expected);
    }
    files.mFiles["main.wrl"] = HEADER + scene;
    for (files.mStep = 1; files.mStep < 8; ++files.mStep)
        EXPECT_EQ(outline(parseFiles(files, true).get()), expected) << "step " << files.mStep;
}

KORV_TEST(VRML2Parser, cutFilesAndFailingMemoryLeakNothing)
{
    StringFiles files;
    files.mFiles["part.wrl"] = HEADER + "DEF a " + BOX + "USE a\n";
    const std::string scene = HEADER + "DEF a Group { children [ DEF b " + BOX +
                              " USE b Inline { url [ \"part.wrl\" ] } Foo { \"\\\"\" } ] }\nUSE a\n";
    uint32 accepted = 0;
    for (size_t length = 0; length <= scene.size(); ++length)
    {
        files.mFiles["main.wrl"] = scene.substr(0, length);
        try
        {
            parseFiles(files, true);
            ++accepted;
        }
        catch (VRML2ParserException* refused)
        {
            delete refused;
        }
    }
    EXPECT_EQ(accepted, 4u) << "the header line, the first statement with and without its line end, and the whole";

    bool complete = false;
    for (int64 allocations = 0; !complete; ++allocations)
    {
        mMemory->mFailAfter = allocations;
        try
        {
            parseFiles(files, true);
            complete = true;
        }
        catch (Exceptions::Exception* failure)
        {
            mMemory->mFailAfter = -1;
            delete failure;
        }
    }
    mMemory->mFailAfter = -1;
    EXPECT_GT(dropReports(), 0u) << "the allocator tells of each failure";
}

KORV_TEST(VRML2Parser, nestingIsBounded)
{
    const std::string tooDeep = "VRML2::Parser: nodes are nested deeper than 1024 levels";
    EXPECT_EQ(verdict(nested(1024), false), "");
    EXPECT_NE(verdict(nested(1025), false).find(tooDeep), std::string::npos);

    std::string chain = HEADER + "DEF n2 " + BOX;
    for (int height = 3; height <= 1024; ++height)
        chain += "DEF n" + std::to_string(height) + " Group { children USE n" + std::to_string(height - 1) + "}\n";
    EXPECT_EQ(verdict(chain, false), "") << "counted without the root";
    EXPECT_NE(verdict(chain + "Group { children USE n1024 }", false).find(tooDeep), std::string::npos);

    // Skipped braces nest without bound.
    EXPECT_EQ(verdict(HEADER + "Foo " + std::string(100000, '{') + std::string(100000, '}') + "\n", true), "");
}

KORV_TEST(VRML2Parser, includedFilesAreBounded)
{
    const auto causes = [](StringFiles& files)
    {
        std::vector<std::string> texts;
        try
        {
            parseFiles(files, true);
        }
        catch (Exceptions::Exception* refused)
        {
            for (const Exceptions::Exception* cause = refused; cause != nullptr; cause = cause->getInnerException())
                texts.emplace_back(cause->getMessage().c_str());
            delete refused;
        }
        return texts;
    };
    const auto cannotOpen = [](const std::string& path)
    { return "VRML2::Parser: Cannot open file '" + path + "' referenced in URL node"; };

    StringFiles files;
    files.mFiles["main.wrl"] = HEADER + "Inline { url [ \"parts/a.wrl\" \"missing.wrl\" ] }\n";
    files.mFiles["parts/a.wrl"] = HEADER + "Inline { url \"b.wrl\" }\n";
    files.mFiles["parts/b.wrl"] = HEADER + BOX + "\n";
    EXPECT_EQ(causes(files), (std::vector<std::string>{cannotOpen("missing.wrl"), "no such file"}));

    files.mFiles["parts/b.wrl"] = HEADER + "Inline { url \"../parts/./a.wrl\" }\n";
    EXPECT_EQ(causes(files),
              (std::vector<std::string>{cannotOpen("parts/a.wrl"), cannotOpen("parts/b.wrl"),
                                        cannotOpen("parts/../parts/./a.wrl"),
                                        "VRML2::Parser: file 'parts/../parts/./a.wrl' includes itself"}));

    files.mFiles["parts/b.wrl"] = HEADER + "Material { shininess 1 }\n";
    EXPECT_EQ(causes(files).back(), "unkown node: Material") << "included files are read without skipping";

    // Every file includes the next twice: without a bound, 2^40 files would be read.
    for (int i = 0; i < 40; ++i)
        files.mFiles[i == 0 ? "main.wrl" : std::to_string(i)] =
            HEADER + "Inline { url [\"" + std::to_string(i + 1) + "\" \"" + std::to_string(i + 1) + "\"] }\n";
    files.mFiles["40"] = HEADER + BOX + "\n";
    files.mOpened = 0;
    EXPECT_EQ(causes(files).back(), "VRML2::Parser: more than 1000 files are included");
    EXPECT_EQ(files.mOpened, 1000u);

    for (int i = 1; i < 100; ++i)
        files.mFiles[std::to_string(i)] = HEADER + "Inline { url \"" + std::to_string(i + 1) + "\" }\n";
    EXPECT_EQ(causes(files).back(), "VRML2::Parser: files include each other deeper than 64 levels");
}

namespace
{
/// A node type of a host.
class LampNode : public SceneNode
{
public:
    explicit LampNode(const char* name = "Lamp") : SceneNode(100), mName(name) {}
    void describeMembers(VRMLParser& parser) override
    {
        MemberDescription members(parser.getMemory());
        members.add("power", mPower);
        members.addMember("colour", SFTHREEFLOATS, &mColour);
        members.addMember("odd", 99, &mPower);
        parser.readMemberDescription(members);
    }
    SceneNode* clone(const Memory::AllocatorPtr& allocator) const override { return new (allocator) LampNode(*this); }
    const char* getNodeName() const override { return mName; }

    const char* mName;
    float mPower = 1.0f;
    Math::Vec3<float> mColour;
};
} // namespace

KORV_TEST(VRML2Parser, hostsCanAddNodeTypes)
{
    const std::string function =
        "KORV::Common::Parser::VRML2::NodeParser<class KORV::Common::Parser::VRML2::SceneNode>::registerNode : ";
    StringFiles files;
    files.mFiles["main.wrl"] = HEADER + "Lamp { power 60 colour 1 .5 0 }\n";
    VRMLParser parser;
    parser.registerSceneNode(new (parser.getAllocator()) LampNode);
    const std::unique_ptr<SceneNode> root(parser.parse("main.wrl", &files));
    EXPECT_EQ(dynamic_cast<const LampNode&>(*childrenOf(*root)[0]).mPower, 60.0f);

    parser.registerSceneNode(new (parser.getAllocator()) LampNode("Group"));
    parser.registerSceneNode(new (parser.getAllocator()) LampNode(nullptr));
    files.mFiles["main.wrl"] = HEADER + "Lamp { odd power 2 }\n";
    const std::unique_ptr<SceneNode> odd(parser.parse("main.wrl", &files));
    EXPECT_EQ(mTraces[0].mText, function + "!mRegisteredNodes.exists(nodeName) :  "
                                           "There is already a node registered with name: Group");
    expectReports(
        {"!mRegisteredNodes.exists(nodeName)\nError Message: There is already a node registered with name: Group",
         "nodeName\nError Message: NULL-Pointer node name is not allowed", "\nError Message: unhandled typeID: 99"});
}
