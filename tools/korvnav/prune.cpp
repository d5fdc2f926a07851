// korvnav prune: removes from a stored mesh what can't be reached from given places.

#include "atomicfile.h"
#include "commands.h"
#include "failure.h"
#include "figures.h"
#include "json.h"
#include "library.h"
#include "meshfile.h"
#include "options.h"
#include "place.h"
#include "summary.h"
#include "text.h"

#include "korv/navmesh/interface.h"

#include <memory>
#include <numeric>

namespace KORV::Tool
{
namespace
{
const char* const PRUNE_JSON_HELP =
    "--json prints one object: file, output, before {nodes, islands, area}, after {nodes, islands, area},\n"
    "removed {nodes, islands, area}, version. An island is ground that no link leads to or from.\n";

struct PruneArguments
{
    std::string mMesh;
    std::vector<std::string> mKeep;
    std::string mOutput;
    bool mJson = false;
};

struct PruneOptions
{
    std::string mMesh;
    std::vector<NavMesh::Vec3<float>> mKeep;
    std::string mOutput;
    bool mJson = false;
};

/// How much ground there is.
struct Extent
{
    uint64 mNodes = 0;
    uint64 mIslands = 0;
    double mArea = 0.0;
};

/// Nodes in sets of those that hang together, whichever way their links lead.
class Islands
{
public:
    explicit Islands(const NavMesh::NavMeshContainer& mesh) : mParents(mesh.mNodes.size()), mCount(mesh.mNodes.size())
    {
        std::iota(mParents.begin(), mParents.end(), 0u);
        for (const Link& link : MeshView(mesh).links())
            join(link.mNode, link.mNeighbour);
    }
    uint64 count() const { return mCount; }

private:
    uint32 find(uint32 node)
    {
        while (mParents[node] != node)
            node = mParents[node] = mParents[mParents[node]];
        return node;
    }
    void join(uint32 a, uint32 b)
    {
        a = find(a);
        b = find(b);
        mCount -= a != b ? 1 : 0;
        mParents[b] = a;
    }

    std::vector<uint32> mParents;
    uint64 mCount;
};

Extent measureExtent(const NavMesh::NavMeshContainer& mesh)
{
    return {mesh.mNodes.size(), Islands(mesh).count(), measure(mesh).mArea};
}

PruneOptions interpret(const PruneArguments& arguments)
{
    PruneOptions options{arguments.mMesh, {}, arguments.mOutput, arguments.mJson};
    for (const std::string& place : arguments.mKeep)
        options.mKeep.push_back(parsePoint("--keep", place));
    return options;
}

void removeUnreachable(const PruneOptions& options, const MeshPtr& mesh)
{
    const NavMesh::NavMeshNodeIndex index(mesh);
    const NavMesh::NavMeshSearchFilter anybody(mesh->getMemory());
    const auto optimizer = NavMesh::Interface::getNavMeshOptimizer();
    NavMesh::Vector<uint32> nodes = optimizer->createNodeIDArray();
    for (const NavMesh::Vec3<float>& place : options.mKeep)
        nodes.push_back(static_cast<uint32>(findNode(index, "--keep", place, anybody)));
    optimizer->removeNotReachable(nodes, mesh);
}

std::string extentText(const Extent& extent)
{
    return counted(extent.mNodes, "node") + " in " + counted(extent.mIslands, "island") + ", area " +
           groupedDecimal(extent.mArea, 1);
}

JsonValue extentJson(const Extent& extent)
{
    return {{"nodes", extent.mNodes}, {"islands", extent.mIslands}, {"area", extent.mArea}};
}

void report(const PruneOptions& options, const Extent& before, const Extent& after)
{
    // a link that led one way may have held parts together that are apart now
    const uint64 islands = before.mIslands > after.mIslands ? before.mIslands - after.mIslands : 0;
    const Extent removed{before.mNodes - after.mNodes, islands, before.mArea - after.mArea};
    if (options.mJson)
        print(dump({{"file", options.mMesh},
                    {"output", options.mOutput},
                    {"before", extentJson(before)},
                    {"after", extentJson(after)},
                    {"removed", extentJson(removed)},
                    {"version", KORVNAV_VERSION}}));
    else
        print(options.mMesh + "\n" + entry("before", extentText(before)) + entry("after", extentText(after)) +
              entry("removed", extentText(removed)) + entry("written", options.mOutput));
}

void prune(const PruneOptions& options)
{
    const Reports reports;
    const MeshPtr mesh = readSoundMesh(options.mMesh);
    const Extent before = measureExtent(*mesh);
    removeUnreachable(options, mesh);
    saveMesh(options.mOutput, mesh, formFor(options.mOutput));
    report(options, before, measureExtent(*mesh));
}

int runPrune(const PruneArguments& arguments)
{
    const PruneOptions options = interpret(arguments);
    AtomicFile::check(options.mOutput);
    const Library library(false);
    guarded("", "", [&] { prune(options); }); // what is thrown must not outlive the library
    return static_cast<int>(ExitCode::Done);
}
} // namespace

Command addPruneCommand(CLI::App& program)
{
    const auto arguments = std::make_shared<PruneArguments>();
    CLI::App* const command =
        program.add_subcommand("prune", "Removes from a stored mesh what can't be reached from given places.");
    command->add_option("mesh", arguments->mMesh, "mesh to read")->required()->type_name("MESH");
    command
        ->add_option("--keep", arguments->mKeep,
                     "a place on the mesh; the ground that can be reached from it stays. May be given again")
        ->required()
        ->type_name("X,Y,Z");
    command
        ->add_option("-o,--output", arguments->mOutput,
                     "mesh to write, in binary form if it ends in .knm, else as a document")
        ->required()
        ->type_name("OUT");
    command->add_flag("--json", arguments->mJson, "print one JSON object, and nothing else, on standard output");
    command->footer(PRUNE_JSON_HELP);
    return {command, [arguments] { return runPrune(*arguments); }};
}
} // namespace KORV::Tool
