// Reads a scene file by recursive descent, one function for each rule of the grammar, straight from the bytes.
//
// What a hostile file could do is bounded here. Node statements nest at most MAX_DEPTH deep, counted over all files
// that are open within each other; the functions of that recursion keep their frames small, so that texts of messages
// are always built in functions beside it. A USE gives a copy that shares what lies below it, so the tree can be higher
// than its statements nest; each node therefore knows its height, which has the same bound, and whoever walks or
// deletes the tree may recurse. Inline is bounded by the chain of open files (which also finds rings), their number and
// their bytes, and all nodes of one import are counted.
//
// The limits are far above what scenes hold; their numbers stand in the header.

#include "korv/common/parser/vrml2/parser.h"

#include "korv/common/debug/assert.h"
#include "korv/common/debug/trace.h"

#include <algorithm>
#include <memory>

namespace KORV::Common::Parser::VRML2
{
namespace
{
constexpr const char* HEADER = "#VRML V2.0 utf8";

/// Trace type of what is merely skipped.
constexpr uint32 TRACE_SKIPPED = 4;
} // namespace

Parser::Statement::Statement(Parser& parser, bool isRoot)
    : mParser(parser), mOuter(parser.mStatement), mName(parser.getMemory()), mType(parser.getMemory()),
      mField(parser.getMemory()), mIsRoot(isRoot)
{
    if (!isRoot)
    {
        parser.skipWhitespace();
        if (parser.mTotals->mDepth >= MAX_DEPTH)
            parser.fail("VRML2::Parser: nodes are nested deeper than 1024 levels");
        ++parser.mTotals->mDepth;
    }
    mLine = parser.mLine;
    parser.mStatement = this;
}

Parser::Statement::~Statement()
{
    mParser.mStatement = mOuter;
    if (!mIsRoot)
        --mParser.mTotals->mDepth;
}

Parser::Parser()
    : mDirectory(getMemory()), mFileName(getMemory()), mFullPath(getMemory()), mDefineNames(getMemory()),
      mReadBuffer(getMemory())
{
    registerStandardNodes();
}

Parser::Parser(Parser* outer) : Parser()
{
    mOuter = outer;
    mTotals = outer->mTotals;
}

Parser::~Parser() = default;

void Parser::registerStandardNodes()
{
    registerSceneNode(new (getAllocator()) ShapeNode);
    registerSceneNode(new (getAllocator()) TransformNode);
    registerSceneNode(new (getAllocator()) InlineNode);
    registerSceneNode(new (getAllocator()) SwitchNode);
    registerSceneNode(new (getAllocator()) GroupNode);
    registerSceneNode(new (getAllocator()) AppearanceNode);
    registerGeometryNode(new (getAllocator()) BoxNode);
    registerGeometryNode(new (getAllocator()) IndexedFaceSetNode);
    registerGeometricProperty(new (getAllocator()) CoordinateProp);
}

void Parser::registerSceneNode(SceneNode* prototype)
{
    mSceneNodes.registerNode(SceneNodePtr(prototype));
}

void Parser::registerGeometryNode(GeometryNode* prototype)
{
    mGeometryNodes.registerNode(GeometryNodePtr(prototype));
}

void Parser::registerGeometricProperty(GeometricProperty* prototype)
{
    mGeometricProperties.registerNode(GeometricPropertyPtr(prototype));
}

SceneNode* Parser::parse(const BasicString& fileName, IO::FileSystem* fSystem)
{
    if (fSystem == nullptr)
        throw new Exceptions::ArgumentNullException("fSystem", "VRML2::Parser: file system pointer cannot be NULL");
    mOwnTotals = Totals();
    SceneNodePtr root = parseFile(fileName, fSystem);

    // Handed over without a reference: the last one here must not delete it.
    SceneNode* const node = root.get();
    ++node->mReferenceCount;
    root.release();
    --node->mReferenceCount;
    return node;
}

SceneNodePtr Parser::parseFile(const BasicString& fileName, IO::FileSystem* fSystem)
{
    struct CloseStream
    {
        ~CloseStream() { mStream.release(); }
        SharedPtr<Stream>& mStream;
    } const closeAtEnd{mStream};

    openFile(fileName, fSystem);
    readHeader();
    SceneNodePtr root = readTopLevel();
    mTotals->mInlineBytes += mOuter != nullptr ? mReadTotal : 0;
    return root;
}

void Parser::openFile(const BasicString& fileName, IO::FileSystem* fSystem)
{
    mFileSystem = fSystem;
    mDirectory = fSystem->getDirectory(fileName);
    mFileName = fileName;
    mFullPath = getFullPath(fileName);
    mLine = 1;
    mColumn = 0;
    mPrevLineLength = 0;
    mReadBufferPos = 0;
    mReadBufferLength = 0;
    mReadTotal = 0;
    ++mTotals->mFiles;
    mStream = fSystem->openForReading(fileName);
    if (mStream == nullptr)
        fail("VRML2::Parser: the file system gave no stream for the file");
}

void Parser::readHeader()
{
    for (const char* expected = HEADER; *expected != '\0'; ++expected)
    {
        if (readNextChar(true) != *expected)
            fail("VRML2::Parser: Wrong header in VRML2 file.", "a file must begin with '#VRML V2.0 utf8'");
    }
    while (readNextChar(true) != '\n')
        continue;
}

SceneNodePtr Parser::readTopLevel()
{
    auto* const group = new (getAllocator()) GroupNode;
    SceneNodePtr root(group);
    Statement statement(*this, true);
    while (skipToStatement())
    {
        SceneNodePtr node = mSceneNodes.parseNode(*this);
        if (node == nullptr)
            continue;
        addChildHeight(node.get()->mHeight);
        group->mChildren.edit(getAllocator()).push_back(std::move(node));
    }
    group->mHeight = finishHeight();
    return root;
}

/// Whether there is anything but whitespace left; a zero byte ends a file too.
bool Parser::skipToStatement()
{
    try
    {
        skipWhitespace();
        return true;
    }
    catch (VRML2ParserException* end)
    {
        delete end;
        return false;
    }
}

SceneNodePtr Parser::parseInline(const BasicString& url)
{
    const BasicString path = mDirectory + url;
    try
    {
        checkInline(path);
        const std::unique_ptr<Parser> inner(new (getAllocator()) Parser(this));
        SceneNodePtr root = inner->parseFile(path, mFileSystem);
        addChildHeight(root.get()->mHeight);
        return root;
    }
    catch (Exceptions::Exception* cause)
    {
        failInline(path, cause);
    }
}

void Parser::checkInline(const BasicString& path) const
{
    const BasicString fullPath = getFullPath(path);
    uint32 depth = 0;
    for (const Parser* open = this; open != nullptr; open = open->mOuter)
    {
        if (open->mFullPath == fullPath)
            fail(Debug::MessageText() << "VRML2::Parser: file '" << path << "' includes itself");
        ++depth;
    }
    if (depth >= MAX_INLINE_DEPTH)
        fail(Debug::MessageText() << "VRML2::Parser: files include each other deeper than " << MAX_INLINE_DEPTH
                                  << " levels");
    if (mTotals->mFiles >= MAX_FILES)
        fail(Debug::MessageText() << "VRML2::Parser: more than " << MAX_FILES << " files are included");
    if (mTotals->mInlineBytes > MAX_INLINE_BYTES)
        fail(Debug::MessageText() << "VRML2::Parser: the included files hold more than " << MAX_INLINE_BYTES
                                  << " bytes");
}

void Parser::failInline(const BasicString& path, Exceptions::Exception* cause) const
{
    std::unique_ptr<Exceptions::Exception> inner(cause);
    VRML2ParserException* const failure = makeException(
        Debug::MessageText() << "VRML2::Parser: Cannot open file '" << path << "' referenced in URL node", nullptr);
    failure->setInnerException(inner.release());
    throw failure;
}

/// The path that tells files apart; a path too long for the file system stands for itself.
BasicString Parser::getFullPath(const BasicString& path) const
{
    try
    {
        return mFileSystem->getFullPath(path);
    }
    catch (Exceptions::Exception* error)
    {
        delete error;
        return path;
    }
}

void Parser::checkNotDefined(const BasicString& name) const
{
    if (mDefineNames.find(name) != mDefineNames.end())
        fail(Debug::MessageText() << "Name '" << name << "' in DEF clause already defined.");
}

void Parser::addDefineName(const BasicString& name)
{
    [[maybe_unused]] const bool isNew =
        KORV_COMMON_ASSERT("KORV::Common::Parser::VRML2::Parser::addDefineName", mDefineNames.insert(name).second,
                           "!mDefineNames.exists(name)", "Redefined a use name, check before add");
}

void Parser::checkUnknownUse(const BasicString& name) const
{
    if (!mSkipUnknownNodes)
        fail(Debug::MessageText() << "Node name '" << name << "' in USE statement is not known");
}

void Parser::skipUnknownNode(const char* function, const BasicString& type)
{
    if (!mSkipUnknownNodes)
        fail(Debug::MessageText() << "unkown node: " << type,
             "unknown node types are skipped in the first file of an import only, not in those it includes");
    Debug::Trace::send(TRACE_SKIPPED, Debug::MessageText()
                                          << function << " : Skipping node '" << type
                                          << "' as no appropriate node parser registered and node skipping enabled");
    if (!expect('{'))
        fail(Debug::MessageText() << "Was trying to skip a unknown node '" << type
                                  << "' but the node does not start with '{'",
             "PROTO, EXTERNPROTO, ROUTE and NULL are not supported");
    skipBody();
}

void Parser::skipBody()
{
    for (uint64 depth = 1; depth > 0;)
    {
        const char c = readNextChar();
        if (c == '{')
            ++depth;
        else if (c == '}')
            --depth;
        else if (c == '"')
            readStringRest();
    }
}

void Parser::countNode()
{
    if (++mTotals->mNodes > MAX_NODES)
        fail("VRML2::Parser: the scene has more than 10000000 nodes");
}

void Parser::addChildHeight(uint32 height)
{
    mStatement->mChildHeight = std::max(mStatement->mChildHeight, height);
}

uint32 Parser::finishHeight() const
{
    if (mStatement->mChildHeight >= MAX_DEPTH && !mStatement->mIsRoot)
        fail("VRML2::Parser: nodes are nested deeper than 1024 levels",
             "the nodes that USE and Inline refer to count too");
    return mStatement->mChildHeight + 1;
}

void Parser::fail(const char* message, const char* hint) const
{
    fail(Debug::MessageText() << message, hint);
}

void Parser::fail(const Debug::MessageText& message, const char* hint) const
{
    throw makeException(message, hint);
}

VRML2ParserException* Parser::makeException(const Debug::MessageText& message, const char* hint) const
{
    const Statement* statement = mStatement;
    while (statement != nullptr && statement->mType.empty())
        statement = statement->mOuter;

    Debug::MessageText explanation;
    if (hint != nullptr)
        explanation << hint << (statement != nullptr ? "; " : "");
    if (statement != nullptr && !statement->mField.empty())
        explanation << "in field '" << statement->mField << "' of the ";
    else if (statement != nullptr)
        explanation << "in the ";
    if (statement != nullptr)
        explanation << statement->mType;
    if (statement != nullptr && !statement->mName.empty())
        explanation << " '" << statement->mName << "'";
    if (statement != nullptr)
        explanation << " that begins in line " << statement->mLine;

    std::unique_ptr<VRML2ParserException> failure(
        new VRML2ParserException(mLine, mColumn, mFileName, BasicString(message.c_str(), getMemory())));
    failure->setExplanation(BasicString(explanation.c_str(), getMemory()));
    return failure.release();
}
} // namespace KORV::Common::Parser::VRML2
