#pragma once

#include "korv/common/debug/messagetext.h"
#include "korv/common/io/filesystem.h"
#include "korv/common/parser/parserexception.h"
#include "korv/common/parser/vrml2/memberdescription.h"
#include "korv/common/parser/vrml2/nodeparser.h"

namespace KORV::Common::Parser::VRML2
{
/// Reads VRML 2.0 scene files into trees of nodes: Group, Switch, Inline, Transform, Shape, Appearance, IndexedFaceSet,
/// Box and Coordinate, and what else is registered. DEF, USE and Inline are followed; PROTO, EXTERNPROTO and ROUTE are
/// not known. One thread at a time.
///
/// Whatever a file holds, reading it ends: nesting, the number of nodes and what a file draws in by Inline have limits.
/// Everything wrong in a file is a VRML2ParserException with file, line and row.
class KORV_COMMON_API Parser : public Memory::MemoryManaged
{
public:
    /// Levels of nodes in a tree, those reached through USE and Inline included.
    static constexpr uint32 MAX_DEPTH = 1024;
    /// Nodes of one parse, with all files.
    static constexpr uint64 MAX_NODES = 10'000'000;
    /// Files that one parse opens.
    static constexpr uint32 MAX_FILES = 1000;
    /// Files that are open within each other.
    static constexpr uint32 MAX_INLINE_DEPTH = 64;
    /// What the Inlined files of one parse may hold together. [bytes]
    static constexpr uint64 MAX_INLINE_BYTES = 512u << 20;

    /// Registers the node types above.
    Parser();
    ~Parser() override;
    Parser(const Parser&) = delete;
    Parser& operator=(const Parser&) = delete;

    /// Whether nodes of unknown type are skipped with their body, or fail the parse (so it is at first). Inlined files
    /// are always read without skipping.
    void setSkipUnknownNodes(bool skip) { mSkipUnknownNodes = skip; }

    /// Adds a node type. The parser takes the prototype over, and deletes it when it is refused (with a report).
    void registerSceneNode(SceneNode* prototype);
    /// The same for geometries.
    void registerGeometryNode(GeometryNode* prototype);
    /// The same for geometric properties.
    void registerGeometricProperty(GeometricProperty* prototype);

    /// Reads a file. DEF names of earlier files stay taken, so use one parser a file.
    /// @param fSystem  opens the file and those it Inlines; must outlive the call.
    /// @return a new GroupNode with the file's top-level nodes as children, owned by the caller: delete it or put it
    /// into a SharedPtr.
    /// Throws VRML2ParserException, ArgumentNullException, and what the file system and its streams throw.
    SceneNode* parse(const BasicString& fileName, IO::FileSystem* fSystem);

    // What follows is for node classes, while a file is read.

    /// The next byte; a comment reads as the line feed that ends it unless @p raw is set. Throws at the end of the
    /// file and for a zero byte.
    char readNextChar(bool raw = false);
    /// Steps back one byte. Only one step is safe.
    void gotoPrevChar();
    /// Skips whitespace (which includes commas) and comments.
    void skipWhitespace();
    /// Skips whitespace, and then the keyword if it comes next. A longer word that begins with it counts too.
    bool testKeyword(const char* keyword);
    /// Skips whitespace, and then @p character if it comes next.
    bool expect(char character);

    /// @param hint  told with the failure, see VRML2ParserException::getExplanation; null for none.
    BasicString readName(const char* hint = nullptr);
    BasicString readString();
    int32 readInt32();
    float readFloat();
    Math::Vec3<float> readVec3();
    /// Reads a body, braces included, into the fields described.
    void readMemberDescription(MemberDescription& members);
    /// Reads the file that an Inline refers to.
    SceneNodePtr parseInline(const BasicString& url);

    /// Throws a VRML2ParserException for the place reached in the file.
    [[noreturn]] void fail(const Debug::MessageText& message, const char* hint = nullptr) const;
    [[noreturn]] void fail(const char* message, const char* hint = nullptr) const;

private:
    template <class Base>
    friend class NodeParser;

    /// What all parsers of one import share.
    struct Totals
    {
        uint64 mNodes = 0;
        uint64 mInlineBytes = 0;
        uint32 mFiles = 0;
        uint32 mDepth = 0;
    };

    /// A node statement that is being read, for messages and for the bound on nesting.
    class Statement
    {
    public:
        /// Throws where nodes nest too deeply. The root of a file is no statement of its own and does not count.
        explicit Statement(Parser& parser, bool isRoot = false);
        ~Statement();
        Statement(const Statement&) = delete;
        Statement& operator=(const Statement&) = delete;

        Parser& mParser;
        Statement* mOuter;
        BasicString mName; ///< after DEF; empty for none
        BasicString mType; ///< empty until it has been read
        BasicString mField;
        uint32 mLine;
        uint32 mChildHeight = 0;
        bool mIsRoot;
    };

    /// For an Inlined file.
    explicit Parser(Parser* outer);

    void registerStandardNodes();
    SceneNodePtr parseFile(const BasicString& fileName, IO::FileSystem* fSystem);
    void openFile(const BasicString& fileName, IO::FileSystem* fSystem);
    void readHeader();
    SceneNodePtr readTopLevel();
    bool skipToStatement();
    void checkInline(const BasicString& path) const;
    [[noreturn]] void failInline(const BasicString& path, Exceptions::Exception* cause) const;
    BasicString getFullPath(const BasicString& path) const;
    VRML2ParserException* makeException(const Debug::MessageText& message, const char* hint) const;

    int peek(uint32 distance);
    void fillBuffer();

    void checkNotDefined(const BasicString& name) const;
    void addDefineName(const BasicString& name);
    void checkUnknownUse(const BasicString& name) const;
    void skipUnknownNode(const char* function, const BasicString& type);
    void skipBody();
    void countNode();
    void addChildHeight(uint32 height);
    uint32 finishHeight() const;

    MemberDescription::Member& readFieldName(MemberDescription& members, const char* hint);
    void readField(MemberDescription::Member& member);
    bool readListField(MemberDescription::Member& member);
    void readSimpleField(MemberDescription::Member& member);
    void checkSeparator();
    static bool isWhitespace(char c);
    bool readBool();
    Rotation readRotation();
    Quaternion readQuaternion();
    BasicString readNumber(std::string_view characters);
    [[noreturn]] void failNumber(const BasicString& number, bool outOfRange) const;
    BasicString readStringRest();
    template <class T, class Read>
    void readMulti(MultiValue<T>& field, Read read);
    template <class Base>
    SharedPtr<Base> readNode(NodeParser<Base>& parser);
    template <class Base>
    void readNodes(MultiValue<SharedPtr<Base>>& field, NodeParser<Base>& parser);

    NodeParser<SceneNode> mSceneNodes;
    NodeParser<GeometryNode> mGeometryNodes;
    NodeParser<GeometricProperty> mGeometricProperties;

    IO::FileSystem* mFileSystem = nullptr;
    SharedPtr<Stream> mStream;
    BasicString mDirectory;
    BasicString mFileName;
    BasicString mFullPath;
    bool mSkipUnknownNodes = false;

    uint32 mLine = 1;
    uint32 mColumn = 0;
    uint32 mPrevLineLength = 0;

    Container::Set<BasicString> mDefineNames;

    Vector<char> mReadBuffer;
    uint32 mReadBufferPos = 0;
    uint32 mReadBufferLength = 0;
    uint64 mReadTotal = 0;

    Parser* mOuter = nullptr;
    Totals mOwnTotals;
    Totals* mTotals = &mOwnTotals;
    Statement* mStatement = nullptr;
};
} // namespace KORV::Common::Parser::VRML2
