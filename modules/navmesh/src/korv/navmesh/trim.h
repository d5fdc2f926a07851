#pragma once

#include "korv/navmesh/types.h"

namespace KORV::NavMesh
{
/// Gives back the room that a list does not use. (shrink_to_fit would swallow, and so lose, the exception of a full
/// memory.) Throws OutOfMemoryException, and has changed nothing then.
template <class T>
void trim(Vector<T>& list)
{
    Vector<T>(list, list.get_allocator()).swap(list);
}
} // namespace KORV::NavMesh
