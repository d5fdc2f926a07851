// The bodies of nodes: fields and their values.

#include "korv/common/debug/assert.h"
#include "korv/common/parser/vrml2/parser.h"

namespace KORV::Common::Parser::VRML2
{
namespace
{
template <class T>
T& fieldOf(MemberDescription::Member& member)
{
    return *static_cast<T*>(member.mField);
}
} // namespace

void Parser::readMemberDescription(MemberDescription& members)
{
    if (!expect('{'))
        fail("memberdescription must begin with a '{'");
    const char* hint = "the braces of a node must hold at least one field";
    do
    {
        MemberDescription::Member& member = readFieldName(members, hint);
        readField(member);
        member.mRead = true;
        mStatement->mField.clear();
        hint = nullptr;
    } while (!expect('}'));
}

MemberDescription::Member& Parser::readFieldName(MemberDescription& members, const char* hint)
{
    BasicString name = readName(hint);
    MemberDescription::Member* const member = members.find(name.c_str());
    if (member == nullptr)
        fail(Debug::MessageText() << "field '" << name << "' not found in memberdescription");
    mStatement->mField = std::move(name);
    return *member;
}

// The nodes come first and by themselves: this function is part of the recursion over them, the others are not.
void Parser::readField(MemberDescription::Member& member)
{
    switch (member.mType)
    {
    case SFSCENENODE:
        fieldOf<SceneNodePtr>(member) = readNode(mSceneNodes);
        return;
    case MFSCENENODE:
        return readNodes(fieldOf<MultiValue<SceneNodePtr>>(member), mSceneNodes);
    case SFGEOMETRYNODE:
        fieldOf<GeometryNodePtr>(member) = readNode(mGeometryNodes);
        return;
    case MFGEOMETRYNODE:
        return readNodes(fieldOf<MultiValue<GeometryNodePtr>>(member), mGeometryNodes);
    case SFGEOMETRICPROPERTY:
        fieldOf<GeometricPropertyPtr>(member) = readNode(mGeometricProperties);
        return;
    default:
        break;
    }
    if (!readListField(member))
        readSimpleField(member);
}

bool Parser::readListField(MemberDescription::Member& member)
{
    switch (member.mType)
    {
    case MFVEC3F:
    case MFTHREEFLOATS:
        readMulti(fieldOf<MultiValue<Math::Vec3<float>>>(member),
                  [this](auto& values) { values.push_back(readVec3()); });
        return true;
    case MFINT32:
        readMulti(fieldOf<MultiValue<int32>>(member), [this](auto& values) { values.push_back(readInt32()); });
        return true;
    case MFSTRING:
        readMulti(fieldOf<MultiValue<BasicString>>(member), [this](auto& values) { values.push_back(readString()); });
        return true;
    default:
        return false;
    }
}

void Parser::readSimpleField(MemberDescription::Member& member)
{
    switch (member.mType)
    {
    case SFBOOL:
        fieldOf<bool>(member) = readBool();
        break;
    case SFVEC3F:
    case SFTHREEFLOATS:
        fieldOf<Math::Vec3<float>>(member) = readVec3();
        break;
    case SFROTATION:
        fieldOf<Rotation>(member) = readRotation();
        break;
    case SFFOURFLOATS:
        fieldOf<Quaternion>(member) = readQuaternion();
        break;
    case SFINT32:
        fieldOf<int32>(member) = readInt32();
        break;
    case SFFLOAT:
        fieldOf<float>(member) = readFloat();
        break;
    case SFSTRING:
        fieldOf<BasicString>(member) = readString();
        break;
    default:
        KORV_COMMON_FAIL("KORV::Common::Parser::VRML2::Parser::readField", "unhandled typeID: " << member.mType);
        break;
    }
}

bool Parser::readBool()
{
    if (testKeyword("TRUE"))
        return true;
    if (!testKeyword("FALSE"))
        fail("bool wanted but not found while parsing!");
    return false;
}

Rotation Parser::readRotation()
{
    Rotation value;
    value.mAxis = readVec3();
    value.mAngle = readFloat();
    return value;
}

Quaternion Parser::readQuaternion()
{
    Quaternion value;
    for (float& component : value.mComponents)
        component = readFloat();
    return value;
}

/// Reads one value, or any number of them in brackets, each with a call of @p read. The field gets them all or none.
template <class T, class Read>
void Parser::readMulti(MultiValue<T>& field, Read read)
{
    MultiValue<T> list;
    Vector<T>& values = list.edit(getAllocator());
    if (!expect('['))
        read(values);
    else
    {
        while (!expect(']'))
        {
            read(values);
            checkSeparator();
        }
    }
    field = std::move(list);
}

/// A value in brackets must be followed by whitespace or by the closing bracket.
void Parser::checkSeparator()
{
    const char c = readNextChar();
    if (c == ']')
        gotoPrevChar();
    else if (!isWhitespace(c))
        fail("elements in a multi field must be seperated by whitespace");
}

template <class Base>
SharedPtr<Base> Parser::readNode(NodeParser<Base>& parser)
{
    SharedPtr<Base> node = parser.parseNode(*this);
    if (node != nullptr)
        addChildHeight(node->mHeight);
    return node;
}

template <class Base>
void Parser::readNodes(MultiValue<SharedPtr<Base>>& field, NodeParser<Base>& parser)
{
    readMulti(field,
              [this, &parser](Vector<SharedPtr<Base>>& values)
              {
                  SharedPtr<Base> node = readNode(parser);
                  if (node != nullptr)
                      values.push_back(std::move(node));
              });
}
} // namespace KORV::Common::Parser::VRML2
