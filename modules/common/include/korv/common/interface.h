#pragma once

#include "korv/common/api.h"
#include "korv/common/callback/memorycallback.h"
#include "korv/common/memory/allocator.h"

namespace KORV::Common
{
namespace Debug
{
class LogReporter;
}

/// Start and stop of the foundation layer. Not synchronised: one thread, with no other library activity.
class KORV_COMMON_API Interface
{
public:
    /// @param cbMemory  the host's memory; null for the C heap. A second initialisation is reported and changes
    /// nothing.
    static void initLibrary(const SharedPtr<Callback::MemoryCallback>& cbMemory);
    static void closeLibrary();

    /// The base of all memory; null while the foundation is not initialised.
    static const Memory::AllocatorPtr& getBaseAllocator();
    /// Thread-safe allocators over the base, for objects in general, exceptions with their texts, and strings; null
    /// while the foundation is not initialised.
    static const Memory::AllocatorPtr& getSharedAllocator();
    static const Memory::AllocatorPtr& getExceptionAllocator();
    static const Memory::AllocatorPtr& getStringAllocator();

    /// The reporter named "Common", or null while the foundation is not initialised.
    static Debug::LogReporter* getLogReporter();
};
} // namespace KORV::Common
