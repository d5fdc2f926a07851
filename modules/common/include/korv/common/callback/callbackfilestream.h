#pragma once

#include "korv/common/callback/fileiocallback.h"
#include "korv/common/io/stream.h"
#include "korv/common/sharedptr.h"

namespace KORV::Common::Callback
{
/// A file of the host. Closed after construction.
class KORV_COMMON_API CallbackFileStream : public IO::Stream
{
public:
    explicit CallbackFileStream(const SharedPtr<FileIOCallback>& fileIO);
    ~CallbackFileStream() override;

    /// True while open, whatever the access mode: the host's answer to a read decides.
    bool canRead() const override;
    bool canWrite() const override;
    bool canSeek() const override;
    bool isClosed() const override;
    uint64 getLength() const override;
    uint64 getPosition() const override;
    /// The path that the file was opened by.
    const BasicString& getFileName() const override;
    uint64 read(void* buffer, uint64 count) override;
    /// Throws OutOfSpaceException when the disk is full; another shortfall is reported.
    void write(const void* buffer, uint64 count) override;
    /// @param origin  an IO::SeekOrigin, passed on as it is.
    uint64 seek(int64 offset, uint32 origin) override;
    /// Does nothing: the host's files have no such operation.
    void flush() override;
    void close() override;

    /// Opens a file; an open one is closed first. Throws FileNotFoundException, UnAuthorizedAccessException or
    /// IOException.
    /// @param access  an IO::AccessMode.
    virtual void openFile(const BasicString& path, uint32 access);

private:
    SharedPtr<FileIOCallback> mFileIO;
    BasicString mFileName;
    uint32 mAccess = 0;
    uint32 mHandle = 0;
};
} // namespace KORV::Common::Callback
