#pragma once

#include "korv/common/interface.h"
#include "korv/navmesh/navmeshbuilder.h"
#include "scenes.h"

#include <cmath>
#include <memory>
#include <vector>

namespace KORV::Testing
{
/// Walkable where the normal is within 45 degrees of up; the surface type is the material.
class SlopeClassifier : public NavMesh::TriangleClassifier
{
public:
    explicit SlopeClassifier(const NavMesh::Vec3<float>& up) : mUp(up) {}

    void classifyTriangle(NavMesh::TriangleClass& result, const NavMesh::GeometryInfo& geometry,
                          uint32 triangle) override
    {
        ++mCalls;
        const NavMesh::IndexedTriangle ids = geometry.getTriangle(triangle);
        const auto a = geometry.getWorldVertex(ids.mVertices[0]);
        const auto b = geometry.getWorldVertex(ids.mVertices[1]);
        const auto c = geometry.getWorldVertex(ids.mVertices[2]);
        const auto normal = normalised(cross(b - a, c - a));
        result.mWalkable = dot(normal, mUp) >= 0.7071f;
        result.mSurfaceTypeID = 0;
    }

    uint64 mCalls = 0;

private:
    NavMesh::Vec3<float> mUp;
};

/// A scene set up on a builder of its own, ready to run again and again.
class SceneRun
{
public:
    explicit SceneRun(Scenes::Scene scene, float cubeSize = 0.25f, NavMesh::Vec3<float> up = {0.0f, 1.0f, 0.0f})
        : mScene(std::move(scene)), mClassifier(up),
          mBuilder(new (Common::Interface::getSharedAllocator()) NavMesh::NavMeshBuilder)
    {
        NavMesh::GeometryInfo geometry;
        geometry.mClassifier = &mClassifier;
        geometry.mVertexData = mScene.mVertices.data();
        geometry.mVertexStride = sizeof(Scenes::Vertex);
        geometry.mNumVertices = static_cast<uint32>(mScene.mVertices.size());
        geometry.mIndexData = mScene.mTriangles.data();
        geometry.mTriangleStride = sizeof(Scenes::Triangle);
        geometry.mNumTriangles = static_cast<uint32>(mScene.mTriangles.size());
        mBuilder->addGeometry(geometry);
        mBuilder->addCharacter({"human", 1, 1.8f, 0.5f, 1.0f});
        mBuilder->addCharacter({"mouse", 2, 0.4f, 0.3f, 1.0f});
        mBuilder->addSurfaceType({"Default", 0});
        mParameter.mGravityDir = up * -1.0f;
        mParameter.mCubeSize = cubeSize;
        mParameter.mNumThreads = 1;
    }

    NavMesh::SharedPtr<NavMesh::NavMeshContainer> run()
    {
        mBuilder->setParameter(mParameter);
        return mBuilder->generateNavMesh();
    }

    Scenes::Scene mScene;
    SlopeClassifier mClassifier;
    NavMesh::NavMeshBuilder::Parameter mParameter;
    NavMesh::SharedPtr<NavMesh::NavMeshBuilder> mBuilder;
};

/// Twice the signed area of a node in the ground plane of its mesh, positive when counter-clockwise.
inline double doubleArea(const NavMesh::NavMeshContainer& mesh, const NavMesh::NavMeshContainer::NavNode& node)
{
    double area = 0.0;
    for (size_t i = 0; i < node.mPolygon.size(); ++i)
    {
        const auto& p = mesh.mVertices[node.mPolygon[i]];
        const auto& q = mesh.mVertices[node.mPolygon[(i + 1) % node.mPolygon.size()]];
        area += double(dot(mesh.mXAxis, p)) * double(dot(mesh.mYAxis, q)) -
                double(dot(mesh.mXAxis, q)) * double(dot(mesh.mYAxis, p));
    }
    return area;
}

/// Sum of the node areas in the ground plane.
inline double totalArea(const NavMesh::NavMeshContainer& mesh)
{
    double area = 0.0;
    for (const auto& node : mesh.mNodes)
        area += doubleArea(mesh, node) / 2.0;
    return area;
}
} // namespace KORV::Testing
