#pragma once

#include "korv/common/container/basicstring.h"
#include "korv/common/memory/memorymanaged.h"

namespace KORV::Common::IO
{
/// Where the offset of a seek counts from.
enum SeekOrigin : uint32
{
    SORIGIN_CURRENT = 1,
    SORIGIN_END = 2,
    SORIGIN_START = 3
};

/// What a file is opened for.
enum AccessMode : uint32
{
    FACCESS_READ = 1,
    FACCESS_READWRITE = 2,
    FACCESS_WRITE = 3
};

/// A sequence of bytes, such as a file. Held by SharedPtr or by raw pointer. A failure is an exception of the
/// operation's own, thrown as a pointer. One thread at a time.
class KORV_COMMON_API Stream : public Memory::MemoryManaged
{
public:
    /// File streams close themselves.
    ~Stream() override;

    virtual bool canRead() const = 0;
    virtual bool canWrite() const = 0;
    virtual bool canSeek() const = 0;
    virtual bool isClosed() const = 0;
    /// Size of the whole stream. [bytes]
    virtual uint64 getLength() const = 0;
    /// Where the next read or write takes place, counted from the start. [bytes]
    virtual uint64 getPosition() const = 0;
    virtual const BasicString& getFileName() const = 0;
    /// @return the bytes read; fewer than @p count only where the stream ends.
    virtual uint64 read(void* buffer, uint64 count) = 0;
    /// Writes all of @p count bytes, or fails.
    virtual void write(const void* buffer, uint64 count) = 0;
    /// @param origin  a SeekOrigin.
    /// @return the new position.
    virtual uint64 seek(int64 offset, uint32 origin) = 0;
    /// Makes what was written last.
    virtual void flush() = 0;
    /// Ends the use of the stream; closing a closed stream does nothing.
    virtual void close() = 0;
};
} // namespace KORV::Common::IO

namespace KORV::Common
{
using IO::Stream;
}
