#pragma once

#include "korv/common/container/basicstring.h"
#include "korv/common/parser/vrml2/fields.h"

namespace KORV::Common::Parser::VRML2
{
class Parser;

/// What every kind of node offers to the parser. Nodes are held by SharedPtr with the count in the node; a copy of a
/// node shares the nodes below it with the original.
template <class Base>
class KORV_COMMON_API NodeParsable : public Memory::MemoryManaged, public ReferenceCounted
{
public:
    /// Registers the node's fields in a MemberDescription, has Parser::readMemberDescription read the body into them,
    /// and checks the result. Throws VRML2ParserException.
    virtual void describeMembers(Parser& parser) = 0;
    /// @return a new node of the same class with the same field values, on @p allocator, owned by the caller.
    virtual Base* clone(const Memory::AllocatorPtr& allocator) const = 0;
    /// @return the type name in files; it lives as long as the library.
    virtual const char* getNodeName() const = 0;

    /// Levels of nodes from this one down, itself included; kept by the parser, which bounds it.
    uint32 mHeight = 1;
};

enum SceneNodeCode : uint16
{
    APPEARANCE_NODE = 1,
    GROUP_NODE = 10,
    INLINE_NODE = 12,
    SHAPE_NODE = 25,
    SWITCH_NODE = 29,
    TRANSFORM_NODE = 33
};

enum GeometryNodeCode : uint32
{
    BOX_NODE = 0,
    INDEXEDFACESET_NODE = 5
};

enum GeometricPropertyCode : uint8
{
    COLOR_PROPERTY = 0,
    COORDINATE_PROPERTY = 1,
    NORMAL_PROPERTY = 2,
    TEXTURECOORDINATE_PROPERTY = 3
};

/// A node that may stand at the top of a file or among the children of another.
class KORV_COMMON_API SceneNode : public NodeParsable<SceneNode>
{
public:
    explicit SceneNode(uint16 typeCode) : mTypeCode(typeCode) {}
    ~SceneNode() override;
    uint16 getTypeCode() const { return mTypeCode; }

private:
    uint16 mTypeCode;
};

/// The geometry of a Shape.
class KORV_COMMON_API GeometryNode : public NodeParsable<GeometryNode>
{
public:
    explicit GeometryNode(uint32 typeCode) : mTypeCode(typeCode) {}
    ~GeometryNode() override;
    uint32 getTypeCode() const { return mTypeCode; }

private:
    uint32 mTypeCode;
};

/// A part of a geometry, such as its points.
class KORV_COMMON_API GeometricProperty : public NodeParsable<GeometricProperty>
{
public:
    explicit GeometricProperty(uint8 typeCode) : mTypeCode(typeCode) {}
    ~GeometricProperty() override;
    uint8 getTypeCode() const { return mTypeCode; }

private:
    uint8 mTypeCode;
};

using SceneNodePtr = SharedPtr<SceneNode>;
using GeometryNodePtr = SharedPtr<GeometryNode>;
using GeometricPropertyPtr = SharedPtr<GeometricProperty>;

class KORV_COMMON_API CoordinateProp : public GeometricProperty
{
public:
    CoordinateProp() : GeometricProperty(COORDINATE_PROPERTY) {}
    void describeMembers(Parser& parser) override;
    GeometricProperty* clone(const Memory::AllocatorPtr& allocator) const override;
    const char* getNodeName() const override;

    MultiValue<Math::Vec3<float>> mPoint;
};

/// Polygons over common points. Only mCoord, mCoordIndex and mCcw matter to the extraction of triangles.
class KORV_COMMON_API IndexedFaceSetNode : public GeometryNode
{
public:
    IndexedFaceSetNode() : GeometryNode(INDEXEDFACESET_NODE) {}
    void describeMembers(Parser& parser) override;
    GeometryNode* clone(const Memory::AllocatorPtr& allocator) const override;
    const char* getNodeName() const override;

    GeometricPropertyPtr mColor;
    GeometricPropertyPtr mCoord;
    GeometricPropertyPtr mNormal;
    GeometricPropertyPtr mTexCoord;
    bool mCcw = true;
    bool mColorPerVertex = true;
    bool mConvex = true;
    bool mNormalPerVertex = true;
    bool mSolid = true;
    MultiValue<int32> mColorIndex;
    MultiValue<int32> mCoordIndex; ///< -1 ends a face; other negative values name nothing
    MultiValue<int32> mNormalIndex;
    MultiValue<int32> mTexCoordIndex;
    float mCreaseAngle = 0.0f;

private:
    void checkProperties(Parser& parser) const;
    void checkIndices(Parser& parser) const;
};

class KORV_COMMON_API BoxNode : public GeometryNode
{
public:
    BoxNode() : GeometryNode(BOX_NODE) {}
    void describeMembers(Parser& parser) override;
    GeometryNode* clone(const Memory::AllocatorPtr& allocator) const override;
    const char* getNodeName() const override;

    Math::Vec3<float> mSize{2.0f, 2.0f, 2.0f};
};

class KORV_COMMON_API AppearanceNode : public SceneNode
{
public:
    AppearanceNode() : SceneNode(APPEARANCE_NODE) {}
    void describeMembers(Parser& parser) override;
    SceneNode* clone(const Memory::AllocatorPtr& allocator) const override;
    const char* getNodeName() const override;

    SceneNodePtr mMaterial;
    SceneNodePtr mTexture;
    SceneNodePtr mTextureTransform;
};

class KORV_COMMON_API GroupNode : public SceneNode
{
public:
    GroupNode() : SceneNode(GROUP_NODE) {}
    void describeMembers(Parser& parser) override;
    SceneNode* clone(const Memory::AllocatorPtr& allocator) const override;
    const char* getNodeName() const override;

    MultiValue<SceneNodePtr> mChildren;
    Math::Vec3<float> mBBoxCenter;
    Math::Vec3<float> mBBoxSize{-1.0f, -1.0f, -1.0f};
};

class KORV_COMMON_API SwitchNode : public SceneNode
{
public:
    SwitchNode() : SceneNode(SWITCH_NODE) {}
    void describeMembers(Parser& parser) override;
    SceneNode* clone(const Memory::AllocatorPtr& allocator) const override;
    const char* getNodeName() const override;

    int32 mWhichChoice = 0;
    MultiValue<SceneNodePtr> mChoice;
};

/// Stands for the contents of other files.
class KORV_COMMON_API InlineNode : public SceneNode
{
public:
    InlineNode() : SceneNode(INLINE_NODE) {}
    /// Also reads the files.
    void describeMembers(Parser& parser) override;
    SceneNode* clone(const Memory::AllocatorPtr& allocator) const override;
    const char* getNodeName() const override;

    MultiValue<BasicString> mUrl;
    Math::Vec3<float> mBBoxCenter;
    Math::Vec3<float> mBBoxSize{-1.0f, -1.0f, -1.0f};
    MultiValue<SceneNodePtr> mChildren; ///< the root group of each file, in the order of the urls
};

class KORV_COMMON_API TransformNode : public SceneNode
{
public:
    TransformNode() : SceneNode(TRANSFORM_NODE) {}
    void describeMembers(Parser& parser) override;
    SceneNode* clone(const Memory::AllocatorPtr& allocator) const override;
    const char* getNodeName() const override;

    Math::Vec3<float> mCenter;
    Math::Vec3<float> mScale{1.0f, 1.0f, 1.0f};
    Math::Vec3<float> mTranslation;
    Math::Vec3<float> mBBoxCenter;
    Math::Vec3<float> mBBoxSize{-1.0f, -1.0f, -1.0f};
    MultiValue<SceneNodePtr> mChildren;
    Rotation mRotation;
    Rotation mScaleOrientation;
    Quaternion mQuaternion; ///< not part of the transformation
};

class KORV_COMMON_API ShapeNode : public SceneNode
{
public:
    ShapeNode() : SceneNode(SHAPE_NODE) {}
    void describeMembers(Parser& parser) override;
    SceneNode* clone(const Memory::AllocatorPtr& allocator) const override;
    const char* getNodeName() const override;

    SceneNodePtr mAppearance;
    GeometryNodePtr mGeometry;
};
} // namespace KORV::Common::Parser::VRML2
