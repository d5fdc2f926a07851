// The scenes that examples, tests and benchmarks share.

#include "program.h"
#include "scenes.h"

#include <gtest/gtest.h>

#include <cmath>

namespace KORV::Tests
{
namespace
{
std::vector<std::pair<std::string, Scenes::Scene>> allKinds()
{
    return {{"courtyard", Scenes::courtyard()},
            {"hall", Scenes::hall(30, 7)},
            {"hills", Scenes::hills(50.0f, 20, 7)},
            {"city", Scenes::city(2, 7)},
            {"floors", Scenes::floors(4, 7)}};
}
} // namespace

TEST(Scenes, areSoundAndHaveGroundToStandOn)
{
    for (const auto& [name, scene] : allKinds())
    {
        SCOPED_TRACE(name);
        ASSERT_FALSE(scene.mTriangles.empty());
        int facingUp = 0;
        for (const Scenes::Triangle& triangle : scene.mTriangles)
        {
            ASSERT_LT(triangle.mMaterial, scene.mMaterials.size());
            for (const std::uint32_t vertex : triangle.mVertices)
                ASSERT_LT(vertex, scene.mVertices.size());
            const Scenes::Vertex& a = scene.mVertices[triangle.mVertices[0]];
            const Scenes::Vertex& b = scene.mVertices[triangle.mVertices[1]];
            const Scenes::Vertex& c = scene.mVertices[triangle.mVertices[2]];
            const float up = (b.mZ - a.mZ) * (c.mX - a.mX) - (b.mX - a.mX) * (c.mZ - a.mZ);
            facingUp += up > 0.0f ? 1 : 0;
        }
        EXPECT_GT(facingUp, 1);
        for (const Scenes::Vertex& vertex : scene.mVertices)
            ASSERT_TRUE(std::isfinite(vertex.mX) && std::isfinite(vertex.mY) && std::isfinite(vertex.mZ));
    }
}

TEST(Scenes, followTheirSeed)
{
    const Scenes::Scene a = Scenes::hall(10, 1);
    const Scenes::Scene same = Scenes::hall(10, 1);
    const Scenes::Scene other = Scenes::hall(10, 2);
    const auto differ = [&](const Scenes::Scene& b)
    {
        for (std::size_t index = 0; index < a.mVertices.size(); ++index)
            if (a.mVertices[index].mX != b.mVertices[index].mX)
                return true;
        return a.mVertices.size() != b.mVertices.size();
    };
    EXPECT_FALSE(differ(same));
    EXPECT_TRUE(differ(other));
}

// Somebody who changes the generator must write the files anew.
TEST(Scenes, exampleFilesAreWhatTheGeneratorWrites)
{
    const TemporaryDirectory directory;
    for (const char* name : {"courtyard.obj", "courtyard.wrl"})
        ASSERT_EQ(run(SCENEGEN, {"courtyard", "-o", directory.file(name)}).mExitCode, 0);
    for (const char* name : {"courtyard.obj", "courtyard.mtl", "courtyard.wrl"})
        EXPECT_TRUE(readFile(directory.file(name)) == readFile(std::string(EXAMPLE_SCENES) + "/" + name)) << name;
    EXPECT_EQ(run(SCENEGEN, {"castle", "-o", directory.file("a.obj")}).mExitCode, 2);
    EXPECT_EQ(run(SCENEGEN, {"hall", "-o", directory.file("a.txt")}).mExitCode, 2);
}
} // namespace KORV::Tests
