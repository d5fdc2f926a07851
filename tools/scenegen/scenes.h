#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// Scenes made by rule, for the examples, the tests and the benchmarks. All have y up, corners counter-clockwise seen
/// from outside, and a unit that stands for a metre. The same arguments give the same scene on every machine.
namespace KORV::Scenes
{
struct Vertex
{
    float mX = 0.0f;
    float mY = 0.0f;
    float mZ = 0.0f;
};

/// Twelve bytes of indices come first, so that a host can read an array of these in place.
struct Triangle
{
    std::uint32_t mVertices[3] = {0, 0, 0};
    std::uint32_t mMaterial = 0; ///< index into Scene::mMaterials
};

struct Material
{
    std::string mName;
    float mColour[3] = {0.5f, 0.5f, 0.5f};
};

struct Scene
{
    std::vector<Vertex> mVertices;
    std::vector<Triangle> mTriangles;
    std::vector<Material> mMaterials;
};

/// About 40 x 40: a courtyard with a house of two floors, stairs, a terrace to jump down from (0.8 high), an overpass
/// with a tunnel under it that only the small fit through (1.4 high), and pillars turned by odd angles.
Scene courtyard();

/// One floor with turned pillars, so one outline with many holes.
/// @param pillars  their number, set out in a square of the next larger size
/// @param spacing  distance of their centres
Scene hall(std::uint32_t pillars, std::uint32_t seed, float spacing = 4.0f);

/// Open ground that rises and falls.
/// @param size  length of a side [> 0]
/// @param cells  squares along a side [>= 1]
Scene hills(float size, std::uint32_t cells, std::uint32_t seed);

/// Streets around blocks of houses, with decks, stairs and ramps between them.
/// @param blocks  blocks along a side [>= 1]
Scene city(std::uint32_t blocks, std::uint32_t seed);

/// A house of many floors of 20 x 20 with stairs and pillars.
/// @param floors  their number [>= 1]
Scene floors(std::uint32_t floors, std::uint32_t seed);
} // namespace KORV::Scenes
