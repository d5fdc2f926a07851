#pragma once

#include "korv/common/container/vector.h"
#include "korv/common/geom/indexedtriangle.h"
#include "korv/common/math/matrix4.h"
#include "korv/common/parser/vrml2/nodes.h"

namespace KORV::Common::Parser::VRML2
{
/// Turns a tree of scene nodes into triangles: every Box and IndexedFaceSet under Group, Transform, Inline and Shape
/// nodes, in world space. One thread at a time.
class KORV_COMMON_API MeshGen : public Memory::MemoryManaged
{
public:
    /// What one run visits and makes at most. A node that the tree holds many times counts as often.
    static constexpr uint64 MAX_NODES = 10'000'000;
    static constexpr uint64 MAX_VERTICES = 20'000'000;
    static constexpr uint64 MAX_TRIANGLES = 40'000'000;
    /// Levels of nodes that are followed; trees of the parser are never that deep.
    static constexpr uint32 MAX_DEPTH = 2048;
    /// Corners up to which a face is cut at minimal length, which takes time with the third power of the corners; a
    /// larger face becomes a fan.
    static constexpr size_t MAX_FACE_CORNERS = 1000;
    /// Work of the cuts of all faces together, in tried triangles; beyond it, faces that are not small become fans.
    static constexpr uint64 MAX_CUT_STEPS = 5'000'000'000;
    static constexpr size_t SMALL_FACE_CORNERS = 16;

    MeshGen();
    ~MeshGen() override;

    /// Appends the geometry of a tree to both vectors: vertices in the order in which geometry is met, depth first;
    /// triangles refer to new vertices only. What fails in one node is reported, and the node left out.
    /// Throws NotSupportedException when the tree holds more than the limits above; what was appended until then stays.
    void generate(Vector<Math::Vec3<float>>& vertices, Vector<Geom::IndexedTriangle>& triangles, const SceneNode* root);

private:
    using Vec3f = Math::Vec3<float>;
    using Matrix = Math::Matrix4<float>;

    void extractGeometry(const SceneNode* node, const Matrix& matrix);
    void extractKnown(const SceneNode& node, const Matrix& matrix);
    void extractChildren(const MultiValue<SceneNodePtr>& children, const Matrix& matrix);
    static void reportNullNode();
    static void skipNode(const SceneNode& node);
    void convertGeometry(const GeometryNode* geometry, const Matrix& matrix);
    void convertGeomBox(const BoxNode& box, const Matrix& matrix);
    void convertGeomIndexedFaceSet(const IndexedFaceSetNode& faceSet, const Matrix& matrix);
    void convertFaces(const IndexedFaceSetNode& faceSet, const Vector<Vec3f>& points, uint32 base);
    void convertFace(const Vector<uint32>& face, const Vector<Vec3f>& points, uint32 base, bool ccw);
    bool mayCutOptimally(size_t numCorners);
    void makeFan(const Vector<uint32>& face);
    uint32 countVertices(size_t count);
    void addTriangle(uint32 base, uint32 a, uint32 b, uint32 c);

    Vector<Vec3f>* mVertices = nullptr;
    Vector<Geom::IndexedTriangle>* mTriangles = nullptr;
    Vector<uint32> mCorners; // of the triangles of one face
    uint64 mNumNodes = 0;
    uint64 mNumVertices = 0;
    uint64 mNumTriangles = 0;
    uint64 mCutSteps = 0;
    uint32 mDepth = 0;
};
} // namespace KORV::Common::Parser::VRML2
