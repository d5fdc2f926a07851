#pragma once

#include <string_view>

namespace KORV::Common::Platform
{
/// Writes to the process's standard output or standard error, unbuffered and without allocating. What can't be written
/// (a closed pipe, a full disk) is dropped. Any thread; one call's text stays in one piece as far as the system does.
void writeStandardOutput(std::string_view text);
void writeStandardError(std::string_view text);
} // namespace KORV::Common::Platform
