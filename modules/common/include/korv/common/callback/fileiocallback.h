#pragma once

#include "korv/common/api.h"
#include "korv/common/container/basicstring.h"
#include "korv/common/types.h"

namespace KORV::Common::Callback
{
/// The host's files. A file is known by a 32-bit handle that the host chooses. The library calls it on the thread that
/// uses a stream. Implementations must not throw.
class KORV_COMMON_API FileIOCallback
{
public:
    virtual ~FileIOCallback();

    /// @return whether the handle denotes an open file.
    virtual bool isValidHandle(uint32 handle) = 0;
    /// @return the handle that denotes no file.
    virtual uint32 getInvalidHandle() = 0;
    /// @param handle  receives the file's handle.
    /// @param access  1: read, 2: read and write, 3: write (a missing file is created, an existing one emptied).
    /// @return 0 or more on success; -1: file or path not found; -2: a directory, or a read-only file to be written;
    /// any other negative value: another failure.
    virtual int32 openFile(uint32& handle, const BasicString& path, uint32 access) = 0;
    virtual void closeFile(uint32 handle) = 0;
    /// Size of the file. [bytes]
    virtual uint64 getFileLength(uint32 handle) = 0;
    /// @param count  at most 2^30; larger reads come in pieces.
    /// @return the bytes read, fewer than asked for only at the end of the file; negative for a failure.
    virtual int32 readFile(void* buffer, uint32 count, uint32 handle) = 0;
    /// @param count  at most 2^30; larger writes come in pieces.
    /// @return the bytes written; -5 when the disk is full.
    virtual int32 writeFile(const void* buffer, uint32 count, uint32 handle) = 0;
    /// Where the next read or write takes place. [bytes from the start]
    virtual uint64 tellFile(uint32 handle) = 0;
    /// @param origin  1: the offset counts from the current position, 2: from the end, 3: from the start.
    /// @return the new position; -4 when it would leave the file.
    virtual int64 seekFile(int64 offset, uint32 origin, uint32 handle) = 0;
    /// @return the full path of a name; it is used in reports only.
    virtual BasicString getFullPath(const BasicString& path) = 0;
};
} // namespace KORV::Common::Callback
