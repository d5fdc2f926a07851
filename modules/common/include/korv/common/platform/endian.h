#pragma once

#include "korv/common/types.h"

#include <bit>
#include <cstddef>
#include <type_traits>

namespace KORV::Common::Platform::Endian
{
/// Byte order of numbers in a file.
enum Endiness : uint32
{
    ENDIAN_BIG = 0,
    ENDIAN_LITTLE = 1,
    ENDIAN_UNKNOWN = 2 ///< for reading, where the file tells
};

/// The byte order of the running system.
constexpr Endiness getSystemEncoding()
{
    return std::endian::native == std::endian::little ? ENDIAN_LITTLE : ENDIAN_BIG;
}

/// The bytes of an unsigned integer in reverse order.
template <class Unsigned>
constexpr Unsigned swapBytes(Unsigned value)
{
    static_assert(std::is_unsigned_v<Unsigned>);
    Unsigned result = value;
    for (size_t i = 1; i < sizeof(Unsigned); ++i) // compilers make one instruction of it
    {
        value = static_cast<Unsigned>(value >> 8);
        result = static_cast<Unsigned>((result << 8) | (value & 0xFF));
    }
    return result;
}
} // namespace KORV::Common::Platform::Endian
