// Times of generations, side by side with the peer's build: each round runs every variant once, so that what else the
// machine does hits all alike; medians are compared.

#include "peer/recastbuild.h"
#include "support/benchmarkscenes.h"
#include "support/build.h"
#include "support/stopwatch.h"
#include "support/table.h"

#include <CLI/CLI.hpp>

#include <iostream>
#include <limits>

namespace
{
using namespace KORV::Benchmarks;

struct Options
{
    std::vector<std::string> mScenes;
    std::vector<std::string> mFiles;
    std::vector<float> mCubes;
    std::vector<unsigned> mWorkers{1, 2};
    std::string mUp = "y";
    std::string mRules = "specified";
    unsigned mRounds = 5;
    bool mNoPeer = false;
    bool mTwoCharacters = false;
    int mSplitDepth = -2;
};

/// One way to build, with the figures of all rounds.
struct Variant
{
    std::string mName;
    BuildOptions mOptions;
    bool mIsPeer = false;
    std::vector<BuildFigures> mRounds;

    bool isDone() const { return !mRounds.empty() && mRounds.front().mDone; }
    double seconds() const { return medianOf(&BuildFigures::mSeconds); }
    double cpuSeconds() const { return medianOf(&BuildFigures::mCpuSeconds); }
    double stageSeconds(std::size_t stage) const
    {
        std::vector<double> times;
        for (const BuildFigures& round : mRounds)
            times.push_back(round.mStages[stage].mSeconds);
        return median(times);
    }
    double medianOf(double BuildFigures::*figure) const
    {
        std::vector<double> values;
        for (const BuildFigures& round : mRounds)
            values.push_back(round.*figure);
        return isDone() ? median(values) : std::numeric_limits<double>::quiet_NaN();
    }
    /// Not the first round's: what the library keeps for good is allocated there.
    std::size_t peak() const { return mRounds.empty() ? 0 : mRounds.back().mPeak; }
};

std::vector<Variant> makeVariants(const Options& options, float cube)
{
    std::vector<Variant> variants;
    for (const char* const rules : {"specified", "refined"})
    {
        if (options.mRules != "both" && options.mRules != rules)
            continue;
        for (const unsigned workers : options.mWorkers)
        {
            const bool refined = rules == std::string("refined");
            variants.push_back({std::string(rules) + ", " + std::to_string(workers),
                                {cube, workers, refined, options.mSplitDepth, options.mTwoCharacters},
                                false,
                                {}});
        }
    }
    if (Peer::isAvailable() && !options.mNoPeer)
        variants.push_back({"peer", {cube, 1, false, 0, false}, true, {}});
    return variants;
}

BuildFigures runOnce(const BenchmarkScene& scene, const Variant& variant)
{
    if (variant.mIsPeer)
        return Peer::buildSolo(scene.mScene, variant.mOptions.mCube);
    BuildFigures figures;
    buildMesh(scene.mScene, variant.mOptions, &figures);
    return figures;
}

void runRounds(const BenchmarkScene& scene, std::vector<Variant>& variants, unsigned rounds)
{
    constexpr double SHORT = 0.05; // seconds; such builds are measured more often
    constexpr unsigned MORE = 10;
    unsigned limit = rounds;
    for (unsigned round = 0; round < limit; ++round)
    {
        const Stopwatch watch;
        for (Variant& variant : variants)
            variant.mRounds.push_back(runOnce(scene, variant));
        if (round == 0 && watch.getSeconds() < SHORT)
            limit = rounds * MORE;
    }
}

/// The ratio that a build should reach, by group and number of workers.
std::string targetOf(Group group, unsigned workers, std::size_t voxels)
{
    constexpr double TARGETS[][2] = {{0.5, 0.3}, {1.0, 0.7}, {1.6, 1.0}, {2.5, 1.5}};
    constexpr std::size_t LARGE_SCENE = 500'000;
    constexpr double SMALL_SCENE_FACTOR = 1.5;
    if (group == Group::OTHER || workers < 1 || workers > 2)
        return "";
    const double target = TARGETS[static_cast<int>(group)][workers - 1];
    return digits(voxels < LARGE_SCENE ? target * SMALL_SCENE_FACTOR : target);
}

class Report
{
public:
    void add(const BenchmarkScene& scene, const std::vector<Variant>& variants)
    {
        const Variant* const peer = variants.back().mIsPeer ? &variants.back() : nullptr;
        const std::size_t voxels = variants.front().mRounds.front().mNumVoxels;
        for (const Variant& variant : variants)
        {
            const std::string name = scene.mName + ", " + digits(variant.mOptions.mCube);
            const double theirs = peer != nullptr ? peer->seconds() : 0.0;
            const double theirPeak = peer != nullptr && peer->isDone() ? static_cast<double>(peer->peak()) : 0.0;
            mTotals.add({name, grouped(voxels), variant.mName, milliseconds(variant.seconds()),
                         ratio(variant.seconds(), theirs),
                         ratio(variant.cpuSeconds(), peer != nullptr ? peer->cpuSeconds() : 0.0),
                         variant.mIsPeer ? "" : targetOf(scene.mGroup, variant.mOptions.mWorkers, voxels),
                         megabytes(variant.peak()), ratio(static_cast<double>(variant.peak()), theirPeak),
                         grouped(variant.mRounds.back().mNumPolygons)});
            addStages(name, variant);
        }
    }

    void print(std::ostream& out) const
    {
        mTotals.print(out);
        out << "\n";
        mStages.print(out);
        if (mPeerStages.empty())
            return;
        out << "\n";
        mPeerStages.print(out);
    }

private:
    void addStages(const std::string& name, const Variant& variant)
    {
        if (!variant.isDone())
            return;
        std::vector<std::string> cells{name, variant.mName};
        for (std::size_t stage = 0; stage < variant.mRounds.front().mStages.size(); ++stage)
            cells.push_back(milliseconds(variant.stageSeconds(stage)));
        cells.push_back(grouped(variant.mRounds.back().mNumSurfaces));
        (variant.mIsPeer ? mPeerStages : mStages).add(cells);
    }

    Table mTotals{{"scene, cube", "voxels", "rules, workers", "ms", "of peer", "CPU of peer", "goal", "peak MB",
                   "of peer", "nodes"}};
    Table mStages{{"scene, cube", "rules, workers", "outlines ms", "nodes ms", "links ms", "heights ms", "surfaces"}};
    Table mPeerStages{{"scene, cube", "", "rasterise ms", "filter ms", "compact ms", "distances ms", "regions ms",
                       "contours ms", "polygons ms", "contours"}};
};

void measure(Report& report, const BenchmarkScene& scene, const Options& options)
{
    for (const float cube : options.mCubes.empty() ? scene.mCubes : options.mCubes)
    {
        std::cerr << "# " << scene.mName << ", cube " << cube << std::endl;
        std::vector<Variant> variants = makeVariants(options, cube);
        runRounds(scene, variants, options.mRounds);
        report.add(scene, variants);
    }
}

void addOptions(CLI::App& app, Options& options)
{
    app.add_option("--scene", options.mScenes, "scenes to measure; all unless given")
        ->check(CLI::IsMember(sceneNames()));
    app.add_option("--file", options.mFiles, "OBJ files to measure; only these, unless scenes are named, too")
        ->check(CLI::ExistingFile);
    app.add_option("--up", options.mUp, "axis that points up in the files")
        ->check(CLI::IsMember({"y", "z"}))
        ->capture_default_str();
    app.add_option("--cube", options.mCubes, "cube sizes, instead of those of the scene")->check(CLI::PositiveNumber);
    app.add_option("--repeat", options.mRounds, "rounds; medians are shown")
        ->check(CLI::Range(1, 1000))
        ->capture_default_str();
    app.add_option("--workers", options.mWorkers, "numbers of worker threads, such as 1,2")
        ->delimiter(',')
        ->capture_default_str();
    app.add_option("--rules", options.mRules, "rules of the generation")
        ->check(CLI::IsMember({"specified", "refined", "both"}))
        ->capture_default_str();
    app.add_option("--split-depth", options.mSplitDepth, "as the library takes it")->capture_default_str();
    app.add_flag("--two-characters", options.mTwoCharacters, "a second, small character, so two height classes");
    app.add_flag("--no-peer", options.mNoPeer, "ours alone");
}
} // namespace

int main(int argc, char** argv)
{
    try
    {
        Options options;
        CLI::App app("Times of generations, beside the peer's on the same triangles.", "generation");
        addOptions(app, options);
        CLI11_PARSE(app, argc, argv);
        if (options.mScenes.empty() && options.mFiles.empty())
            options.mScenes = sceneNames();
        const Library library;
        Report report;
        for (const std::string& name : options.mScenes)
            measure(report, makeScene(name), options);
        for (const std::string& file : options.mFiles)
            measure(report, readScene(file, options.mUp == "z"), options);
        report.print(std::cout);
    }
    catch (const std::exception& error)
    {
        std::cerr << "generation: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
