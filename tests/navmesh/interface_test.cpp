#include "korv/navmesh/interface.h"

#include "korv/common/callback/standardcallbacks.h"
#include "korv/common/debug/assert.h"
#include "korv/common/interface.h"
#include "korv/common/memory/memoryexception.h"
#include "support/test.h"

using namespace KORV;
using namespace KORV::NavMesh;

namespace
{
/// Gathers reports while the library itself comes and goes.
class LifecycleTest : public testing::Test
{
protected:
    void SetUp() override
    {
        mMemory = new Testing::CountingMemory;
        mMemoryCallback = mMemory;
        mFileCallback = new Common::Callback::StandardFileIOCallback;
        Common::Debug::setAssertionHandler(
            [](const char* text, const char* file, uint32, void* context)
            {
                auto* test = static_cast<LifecycleTest*>(context);
                test->mReports.emplace_back(text);
                test->mFiles.emplace_back(file);
            },
            this);
    }
    void TearDown() override
    {
        EXPECT_EQ(mMemory->mBlocks, 0);
        Common::Debug::setAssertionHandler(nullptr);
    }
    void expectReports(const std::vector<std::string>& texts)
    {
        EXPECT_EQ(mReports, texts);
        mReports.clear();
    }

    Testing::CountingMemory* mMemory = nullptr;
    SharedPtr<Common::Callback::MemoryCallback> mMemoryCallback;
    SharedPtr<Common::Callback::FileIOCallback> mFileCallback;
    std::vector<std::string> mReports;
    std::vector<std::string> mFiles;
};
} // namespace

TEST_F(LifecycleTest, startsAndStopsAgainAndAgainWithFreshObjects)
{
    for (int round = 0; round < 3; ++round)
    {
        Interface::initLibrary(mMemoryCallback, mFileCallback);
        EXPECT_GT(mMemory->mBlocks, 0);
        EXPECT_EQ(Interface::getNavMeshBuilder(), Interface::getNavMeshBuilder());
        EXPECT_EQ(Interface::getNavMeshBuilder()->getParameter().mCubeSize, 2.0f);
        Interface::getNavMeshBuilder()->setParameter({{0, 0, -1}, 5.0f, 1, 1});
        EXPECT_NE(Interface::getNavMeshOptimizer(), nullptr);
        Interface::closeLibrary();
        EXPECT_EQ(mMemory->mBlocks, 0);
    }
    EXPECT_TRUE(mMemoryCallback.isLastReference());
    EXPECT_TRUE(mFileCallback.isLastReference());
    expectReports({});
}

TEST_F(LifecycleTest, reportsCallsOutOfOrder)
{
    EXPECT_EQ(Interface::getNavMeshBuilder(), nullptr);
    EXPECT_EQ(Interface::getNavMeshOptimizer(), nullptr);
    Interface::closeLibrary();
    expectReports(
        {"gNavBuilder != NULL\nError Message: NavMesh library is not initialised, navmesh builder will be a NULL "
         "pointer",
         "gNavOptimizer != NULL\nError Message: NavMesh library is not initialised, navmesh optimizer will be a "
         "NULL pointer",
         "gNavBuilder != NULL\nError Message: NavMesh library is not initialised"});
    EXPECT_EQ(mFiles.front(), "modules/navmesh/src/korv/navmesh/interface.cpp");

    Interface::initLibrary(mMemoryCallback, mFileCallback);
    const NavMeshBuilder* first = Interface::getNavMeshBuilder().get();
    Interface::initLibrary(mMemoryCallback, mFileCallback);
    EXPECT_EQ(Interface::getNavMeshBuilder().get(), first);
    expectReports({"gNavBuilder == NULL\nError Message: NavMesh library is already initialised",
                   "gMemCallback == NULL\nError Message: Common is already initialized !"});

    SharedPtr<NavMeshBuilder> builder = Interface::getNavMeshBuilder();
    SharedPtr<NavMeshOptimizer> optimizer = Interface::getNavMeshOptimizer();
    Interface::closeLibrary();
    expectReports(
        {"gNavBuilder.isLastReference()\nError Message: NavMeshBuilder instance is referenced from outside the "
         "library, cannot delete the object !",
         "gNavOptimizer.isLastReference()\nError Message: NavMeshOptimizer instance is referenced from outside the "
         "library, cannot delete the object !",
         "\nError Message: there are other references to the object, delete it anyways"});
    builder.release(); // their memory goes with them
    optimizer.release();
}

TEST_F(LifecycleTest, missingCallbacksAreReported)
{
    Interface::initLibrary(nullptr, nullptr);
    expectReports({"cbMemory != NULL\nError Message: Callback pointer for memory must not be a NULL pointer",
                   "cbFileIO != NULL\nError Message: Callback pointer for file io must not be a NULL pointer"});
    EXPECT_NE(Interface::getNavMeshBuilder(), nullptr);
    Interface::closeLibrary();
}

TEST_F(LifecycleTest, runningOutOfMemoryAtTheStartLeavesNothingBehind)
{
    int64 allowed = 0;
    for (bool started = false; !started; ++allowed)
    {
        mMemory->mFailAfter = allowed;
        try
        {
            Interface::initLibrary(mMemoryCallback, mFileCallback);
            started = true;
        }
        catch (Common::Memory::OutOfMemoryException* error)
        {
            delete error;
        }
        mMemory->mFailAfter = -1;
        if (started)
            Interface::closeLibrary();
        EXPECT_EQ(mMemory->mBlocks, 0) << "after " << allowed << " allocations";
        EXPECT_TRUE(mMemoryCallback.isLastReference() && mFileCallback.isLastReference());
    }
    EXPECT_GT(allowed, 5);
}
