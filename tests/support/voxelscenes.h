#pragma once

#include "korv/common/interface.h"
#include "korv/common/threading/threadpool.h"
#include "korv/navmesh/navmeshoctree.h"
#include "korv/navmesh/surfaces/bridges.h"
#include "korv/navmesh/surfaces/finalpolygon.h"
#include "korv/navmesh/surfaces/neighbourbits.h"
#include "korv/navmesh/surfaces/planedirections.h"

#include <memory>
#include <vector>

namespace KORV::Testing
{
/// Input made voxel by voxel: each chosen cell of a cubic grid gets a small square in its middle, well away from the
/// cell's faces, so that exactly that voxel is occupied. Cells are named (u, v, w): along side 1, side 2 and up of the
/// main axis, so that the same field can be laid out for every axis.
class VoxelScene : public NavMesh::TriangleClassifier
{
public:
    /// Half of it is 1, so that outlines have whole coordinates; and the margin of half a unit that the octree adds
    /// ends within the outermost cells.
    static constexpr float CUBE_SIZE = 2.0f;

    /// @param size  cells along an edge of the grid; the octree's dimension is the next power of two.
    VoxelScene(int32 size, uint32 mainAxis) : mSize(size), mDirections(NavMesh::PLANE_DIRECTIONS[mainAxis])
    {
        // two corners that no triangle uses: with its margin the box becomes the grid, from the origin on
        const float last = static_cast<float>(size) * CUBE_SIZE - 0.5f;
        mVertices = {{0.5f, 0.5f, 0.5f}, {last, last, last}};
    }

    void addCell(int32 u, int32 v, int32 w, bool walkable = true, uint16 surfaceTypeID = 0)
    {
        const NavMesh::Vec3<int32> cell = getPosition(u, v, w);
        const uint32 first = static_cast<uint32>(mVertices.size());
        for (const auto& [a, b] : {std::pair(-0.2f, -0.2f), std::pair(0.2f, -0.2f), std::pair(0.0f, 0.2f)})
        {
            NavMesh::Vec3<float> vertex;
            for (int i = 0; i < 3; ++i)
            {
                const float offset =
                    a * static_cast<float>(mDirections.mSides[1][i]) + b * static_cast<float>(mDirections.mSides[2][i]);
                vertex[i] = (static_cast<float>(cell[i]) + 0.5f + offset) * CUBE_SIZE;
            }
            mVertices.push_back(vertex);
        }
        mTriangles.push_back({{first, first + 1, first + 2}});
        mClasses.push_back({walkable, surfaceTypeID});
    }

    /// Grid position of a cell.
    NavMesh::Vec3<int32> getPosition(int32 u, int32 v, int32 w) const
    {
        NavMesh::Vec3<int32> position;
        for (int i = 0; i < 3; ++i)
        {
            const int32 along = mDirections.mSides[1][i] * u + mDirections.mSides[2][i] * v + mDirections.mUp[i] * w;
            const bool backwards = mDirections.mSides[1][i] + mDirections.mSides[2][i] + mDirections.mUp[i] < 0;
            position[i] = backwards ? mSize - 1 + along : along;
        }
        return position;
    }

    NavMesh::GeometryInfo getGeometry()
    {
        NavMesh::GeometryInfo geometry;
        geometry.mClassifier = this;
        geometry.mVertexData = mVertices.data();
        geometry.mVertexStride = sizeof(mVertices[0]);
        geometry.mNumVertices = static_cast<uint32>(mVertices.size());
        geometry.mIndexData = mTriangles.data();
        geometry.mTriangleStride = sizeof(mTriangles[0]);
        geometry.mNumTriangles = static_cast<uint32>(mTriangles.size());
        return geometry;
    }

    void classifyTriangle(NavMesh::TriangleClass& result, const NavMesh::GeometryInfo&, uint32 triangle) override
    {
        result = mClasses[triangle];
    }

    std::vector<NavMesh::Vec3<float>> mVertices;
    std::vector<NavMesh::IndexedTriangle> mTriangles;
    std::vector<NavMesh::TriangleClass> mClasses;

private:
    int32 mSize;
    NavMesh::PlaneDirections mDirections;
};

/// An octree with all that it needs around it.
class OctreeRun
{
public:
    /// @param characterHeights  [world units]
    OctreeRun(const std::vector<NavMesh::GeometryInfo>& geometries, const std::vector<float>& characterHeights,
              int32 splitDepth = 0, uint32 numThreads = 1, NavMesh::ProgressReceiver* receiver = nullptr,
              float cubeSize = VoxelScene::CUBE_SIZE, NavMesh::Rules rules = NavMesh::Rules::SPECIFIED,
              bool isSplitDepthAutomatic = false)
        : mGeometries(geometries.begin(), geometries.end()), mControl(receiver, mStatistics),
          mPool(Common::Threading::ThreadPool::create(Common::Interface::getSharedAllocator(), numThreads, 0)),
          mPolygons(Common::Memory::getDefaultAllocator())
    {
        NavMesh::HeightClassifier classifier(Common::Memory::getDefaultAllocator());
        for (const float height : characterHeights)
        {
            NavMesh::CharacterInfo character;
            character.mPhysicalHeight = height;
            classifier.insert(character);
        }
        classifier.finalizeIDs();
        NavMesh::NavMeshBuilder::Parameter parameter;
        parameter.mCubeSize = cubeSize;
        parameter.mSplitDepth = splitDepth;
        mOctree.reset(new (mPool->getAllocator()) NavMesh::NavMeshOctree(
            parameter, &mGeometries, classifier, mPool.get(), mControl, rules, isSplitDepthAutomatic));
    }

    /// The stages one by one on this thread, without the last step, which straightens the outlines.
    void buildRawOutlines(uint32 mainAxis)
    {
        using namespace NavMesh;
        NavMeshOctree& octree = *mOctree;
        joinVoxels(mainAxis);
        setData(LabelSets::NO_LABEL);
        LabelSets labels(octree.getMemory());
        Common::Container::Deque<Vec3<int32>> borderVoxels(octree.getMemory());
        forEachLeaf(MarkFaceBorder(octree, mainAxis, labels, borderVoxels));
        BridgeSearch(octree, mainAxis, labels, borderVoxels).run();
        setData(0);
        for (uint32 i = 0; i < octree.getLeafOctants().size(); ++i)
            octree.getLeafOctants()[i].marks &= 0xF0;
        forEachLeaf(BuildFinalPolygon(octree, mainAxis, mPolygons));
    }

    void buildTree() { mOctree->buildTree(mOctree->getParameter().mCubeSize); }

    /// As far as the voxels know their neighbours.
    void joinVoxels(uint32 mainAxis)
    {
        buildTree();
        forEachLeaf(NavMesh::MeasureFreeHeight(*mOctree, mainAxis));
        forEachLeaf(NavMesh::BuildNeighbourBits(*mOctree, mainAxis));
    }

    template <class F>
    void forEachLeaf(F functional)
    {
        mOctree->forEachLeaf(functional);
    }

    NavMesh::Vector<NavMesh::GeometryInfo> mGeometries;
    NavMesh::NavMeshBuilder::Statistics mStatistics;
    NavMesh::RunControl mControl;
    std::unique_ptr<Common::Threading::ThreadPool> mPool;
    std::unique_ptr<NavMesh::NavMeshOctree> mOctree;
    NavMesh::SurfacePolygonList mPolygons;

private:
    void setData(uint32 data)
    {
        for (uint32 i = 0; i < mOctree->getLeafOctants().size(); ++i)
            mOctree->getLeafOctants()[i].data = data;
    }
};
} // namespace KORV::Testing
