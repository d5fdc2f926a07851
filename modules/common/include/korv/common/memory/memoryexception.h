#pragma once

#include "korv/common/exceptions/exception.h"

namespace KORV::Common::Memory
{
class KORV_COMMON_API MemoryException : public Exceptions::Exception
{
public:
    using Exception::Exception;
    BasicString getName() const override;
};

/// Memory has run out. The object and its text come from a reserve that is set aside when the library is initialised.
class KORV_COMMON_API OutOfMemoryException : public MemoryException
{
public:
    explicit OutOfMemoryException(const char* message);
    BasicString getName() const override;

    static void* operator new(size_t size);
    static void operator delete(void* object);
};
} // namespace KORV::Common::Memory
