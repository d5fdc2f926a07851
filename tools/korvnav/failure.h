#pragma once

#include <stdexcept>
#include <string>

namespace KORV::Tool
{
/// What a run of the program ends with. A run stopped by a signal ends with 128 and the signal's number.
enum class ExitCode : int
{
    Done = 0,
    BadInput = 1,
    BadUsage = 2,
    NothingWalkable = 3,
    NoWay = 3, ///< of the two, a subcommand knows one
    Signal = 128
};

/// Ends a run. The text tells a person what was wrong and what to do.
class Failure : public std::runtime_error
{
public:
    Failure(ExitCode code, const std::string& text) : Failure(static_cast<int>(code), text) {}
    Failure(int code, const std::string& text) : std::runtime_error(text), mCode(code) {}
    int getCode() const { return mCode; }

private:
    int mCode;
};
} // namespace KORV::Tool
