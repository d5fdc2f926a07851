#pragma once

#include "korv/navmesh/places/linkgeometry.h"

#include <algorithm>

namespace KORV::NavMesh
{
/// The corners that stick into a generated node, as few have them. Which nodes do is remembered for as long as the mesh
/// keeps its list of nodes; a mesh that is changed otherwise may be told wrong, but nothing is read that is not there.
class WayDents
{
public:
    WayDents(const NavMeshContainer& mesh, Common::Memory::Allocator* allocator) : mMesh(mesh), mShapes(allocator)
    {
        forgetShapes();
    }

    /// To be called before a way is looked for. @param cubeSize  [world units, >= 0] Throws OutOfMemoryException when
    /// the mesh has got another list of nodes.
    void update(float cubeSize)
    {
        mDepth = DENT_IN_CUBES * cubeSize;
        if (mNodes != mMesh.mNodes.data() || mNumNodes != mMesh.mNodes.size())
            forgetShapes();
    }

    /// Whether a node, which must exist, has dents and valid corners.
    bool isDented(size_t nodeID)
    {
        const Shape shape = getShape(nodeID);
        return shape != Shape::PLAIN && lookAtShape(nodeID, shape);
    }

    /// Whether a corner sticks into its node. All corners must be valid.
    bool isDent(const NavMeshContainer::NavNode& node, size_t index) const
    {
        const Vec3<float>& corner = mMesh.mVertices[node.mPolygon[index]];
        const Vec2<float> a = toPlane(corner - mMesh.mVertices[node.mPolygon[previousCorner(node, index)]]);
        const Vec2<float> b = toPlane(mMesh.mVertices[node.mPolygon[nextCorner(node, index)]] - corner);
        const float turn = cross(a, b);
        return turn < 0.0f && -turn > mDepth * (a + b).getLength();
    }

private:
    enum class Shape : uint8
    {
        UNKNOWN,
        PLAIN,
        DENTED
    };

    static constexpr size_t SHAPES_PER_BYTE = 4;
    static constexpr float DENT_IN_CUBES = 0.01f; ///< depth from which a corner stands in the way

    static uint32 getShift(size_t nodeID) { return static_cast<uint32>(nodeID % SHAPES_PER_BYTE) * 2; }
    Shape getShape(size_t nodeID) const
    {
        return static_cast<Shape>((mShapes[nodeID / SHAPES_PER_BYTE] >> getShift(nodeID)) & 3u);
    }

    /// For the few that are not known to be plain.
    bool lookAtShape(size_t nodeID, Shape shape)
    {
        const NavMeshContainer::NavNode& node = mMesh.mNodes[nodeID];
        if (shape == Shape::UNKNOWN)
        {
            shape = hasDent(node) ? Shape::DENTED : Shape::PLAIN;
            uint8& four = mShapes[nodeID / SHAPES_PER_BYTE];
            four = static_cast<uint8>(four | static_cast<uint32>(shape) << getShift(nodeID));
        }
        return shape == Shape::DENTED && hasValidCorners(node);
    }

    void forgetShapes()
    {
        mNodes = nullptr;
        mShapes.assign(mMesh.mNodes.size() / SHAPES_PER_BYTE + 1, 0);
        mNodes = mMesh.mNodes.data();
        mNumNodes = mMesh.mNodes.size();
    }

    bool hasDent(const NavMeshContainer::NavNode& node) const
    {
        if (!hasValidCorners(node))
            return false; // of no use, and measured without
        for (size_t i = 0; i < node.mPolygon.size(); ++i)
        {
            if (isDent(node, i))
                return true;
        }
        return false;
    }

    bool hasValidCorners(const NavMeshContainer::NavNode& node) const
    {
        return std::all_of(node.mPolygon.begin(), node.mPolygon.end(),
                           [this](uint32 id) { return id < mMesh.mVertices.size(); });
    }

    Vec2<float> toPlane(const Vec3<float>& offset) const
    {
        return {dot(mMesh.mXAxis, offset), dot(mMesh.mYAxis, offset)};
    }

    const NavMeshContainer& mMesh;
    const NavMeshContainer::NavNode* mNodes = nullptr;
    size_t mNumNodes = 0;
    float mDepth = 0.0f;   ///< [world units]
    Vector<uint8> mShapes; ///< of the nodes, as far as they are known
};
} // namespace KORV::NavMesh
