// Walks a scene tree depth first and turns its geometry into triangles in world space.
//
// A tree shares what USE refers to, so a short file can stand for any number of nodes: everything that one run visits
// or makes is counted against a limit. The walk recurses, for which the bound on the height of trees is there;
// functions of the recursion build no messages of their own, which keeps their frames small.
//
// Matrices act on row vectors here: the product of a local matrix and the parent's applies the local one first.

#include "korv/common/parser/vrml2/meshgen.h"

#include "korv/common/debug/assert.h"
#include "korv/common/debug/trace.h"
#include "korv/common/exceptions/exception.h"
#include "korv/common/geom/geomutility.h"

#include <limits>

namespace KORV::Common::Parser::VRML2
{
namespace
{
using Matrix = Math::Matrix4<float>;

constexpr const char* EXTRACT = "KORV::Common::Parser::VRML2::MeshGen::extractGeometry";
constexpr const char* CONVERT = "KORV::Common::Parser::VRML2::MeshGen::convertGeometry";
constexpr const char* CONVERT_FACES = "KORV::Common::Parser::VRML2::MeshGen::convertGeomIndexedFaceSet";

[[noreturn, gnu::noinline]] void failLimit(const char* what, uint64 limit)
{
    const Debug::MessageText text = Debug::MessageText()
                                    << "VRML2::MeshGen: the scene has more than " << limit << " " << what;
    throw new Exceptions::NotSupportedException(text.c_str());
}

/// What a Transform does to its children, in front of the parent's matrix.
[[gnu::noinline]] Matrix transformMatrix(const TransformNode& node, const Matrix& parent)
{
    Matrix matrix = Matrix::getTranslationMatrix(node.mTranslation) * parent;
    matrix = Matrix::getTranslationMatrix(node.mCenter) * matrix;
    const Rotation& rotation = node.mRotation;
    if (rotation.mAngle != 0.0f)
        matrix = Matrix::getRotationMatrix(rotation.mAxis, rotation.mAngle) * matrix;
    const Rotation& orientation = node.mScaleOrientation;
    matrix = Matrix::getRotationMatrix(orientation.mAxis, orientation.mAngle) * matrix;
    matrix = Matrix::getScaleMatrix(node.mScale) * matrix;
    matrix = Matrix::getRotationMatrix(orientation.mAxis, -orientation.mAngle) * matrix;
    return Matrix::getTranslationMatrix(node.mCenter * -1.0f) * matrix;
}
} // namespace

MeshGen::MeshGen() : mCorners(getMemory()) {}

MeshGen::~MeshGen() = default;

void MeshGen::generate(Vector<Vec3f>& vertices, Vector<Geom::IndexedTriangle>& triangles, const SceneNode* root)
{
    mVertices = &vertices;
    mTriangles = &triangles;
    mNumNodes = 0;
    mNumVertices = 0;
    mNumTriangles = 0;
    mCutSteps = 0;
    mDepth = 0;
    extractGeometry(root, Matrix());
}

void MeshGen::extractGeometry(const SceneNode* node, const Matrix& matrix)
{
    if (node == nullptr)
        return reportNullNode();
    if (++mNumNodes > MAX_NODES)
        failLimit("nodes", MAX_NODES);
    if (mDepth >= MAX_DEPTH)
        failLimit("levels of nodes", MAX_DEPTH);

    ++mDepth;
    extractKnown(*node, matrix);
    --mDepth;
}

// Registered types of the host may bear a code of the standard ones: the class decides along with it.
void MeshGen::extractKnown(const SceneNode& node, const Matrix& matrix)
{
    const uint16 code = node.getTypeCode();
    if (const auto* group = code == GROUP_NODE ? dynamic_cast<const GroupNode*>(&node) : nullptr)
        return extractChildren(group->mChildren, matrix);
    if (const auto* reference = code == INLINE_NODE ? dynamic_cast<const InlineNode*>(&node) : nullptr)
        return extractChildren(reference->mChildren, matrix);
    if (const auto* transform = code == TRANSFORM_NODE ? dynamic_cast<const TransformNode*>(&node) : nullptr)
        return extractChildren(transform->mChildren, transformMatrix(*transform, matrix));
    const auto* shape = code == SHAPE_NODE ? dynamic_cast<const ShapeNode*>(&node) : nullptr;
    if (shape == nullptr)
        return skipNode(node);
    if (shape->mGeometry != nullptr)
        convertGeometry(shape->mGeometry.get(), matrix);
}

void MeshGen::extractChildren(const MultiValue<SceneNodePtr>& children, const Matrix& matrix)
{
    for (const SceneNodePtr& child : children.get())
        extractGeometry(child.get(), matrix);
}

[[gnu::noinline]] void MeshGen::reportNullNode()
{
    KORV_COMMON_ASSERT(EXTRACT, false, "node", "nodepointer should not be NULL-pointer");
}

[[gnu::noinline]] void MeshGen::skipNode(const SceneNode& node)
{
    Debug::Trace::message(Debug::MessageText() << EXTRACT << " : skipping node: " << node.getNodeName());
}

[[gnu::noinline]] void MeshGen::convertGeometry(const GeometryNode* geometry, const Matrix& matrix)
{
    if (!KORV_COMMON_ASSERT(CONVERT, geometry != nullptr, "geomNode", "geometry node should not be a NULL pointer"))
        return;
    const uint32 code = geometry->getTypeCode();
    if (const auto* box = code == BOX_NODE ? dynamic_cast<const BoxNode*>(geometry) : nullptr)
        return convertGeomBox(*box, matrix);
    if (const auto* faces = code == INDEXEDFACESET_NODE ? dynamic_cast<const IndexedFaceSetNode*>(geometry) : nullptr)
        return convertGeomIndexedFaceSet(*faces, matrix);
    KORV_COMMON_ASSERT(CONVERT, false, "false", "no conversion routine for geometry of type: " << code);
}

void MeshGen::convertGeomBox(const BoxNode& box, const Matrix& matrix)
{
    static constexpr uint8 CORNERS[12][3] = {{0, 1, 5}, {0, 5, 4}, {3, 0, 4}, {3, 4, 7}, {2, 3, 7}, {2, 7, 6},
                                             {1, 2, 6}, {1, 6, 5}, {4, 5, 6}, {4, 6, 7}, {3, 2, 1}, {3, 1, 0}};
    const Vec3f half = box.mSize * 0.5f;
    const uint32 base = countVertices(8);
    for (uint32 corner = 0; corner < 8; ++corner)
    {
        const uint32 side = corner % 4;
        const Vec3f position(side == 1 || side == 2 ? half.mX : -half.mX, corner < 4 ? -half.mY : half.mY,
                             side < 2 ? half.mZ : -half.mZ);
        mVertices->push_back(matrix.transformPoint(position));
    }
    for (const uint8* triangle : CORNERS)
        addTriangle(base, triangle[0], triangle[1], triangle[2]);
}

void MeshGen::convertGeomIndexedFaceSet(const IndexedFaceSetNode& faceSet, const Matrix& matrix)
{
    const auto* coord = dynamic_cast<const CoordinateProp*>(faceSet.mCoord.get());
    if (!KORV_COMMON_ASSERT(CONVERT_FACES, coord != nullptr, "node->mCoord",
                            "need coordinate set in indexed face set for import"))
        return;
    if (faceSet.mCoordIndex.empty())
        return;
    const Vector<Vec3f>& points = coord->mPoint.get();
    const uint32 base = countVertices(points.size());
    for (const Vec3f& point : points)
        mVertices->push_back(matrix.transformPoint(point));
    convertFaces(faceSet, points, base);
}

void MeshGen::convertFaces(const IndexedFaceSetNode& faceSet, const Vector<Vec3f>& points, uint32 base)
{
    Vector<uint32> face(getMemory());
    const Vector<int32>& indices = faceSet.mCoordIndex.get();
    for (const int32 index : indices)
    {
        if (index == -1)
        {
            convertFace(face, points, base, faceSet.mCcw);
            face.clear();
        }
        else if (index >= 0 && static_cast<size_t>(index) < points.size())
            face.push_back(static_cast<uint32>(index));
        else
            Debug::Trace::message(Debug::MessageText()
                                  << CONVERT_FACES << " : index " << index << " names no point and is left out");
    }
    if (indices.back() != -1)
        convertFace(face, points, base, faceSet.mCcw);
}

void MeshGen::convertFace(const Vector<uint32>& face, const Vector<Vec3f>& points, uint32 base, bool ccw)
{
    mCorners.clear();
    if (mayCutOptimally(face.size()))
        Geom::Utility::CreateTrianglesFromConvexPolygon(mCorners, face, points);
    else
        makeFan(face);
    for (size_t i = 0; i + 2 < mCorners.size(); i += 3)
    {
        if (ccw)
            addTriangle(base, mCorners[i], mCorners[i + 1], mCorners[i + 2]);
        else
            addTriangle(base, mCorners[i + 2], mCorners[i + 1], mCorners[i]);
    }
}

/// Whether the time for the best cut of a face is left; small faces always get it.
bool MeshGen::mayCutOptimally(size_t numCorners)
{
    if (numCorners <= SMALL_FACE_CORNERS)
        return true;
    if (numCorners > MAX_FACE_CORNERS)
        return false;
    const uint64 steps = static_cast<uint64>(numCorners) * numCorners * numCorners / 6;
    if (steps > MAX_CUT_STEPS - mCutSteps)
        return false;
    mCutSteps += steps;
    return true;
}

void MeshGen::makeFan(const Vector<uint32>& face)
{
    Debug::Trace::message(Debug::MessageText()
                          << CONVERT_FACES << " : a face of " << face.size() << " corners is cut into a fan");
    for (size_t i = 1; i + 1 < face.size(); ++i)
    {
        mCorners.push_back(face[0]);
        mCorners.push_back(face[i]);
        mCorners.push_back(face[i + 1]);
    }
}

/// Counts vertices about to be appended.
/// @return the index of the first.
uint32 MeshGen::countVertices(size_t count)
{
    mNumVertices += count;
    if (mNumVertices > MAX_VERTICES)
        failLimit("vertices", MAX_VERTICES);
    const uint64 base = mVertices->size();
    if (base + count > std::numeric_limits<uint32>::max())
        failLimit("vertices together with those before it", std::numeric_limits<uint32>::max());
    return static_cast<uint32>(base);
}

void MeshGen::addTriangle(uint32 base, uint32 a, uint32 b, uint32 c)
{
    if (++mNumTriangles > MAX_TRIANGLES)
        failLimit("triangles", MAX_TRIANGLES);
    mTriangles->push_back({{base + a, base + b, base + c}});
}
} // namespace KORV::Common::Parser::VRML2
