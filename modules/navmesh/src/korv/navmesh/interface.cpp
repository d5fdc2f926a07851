#include "korv/navmesh/interface.h"

#include "korv/common/interface.h"
#include "korv/common/memory/freelistallocator.h"
#include "korv/common/memory/threadsafeallocator.h"
#include "korv/navmesh/geometryimporter.h"
#include "korv/navmesh/moduleallocator.h"
#include "korv/navmesh/resourceinterface.h"

namespace KORV::NavMesh
{
namespace
{
using Common::Callback::FileIOCallback;
using Common::Callback::MemoryCallback;
using Common::Memory::AllocatorPtr;

// Set exactly while the library is initialised.
SharedPtr<NavMeshBuilder> gNavBuilder;
SharedPtr<NavMeshOptimizer> gNavOptimizer;
SharedPtr<MemoryCallback> gMemCallback;
SharedPtr<FileIOCallback> gFileCallback;
AllocatorPtr gAllocator;

void releaseAll()
{
    gNavBuilder.release();
    gNavOptimizer.release();
    ResourceInterface::destroyInstance();
    gMemCallback.release();
    gFileCallback.release();
    gAllocator.release();
    Common::Interface::closeLibrary();
}

void createModule()
{
    const AllocatorPtr& base = Common::Interface::getBaseAllocator();
    const AllocatorPtr freeList(new (base) Common::Memory::FreeListAllocator(base));
    gAllocator = new (base) Common::Memory::ThreadSafeAllocator(freeList);
    ResourceInterface::createInstance(new (gAllocator) ResourceInterface(gFileCallback));
    gNavBuilder = new (gAllocator) NavMeshBuilder;
    gNavOptimizer = new (gAllocator) NavMeshOptimizer;
}
} // namespace

const AllocatorPtr& getModuleAllocator()
{
    return gAllocator;
}

void Interface::initLibrary(const SharedPtr<MemoryCallback>& cbMemory, const SharedPtr<FileIOCallback>& cbFileIO)
{
    KORV_ASSERT(cbMemory != nullptr, "cbMemory != NULL", "Callback pointer for memory must not be a NULL pointer");
    KORV_ASSERT(cbFileIO != nullptr, "cbFileIO != NULL", "Callback pointer for file io must not be a NULL pointer");
    if (!KORV_ASSERT(gNavBuilder == nullptr, "gNavBuilder == NULL", "NavMesh library is already initialised"))
    {
        // The foundation makes its own report of a second start; the first one stays as it is.
        Common::Interface::initLibrary(cbMemory);
        return;
    }
    gMemCallback = cbMemory;
    gFileCallback = cbFileIO;
    try
    {
        Common::Interface::initLibrary(cbMemory);
        createModule();
    }
    catch (...)
    {
        releaseAll();
        throw;
    }
}

void Interface::closeLibrary()
{
    if (!KORV_ASSERT(gNavBuilder != nullptr, "gNavBuilder != NULL", "NavMesh library is not initialised"))
        return;
    KORV_ASSERT(gNavBuilder.isLastReference(), "gNavBuilder.isLastReference()",
                "NavMeshBuilder instance is referenced from outside the library, cannot delete the object !");
    gNavBuilder.release();
    KORV_ASSERT(gNavOptimizer.isLastReference(), "gNavOptimizer.isLastReference()",
                "NavMeshOptimizer instance is referenced from outside the library, cannot delete the object !");
    releaseAll();
}

SharedPtr<NavMeshBuilder> Interface::getNavMeshBuilder()
{
    KORV_ASSERT(gNavBuilder != nullptr, "gNavBuilder != NULL",
                "NavMesh library is not initialised, navmesh builder will be a NULL pointer");
    return gNavBuilder;
}

SharedPtr<NavMeshOptimizer> Interface::getNavMeshOptimizer()
{
    KORV_ASSERT(gNavOptimizer != nullptr, "gNavOptimizer != NULL",
                "NavMesh library is not initialised, navmesh optimizer will be a NULL pointer");
    return gNavOptimizer;
}

bool Interface::importVRML2Geometry(Vector<Vec3<float>>& vertices, Vector<IndexedTriangle>& triangles,
                                    const BasicString& fileName)
{
    const SharedPtr<GeometryImporter::VRML2Importer> importer(new (gAllocator) GeometryImporter::VRML2Importer);
    return importer->importGeometry(vertices, triangles, fileName);
}

bool Interface::importVRML2Geometry(Vector<Vec3<float>>& vertices, Vector<IndexedTriangle>& triangles,
                                    const BasicString& fileName, GeometryImportError& error)
{
    const SharedPtr<GeometryImporter::VRML2Importer> importer(new (gAllocator) GeometryImporter::VRML2Importer);
    return importer->importGeometry(vertices, triangles, fileName, error);
}
} // namespace KORV::NavMesh
