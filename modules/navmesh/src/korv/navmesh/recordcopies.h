#pragma once

#include "korv/navmesh/characterinfo.h"
#include "korv/navmesh/surfacetype.h"
#include "korv/navmesh/types.h"

namespace KORV::NavMesh
{
// A plain copy of a string keeps the allocator of the original, which may not outlive the copy's owner.

/// A copy whose name lives on the given allocator.
template <class Record>
Record copyRecord(const Record& record, Common::Memory::Allocator* allocator)
{
    Record copy(record);
    copy.mName = BasicString(record.mName, allocator);
    return copy;
}

/// The same for all records of a list.
template <class Record>
Vector<Record> copyRecords(const Vector<Record>& records, Common::Memory::Allocator* allocator)
{
    Vector<Record> copies(allocator);
    copies.reserve(records.size());
    for (const Record& record : records)
        copies.push_back(copyRecord(record, allocator));
    return copies;
}
} // namespace KORV::NavMesh
