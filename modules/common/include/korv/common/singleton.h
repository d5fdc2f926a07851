#pragma once

#include "korv/common/debug/assert.h"
#include "korv/common/memory/memorymanaged.h"

namespace KORV::Common
{
/// One instance of T for the process. T says by SINGLETON_NAME what its reports call createInstance.
/// Not synchronised: instances come and go with the library's initialisation.
template <class T>
class Singleton : public Memory::MemoryManaged
{
public:
    /// Stores the instance and owns it from here; a second one is reported and not taken.
    static void createInstance(T* instance)
    {
        if (KORV_COMMON_ASSERT(T::SINGLETON_NAME, sInstance == nullptr, "",
                               "there is already an instance of this singleton object"))
            sInstance = instance;
    }
    /// Deletes the instance, if there is one.
    static void destroyInstance()
    {
        T* instance = sInstance;
        sInstance = nullptr;
        delete instance;
    }
    /// @return the instance, or null when there is none.
    static T* getInstance() { return sInstance; }

private:
    static inline T* sInstance = nullptr;
};
} // namespace KORV::Common
