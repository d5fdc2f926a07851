#include "korv/common/interface.h"

#include "korv/common/callback/callbackallocator.h"
#include "korv/common/debug/logmanager.h"
#include "korv/common/debug/logreporter.h"
#include "korv/common/debug/trace.h"
#include "korv/common/debug/tracelogdispatcher.h"
#include "korv/common/memory/defaultallocator.h"
#include "korv/common/memory/outofmemory.h"
#include "korv/common/memory/threadsafeallocator.h"

namespace KORV::Common
{
namespace
{
SharedPtr<Callback::MemoryCallback> gMemCallback;
Memory::AllocatorPtr gBaseAllocator;
// One allocator, three handles: by use, not by place.
Memory::AllocatorPtr gSharedAllocator;
Memory::AllocatorPtr gExceptionAllocator;
Memory::AllocatorPtr gStringAllocator;
Debug::TraceLogDispatcher* gTraceDispatcher = nullptr;
Debug::LogReporter* gReporter = nullptr;

void createBaseAllocator(const SharedPtr<Callback::MemoryCallback>& cbMemory)
{
    if (cbMemory != nullptr)
        gBaseAllocator = new (cbMemory) Callback::CallbackAllocator;
    else
        gBaseAllocator = new Memory::DefaultAllocator;
    gMemCallback = cbMemory;
}

void createSharedAllocators()
{
    gSharedAllocator = gBaseAllocator;
    if (!gBaseAllocator->isThreadSafe())
        gSharedAllocator =
            new (gBaseAllocator) Memory::ThreadSafeAllocWrapper<Memory::FreeListAllocator>(gBaseAllocator);
    gExceptionAllocator = gSharedAllocator;
    gStringAllocator = gSharedAllocator;
}

void createLog()
{
    Debug::Trace::init(gSharedAllocator);
    Debug::LogManager::createInstance(new (gSharedAllocator) Debug::LogManager);
    Debug::LogManager* manager = Debug::LogManager::getInstance();
    gTraceDispatcher = new (gSharedAllocator) Debug::TraceLogDispatcher;
    manager->addDispatcher(gTraceDispatcher, Debug::ALL_LOG_TYPES, false);
    gReporter = manager->createReporter("Common");
}

void destroyLog()
{
    Debug::LogManager* manager = Debug::LogManager::getInstance();
    if (manager != nullptr && gReporter != nullptr)
        manager->deleteReporter(gReporter);
    gReporter = nullptr;
    Debug::LogManager::destroyInstance();
    delete gTraceDispatcher;
    gTraceDispatcher = nullptr;
    Debug::Trace::shutdown();
}
} // namespace

void Interface::initLibrary(const SharedPtr<Callback::MemoryCallback>& cbMemory)
{
    // Without a callback the base allocator is what tells; either way the first initialisation stays.
    if (!KORV_COMMON_ASSERT("KORV::Common::Interface::initLibrary",
                            gMemCallback == nullptr && gBaseAllocator == nullptr, "gMemCallback == NULL",
                            "Common is already initialized !"))
        return;
    try
    {
        createBaseAllocator(cbMemory);
        Memory::openReserve(gBaseAllocator);
        createSharedAllocators();
        createLog();
    }
    catch (...)
    {
        closeLibrary();
        throw;
    }
}

void Interface::closeLibrary()
{
    destroyLog();
    Memory::closeReserve();
    gStringAllocator.release();
    gExceptionAllocator.release();
    gSharedAllocator.release();
    gBaseAllocator.forceDestroy();
    gMemCallback.release();
}

const Memory::AllocatorPtr& Interface::getBaseAllocator()
{
    return gBaseAllocator;
}

const Memory::AllocatorPtr& Interface::getSharedAllocator()
{
    return gSharedAllocator;
}

const Memory::AllocatorPtr& Interface::getExceptionAllocator()
{
    return gExceptionAllocator;
}

const Memory::AllocatorPtr& Interface::getStringAllocator()
{
    return gStringAllocator;
}

Debug::LogReporter* Interface::getLogReporter()
{
    return gReporter;
}
} // namespace KORV::Common
