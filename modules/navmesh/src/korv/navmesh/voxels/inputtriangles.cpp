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
IndexedTriangle readIndices(const unsigned char* source)
{
    Index indices[3];
    std::memcpy(indices, source, sizeof(indices));
    return IndexedTriangle{{indices[0], indices[1], indices[2]}};
}

Vec3<float> readVertex(const GeometryInfo& geometry, uint32 vertex)
{
    float values[3];
    std::memcpy(values,
                static_cast<const unsigned char*>(geometry.mVertexData) +
                    static_cast<uint64>(vertex) * geometry.mVertexStride,
                sizeof(values));
    const Vec3<float> position(values[0], values[1], values[2]);
    return geometry.mUseTransform ? geometry.mTransform.transformPoint(position) : position;
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
    mClasses.resize(static_cast<size_t>(numTriangles));
}

void TriangleReader::seek(uint32 number)
{
    const Vector<uint32>& ends = mTriangles.mEnds;
    const auto end = std::upper_bound(ends.begin(), ends.end(), number);
    mGeometry = &mTriangles.mGeometries[static_cast<size_t>(end - ends.begin())];
    mEnd = *end;
    mFirst = mEnd - mGeometry->mNumTriangles;
}

IndexedTriangle TriangleReader::getIndices(const GeometryInfo& geometry, uint32 triangle)
{
    const unsigned char* source = static_cast<const unsigned char*>(geometry.mIndexData) +
                                  static_cast<uint64>(triangle) * geometry.mTriangleStride;
    return geometry.mIndexSize == sizeof(uint32) ? readIndices<uint32>(source) : readIndices<uint16>(source);
}

void TriangleReader::read(uint32 number, Vec3<float> (&corners)[3])
{
    uint32 triangle = 0;
    const GeometryInfo& geometry = find(number, triangle);
    const IndexedTriangle indices = getIndices(geometry, triangle);
    for (int i = 0; i < 3; ++i)
        corners[i] = readVertex(geometry, indices.mVertices[i]);
}

bool TriangleReader::hasValidIndices(uint32 number)
{
    uint32 triangle = 0;
    const GeometryInfo& geometry = find(number, triangle);
    for (const uint32 vertex : getIndices(geometry, triangle).mVertices)
    {
        if (vertex < geometry.mNumVertices)
            continue;
        geometry.getVertex(vertex); // makes the report
        return false;
    }
    return true;
}
} // namespace KORV::NavMesh
