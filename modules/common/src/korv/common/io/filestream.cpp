#include "korv/common/io/filestream.h"

#include "korv/common/debug/assert.h"
#include "korv/common/exceptions/exception.h"
#include "korv/common/io/filepath.h"
#include "korv/common/io/ioexception.h"
#include "korv/common/platform/file.h"

namespace KORV::Common::IO
{
using namespace Exceptions;

namespace
{
constexpr const char* OPEN_FUNCTION = "KORV::Common::IO::FileStream::openFile";
constexpr const char* READ_FUNCTION = "KORV::Common::IO::FileStream::read";
constexpr const char* WRITE_FUNCTION = "KORV::Common::IO::FileStream::write";

void checkModes(uint32 fAccess, uint32 fMode)
{
    if (fAccess < FACCESS_READ || fAccess > FACCESS_WRITE)
        throw new ArgumentOutOfRangeException("fAccess", "FileStream: Unknown access mode");
    if (fMode < FMODE_OPEN || fMode > FMODE_OPENCREATE)
        throw new ArgumentOutOfRangeException("fMode", "FileStream: Unknown file open mode");
}

/// Throws for the failures that the world causes; the others are reported.
void failOpen(Platform::FileError error, const BasicString& path)
{
    switch (error)
    {
    case Platform::FileError::ACCESS_DENIED:
        throw new UnAuthorizedAccessException("FileStream: Given path is a directory, or file is read-only, but an "
                                              "open-for-writing operation was attempted");
    case Platform::FileError::EXISTS:
        throw new FileExistException(
            path, makeFullPath(path),
            "FileStream: File has been opened with FMODE_CREATENEW but the file exists already");
    case Platform::FileError::NOT_FOUND:
        throw new FileNotFoundException(path, makeFullPath(path), "FileStream: File or path not found");
    case Platform::FileError::TOO_MANY_OPEN:
        throw new IOException("FileStream: No more file descriptors available");
    case Platform::FileError::BAD_FLAGS:
        KORV_COMMON_FAIL(OPEN_FUNCTION, "Internal error: The combination of the flags for open() is wrong");
        return;
    default:
        KORV_COMMON_ASSERT(OPEN_FUNCTION, false, "retVal == 0", "Internal error: Unhandled error code from open()");
        return;
    }
}
} // namespace

FileStream::FileStream() : mFileName(getMemory()) {}

FileStream::~FileStream()
{
    FileStream::close();
}

bool FileStream::canRead() const
{
    return mAccess == FACCESS_READ || mAccess == FACCESS_READWRITE;
}

bool FileStream::canWrite() const
{
    return mAccess == FACCESS_READWRITE || mAccess == FACCESS_WRITE;
}

bool FileStream::canSeek() const
{
    return !isClosed();
}

bool FileStream::isClosed() const
{
    return mDescriptor < 0;
}

uint64 FileStream::getLength() const
{
    if (isClosed())
        throw new InvalidStateException("FileStream: Try to get length of closed stream");
    return Platform::getFileLength(mDescriptor);
}

uint64 FileStream::getPosition() const
{
    if (isClosed())
        throw new InvalidStateException("FileStream: Try to get position of closed stream.");
    const int64 position = Platform::seekFile(mDescriptor, 0, SORIGIN_CURRENT);
    return position > 0 ? static_cast<uint64>(position) : 0;
}

const BasicString& FileStream::getFileName() const
{
    if (isClosed())
        throw new InvalidStateException("FileStream: Try to get filename from a closed stream");
    return mFileName;
}

uint64 FileStream::read(void* buffer, uint64 count)
{
    if (isClosed())
        throw new InvalidStateException("FileStream: Cannot read on closed streams.");
    if (!canRead())
        throw new NotSupportedException("FileStream: Cannot read from the file. Not opened for reading.");
    if (buffer == nullptr)
        throw new ArgumentNullException("dstBuffer", "FileStream: The destination buffer in a read cannot be NULL.");
    const int64 readBytes = Platform::readFile(mDescriptor, buffer, count);
    if (!KORV_COMMON_ASSERT(READ_FUNCTION, readBytes >= 0, "readBytes >= 0",
                            "Internal error: read should not return negative values, since all error conditions are "
                            "checked."))
        return 0;
    return static_cast<uint64>(readBytes);
}

void FileStream::write(const void* buffer, uint64 count)
{
    if (isClosed())
        throw new InvalidStateException("FileStream: Cannot write on closed streams.");
    if (!canWrite())
        throw new NotSupportedException("FileStream: Cannot write to the file. Not opened for writing.");
    if (buffer == nullptr)
        throw new ArgumentNullException("srcBuffer", "FileStream: The source buffer in a write cannot be NULL.");
    Platform::FileError error;
    if (Platform::writeFile(mDescriptor, buffer, count, error) == count)
        return;
    if (error == Platform::FileError::NO_SPACE)
        throw new OutOfSpaceException("FileStream: Cannot write to file, disk full.");
    KORV_COMMON_FAIL(WRITE_FUNCTION, "Internal error: Unhandeled error condition during write.");
}

uint64 FileStream::seek(int64 offset, uint32 origin)
{
    if (isClosed())
        throw new InvalidStateException("FileStream: Cannot seek on closed streams.");
    if (!canSeek())
        throw new NotSupportedException("FileStream: Cannot seek on the file. No random access to the file.");
    if (origin < SORIGIN_CURRENT || origin > SORIGIN_START)
    {
        const Debug::MessageText text = Debug::MessageText()
                                        << "FileStream: Unknown origin '" << origin << "' specified.";
        throw new ArgumentOutOfRangeException("origin", text.c_str());
    }
    const int64 position = Platform::seekFile(mDescriptor, offset, origin);
    if (position < 0)
        throw new ArgumentOutOfRangeException("offset", "FileStream: Offset seeks out of file range.");
    return static_cast<uint64>(position);
}

void FileStream::flush()
{
    if (isClosed())
        throw new InvalidStateException("FileStream: Cannot flush on closed streams.");
    if (!Platform::flushFile(mDescriptor))
        throw new IOException("FileStream: Unknown error on flush");
}

void FileStream::close()
{
    if (mDescriptor >= 0)
        Platform::closeFile(mDescriptor);
    mDescriptor = Platform::INVALID_DESCRIPTOR;
    mFileName.clear();
    mAccess = 0;
    mMode = 0;
}

void FileStream::openFile(const BasicString& path, uint32 fAccess, uint32 fMode)
{
    const BasicString fileName(path, getMemory()); // the caller may hand in our own name, which close empties
    close();
    checkModes(fAccess, fMode);
    Platform::FileError error;
    mDescriptor = Platform::openFile(fileName.c_str(), fAccess, fMode, error);
    if (mDescriptor < 0)
        return failOpen(error, fileName);
    mFileName = fileName;
    mAccess = fAccess;
    mMode = fMode;
}
} // namespace KORV::Common::IO
