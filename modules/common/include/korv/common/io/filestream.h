#pragma once

#include "korv/common/io/stream.h"

namespace KORV::Common::IO
{
/// What opening does with a file that exists, or does not.
enum FileOpenMode : uint32
{
    FMODE_OPEN = 1,      ///< the file must exist
    FMODE_APPEND = 2,    ///< the file must exist; every write goes to its end
    FMODE_CREATE = 3,    ///< create the file, or empty it
    FMODE_CREATENEW = 4, ///< create the file; it must not exist
    FMODE_OPENCREATE = 5 ///< open the file, or create it
};

/// A file of the operating system, in binary. Closed after construction. Directories are refused.
class KORV_COMMON_API FileStream : public Stream
{
public:
    FileStream();
    ~FileStream() override;

    bool canRead() const override;
    bool canWrite() const override;
    bool canSeek() const override;
    bool isClosed() const override;
    uint64 getLength() const override;
    uint64 getPosition() const override;
    const BasicString& getFileName() const override;
    uint64 read(void* buffer, uint64 count) override;
    void write(const void* buffer, uint64 count) override;
    uint64 seek(int64 offset, uint32 origin) override;
    /// Commits the file to disk.
    void flush() override;
    void close() override;

    /// Opens a file; an open one is closed first.
    /// Throws FileNotFoundException, FileExistException, UnAuthorizedAccessException (also for a directory),
    /// IOException, or ArgumentOutOfRangeException for a mode that does not exist.
    /// @param fAccess  an AccessMode.
    /// @param fMode  a FileOpenMode.
    virtual void openFile(const BasicString& path, uint32 fAccess, uint32 fMode);

private:
    BasicString mFileName;
    uint32 mAccess = 0;
    uint32 mMode = 0;
    int mDescriptor = -1;
};
} // namespace KORV::Common::IO
