#pragma once

#include "korv/common/memory/allocator.h"

namespace KORV::Common::Memory
{
/// Sets memory aside for OutOfMemoryException, and lets go of it. What exceptions still use stays until they are
/// deleted.
void openReserve(const AllocatorPtr& base);
void closeReserve();
} // namespace KORV::Common::Memory
