#pragma once

#include "korv/common/memory/allocator.h"

namespace KORV::NavMesh
{
/// The thread-safe allocator on which this module creates its objects; null while the library is not initialised.
const Common::Memory::AllocatorPtr& getModuleAllocator();
} // namespace KORV::NavMesh
