#pragma once

#include "korv/common/callback/standardcallbacks.h"
#include "korv/common/debug/assert.h"
#include "korv/navmesh/interface.h"
#include "korv/navmesh/moduleallocator.h"
#include "support/test.h"

namespace KORV::Testing
{
/// For tests that store meshes: runs inside the initialised library, on the C library's files.
class StoredMeshTest : public testing::Test
{
protected:
    using MeshPtr = NavMesh::SharedPtr<NavMesh::NavMeshContainer>;

    void SetUp() override
    {
        mMemory = new CountingMemory;
        mMemoryCallback = mMemory;
        const auto onReport = [](const char* text, const char*, uint32, void* context)
        { static_cast<StoredMeshTest*>(context)->mReports.emplace_back(text); };
        Common::Debug::setAssertionHandler(onReport, this);
        const NavMesh::SharedPtr<Common::Callback::FileIOCallback> files(new Common::Callback::StandardFileIOCallback);
        NavMesh::Interface::initLibrary(mMemoryCallback, files);
    }
    void TearDown() override
    {
        NavMesh::Interface::closeLibrary();
        EXPECT_EQ(mMemory->mBlocks, 0);
        EXPECT_EQ(mReports, std::vector<std::string>());
        Common::Debug::setAssertionHandler(nullptr);
    }

    static MeshPtr createMesh() { return MeshPtr(new (NavMesh::getModuleAllocator()) NavMesh::NavMeshContainer); }
    static void addNode(NavMesh::NavMeshContainer& mesh, std::initializer_list<uint32> polygon,
                        std::initializer_list<int32> neighbours, int32 heightClass, uint16 surfaceTypeID)
    {
        NavMesh::NavMeshContainer::NavNode& node = mesh.mNodes.emplace_back(mesh.getMemory());
        node.mPolygon = polygon;
        node.mNeighbours = neighbours;
        node.mHeightClass = heightClass;
        node.mSurfaceTypeID = surfaceTypeID;
    }

    CountingMemory* mMemory = nullptr;
    NavMesh::SharedPtr<Common::Callback::MemoryCallback> mMemoryCallback;
    std::vector<std::string> mReports;
};
} // namespace KORV::Testing
