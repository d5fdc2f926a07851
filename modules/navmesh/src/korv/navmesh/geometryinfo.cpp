#include "korv/navmesh/geometryinfo.h"

#include "korv/common/debug/assert.h"

#include <cstring>

namespace KORV::NavMesh
{
namespace
{
/// Copies up to three consecutive values of the element at base + id × stride. The host's data may lie at any address,
/// hence memcpy, and be larger than 4 GB, hence 64-bit offsets. Values that a stride too small cuts off stay zero, so
/// that the last element is never read beyond.
template <class T>
void readTriple(T (&values)[3], const void* base, uint32 id, uint32 stride)
{
    if (base == nullptr)
        return;
    const unsigned char* const source = static_cast<const unsigned char*>(base) + static_cast<uint64>(id) * stride;
    if (stride >= sizeof(values))
        std::memcpy(values, source, sizeof(values)); // nearly always, and of a known size
    else
        std::memcpy(values, source, stride / sizeof(T) * sizeof(T));
}

template <class Index>
IndexedTriangle readTriangle(const void* base, uint32 id, uint32 stride)
{
    Index indices[3] = {};
    readTriple(indices, base, id, stride);
    return IndexedTriangle{{indices[0], indices[1], indices[2]}};
}
} // namespace

TriangleClassifier::~TriangleClassifier() = default;

Vec3<float> GeometryInfo::getVertex(uint32 vertexID) const
{
    if (!KORV_ASSERT(vertexID < mNumVertices, "vertexID < mNumVertices", "Vertex id out of range: " << vertexID))
        return {};
    float values[3] = {};
    readTriple(values, mVertexData, vertexID, mVertexStride);
    return {values[0], values[1], values[2]};
}

IndexedTriangle GeometryInfo::getTriangle(uint32 triangleID) const
{
    if (!KORV_ASSERT(triangleID < mNumTriangles, "triangleID < mNumTriangles",
                     "Triangle id out of range: " << triangleID))
        return {};
    return mIndexSize == sizeof(uint32) ? readTriangle<uint32>(mIndexData, triangleID, mTriangleStride)
                                        : readTriangle<uint16>(mIndexData, triangleID, mTriangleStride);
}

Vec3<float> GeometryInfo::getWorldVertex(uint32 vertexID) const
{
    const Vec3<float> vertex = getVertex(vertexID);
    return mUseTransform ? mTransform.transformPoint(vertex) : vertex;
}
} // namespace KORV::NavMesh
