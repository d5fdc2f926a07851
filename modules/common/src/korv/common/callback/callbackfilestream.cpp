#include "korv/common/callback/callbackfilestream.h"

#include "korv/common/debug/assert.h"
#include "korv/common/exceptions/exception.h"
#include "korv/common/io/ioexception.h"

#include <algorithm>

namespace KORV::Common::Callback
{
using namespace Exceptions;
using IO::FileNotFoundException;
using IO::IOException;
using IO::OutOfSpaceException;

namespace
{
constexpr const char* CONSTRUCTOR = "KORV::Common::Callback::CallbackFileStream::CallbackFileStream";
constexpr const char* WRITE_FUNCTION = "KORV::Common::Callback::CallbackFileStream::write";
constexpr const char* SEEK_FUNCTION = "KORV::Common::Callback::CallbackFileStream::seek";

// The host counts in 32 bits and answers with a sign.
constexpr uint64 LARGEST_PIECE = uint64(1) << 30;

// Results of the host's operations.
constexpr int32 RESULT_NOT_FOUND = -1;
constexpr int32 RESULT_NO_ACCESS = -2;
constexpr int64 RESULT_OUT_OF_RANGE = -4;
constexpr int32 RESULT_DISK_FULL = -5;
} // namespace

CallbackFileStream::CallbackFileStream(const SharedPtr<FileIOCallback>& fileIO)
    : mFileIO(fileIO), mFileName(getMemory())
{
    if (KORV_COMMON_ASSERT(CONSTRUCTOR, mFileIO != nullptr, "mFileIO != NULL",
                           "File callback cannot be a NULL pointer"))
        mHandle = mFileIO->getInvalidHandle();
}

CallbackFileStream::~CallbackFileStream()
{
    CallbackFileStream::close();
}

bool CallbackFileStream::canRead() const
{
    return !isClosed() && mAccess >= IO::FACCESS_READ && mAccess <= IO::FACCESS_WRITE;
}

bool CallbackFileStream::canWrite() const
{
    return !isClosed() && (mAccess == IO::FACCESS_READWRITE || mAccess == IO::FACCESS_WRITE);
}

bool CallbackFileStream::canSeek() const
{
    return !isClosed();
}

bool CallbackFileStream::isClosed() const
{
    return mFileIO == nullptr || !mFileIO->isValidHandle(mHandle);
}

uint64 CallbackFileStream::getLength() const
{
    if (isClosed())
        throw new InvalidStateException("CallbackFileStream: Try to get length of closed stream");
    return mFileIO->getFileLength(mHandle);
}

uint64 CallbackFileStream::getPosition() const
{
    if (isClosed())
        throw new InvalidStateException("CallbackFileStream: Try to get position of closed stream.");
    return mFileIO->tellFile(mHandle);
}

const BasicString& CallbackFileStream::getFileName() const
{
    if (isClosed())
        throw new InvalidStateException("CallbackFileStream: Try to get filename from a closed stream");
    return mFileName;
}

uint64 CallbackFileStream::read(void* buffer, uint64 count)
{
    if (isClosed())
        throw new InvalidStateException("CallbackFileStream: Cannot read on closed streams.");
    if (!canRead())
        throw new NotSupportedException("CallbackFileStream: Cannot read from the file. Not opened for reading.");
    if (buffer == nullptr)
        throw new ArgumentNullException("dstBuffer",
                                        "CallbackFileStream: The destination buffer in a read cannot be NULL.");
    uint64 done = 0;
    while (done < count)
    {
        const uint32 piece = static_cast<uint32>(std::min(count - done, LARGEST_PIECE));
        const int32 result = mFileIO->readFile(static_cast<char*>(buffer) + done, piece, mHandle);
        if (result <= 0)
            break;
        done += std::min(static_cast<uint32>(result), piece);
    }
    return done;
}

void CallbackFileStream::write(const void* buffer, uint64 count)
{
    if (isClosed())
        throw new InvalidStateException("CallbackFileStream: Cannot write on closed streams.");
    if (!canWrite())
        throw new NotSupportedException("CallbackFileStream: Cannot write to the file. Not opened for writing.");
    if (buffer == nullptr)
        throw new ArgumentNullException("srcBuffer",
                                        "CallbackFileStream: The source buffer in a write cannot be NULL.");
    for (uint64 done = 0; done < count;)
    {
        const uint32 piece = static_cast<uint32>(std::min(count - done, LARGEST_PIECE));
        const int32 result = mFileIO->writeFile(static_cast<const char*>(buffer) + done, piece, mHandle);
        if (result == RESULT_DISK_FULL)
            throw new OutOfSpaceException("CallbackFileStream: Cannot write to file, disk full.");
        if (!KORV_COMMON_ASSERT(WRITE_FUNCTION, result >= 0 && static_cast<uint32>(result) >= piece, "",
                                "Internal error: Unhandeled error condition during write."))
            return;
        done += piece;
    }
}

uint64 CallbackFileStream::seek(int64 offset, uint32 origin)
{
    if (isClosed())
        throw new InvalidStateException("CallbackFileStream: Cannot seek on closed streams.");
    if (!canSeek())
        throw new NotSupportedException("CallbackFileStream: Cannot seek on the file. No random access to the file.");
    const int64 position = mFileIO->seekFile(offset, origin, mHandle);
    if (position == RESULT_OUT_OF_RANGE)
        throw new ArgumentOutOfRangeException("offset", "FileStream: Offset seeks out of file range.");
    if (!KORV_COMMON_ASSERT(SEEK_FUNCTION, position >= 0, "", "Unhandled error condition from seekFile callback."))
        return 0;
    return static_cast<uint64>(position);
}

void CallbackFileStream::flush() {}

void CallbackFileStream::close()
{
    if (CallbackFileStream::isClosed()) // whatever a class above says: the handle is ours
        return;
    mFileIO->closeFile(mHandle);
    mHandle = mFileIO->getInvalidHandle();
    mFileName.clear();
    mAccess = 0;
}

void CallbackFileStream::openFile(const BasicString& path, uint32 access)
{
    const BasicString fileName(path, getMemory()); // the caller may hand in our own name, which close empties
    close();
    if (mFileIO == nullptr)
        throw new IOException("CallbackFileStream: Unknown file open error");
    uint32 handle = mFileIO->getInvalidHandle();
    const int32 result = mFileIO->openFile(handle, fileName, access);
    if (result == RESULT_NO_ACCESS)
        throw new UnAuthorizedAccessException("CallbackFileStream: Given path is a directory, or file is read-only, "
                                              "but an open-for-writing operation was attempted");
    if (result == RESULT_NOT_FOUND)
        throw new FileNotFoundException(fileName, mFileIO->getFullPath(fileName),
                                        "CallbackFileStream: File or path not found");
    if (result < 0)
        throw new IOException("CallbackFileStream: Unknown file open error");
    mHandle = handle;
    mAccess = access;
    mFileName = fileName;
}
} // namespace KORV::Common::Callback
