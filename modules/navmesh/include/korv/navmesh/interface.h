#pragma once

#include "korv/common/callback/fileiocallback.h"
#include "korv/common/callback/memorycallback.h"
#include "korv/navmesh/api.h"
#include "korv/navmesh/geometryimporterror.h"
#include "korv/navmesh/navmeshbuilder.h"
#include "korv/navmesh/navmeshoptimizer.h"
#include "korv/navmesh/types.h"

namespace KORV::NavMesh
{
/// Entry point of the library. Not synchronised: call it from one thread, with no other library activity running.
class KORV_NAVMESH_API Interface
{
public:
    /// Starts the library; everything else comes after it.
    /// @param cbMemory  every allocation of the library goes through it.
    /// @param cbFileIO  opens the files that are read and written by name.
    /// Throws OutOfMemoryException. A second initialisation is reported and changes nothing.
    static void initLibrary(const SharedPtr<Common::Callback::MemoryCallback>& cbMemory,
                            const SharedPtr<Common::Callback::FileIOCallback>& cbFileIO);
    /// Stops the library. Release the builder, the optimizer and every mesh before; what is still held is reported.
    static void closeLibrary();

    /// The one builder and the one optimizer; null, after a report, while the library is not initialised.
    static SharedPtr<NavMeshBuilder> getNavMeshBuilder();
    static SharedPtr<NavMeshOptimizer> getNavMeshOptimizer();

    /// Appends the triangles of a VRML 2.0 scene file, in world space, and the vertices they use.
    /// @return whether the file was read and converted; a failure is reported, and what came before it stays.
    static bool importVRML2Geometry(Vector<Vec3<float>>& vertices, Vector<IndexedTriangle>& triangles,
                                    const BasicString& fileName);
    /// The same, and leaves the reason of a failure in @p error, which is empty after a success.
    static bool importVRML2Geometry(Vector<Vec3<float>>& vertices, Vector<IndexedTriangle>& triangles,
                                    const BasicString& fileName, GeometryImportError& error);
};
} // namespace KORV::NavMesh
