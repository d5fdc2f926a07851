#pragma once

#include "korv/common/container/vector.h"

#include <utility>

namespace KORV::Common::Container
{
/// Hands out ids in the order of appending, FIRST onwards, and finds elements by id.
template <class T, class ID, ID FIRST>
class IDVector
{
public:
    explicit IDVector(Memory::Allocator* allocator) : mElements(allocator) {}

    /// @return the id of the new element.
    ID append(T element)
    {
        mElements.push_back(std::move(element));
        return static_cast<ID>(FIRST + (mElements.size() - 1));
    }
    void reserve(size_t count) { mElements.reserve(count); }
    void clear() { mElements.clear(); }

    size_t size() const { return mElements.size(); }
    bool isValid(ID id) const { return id >= FIRST && static_cast<size_t>(id - FIRST) < mElements.size(); }
    /// @param id  must be valid.
    const T& operator[](ID id) const { return mElements[static_cast<size_t>(id - FIRST)]; }

    // In order of their ids.
    auto begin() const { return mElements.begin(); }
    auto end() const { return mElements.end(); }

private:
    Vector<T> mElements;
};
} // namespace KORV::Common::Container
