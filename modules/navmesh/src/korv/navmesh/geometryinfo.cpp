#include "korv/navmesh/geometryinfo.h"

#include "korv/common/debug/assert.h"

#include <array>
#include <cstring>

namespace KORV::NavMesh
{
namespace
{
/// Copies up to three consecutive values of the element at base + id × stride. The host's data may lie at any address,
/// hence memcpy, and be larger than 4 GB, hence 64-bit offsets. Values that a stride too small cuts off stay zero, so
/// that the last element is never read beyond.
template <class T>
inline std::array<T, 3> readTriple(const void* base, uint32 id, uint32 stride)
{
    if (base == nullptr)
        return {};
    std::array<T, 3> values;
    const unsigned char* const source = static_cast<const unsigned char*>(base) + static_cast<uint64>(id) * stride;
    if (stride >= sizeof(values))
    {
        std::memcpy(values.data(), source, sizeof(values)); // nearly always, and of a known size
        return values;
    }
    values.fill(0);
    std::memcpy(values.data(), source, stride / sizeof(T) * sizeof(T));
    return values;
}

// The reports are functions of their own: a message takes a large stack frame.

[[gnu::cold, gnu::noinline]] bool reportVertex(uint32 vertexID)
{
    return KORV_ASSERT(false, "vertexID < mNumVertices", "Vertex id out of range: " << vertexID);
}

[[gnu::cold, gnu::noinline]] bool reportTriangle(uint32 triangleID)
{
    return KORV_ASSERT(false, "triangleID < mNumTriangles", "Triangle id out of range: " << triangleID);
}
} // namespace

TriangleClassifier::~TriangleClassifier() = default;

Vec3<float> GeometryInfo::getVertex(uint32 vertexID) const
{
    if (vertexID >= mNumVertices && !reportVertex(vertexID))
        return {};
    const auto values = readTriple<float>(mVertexData, vertexID, mVertexStride);
    return {values[0], values[1], values[2]};
}

IndexedTriangle GeometryInfo::getTriangle(uint32 triangleID) const
{
    if (triangleID >= mNumTriangles && !reportTriangle(triangleID))
        return {};
    if (mIndexSize == sizeof(uint32))
    {
        const auto indices = readTriple<uint32>(mIndexData, triangleID, mTriangleStride);
        return {{indices[0], indices[1], indices[2]}};
    }
    const auto indices = readTriple<uint16>(mIndexData, triangleID, mTriangleStride);
    return {{indices[0], indices[1], indices[2]}};
}

Vec3<float> GeometryInfo::getWorldVertex(uint32 vertexID) const
{
    const Vec3<float> vertex = getVertex(vertexID);
    return mUseTransform ? mTransform.transformPoint(vertex) : vertex;
}
} // namespace KORV::NavMesh
