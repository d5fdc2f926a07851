#include "korv/common/parser/vrml2/nodes.h"

#include "korv/common/parser/vrml2/parser.h"

namespace KORV::Common::Parser::VRML2
{
namespace
{
[[gnu::noinline]] void checkProperty(Parser& parser, const GeometricPropertyPtr& property, uint8 code,
                                     const char* message)
{
    if (property != nullptr && property.get()->getTypeCode() != code)
        parser.fail(Debug::MessageText() << message);
}
} // namespace

SceneNode::~SceneNode() = default;
GeometryNode::~GeometryNode() = default;
GeometricProperty::~GeometricProperty() = default;

void CoordinateProp::describeMembers(Parser& parser)
{
    MemberDescription members(parser.getMemory());
    members.add("point", mPoint);
    parser.readMemberDescription(members);
}

GeometricProperty* CoordinateProp::clone(const Memory::AllocatorPtr& allocator) const
{
    return new (allocator) CoordinateProp(*this);
}

const char* CoordinateProp::getNodeName() const
{
    return "Coordinate";
}

void IndexedFaceSetNode::describeMembers(Parser& parser)
{
    MemberDescription members(parser.getMemory());
    members.add("color", mColor);
    members.add("coord", mCoord);
    members.add("normal", mNormal);
    members.add("texCoord", mTexCoord);
    members.add("ccw", mCcw);
    members.add("colorPerVertex", mColorPerVertex);
    members.add("convex", mConvex);
    members.add("normalPerVertex", mNormalPerVertex);
    members.add("solid", mSolid);
    members.add("colorIndex", mColorIndex);
    members.add("coordIndex", mCoordIndex);
    members.add("normalIndex", mNormalIndex);
    members.add("texCoordIndex", mTexCoordIndex);
    members.add("creaseAngle", mCreaseAngle);
    parser.readMemberDescription(members);
    checkProperties(parser);
    checkIndices(parser);
}

void IndexedFaceSetNode::checkProperties(Parser& parser) const
{
    checkProperty(parser, mColor, COLOR_PROPERTY, "color is not a ColorProperty");
    checkProperty(parser, mCoord, COORDINATE_PROPERTY, "coord is not a CoordProperty");
    checkProperty(parser, mNormal, NORMAL_PROPERTY, "normal is not a NormalProperty");
    checkProperty(parser, mTexCoord, TEXTURECOORDINATE_PROPERTY, "texcoord is not a TexCoordProperty");
}

void IndexedFaceSetNode::checkIndices(Parser& parser) const
{
    // A registered property of the code may be another class.
    const auto* coord = dynamic_cast<const CoordinateProp*>(mCoord.get());
    if (coord == nullptr)
        return;
    const size_t numPoints = coord->mPoint.size();
    for (const int32 index : mCoordIndex.get())
    {
        if (index >= 0 && static_cast<size_t>(index) >= numPoints)
            parser.fail(Debug::MessageText()
                        << "index '" << index << "' in the coordIndex field are to big for the coord field");
    }
}

GeometryNode* IndexedFaceSetNode::clone(const Memory::AllocatorPtr& allocator) const
{
    return new (allocator) IndexedFaceSetNode(*this);
}

const char* IndexedFaceSetNode::getNodeName() const
{
    return "IndexedFaceSet";
}

void BoxNode::describeMembers(Parser& parser)
{
    MemberDescription members(parser.getMemory());
    members.add("size", mSize);
    parser.readMemberDescription(members);
    if (!(mSize.mX > 0.0f && mSize.mY > 0.0f && mSize.mZ > 0.0f))
        parser.fail(Debug::MessageText() << "all components of the boxsize must have positive values");
}

GeometryNode* BoxNode::clone(const Memory::AllocatorPtr& allocator) const
{
    return new (allocator) BoxNode(*this);
}

const char* BoxNode::getNodeName() const
{
    return "Box";
}

void AppearanceNode::describeMembers(Parser& parser)
{
    MemberDescription members(parser.getMemory());
    members.add("material", mMaterial);
    members.add("texture", mTexture);
    members.add("textureTransform", mTextureTransform);
    parser.readMemberDescription(members);
}

SceneNode* AppearanceNode::clone(const Memory::AllocatorPtr& allocator) const
{
    return new (allocator) AppearanceNode(*this);
}

const char* AppearanceNode::getNodeName() const
{
    return "Appearance";
}

void GroupNode::describeMembers(Parser& parser)
{
    MemberDescription members(parser.getMemory());
    members.add("children", mChildren);
    members.add("bboxCenter", mBBoxCenter);
    members.add("bboxSize", mBBoxSize);
    parser.readMemberDescription(members);
}

SceneNode* GroupNode::clone(const Memory::AllocatorPtr& allocator) const
{
    return new (allocator) GroupNode(*this);
}

const char* GroupNode::getNodeName() const
{
    return "Group";
}

void SwitchNode::describeMembers(Parser& parser)
{
    MemberDescription members(parser.getMemory());
    members.add("whichChoice", mWhichChoice);
    members.add("choice", mChoice);
    parser.readMemberDescription(members);
}

SceneNode* SwitchNode::clone(const Memory::AllocatorPtr& allocator) const
{
    return new (allocator) SwitchNode(*this);
}

const char* SwitchNode::getNodeName() const
{
    return "Switch";
}

void InlineNode::describeMembers(Parser& parser)
{
    MemberDescription members(parser.getMemory());
    members.add("url", mUrl);
    members.add("bboxCenter", mBBoxCenter);
    members.add("bboxSize", mBBoxSize);
    parser.readMemberDescription(members);
    for (const BasicString& url : mUrl.get())
    {
        SceneNodePtr root = parser.parseInline(url);
        mChildren.edit(parser.getAllocator()).push_back(std::move(root));
    }
}

SceneNode* InlineNode::clone(const Memory::AllocatorPtr& allocator) const
{
    return new (allocator) InlineNode(*this);
}

const char* InlineNode::getNodeName() const
{
    return "Inline";
}

void TransformNode::describeMembers(Parser& parser)
{
    MemberDescription members(parser.getMemory());
    members.add("center", mCenter);
    members.add("scale", mScale);
    members.add("translation", mTranslation);
    members.add("bboxCenter", mBBoxCenter);
    members.add("bboxSize", mBBoxSize);
    members.add("children", mChildren);
    members.add("rotation", mRotation);
    members.add("scaleOrientation", mScaleOrientation);
    members.add("quaternion", mQuaternion);
    parser.readMemberDescription(members);
}

SceneNode* TransformNode::clone(const Memory::AllocatorPtr& allocator) const
{
    return new (allocator) TransformNode(*this);
}

const char* TransformNode::getNodeName() const
{
    return "Transform";
}

void ShapeNode::describeMembers(Parser& parser)
{
    MemberDescription members(parser.getMemory());
    members.add("appearance", mAppearance);
    members.add("geometry", mGeometry);
    parser.readMemberDescription(members);
}

SceneNode* ShapeNode::clone(const Memory::AllocatorPtr& allocator) const
{
    return new (allocator) ShapeNode(*this);
}

const char* ShapeNode::getNodeName() const
{
    return "Shape";
}
} // namespace KORV::Common::Parser::VRML2
