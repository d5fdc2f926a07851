#pragma once

#include "korv/common/memory/stlallocator.h"

#include <string>

namespace KORV::Common
{
namespace Container
{
/// Character string on a library allocator.
template <class CharT>
using BasicString = std::basic_string<CharT, std::char_traits<CharT>, Memory::STLAllocator<CharT>>;
} // namespace Container

/// The library's 8-bit string.
using BasicString = Container::BasicString<char>;
/// Wide strings are 16-bit units.
using WideString = Container::BasicString<char16_t>;
} // namespace KORV::Common
