#pragma once

#include "korv/common/api.h"
#include "korv/common/types.h"

namespace KORV::Common::Callback
{
/// The host's memory. Every allocation of the library goes through it; calls never overlap.
class KORV_COMMON_API MemoryCallback
{
public:
    virtual ~MemoryCallback();
    /// @return a block of at least @p size bytes, aligned to 4 bytes or more, or null when there is none.
    virtual void* allocate(uint32 size) = 0;
    /// Takes back a block that allocate has returned.
    virtual void free(void* block) = 0;
};
} // namespace KORV::Common::Callback
