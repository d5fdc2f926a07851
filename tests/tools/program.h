#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace KORV::Tests
{
/// A directory of its own that goes with the object.
class TemporaryDirectory
{
public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    std::string file(const std::string& name) const { return (mPath / name).string(); }
    /// Writes a file and gives its full name.
    std::string write(const std::string& name, const std::string& content) const;
    /// Names of what lies in it, in order.
    std::vector<std::string> list() const;

private:
    std::filesystem::path mPath;
};

struct Outcome
{
    int mExitCode = -1; ///< 128 and the signal's number where a signal ended the program
    std::string mOutput;
    std::string mErrors;
};

/// Runs a program to its end.
/// @param signalAfter  a text on its standard error at which it gets the signal; empty for none.
Outcome run(const std::string& program, std::vector<std::string> arguments, const std::string& signalAfter = "",
            int signal = 0);

std::string readFile(const std::string& name);
} // namespace KORV::Tests
