#pragma once

#include "korv/common/container/vector.h"
#include "korv/navmesh/geometryinfo.h"

namespace KORV::NavMesh
{
/// The triangles of all geometries, numbered one after the other, and what the host says of each.
/// Thread use: readers on any threads, once all classes have been asked for.
class InputTriangles
{
public:
    /// @param geometries  must outlive the object. Throws OutOfMemoryException for more triangles than can be numbered.
    InputTriangles(const Vector<GeometryInfo>& geometries, Common::Memory::Allocator* allocator);

    uint32 size() const { return mEnds.empty() ? 0 : mEnds.back(); }
    /// Whether they are worth waking workers for.
    bool areMany() const { return size() > 5000; }
    /// Makes room for the classes.
    void keepClasses() { mClasses.resize(size()); }
    /// Where they are kept; all zero until the host has been asked.
    TriangleClass& getClass(uint32 number) { return mClasses[number]; }
    const TriangleClass& getClass(uint32 number) const { return mClasses[number]; }

private:
    friend class TriangleReader;

    const Vector<GeometryInfo>& mGeometries;
    Vector<uint32> mEnds; // by geometry: the number behind its last triangle
    Vector<TriangleClass> mClasses;
};

/// Reads triangles without the checks of a geometry's accessors. Numbers in ascending order are read fastest.
class TriangleReader
{
public:
    /// @param triangles  must outlive the reader.
    explicit TriangleReader(const InputTriangles& triangles) : mTriangles(triangles) {}

    /// The geometry of a triangle, and its index there.
    const GeometryInfo& find(uint32 number, uint32& triangle)
    {
        if (number < mFirst || number >= mEnd)
            seek(number);
        triangle = number - mFirst;
        return *mGeometry;
    }
    /// World positions of the corners. The indices must be in range, see readValid.
    void read(uint32 number, Vec3<float> (&corners)[3]);
    /// The same when the corners exist. @return false if not; that is reported.
    bool readValid(uint32 number, Vec3<float> (&corners)[3]);

private:
    static void readCorners(const GeometryInfo& geometry, const uint32 (&vertices)[3], Vec3<float> (&corners)[3]);
    static bool areValid(const GeometryInfo& geometry, const uint32 (&vertices)[3]);
    void seek(uint32 number);

    const InputTriangles& mTriangles;
    const GeometryInfo* mGeometry = nullptr;
    uint32 mFirst = 0; // numbers of its triangles
    uint32 mEnd = 0;
};
} // namespace KORV::NavMesh
