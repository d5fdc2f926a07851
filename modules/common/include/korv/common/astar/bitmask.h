#pragma once

#include "korv/common/types.h"

namespace KORV::Common::Utility
{
/// The lowest @p BITS bits, 1 to 32.
template <uint32 BITS>
struct BitMask
{
    static_assert(BITS >= 1 && BITS <= 32);

    static constexpr uint32 MASK = 0xFFFFFFFFu >> (32 - BITS);
};
} // namespace KORV::Common::Utility
