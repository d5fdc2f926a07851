#include "benchmarkscenes.h"

#include "shapes.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <sstream>
#include <stdexcept>

namespace KORV::Benchmarks
{
namespace
{

/// The number of a corner such as "12/5/7" or "-1", as an index from 0.
std::uint32_t toIndex(const std::string& corner, std::size_t numVertices)
{
    const long long number = std::stoll(corner);
    const long long index = number < 0 ? static_cast<long long>(numVertices) + number : number - 1;
    if (index < 0 || index >= static_cast<long long>(numVertices))
        throw std::runtime_error("a corner without a vertex: " + corner);
    return static_cast<std::uint32_t>(index);
}

void readFace(Scenes::Scene& scene, std::istream& line)
{
    std::vector<std::uint32_t> corners;
    for (std::string corner; line >> corner;)
        corners.push_back(toIndex(corner, scene.mVertices.size()));
    for (std::size_t i = 2; i < corners.size(); ++i)
        scene.mTriangles.push_back({{corners[0], corners[i - 1], corners[i]}, 0});
}

/// Adds a scene to another one, turned about the vertical through its origin, then moved.
void append(Scenes::Scene& scene, const Scenes::Scene& part, float degrees, float x, float z)
{
    const auto base = static_cast<std::uint32_t>(scene.mVertices.size());
    const float angle = degrees / 180.0f * std::numbers::pi_v<float>;
    const float c = std::cos(angle);
    const float s = std::sin(angle);
    for (const Scenes::Vertex& v : part.mVertices)
        scene.mVertices.push_back({c * v.mX + s * v.mZ + x, v.mY, c * v.mZ - s * v.mX + z});
    for (const Scenes::Triangle& triangle : part.mTriangles)
    {
        const auto& ids = triangle.mVertices;
        scene.mTriangles.push_back({{ids[0] + base, ids[1] + base, ids[2] + base}, 0});
    }
}

/// Houses, a hall, a block of a city and open ground, most of it turned, so that outlines have many corners.
Scenes::Scene mixedLevel()
{
    Scenes::Scene scene;
    append(scene, Scenes::courtyard(), 0.0f, 20.0f, 20.0f);
    append(scene, Scenes::courtyard(), 17.0f, 80.0f, 28.0f);
    append(scene, Scenes::hall(100, 1), 9.0f, 0.0f, 60.0f);
    append(scene, Scenes::city(1, 1), 33.0f, 50.0f, 85.0f);
    append(scene, Scenes::hills(50.0f, 50, 1), 0.0f, 60.0f, 110.0f);
    append(scene, Scenes::floors(3, 1), 25.0f, 5.0f, 120.0f);
    return scene;
}

/// Cube sizes that suit the extent of a file's scene: about 250, 500 and 1000 along its longer side.
std::vector<float> cubesFor(const Scenes::Scene& scene)
{
    const auto [left, right] = std::minmax_element(scene.mVertices.begin(), scene.mVertices.end(),
                                                   [](const auto& a, const auto& b) { return a.mX < b.mX; });
    const auto [back, front] = std::minmax_element(scene.mVertices.begin(), scene.mVertices.end(),
                                                   [](const auto& a, const auto& b) { return a.mZ < b.mZ; });
    const float side = std::max(right->mX - left->mX, front->mZ - back->mZ);
    return {side / 250.0f, side / 500.0f, side / 1000.0f};
}
} // namespace

const char* nameOf(Group group)
{
    constexpr const char* NAMES[] = {"city of boxes", "interiors", "mixed level", "open hills", "other"};
    return NAMES[static_cast<int>(group)];
}

const std::vector<std::string>& sceneNames()
{
    static const std::vector<std::string> NAMES{"city", "hall", "floors", "mixed", "hills", "small"};
    return NAMES;
}

BenchmarkScene makeScene(const std::string& name)
{
    if (name == "city")
        return {name, Group::CITY, Scenes::city(4, 1), {0.4f, 0.2f, 0.1f}};
    if (name == "hall")
        return {name, Group::INTERIOR, Scenes::hall(400, 1), {0.2f, 0.1f, 0.05f}};
    if (name == "floors")
        return {name, Group::INTERIOR, Scenes::floors(10, 1), {0.2f, 0.1f, 0.05f}};
    if (name == "mixed")
        return {name, Group::MIXED, mixedLevel(), {0.3f, 0.15f, 0.075f}};
    if (name == "hills")
        return {name, Group::HILLS, Scenes::hills(100.0f, 100, 1), {0.4f, 0.2f, 0.1f}};
    if (name == "small") // a hundred triangles
        return {name, Group::OTHER, Scenes::hall(8, 1), {0.4f}};
    throw std::runtime_error("no such scene: " + name);
}

BenchmarkScene readScene(const std::string& fileName, bool zUp)
{
    std::ifstream file(fileName);
    BenchmarkScene result{std::filesystem::path(fileName).stem().string(), Group::OTHER, {}, {}};
    for (std::string text; std::getline(file, text);)
    {
        std::istringstream line(text);
        std::string kind;
        line >> kind;
        if (kind == "f")
            readFace(result.mScene, line);
        if (kind != "v")
            continue;
        Scenes::Vertex v;
        line >> v.mX >> v.mY >> v.mZ;
        result.mScene.mVertices.push_back(zUp ? Scenes::Vertex{v.mX, v.mZ, -v.mY} : v);
    }
    if (result.mScene.mTriangles.empty())
        throw std::runtime_error("no triangles in " + fileName);
    result.mCubes = cubesFor(result.mScene);
    return result;
}

Scenes::Scene floorWithObstacles(float size, unsigned obstacles)
{
    constexpr float HALF = 0.5f;
    constexpr float HEIGHT = 1.2f;
    Scenes::Scene scene;
    Scenes::Shapes shapes(scene);
    Scenes::Random random(1);
    shapes.material("stone", {0.66f, 0.64f, 0.60f});
    shapes.floor(0.0f, 0.0f, size, size, 0.0f);
    const auto side = static_cast<unsigned>(std::ceil(std::sqrt(static_cast<double>(std::max(obstacles, 1u)))));
    const float spacing = size / static_cast<float>(side);
    for (unsigned i = 0; i < obstacles; ++i)
    {
        const float x = spacing * (static_cast<float>(i % side) + random.between(0.3f, 0.7f));
        const float z = spacing * (static_cast<float>(i / side) + random.between(0.3f, 0.7f));
        shapes.pointed({x, z, HALF, HALF, 0.0f}, 0.0f, HEIGHT);
    }
    return scene;
}
} // namespace KORV::Benchmarks
