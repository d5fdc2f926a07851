#pragma once

#include "korv/navmesh/api.h"
#include "korv/navmesh/types.h"

namespace KORV::NavMesh
{
struct GeometryInfo;

/// What a classifier says of one triangle.
struct TriangleClass
{
    bool mWalkable = false;    ///< characters may stand on it
    uint16 mSurfaceTypeID = 0; ///< the surface type of a walkable triangle
};

/// Tells which triangles can be walked on; the host implements it. Called on the thread that runs the generation, once
/// for each triangle whose vertices exist, in order.
class KORV_NAVMESH_API TriangleClassifier
{
public:
    virtual ~TriangleClassifier();
    /// @param result  all zero on entry; the only source of walkability, the library applies no slope test of its own.
    /// @param triangle  index below geometry.mNumTriangles.
    virtual void classifyTriangle(TriangleClass& result, const GeometryInfo& geometry, uint32 triangle) = 0;
};

/// One triangle mesh of the host. The library copies the record, never what it points to: arrays and classifier must
/// stay valid until generateNavMesh has returned.
struct GeometryInfo
{
    TriangleClassifier* mClassifier = nullptr;
    const void* mVertexData = nullptr; ///< first vertex: three consecutive floats x, y, z
    const void* mIndexData = nullptr;  ///< first triangle: three consecutive vertex indices
    uint32 mVertexStride = 0;          ///< [bytes] from one vertex to the next, at least 12
    uint32 mTriangleStride = 0;        ///< [bytes] from one triangle to the next, at least 3 indices
    uint32 mIndexSize = 4;             ///< [bytes] 4: unsigned 32-bit indices, anything else: unsigned 16-bit
    uint32 mNumVertices = 0;
    uint32 mNumTriangles = 0;
    Matrix4<float> mTransform;  ///< world transform of the vertices
    bool mUseTransform = false; ///< whether mTransform is applied

    /// The vertex as stored, without the transform. An id out of range is reported and gives the zero vector.
    KORV_NAVMESH_API Vec3<float> getVertex(uint32 vertexID) const;
    /// The index triple. An id out of range is reported and gives zeros.
    KORV_NAVMESH_API IndexedTriangle getTriangle(uint32 triangleID) const;
    /// The vertex in world space: transformed when mUseTransform is set.
    KORV_NAVMESH_API Vec3<float> getWorldVertex(uint32 vertexID) const;
};
} // namespace KORV::NavMesh
