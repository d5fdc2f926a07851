// The smallest host: a square of ground becomes a navigation mesh.
#include "korv/common/callback/standardcallbacks.h"
#include "korv/navmesh/interface.h"
#include "korv/navmesh/navmeshserializer.h"

#include <cstdio>

using namespace KORV::NavMesh;
using namespace KORV::Common::Callback;

namespace
{
/// Says which triangles can be walked on: here, all of them.
struct Everywhere : TriangleClassifier
{
    void classifyTriangle(TriangleClass& result, const GeometryInfo&, KORV::uint32) override
    {
        result.mWalkable = true;
        result.mSurfaceTypeID = 0;
    }
};

/// Builds a mesh of a 10 x 10 square, prints its nodes and stores it.
void buildAndStore(const char* fileName)
{
    const float vertices[][3] = {{0, 0, 0.1f}, {10, 0, 0.1f}, {10, 10, 0.1f}, {0, 10, 0.1f}};
    const KORV::uint32 triangles[][3] = {{0, 1, 2}, {0, 2, 3}};
    Everywhere classifier;

    GeometryInfo ground;
    ground.mClassifier = &classifier;
    ground.mVertexData = vertices;
    ground.mVertexStride = sizeof(vertices[0]);
    ground.mNumVertices = 4;
    ground.mIndexData = triangles;
    ground.mTriangleStride = sizeof(triangles[0]);
    ground.mNumTriangles = 2;

    const SharedPtr<NavMeshBuilder> builder = Interface::getNavMeshBuilder();
    NavMeshBuilder::Parameter parameter;
    parameter.mCubeSize = 0.25f;
    builder->setParameter(parameter);
    builder->addCharacter({"human", 1, 1.8f, 0.5f, 1.0f});
    builder->addSurfaceType({"Default", 0});
    builder->addGeometry(ground);

    const SharedPtr<NavMeshContainer> mesh = builder->generateNavMesh();
    if (mesh == nullptr)
    {
        std::puts("nothing to walk on");
        return;
    }
    for (size_t node = 0; node < mesh->mNodes.size(); ++node)
        std::printf("node %zu: %zu corners\n", node, mesh->mNodes[node].mPolygon.size());
    NavMeshSerializer::writeNavMesh(fileName, mesh);
}
} // namespace

int main(int argc, char** argv)
{
    Interface::initLibrary(SharedPtr<MemoryCallback>(new StandardMemoryCallback),
                           SharedPtr<FileIOCallback>(new StandardFileIOCallback));
    int result = 0;
    try
    {
        buildAndStore(argc > 1 ? argv[1] : "helloworld.xml");
    }
    catch (KORV::Common::Exceptions::Exception* error) // the library throws pointers; who catches one deletes it
    {
        std::fprintf(stderr, "%s\n", error->getDescription().c_str());
        delete error;
        result = 1;
    }
    Interface::closeLibrary();
    return result;
}
