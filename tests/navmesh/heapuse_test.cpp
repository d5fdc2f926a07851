#include "korv/common/callback/standardcallbacks.h"
#include "korv/common/debug/trace.h"
#include "korv/navmesh/interface.h"
#include "korv/navmesh/navmeshserializer.h"
#include "support/generate.h"
#include "support/heapcount.h"
#include "support/test.h"

#include <cstdio>

using namespace KORV;
using namespace KORV::NavMesh;

TEST(HeapUse, aWholeRunTakesItsMemoryFromTheHostAlone)
{
    const std::string fileName = testing::TempDir() + "heapuse.xml";
    auto* memory = new Testing::CountingMemory;
    const SharedPtr<Common::Callback::MemoryCallback> memoryCallback(memory);
    Interface::initLibrary(memoryCallback,
                           SharedPtr<Common::Callback::FileIOCallback>(new Common::Callback::StandardFileIOCallback));
    {
        Testing::SceneRun run(Scenes::courtyard(), 0.4f);
        run.mParameter.mNumThreads = 2;
        Testing::startHeapCount();
        const auto mesh = run.run();
        EXPECT_EQ(Testing::stopHeapCount(), 0u) << "allocations of a generation went past the host's memory";
        ASSERT_NE(mesh, nullptr);

        Testing::startHeapCount();
        NavMeshSerializer::writeNavMesh(fileName.c_str(), mesh);
        const auto copy = NavMeshSerializer::readNavMesh(BasicString(fileName.c_str()));
        EXPECT_LT(Testing::stopHeapCount(), 8u) << "only the host's own file handles may allocate here";
        ASSERT_NE(copy, nullptr);
        EXPECT_EQ(copy->mNodes.size(), mesh->mNodes.size());
    }
    Interface::closeLibrary();
    EXPECT_EQ(memory->mBlocks, 0);
    std::remove(fileName.c_str());
}
