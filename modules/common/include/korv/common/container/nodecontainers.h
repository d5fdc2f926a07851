#pragma once

#include "korv/common/memory/stlallocator.h"

#include <deque>
#include <list>
#include <map>
#include <set>

namespace KORV::Common::Container
{
// The standard's node containers on a library allocator.

template <class T>
using List = std::list<T, Memory::STLAllocator<T>>;

template <class T>
using Deque = std::deque<T, Memory::STLAllocator<T>>;

template <class Key, class Value, class Less = std::less<Key>>
using Map = std::map<Key, Value, Less, Memory::STLAllocator<std::pair<const Key, Value>>>;

template <class Key, class Less = std::less<Key>>
using Set = std::set<Key, Less, Memory::STLAllocator<Key>>;
} // namespace KORV::Common::Container
