// How time and memory of a generation grow: with the voxels of a floor, and with the corners of one outline.

#include "support/benchmarkscenes.h"
#include "support/build.h"
#include "support/table.h"

#include <CLI/CLI.hpp>

#include <iostream>

namespace
{
using namespace KORV::Benchmarks;

struct Options
{
    bool mQuick = false;
    std::vector<unsigned> mVoxels;
    std::vector<unsigned> mPillars;
    unsigned mWorkers = 2;
    std::string mRules = "specified";
};

BuildFigures build(const KORV::Scenes::Scene& scene, float cube, const Options& options)
{
    BuildOptions build;
    build.mCube = cube;
    build.mWorkers = options.mWorkers;
    build.mSplitDepth = -1; // one outline for all that hangs together
    build.mRefined = options.mRules == "refined";
    BuildFigures figures;
    buildMesh(scene, build, &figures);
    return figures;
}

std::vector<std::string> cellsOf(const BuildFigures& figures, std::size_t unit)
{
    const auto units = static_cast<double>(unit);
    return {grouped(figures.mNumVoxels),
            grouped(figures.mNumSurfaces),
            grouped(figures.mNumPolygons),
            digits(figures.mSeconds),
            digits(figures.mSeconds / units * 1e9),
            megabytes(figures.mPeak),
            digits(static_cast<double>(figures.mPeak) / units)};
}

/// Floors of n x n voxels; one obstacle on 4,900 of them.
void measureVoxels(const Options& options, std::ostream& out)
{
    constexpr float CUBE = 0.08f; // the floor then lies inside one layer of voxels
    constexpr unsigned VOXELS_PER_OBSTACLE = 4900;
    Table table({"floor", "obstacles", "voxels", "surfaces", "nodes", "s", "ns/voxel", "peak MB", "bytes/voxel"});
    for (const unsigned n : options.mVoxels)
    {
        std::cerr << "# floor of " << n << " x " << n << " voxels" << std::endl;
        const unsigned obstacles = n * n / VOXELS_PER_OBSTACLE;
        const BuildFigures figures = build(floorWithObstacles(CUBE * static_cast<float>(n), obstacles), CUBE, options);
        std::vector<std::string> cells = cellsOf(figures, figures.mNumVoxels);
        cells.insert(cells.begin(), {grouped(n) + " x " + grouped(n), grouped(obstacles)});
        table.add(cells);
    }
    out << "### Voxels\n\n";
    table.print(out);
}

/// Halls with n turned pillars, one outline each.
void measureCorners(const Options& options, std::ostream& out)
{
    constexpr float CUBE = 0.2f;
    Table table({"pillars", "voxels", "surfaces", "nodes", "s", "ns/node", "peak MB", "bytes/node"});
    for (const unsigned pillars : options.mPillars)
    {
        std::cerr << "# hall with " << pillars << " pillars" << std::endl;
        const BuildFigures figures = build(KORV::Scenes::hall(pillars, 1), CUBE, options);
        std::vector<std::string> cells = cellsOf(figures, figures.mNumPolygons);
        cells.insert(cells.begin(), grouped(pillars));
        table.add(cells);
    }
    out << "### Corners of one outline\n\n";
    table.print(out);
}

void addOptions(CLI::App& app, Options& options)
{
    app.add_flag("--quick", options.mQuick, "small scenes");
    app.add_option("--voxels", options.mVoxels, "voxels along the side of the floors")->delimiter(',');
    app.add_option("--pillars", options.mPillars, "pillars of the halls")->delimiter(',');
    app.add_option("--workers", options.mWorkers, "worker threads")->capture_default_str();
    app.add_option("--rules", options.mRules, "rules of the generation")
        ->check(CLI::IsMember({"specified", "refined"}))
        ->capture_default_str();
}

/// The sizes that are measured when none are named.
void addSizes(Options& options)
{
    if (!options.mVoxels.empty() || !options.mPillars.empty())
        return;
    options.mVoxels = {500, 1000, 2000};
    options.mPillars = {25, 100, 400};
    if (options.mQuick)
        return;
    options.mVoxels.insert(options.mVoxels.end(), {4000, 7000});
    options.mPillars.push_back(1600);
}
} // namespace

int main(int argc, char** argv)
{
    try
    {
        Options options;
        CLI::App app("How time and memory of a generation grow.", "growth");
        addOptions(app, options);
        CLI11_PARSE(app, argc, argv);
        addSizes(options);
        const Library library;
        if (!options.mVoxels.empty())
            measureVoxels(options, std::cout);
        std::cout << "\n";
        if (!options.mPillars.empty())
            measureCorners(options, std::cout);
    }
    catch (const std::exception& error)
    {
        std::cerr << "growth: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
