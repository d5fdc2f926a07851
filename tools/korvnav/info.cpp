// korvnav info: what a stored mesh holds, and whether it is sound.

#include "commands.h"
#include "failure.h"
#include "figures.h"
#include "library.h"
#include "meshfile.h"
#include "summary.h"
#include "text.h"

#include <memory>

namespace KORV::Tool
{
namespace
{
struct InfoOptions
{
    std::string mMesh;
    bool mJson = false;
};

void inform(const InfoOptions& options)
{
    const Reports reports;
    const MeshPtr mesh = readMesh(options.mMesh);
    const MeshFigures figures = measure(*mesh);
    const std::vector<std::string> violations = findViolations(*mesh);
    print(options.mJson ? infoJson(options.mMesh, figures, *mesh, violations)
                        : infoText(options.mMesh, figures, *mesh, violations));
    for (const std::string& warning : searchLimitWarnings(figures))
        printWarning(warning);
    if (!violations.empty())
        refuseBrokenMesh(options.mMesh, violations);
}

int runInfo(const InfoOptions& options)
{
    const Library library(false);
    guarded("", "", [&] { inform(options); }); // what is thrown must not outlive the library
    return static_cast<int>(ExitCode::Done);
}
} // namespace

Command addInfoCommand(CLI::App& program)
{
    const auto options = std::make_shared<InfoOptions>();
    CLI::App* const command = program.add_subcommand("info", "Tells what a stored mesh holds and whether it is sound.");
    command->add_option("mesh", options->mMesh, "mesh to read")->required()->type_name("MESH");
    command->add_flag("--json", options->mJson, "print one JSON object, and nothing else, on standard output");
    command->footer(INFO_JSON_HELP);
    return {command, [options] { return runInfo(*options); }};
}
} // namespace KORV::Tool
