// korvnav: makes navigation meshes from scene files, tells about them and finds ways on them.

#include "commands.h"
#include "failure.h"
#include "text.h"

#include <exception>
#include <iostream>
#include <new>

namespace
{
using namespace KORV::Tool;

int runNamed(const std::vector<Command>& commands)
{
    for (const Command& command : commands)
        if (command.mOptions->parsed())
            return command.mRun();
    return static_cast<int>(ExitCode::BadUsage); // not reached: a subcommand is required
}

int parseAndRun(int argc, char** argv)
{
    CLI::App program("Makes navigation meshes for characters from scene files, and finds ways on them.", "korvnav");
    program.set_version_flag("--version", std::string("korvnav ") + KORVNAV_VERSION);
    program.require_subcommand(1);
    program.footer(
        "Exit codes: 0 done; 1 the input could not be used; 2 wrong usage; 3 nothing walkable in the scene,\n"
        "or no way from one place to the other; 128 and the signal's number when a signal stopped it (130 for "
        "Ctrl-C).\n");
    const std::vector<Command> commands = {addBuildCommand(program), addInfoCommand(program), addPathCommand(program),
                                           addPruneCommand(program), addConvertCommand(program)};
    try
    {
        program.parse(argc, argv);
    }
    catch (const CLI::ParseError& error)
    {
        if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) // help or version was asked for
            return program.exit(error);
        throw Failure(ExitCode::BadUsage, error.what() + std::string("; run it with --help for what it takes."));
    }
    return runNamed(commands);
}
} // namespace

int main(int argc, char** argv)
{
    try
    {
        return parseAndRun(argc, argv);
    }
    catch (const Failure& failure)
    {
        printError(failure.what());
        return failure.getCode();
    }
    catch (const std::bad_alloc&)
    {
        printError("out of memory; use a larger cube, or give the scene in parts.");
    }
    catch (const std::exception& error)
    {
        printError(error.what());
    }
    return static_cast<int>(ExitCode::BadInput);
}
