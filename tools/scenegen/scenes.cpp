#include "scenes.h"

#include "shapes.h"

#include <algorithm>
#include <cmath>
#include <utility>

// A floor that lies exactly on a voxel boundary fills two layers of voxels, and the lowest floor of a scene does so for
// the cube sizes 0.25 and 0.5, because the voxel grid starts half a unit below the lowest vertex. So every scene has an
// underside at FOUNDATION, which moves the floors off the boundaries.

namespace KORV::Scenes
{
namespace
{
constexpr float FOUNDATION = -0.43f;

using Colour = std::array<float, 3>;
constexpr Colour GRASS{0.45f, 0.62f, 0.35f};
constexpr Colour STONE{0.66f, 0.64f, 0.60f};
constexpr Colour WOOD{0.66f, 0.47f, 0.29f};
constexpr Colour GRAVEL{0.74f, 0.68f, 0.55f};
constexpr Colour WALL{0.86f, 0.82f, 0.74f};
constexpr Colour ROOF{0.60f, 0.28f, 0.22f};

void foundation(Shapes& shapes, float x0, float z0, float x1, float z1)
{
    shapes.material("wall", WALL);
    shapes.face({{x0, FOUNDATION, z0}, {x1, FOUNDATION, z0}, {x1, FOUNDATION, z1}, {x0, FOUNDATION, z1}});
}

void courtyardGround(Shapes& shapes)
{
    foundation(shapes, -20, -20, 20, 20);
    shapes.material("grass", GRASS);
    shapes.floor(-20, 3.1f, -2, 20, 0);
    shapes.floor(2, 3.1f, 20, 20, 0);
    shapes.floor(2, -20, 20, -3.1f, 0);
    shapes.material("stone", STONE);
    shapes.floor(-20, -20, 2, -3.1f, 0);
    shapes.floor(-20, -3.1f, 20, 3.1f, 0);
    shapes.floor(-2, 3.1f, 2, 20, 0);
}

void courtyardFences(Shapes& shapes)
{
    shapes.material("wall", WALL);
    shapes.fence(-20, -20, 20, -19.5f, 0, 2.5f);
    shapes.fence(-20, -19.5f, -19.5f, 19.5f, 0, 2.5f);
    shapes.fence(19.5f, -19.5f, 20, 19.5f, 0, 2.5f);
    shapes.fence(-20, 19.5f, -1.6f, 20, 0, 2.5f); // the gate lies between these two
    shapes.fence(1.6f, 19.5f, 20, 20, 0, 2.5f);
}

// The house spans x -17 to -1 and z -17 to -5; each floor is 3 high, its slab 0.2 thick.
void houseGroundFloor(Shapes& shapes)
{
    shapes.material("wall", WALL);
    shapes.wall(-17, -17, -1, -16.6f, 0, 3);
    shapes.wall(-17, -16.6f, -16.6f, -5.4f, 0, 3);
    shapes.wall(-1.4f, -16.6f, -1, -10.2f, 0, 3);
    shapes.wall(-1.4f, -8.4f, -1, -5.4f, 0, 3); // a side door before it
    shapes.wall(-17, -5.4f, -11.1f, -5, 0, 3);
    shapes.wall(-8.9f, -5.4f, -1, -5, 0, 3); // the front door before it
    shapes.wall(-5.6f, -16.6f, -5.3f, -13.2f, 0, 3);
    shapes.wall(-5.6f, -11.4f, -5.3f, -5.4f, 0, 3);    // the door to the stairs before it
    shapes.slab(-11.1f, -5.4f, -8.9f, -5, 2.3f, 2.9f); // lintels
    shapes.slab(-1.4f, -10.2f, -1, -8.4f, 2.3f, 2.9f);

    shapes.material("stone", STONE);
    const float turns[] = {0, 17, 31, 45, 63, 80};
    for (int pillar = 0; pillar < 6; ++pillar)
    {
        const float x = -14.6f + 3.5f * static_cast<float>(pillar % 3);
        const float z = -13.8f + 5.3f * static_cast<float>(pillar / 3);
        shapes.block({x, z, 0.45f, 0.45f, turns[pillar]}, 0, 2.95f);
    }
    shapes.material("wood", WOOD);
    shapes.stairsZ(-4.6f, -2.6f, -8.2f, -14.6f, 0, 3.2f, 16);
}

void houseUpperFloor(Shapes& shapes)
{
    shapes.material("wood", WOOD); // around the opening over the stairs
    shapes.slab(-17, -17, -5.0f, -5, 3, 3.2f);
    shapes.slab(-5.0f, -17, -1, -14.6f, 3, 3.2f);
    shapes.slab(-5.0f, -7.6f, -1, -5, 3, 3.2f);
    shapes.slab(-2.4f, -14.6f, -1, -7.6f, 3, 3.2f);

    shapes.material("wall", WALL);
    shapes.wall(-17, -17, -1, -16.6f, 3.2f, 6);
    shapes.wall(-17, -16.6f, -16.6f, -5.4f, 3.2f, 6);
    shapes.wall(-1.4f, -16.6f, -1, -5.4f, 3.2f, 6);
    shapes.wall(-17, -5.4f, -1, -5, 3.2f, 6);
    shapes.wall(-11.2f, -16.6f, -10.9f, -12.0f, 3.2f, 5.8f);
    shapes.wall(-11.2f, -10.0f, -10.9f, -5.4f, 3.2f, 5.8f);
    shapes.wall(-5.3f, -14.6f, -5.0f, -7.6f, 3.2f, 5.8f); // beside the opening
    shapes.material("roof", ROOF);
    const float ridge = 6 + 1.3f * 6;
    shapes.face({{-17, 6, -5}, {-1, 6, -5}, {-5, ridge, -11}, {-13, ridge, -11}});
    shapes.face({{-1, 6, -17}, {-17, 6, -17}, {-13, ridge, -11}, {-5, ridge, -11}});
    shapes.face({{-1, 6, -5}, {-1, 6, -17}, {-5, ridge, -11}});
    shapes.face({{-17, 6, -17}, {-17, 6, -5}, {-13, ridge, -11}});
}

// 0.8 is too high to climb for a jump of 0.5, and low enough for a drop of 1.
void terrace(Shapes& shapes)
{
    shapes.material("wood", WOOD);
    shapes.block(span(6, -17, 16, -9), 0, 0.8f);
    shapes.material("gravel", GRAVEL);
    shapes.rampX(2.4f, 6, -16, -13.5f, 0, 0, 0.8f);
    shapes.material("stone", STONE);
    shapes.pointed({9, -13.2f, 0.5f, 0.5f, 24}, 0.8f, 2.4f);
    shapes.pointed({13, -13.2f, 0.5f, 0.5f, 52}, 0.8f, 2.4f);
}

// The tunnel under the deck is 1.4 high.
void overpass(Shapes& shapes)
{
    const float z0 = 7.2f;
    const float z1 = 11.2f;
    shapes.material("gravel", GRAVEL);
    shapes.rampX(3.2f, 8.6f, z0, z1, 0, 0, 1.9f);
    shapes.rampX(18.4f, 13.0f, z0, z1, 0, 0, 1.9f);
    shapes.material("stone", STONE);
    shapes.block(span(8.6f, z0, 9.6f, z1), 0, 1.9f);
    shapes.block(span(12.0f, z0, 13.0f, z1), 0, 1.9f);
    shapes.slab(9.6f, z0, 12.0f, z1, 1.4f, 1.9f);
    shapes.material("wall", WALL);
    shapes.fence(8.6f, z0 - 0.3f, 13.0f, z0, 1.4f, 2.5f);
    shapes.fence(8.6f, z1, 13.0f, z1 + 0.3f, 1.4f, 2.5f);
}

void garden(Shapes& shapes)
{
    shapes.material("stone", STONE);
    const Footprint stones[] = {{-14.5f, 8.5f, 0.7f, 0.7f, 12},
                                {-8.5f, 7.5f, 0.9f, 0.5f, 37},
                                {-12.0f, 13.5f, 1.2f, 0.4f, 66},
                                {-6.0f, 14.0f, 0.6f, 0.6f, 45},
                                {-16.5f, 16.0f, 0.8f, 0.8f, 28}};
    for (const Footprint& stone : stones)
        shapes.pointed(stone, 0, 1.2f);
    shapes.pointed({11.0f, 0.0f, 0.8f, 0.8f, 45}, 0, 1.5f);
}

// Heights of hills: waves of halving length and height, each with directions and phases of its own.
class Relief
{
public:
    Relief(float size, Random& random)
    {
        float length = size * 0.5f;
        float height = size * 0.04f;
        for (Wave& wave : mWaves)
        {
            const float angle = random.between(0.0f, 6.2831853f);
            wave = {6.2831853f / length * std::cos(angle), 6.2831853f / length * std::sin(angle),
                    random.between(0.0f, 6.2831853f), height};
            length *= 0.66f;
            height *= 0.62f;
        }
    }

    float at(float x, float z) const
    {
        float sum = 0.0f;
        for (const Wave& wave : mWaves)
            sum += wave.mHeight * std::sin(wave.mX * x + wave.mZ * z + wave.mPhase);
        return sum;
    }

private:
    struct Wave
    {
        float mX, mZ, mPhase, mHeight;
    };
    std::array<Wave, 7> mWaves;
};

// One block of a city: houses with flat roofs at several heights, reached by stairs, joined by decks.
void cityBlock(Shapes& shapes, float x, float z, Random& random)
{
    const float low = 1.6f + 0.2f * static_cast<float>(random.below(5));
    const float high = low + 3.0f;
    shapes.material("wall", WALL);
    shapes.block(span(x + 1, z + 1, x + 9, z + 8), 0, low);
    shapes.block({x + 15.5f, z + 15.5f, random.between(2.5f, 3.6f), random.between(2.5f, 3.6f), random.between(0, 90)},
                 0, high);
    shapes.material("stone", STONE);
    const auto steps = static_cast<unsigned>(std::lround(low / 0.2f));
    shapes.stairsZ(x + 3, x + 5, z + 8 + 0.4f * static_cast<float>(steps), z + 8, 0, low, steps);
    shapes.material("wood", WOOD); // a deck to the next house, with room under it
    shapes.slab(x + 9, z + 3, x + 15, z + 5.4f, low - 0.2f, low);
    shapes.material("gravel", GRAVEL);
    shapes.rampX(x + 15 + 2.5f * low, x + 15, z + 3, z + 5.4f, 0, 0, low);
    shapes.material("stone", STONE);
    for (int post = 0; post < 5; ++post)
    {
        const float half = random.between(0.25f, 0.6f);
        const float height = random.between(1.0f, 2.5f); // apart: arguments are evaluated in any order
        shapes.pointed(
            {x + random.between(1.5f, 10.5f), z + random.between(13.5f, 18.5f), half, half, random.between(0, 90)}, 0,
            height);
    }
}

void storey(Shapes& shapes, float base, bool roofed, Random& random)
{
    shapes.material("wall", WALL);
    shapes.wall(0, 0, 20, 0.4f, base, base + 3);
    shapes.wall(0, 19.6f, 20, 20, base, base + 3);
    shapes.wall(0, 0.4f, 0.4f, 19.6f, base, base + 3);
    shapes.wall(19.6f, 0.4f, 20, 19.6f, base, base + 3);
    shapes.material("stone", STONE);
    for (int pillar = 0; pillar < 9; ++pillar)
    {
        const float x = 6.5f + 3.5f * static_cast<float>(pillar % 3);
        const float z = 4.0f + 6.0f * static_cast<float>(pillar / 3);
        const Footprint foot{x, z, random.between(0.3f, 0.7f), random.between(0.3f, 0.7f), random.between(0, 90)};
        if (roofed)
            shapes.block(foot, base, base + 2.95f);
        else
            shapes.pointed(foot, base, base + 1.5f);
    }
}
} // namespace

Scene courtyard()
{
    Scene scene;
    Shapes shapes(scene);
    courtyardGround(shapes);
    courtyardFences(shapes);
    houseGroundFloor(shapes);
    houseUpperFloor(shapes);
    terrace(shapes);
    overpass(shapes);
    garden(shapes);
    return scene;
}

Scene hall(std::uint32_t pillars, std::uint32_t seed, float spacing)
{
    Scene scene;
    Shapes shapes(scene);
    Random random(seed);
    const auto side = static_cast<std::uint32_t>(std::ceil(std::sqrt(static_cast<double>(std::max(pillars, 1u)))));
    const float size = spacing * static_cast<float>(side);
    foundation(shapes, 0, 0, size, size);
    shapes.material("stone", STONE);
    shapes.floor(0, 0, size, size, 0);
    shapes.material("wall", WALL);
    for (std::uint32_t pillar = 0; pillar < pillars; ++pillar)
    {
        const float x = spacing * (static_cast<float>(pillar % side) + random.between(0.45f, 0.55f));
        const float z = spacing * (static_cast<float>(pillar / side) + random.between(0.45f, 0.55f));
        const float half = spacing * random.between(0.14f, 0.2f);
        shapes.pointed({x, z, half, half, random.between(0, 90)}, 0, 2.2f);
    }
    return scene;
}

Scene hills(float size, std::uint32_t cells, std::uint32_t seed)
{
    Scene scene;
    Shapes shapes(scene);
    Random random(seed);
    const Relief relief(size, random);
    shapes.material("grass", GRASS);
    const std::uint32_t row = cells + 1;
    for (std::uint32_t index = 0; index < row * row; ++index)
    {
        const float x = size * static_cast<float>(index % row) / static_cast<float>(cells);
        const float z = size * static_cast<float>(index / row) / static_cast<float>(cells);
        scene.mVertices.push_back({x, relief.at(x, z), z});
    }
    for (std::uint32_t cell = 0; cell < cells * cells; ++cell)
    {
        const std::uint32_t corner = cell / cells * row + cell % cells;
        scene.mTriangles.push_back({{corner, corner + row, corner + row + 1}, 0});
        scene.mTriangles.push_back({{corner, corner + row + 1, corner + 1}, 0});
    }
    return scene;
}

Scene city(std::uint32_t blocks, std::uint32_t seed)
{
    constexpr float BLOCK = 20.0f;
    constexpr float STREET = 8.0f;
    Scene scene;
    Shapes shapes(scene);
    Random random(seed);
    const float size = STREET + (BLOCK + STREET) * static_cast<float>(blocks);
    foundation(shapes, 0, 0, size, size);
    shapes.material("stone", STONE);
    shapes.floor(0, 0, size, size, 0);
    for (std::uint32_t block = 0; block < blocks * blocks; ++block)
    {
        const float x = STREET + (BLOCK + STREET) * static_cast<float>(block % blocks);
        const float z = STREET + (BLOCK + STREET) * static_cast<float>(block / blocks);
        cityBlock(shapes, x, z, random);
    }
    return scene;
}

Scene floors(std::uint32_t floors, std::uint32_t seed)
{
    constexpr float STOREY = 3.2f;
    Scene scene;
    Shapes shapes(scene);
    Random random(seed);
    foundation(shapes, 0, 0, 20, 20);
    shapes.material("wood", WOOD);
    shapes.floor(0, 0, 20, 20, 0);
    for (std::uint32_t floor = 0; floor < floors; ++floor)
    {
        const float base = STOREY * static_cast<float>(floor);
        const bool roofed = floor + 1 < floors;
        storey(shapes, base, roofed, random);
        if (!roofed)
            break;
        // the stairs change sides from floor to floor, so that each foot stands on closed floor
        const bool left = floor % 2 == 0;
        const float x0 = left ? 1.0f : 17.0f;
        const float x1 = x0 + 2.0f;
        shapes.material("stone", STONE);
        shapes.stairsZ(x0, x1, 6, 12.4f, base, base + STOREY, 16);
        shapes.material("wood", WOOD);
        shapes.slab(0, 0, x0, 20, base + 3, base + STOREY);
        shapes.slab(x1, 0, 20, 20, base + 3, base + STOREY);
        shapes.slab(x0, 0, x1, 5.4f, base + 3, base + STOREY);
        shapes.slab(x0, 12.4f, x1, 20, base + 3, base + STOREY);
    }
    return scene;
}
} // namespace KORV::Scenes
