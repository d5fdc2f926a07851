#pragma once

#include "korv/common/memory/stlallocator.h"

#include <vector>

namespace KORV::Common
{
namespace Container
{
/// Dynamic array on a library allocator. A default-constructed one allocates nothing.
template <class T>
using Vector = std::vector<T, Memory::STLAllocator<T>>;
} // namespace Container

using Container::Vector;
} // namespace KORV::Common
