#pragma once

#include "korv/common/io/filesystem.h"
#include "korv/navmesh/api.h"
#include "korv/navmesh/geometryimporterror.h"

namespace KORV::NavMesh::GeometryImporter
{
/// Reads VRML 2.0 scene files into the vertices and triangles that a generation takes. One thread at a time.
class KORV_NAVMESH_API VRML2Importer : public Common::Memory::MemoryManaged, public Common::ReferenceCounted
{
public:
    ~VRML2Importer() override;

    /// Appends what the file holds to both vectors; the new triangles refer to new vertices only.
    /// @return whether the file was read and converted. If not, the reason has been reported; a file that can't be
    /// read adds nothing, one that exceeds the limits of the extraction leaves what was appended until then.
    bool importGeometry(Vector<Vec3<float>>& vertices, Vector<IndexedTriangle>& triangles, const BasicString& fileName);
    /// The same, and tells what went wrong. @p error is empty after a success.
    bool importGeometry(Vector<Vec3<float>>& vertices, Vector<IndexedTriangle>& triangles, const BasicString& fileName,
                        GeometryImportError& error);
    /// The same through a file system of the caller.
    bool importGeometry(Vector<Vec3<float>>& vertices, Vector<IndexedTriangle>& triangles, const BasicString& fileName,
                        GeometryImportError& error, Common::IO::FileSystem& fileSystem);
};
} // namespace KORV::NavMesh::GeometryImporter
