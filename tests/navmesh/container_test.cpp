#include "korv/common/interface.h"
#include "korv/common/memory/defaultallocator.h"
#include "korv/navmesh/navmeshcontainer.h"
#include "support/test.h"

using namespace KORV;
using namespace KORV::NavMesh;

namespace
{
CharacterInfo character(const char* name, int64 userID, uint32 maxHeightClassID)
{
    CharacterInfo info;
    info.mName = name;
    info.mUserID = userID;
    info.mMaxHeightClassID = maxHeightClassID;
    return info;
}

SurfaceType surfaceType(const char* name, uint16 id)
{
    SurfaceType type;
    type.mName = name;
    type.mID = id;
    return type;
}

SharedPtr<NavMeshContainer> createMesh()
{
    Vector<CharacterInfo> characters;
    characters.push_back(character("a human with a name beyond the short strings", 5, 1));
    characters.push_back(character("dog", 6, 0));
    characters.push_back(character("dog", 6, 2));
    Vector<SurfaceType> surfaceTypes;
    surfaceTypes.push_back(surfaceType("grass", 3));
    surfaceTypes.push_back(surfaceType("grass", 4));
    return SharedPtr<NavMeshContainer>(new (Common::Interface::getSharedAllocator())
                                           NavMeshContainer(characters, surfaceTypes));
}
} // namespace

KORV_TEST(Container, lookupsGiveTheFirstExactMatch)
{
    const SharedPtr<NavMeshContainer> mesh = createMesh();
    EXPECT_EQ(mesh->getCharacter("dog"), &mesh->mCharacters[1]);
    EXPECT_EQ(mesh->getCharacter("Dog"), nullptr);
    EXPECT_EQ(mesh->getCharacter("do"), nullptr);
    EXPECT_EQ(mesh->getCharacter(int64(6)), &mesh->mCharacters[1]);
    EXPECT_EQ(mesh->getCharacter(int64(7)), nullptr);
    EXPECT_EQ(mesh->getSurfaceType("grass"), &mesh->mSurfaceTypes[0]);
    EXPECT_EQ(mesh->getSurfaceType(uint16(4)), &mesh->mSurfaceTypes[1]);
    EXPECT_EQ(mesh->getSurfaceType(uint16(65535)), nullptr);

    const Vector<const CharacterInfo*> small = mesh->getCharactersByHeightClassID(0);
    ASSERT_EQ(small.size(), 1u);
    EXPECT_EQ(small[0], &mesh->mCharacters[1]);
    EXPECT_EQ(mesh->getCharactersByHeightClassID(0xFFFFFFFF).size(), 3u);
    EXPECT_EQ(small.get_allocator().getAllocator(), mesh->getMemory());
}

KORV_TEST(Container, heightValuesOutOfRangeAreReportedAndSafe)
{
    const SharedPtr<NavMeshContainer> mesh = createMesh();
    mesh->mHeight = {0.5f, 1.8f};
    EXPECT_EQ(mesh->getHeightValue(1), 1.8f);
    EXPECT_EQ(mesh->getHeightValue(2), 0.0f);
    expectReports({"heightClassID < (int32)mHeight.size()\nError Message: Height class id is out of range"});
    EXPECT_EQ(mesh->getHeightValue(-1), 0.0f);
    expectReports({});
}

KORV_TEST(Container, clearKeepsCharactersAndOrientation)
{
    const SharedPtr<NavMeshContainer> mesh = createMesh();
    EXPECT_TRUE(mesh->empty());
    mesh->mNodes.emplace_back(mesh->getMemory());
    mesh->mVertices.resize(3);
    mesh->mHeight.push_back(1.0f);
    mesh->mCubeSize = 0.25f;
    EXPECT_FALSE(mesh->empty());
    mesh->clear();
    EXPECT_TRUE(mesh->empty());
    EXPECT_TRUE(mesh->mVertices.empty());
    EXPECT_TRUE(mesh->mHeight.empty());
    EXPECT_EQ(mesh->mCubeSize, 0.25f);
    EXPECT_EQ(mesh->mCharacters.size(), 3u);
}

// Lists and names that stayed on the source's allocator would be read and freed after it is gone.
KORV_TEST(Container, copiesLiveOnTheirOwnAllocatorAndCountFromZero)
{
    const Common::Memory::AllocatorPtr elsewhere(new Common::Memory::DefaultAllocator);
    SharedPtr<NavMeshContainer> source = createMesh();
    source->mNodes.emplace_back(source->getMemory());
    source->mNodes[0].mPolygon = {0, 1, 2};
    source->mNodes[0].mNeighbours = {-1, 7, -1};
    source->mNodes[0].mHeightClass = 1;
    source->mNodes[0].mSurfaceTypeID = 3;
    source->mVertices.resize(3, {1.0f, 2.0f, 3.0f});
    source->mXAxis = {-1.0f, 0.0f, 0.0f};

    SharedPtr<NavMeshContainer> copy(new (elsewhere) NavMeshContainer(*source));
    SharedPtr<NavMeshContainer> assigned(new (elsewhere) NavMeshContainer);
    const SharedPtr<NavMeshContainer> second = assigned;
    *assigned = *source;
    *assigned = *assigned;
    EXPECT_TRUE(copy.isLastReference());
    EXPECT_FALSE(assigned.isLastReference());
    source.release();

    for (const NavMeshContainer* mesh : {copy.get(), assigned.get()})
    {
        ASSERT_EQ(mesh->mNodes.size(), 1u);
        const NavMeshContainer::NavNode& node = mesh->mNodes[0];
        EXPECT_EQ(node.mPolygon.size(), 3u);
        EXPECT_EQ(node.mNeighbours[1], 7);
        EXPECT_EQ(node.mHeightClass, 1);
        EXPECT_EQ(node.mSurfaceTypeID, 3);
        EXPECT_EQ(mesh->mXAxis.mX, -1.0f);
        EXPECT_EQ(mesh->getCharacter("a human with a name beyond the short strings"), &mesh->mCharacters[0]);
        EXPECT_EQ(mesh->getAllocator(), elsewhere);
        EXPECT_EQ(mesh->mVertices.get_allocator().getAllocator(), elsewhere.get());
        EXPECT_EQ(node.mPolygon.get_allocator().getAllocator(), elsewhere.get());
        EXPECT_EQ(mesh->mCharacters[0].mName.get_allocator().getAllocator(), elsewhere.get());
    }
}

KORV_TEST(Container, memoryEstimateAddsUp)
{
    const SharedPtr<NavMeshContainer> mesh = createMesh();
    mesh->mNodes.emplace_back(mesh->getMemory());
    mesh->mNodes[0].mPolygon.resize(4);
    mesh->mNodes[0].mNeighbours.resize(4);
    mesh->mVertices.resize(5);
    mesh->mHeight.resize(2);
    const size_t node = sizeof(NavMeshContainer::NavNode) + 32;
    EXPECT_EQ(mesh->getMemoryUsage(0), node);
    EXPECT_EQ(mesh->getMemoryUsage(), sizeof(NavMeshContainer) + node + 5 * sizeof(Vec3<float>) + 2 * sizeof(float) +
                                          3 * sizeof(CharacterInfo) + 2 * sizeof(SurfaceType));
    EXPECT_EQ(mesh->getMemoryUsage(1), 0u);
    EXPECT_EQ(mesh->getMemoryUsage(-1), 0u);
}
