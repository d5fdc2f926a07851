#pragma once

#include <CLI/CLI.hpp>

#include <functional>

/// The subcommands. Each adds itself to the program's options and says how to run it; main runs the one that was named.
namespace KORV::Tool
{
struct Command
{
    CLI::App* mOptions = nullptr;
    /// @return the exit code. Throws Failure.
    std::function<int()> mRun;
};

Command addBuildCommand(CLI::App& program);
Command addInfoCommand(CLI::App& program);
Command addPathCommand(CLI::App& program);
Command addPruneCommand(CLI::App& program);
Command addConvertCommand(CLI::App& program);
} // namespace KORV::Tool
