#include "korv/navmesh/voxels/inputtriangles.h"

#include "korv/common/memory/memoryexception.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace KORV::NavMesh
{
namespace
{
template <class Index>
void readIndices(const unsigned char* source, uint32 (&vertices)[3])
{
    Index indices[3];
    std::memcpy(indices, source, sizeof(indices));
    for (int i = 0; i < 3; ++i)
        vertices[i] = indices[i];
}

void readIndices(const GeometryInfo& geometry, uint32 triangle, uint32 (&vertices)[3])
{
    const unsigned char* source = static_cast<const unsigned char*>(geometry.mIndexData) +
                                  static_cast<uint64>(triangle) * geometry.mTriangleStride;
    if (geometry.mIndexSize == sizeof(uint32))
        readIndices<uint32>(source, vertices);
    else
        readIndices<uint16>(source, vertices);
}

void readVertex(const GeometryInfo& geometry, uint32 vertex, Vec3<float>& position)
{
    float values[3];
    std::memcpy(values,
                static_cast<const unsigned char*>(geometry.mVertexData) +
                    static_cast<uint64>(vertex) * geometry.mVertexStride,
                sizeof(values));
    position.mX = values[0];
    position.mY = values[1];
    position.mZ = values[2];
}
} // namespace

InputTriangles::InputTriangles(const Vector<GeometryInfo>& geometries, Common::Memory::Allocator* allocator)
    : mGeometries(geometries), mEnds(allocator), mClasses(allocator)
{
    mEnds.reserve(geometries.size());
    uint64 numTriangles = 0;
    for (const GeometryInfo& geometry : geometries)
    {
        numTriangles += geometry.mNumTriangles;
        if (numTriangles >= std::numeric_limits<uint32>::max())
            Common::Memory::throwOutOfMemory();
        mEnds.push_back(static_cast<uint32>(numTriangles));
    }
}

void TriangleReader::seek(uint32 number)
{
    const Vector<uint32>& ends = mTriangles.mEnds;
    const auto end = std::upper_bound(ends.begin(), ends.end(), number);
    mGeometry = &mTriangles.mGeometries[static_cast<size_t>(end - ends.begin())];
    mEnd = *end;
    mFirst = mEnd - mGeometry->mNumTriangles;
}

void TriangleReader::read(uint32 number, Vec3<float> (&corners)[3])
{
    uint32 triangle = 0;
    const GeometryInfo& geometry = find(number, triangle);
    uint32 vertices[3];
    readIndices(geometry, triangle, vertices);
    readCorners(geometry, vertices, corners);
}

bool TriangleReader::readValid(uint32 number, Vec3<float> (&corners)[3])
{
    uint32 triangle = 0;
    const GeometryInfo& geometry = find(number, triangle);
    uint32 vertices[3];
    readIndices(geometry, triangle, vertices);
    if (!areValid(geometry, vertices))
        return false;
    readCorners(geometry, vertices, corners);
    return true;
}

inline void TriangleReader::readCorners(const GeometryInfo& geometry, const uint32 (&vertices)[3],
                                        Vec3<float> (&corners)[3])
{
    for (int i = 0; i < 3; ++i)
        readVertex(geometry, vertices[i], corners[i]);
    if (!geometry.mUseTransform)
        return;
    for (Vec3<float>& corner : corners)
        corner = geometry.mTransform.transformPoint(corner);
}

inline bool TriangleReader::areValid(const GeometryInfo& geometry, const uint32 (&vertices)[3])
{
    for (const uint32 vertex : vertices)
    {
        if (vertex < geometry.mNumVertices)
            continue;
        geometry.getVertex(vertex); // makes the report
        return false;
    }
    return true;
}
} // namespace KORV::NavMesh
