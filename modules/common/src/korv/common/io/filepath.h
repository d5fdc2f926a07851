#pragma once

#include "korv/common/container/basicstring.h"

#include <string_view>

namespace KORV::Common::IO
{
// Lexical work on paths.

/// Splits after the last separator; the separator stays with the directory.
void splitPath(std::string_view path, std::string_view& directory, std::string_view& fileName);
/// Splits at the last dot of a file name; the dot stays with the extension.
void splitFileName(std::string_view fileName, std::string_view& name, std::string_view& extension);
/// The path from the root, without ".", ".." and doubled separators; a trailing separator stays.
/// @return an empty string when the path holds a zero byte or the current directory has no name.
BasicString makeFullPath(const BasicString& path);
} // namespace KORV::Common::IO
