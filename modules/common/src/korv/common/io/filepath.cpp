#include "korv/common/io/filepath.h"

#include "korv/common/io/filesystem.h"
#include "korv/common/platform/file.h"

#include <algorithm>

namespace KORV::Common::IO
{
namespace
{
/// Takes the next part of a path off its front; separators are skipped.
std::string_view takePart(std::string_view& path)
{
    const auto isSeparator = [](char c) { return Platform::isPathSeparator(c); };
    const auto begin = std::find_if_not(path.begin(), path.end(), isSeparator);
    const auto end = std::find_if(begin, path.end(), isSeparator);
    const std::string_view part = path.substr(size_t(begin - path.begin()), size_t(end - begin));
    path.remove_prefix(size_t(end - path.begin()));
    return part;
}

/// Appends the parts of a path to a full path that has no trailing separator.
void appendParts(BasicString& full, std::string_view path)
{
    for (std::string_view part = takePart(path); !part.empty(); part = takePart(path))
    {
        if (part == ".")
            continue;
        if (part == "..")
        {
            full.erase(std::min(full.rfind('/'), full.size()));
            continue;
        }
        full += '/';
        full.append(part.data(), part.size());
    }
}
} // namespace

void splitPath(std::string_view path, std::string_view& directory, std::string_view& fileName)
{
    size_t end = path.size();
    while (end > 0 && !Platform::isPathSeparator(path[end - 1]))
        --end;
    directory = path.substr(0, end);
    fileName = path.substr(end);
}

void splitFileName(std::string_view fileName, std::string_view& name, std::string_view& extension)
{
    const size_t dot = std::min(fileName.rfind('.'), fileName.size());
    name = fileName.substr(0, dot);
    extension = fileName.substr(dot);
}

BasicString makeFullPath(const BasicString& path)
{
    BasicString full(path.get_allocator());
    if (path.find('\0') != BasicString::npos)
        return full;
    if (path.empty() || !Platform::isPathSeparator(path.front()))
    {
        char current[FileSystem::MAX_CURRENT_DIRECTORY];
        if (!Platform::getCurrentDirectory(current, sizeof(current)))
            return full;
        appendParts(full, current);
    }
    appendParts(full, path);
    if (full.empty() || (!path.empty() && Platform::isPathSeparator(path.back())))
        full += '/';
    return full;
}
} // namespace KORV::Common::IO
