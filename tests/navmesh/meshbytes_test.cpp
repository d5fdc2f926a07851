// The meshes of the generated scenes, byte for byte: whatever makes a generation faster must leave them as they are.

#include "support/generate.h"
#include "support/test.h"

using namespace KORV;
using namespace KORV::NavMesh;
using Testing::SceneRun;

namespace
{
/// FNV-1a over all that a mesh consists of.
class MeshHash
{
public:
    explicit MeshHash(const NavMeshContainer& mesh)
    {
        addAll(mesh.mVertices);
        addAll(mesh.mHeight);
        for (const NavMeshContainer::NavNode& node : mesh.mNodes)
        {
            addAll(node.mPolygon);
            addAll(node.mNeighbours);
            add(&node.mHeightClass, sizeof node.mHeightClass);
            add(&node.mSurfaceTypeID, sizeof node.mSurfaceTypeID);
        }
    }

    uint64 get() const { return mHash; }

private:
    template <class T>
    void addAll(const Vector<T>& values)
    {
        const uint64 size = values.size();
        add(&size, sizeof size);
        add(values.data(), size * sizeof(T));
    }

    void add(const void* bytes, size_t size)
    {
        for (size_t i = 0; i < size; ++i)
            mHash = (mHash ^ static_cast<const unsigned char*>(bytes)[i]) * 1099511628211u;
    }

    uint64 mHash = 14695981039346656037u;
};

struct Case
{
    const char* mName;
    Scenes::Scene mScene;
    float mCubeSize;
    int32 mSplitDepth;
    uint64 mHash;
};
} // namespace

KORV_TEST(MeshBytes, areThoseOfTheFirstVersion)
{
    const Case cases[] = {
        {"courtyard", Scenes::courtyard(), 0.25f, -2, 0x3a2783a8c61c560e},
        {"courtyard, fine", Scenes::courtyard(), 0.1f, -1, 0x3143ef828337f7d0},
        {"hall", Scenes::hall(64, 1), 0.2f, -1, 0x98ef288d2cfbe144},
        {"hall, split", Scenes::hall(64, 2), 0.25f, 2, 0x5bbef31785b5e79c},
        {"hills", Scenes::hills(60.0f, 24, 1), 0.5f, -2, 0x7ba85a635ef74d1b},
        {"city", Scenes::city(3, 1), 0.3f, -2, 0x116cdd3dffbfae1c},
        {"floors", Scenes::floors(4, 1), 0.2f, -1, 0xbc2e6d1733375d6a},
    };
    for (const Case& testCase : cases)
    {
        for (const uint32 numThreads : {1u, 2u})
        {
            KORV_CONTEXT(testCase.mName << ", " << numThreads << " workers");
            SceneRun run(testCase.mScene, testCase.mCubeSize);
            run.mParameter.mSplitDepth = testCase.mSplitDepth;
            run.mParameter.mNumThreads = numThreads;
            const auto mesh = run.run();
            ASSERT_TRUE(mesh);
            EXPECT_EQ(MeshHash(*mesh).get(), testCase.mHash) << std::hex << MeshHash(*mesh).get();
        }
    }
}
