#pragma once

#include "scenes.h"

#include <string>
#include <vector>

/// What is measured. All scenes have y up and metres for units.
namespace KORV::Benchmarks
{
/// Scenes of one kind of ground, whose times are alike.
enum class Group
{
    CITY,
    INTERIOR,
    MIXED,
    HILLS,
    OTHER
};

const char* nameOf(Group group);

struct BenchmarkScene
{
    std::string mName;
    Group mGroup = Group::OTHER;
    Scenes::Scene mScene;
    std::vector<float> mCubes; ///< cube sizes to measure it at, the coarsest first
};

/// The names that makeScene knows, in the order of the tables.
const std::vector<std::string>& sceneNames();
/// One of those scenes.
BenchmarkScene makeScene(const std::string& name);
/// The triangles of an OBJ file. Throws std::runtime_error when it has none.
/// @param zUp  whether z points up in the file.
BenchmarkScene readScene(const std::string& fileName, bool zUp);

/// A level floor of @p size metres a side, with boxes of a metre on it, spread evenly.
Scenes::Scene floorWithObstacles(float size, unsigned obstacles);
} // namespace KORV::Benchmarks
