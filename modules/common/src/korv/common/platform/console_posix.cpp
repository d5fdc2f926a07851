#include "korv/common/platform/console.h"

#include <cerrno>

#include <unistd.h>

namespace KORV::Common::Platform
{
namespace
{
void writeAll(int descriptor, std::string_view text)
{
    while (!text.empty())
    {
        const ssize_t written = ::write(descriptor, text.data(), text.size());
        if (written >= 0)
            text.remove_prefix(static_cast<size_t>(written));
        else if (errno != EINTR)
            return;
    }
}
} // namespace

void writeStandardOutput(std::string_view text)
{
    writeAll(STDOUT_FILENO, text);
}

void writeStandardError(std::string_view text)
{
    writeAll(STDERR_FILENO, text);
}
} // namespace KORV::Common::Platform
