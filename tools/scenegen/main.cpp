// Writes one of our example scenes to a file.

#include "scenefile.h"

#include <CLI/CLI.hpp>

#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>

namespace
{
using namespace KORV::Scenes;

struct Options
{
    std::string mKind;
    std::string mOutput;
    std::uint32_t mCount = 0;
    float mSize = 0.0f;
    std::uint32_t mSeed = 1;
};

Scene make(const Options& options)
{
    const auto count = [&](std::uint32_t usual) { return options.mCount > 0 ? options.mCount : usual; };
    if (options.mKind == "courtyard")
        return courtyard();
    if (options.mKind == "hall")
        return hall(count(400), options.mSeed, options.mSize > 0.0f ? options.mSize : 4.0f);
    if (options.mKind == "hills")
        return hills(options.mSize > 0.0f ? options.mSize : 100.0f, count(100), options.mSeed);
    if (options.mKind == "city")
        return city(count(4), options.mSeed);
    return floors(count(10), options.mSeed);
}

bool write(const std::filesystem::path& path, const std::string& text)
{
    std::ofstream file(path, std::ios::binary);
    file << text;
    file.close();
    if (!file)
        std::cerr << "scenegen: cannot write " << path << "\n";
    return static_cast<bool>(file);
}

int writeScene(const Scene& scene, const std::filesystem::path& path)
{
    if (path.extension() == ".wrl")
        return write(path, vrmlText(scene)) ? 0 : 1;
    std::filesystem::path materials = path;
    materials.replace_extension(".mtl");
    const bool written =
        write(path, objText(scene, materials.filename().string())) && write(materials, materialText(scene));
    return written ? 0 : 1;
}

int run(int argc, char** argv)
{
    Options options;
    CLI::App app("Writes an example scene: y up, one unit is a metre.", "scenegen");
    app.add_option("kind", options.mKind, "courtyard, hall, hills, city or floors")
        ->required()
        ->check(CLI::IsMember({"courtyard", "hall", "hills", "city", "floors"}));
    app.add_option("-o,--output", options.mOutput, "file to write; .wrl gives VRML 2.0, .obj a .mtl beside it")
        ->required()
        ->check(
            [](const std::string& name)
            {
                const std::string type = std::filesystem::path(name).extension().string();
                return type == ".obj" || type == ".wrl" ? std::string() : "it must end in .obj or .wrl";
            });
    app.add_option("--count", options.mCount,
                   "pillars of a hall, cells along a side of hills, blocks along a side of a city, floors of a house")
        ->check(CLI::Range(1, 5000));
    app.add_option("--size", options.mSize, "distance of the pillars of a hall, length of a side of hills")
        ->check(CLI::Range(1.0, 100000.0));
    app.add_option("--seed", options.mSeed, "another scene of the same kind")->capture_default_str();
    try
    {
        app.parse(argc, argv);
    }
    catch (const CLI::ParseError& error)
    {
        return app.exit(error) == 0 ? 0 : 2;
    }
    return writeScene(make(options), options.mOutput);
}
} // namespace

int main(int argc, char** argv)
{
    try
    {
        return run(argc, argv);
    }
    catch (const std::exception& error)
    {
        std::cerr << "scenegen: " << error.what() << "\n";
        return 1;
    }
}
