#include "korv/common/platform/file.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace KORV::Common::Platform
{
namespace
{
// Systems cut single transfers near 2 GB; pieces of 1 GB are below every such limit.
constexpr uint64 LARGEST_PIECE = uint64(1) << 30;
constexpr mode_t FILE_PERMISSIONS = 0666; // less what the user's mask takes away
constexpr mode_t DIRECTORY_PERMISSIONS = 0777;

FileError toFileError(int code)
{
    switch (code)
    {
    case EACCES:
    case EPERM:
    case EROFS:
    case EISDIR:
    case ETXTBSY:
    case EBUSY:
        return FileError::ACCESS_DENIED;
    case EEXIST:
        return FileError::EXISTS;
    case ENOENT:
    case ENOTDIR:
    case ENAMETOOLONG:
    case ELOOP:
        return FileError::NOT_FOUND;
    case ENOTEMPTY:
        return FileError::NOT_EMPTY;
    case EMFILE:
    case ENFILE:
        return FileError::TOO_MANY_OPEN;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
        return FileError::NO_SPACE;
    case EINVAL:
        return FileError::BAD_FLAGS;
    default:
        return FileError::OTHER;
    }
}

int toFlags(uint32 access, uint32 mode)
{
    constexpr int ACCESS_FLAGS[] = {O_RDONLY, O_RDWR, O_WRONLY};
    constexpr int MODE_FLAGS[] = {0, O_APPEND, O_CREAT | O_TRUNC, O_CREAT | O_EXCL, O_CREAT};
    return ACCESS_FLAGS[access - 1] | MODE_FLAGS[mode - 1] | O_CLOEXEC;
}

bool isDirectory(int descriptor)
{
    struct stat status;
    return ::fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode);
}

template <class Call>
auto retryInterrupted(Call&& call)
{
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}
} // namespace

int openFile(const char* path, uint32 access, uint32 mode, FileError& error)
{
    error = FileError::NONE;
    const int flags = toFlags(access, mode);
    const int descriptor = retryInterrupted([&] { return ::open(path, flags, FILE_PERMISSIONS); });
    if (descriptor < 0)
    {
        error = toFileError(errno);
        return INVALID_DESCRIPTOR;
    }
    if (isDirectory(descriptor))
    {
        ::close(descriptor);
        error = FileError::ACCESS_DENIED;
        return INVALID_DESCRIPTOR;
    }
    return descriptor;
}

void closeFile(int descriptor)
{
    ::close(descriptor); // not repeated when interrupted: the descriptor is free by then
}

uint64 getFileLength(int descriptor)
{
    struct stat status;
    return ::fstat(descriptor, &status) == 0 ? static_cast<uint64>(std::max<off_t>(status.st_size, 0)) : 0;
}

int64 readFile(int descriptor, void* buffer, uint64 count)
{
    uint64 done = 0;
    while (done < count)
    {
        char* const target = static_cast<char*>(buffer) + done;
        const size_t piece = static_cast<size_t>(std::min(count - done, LARGEST_PIECE));
        const ssize_t result = retryInterrupted([&] { return ::read(descriptor, target, piece); });
        if (result < 0 && done == 0)
            return -1;
        if (result <= 0)
            break;
        done += static_cast<uint64>(result);
    }
    return static_cast<int64>(done);
}

uint64 writeFile(int descriptor, const void* buffer, uint64 count, FileError& error)
{
    error = FileError::NONE;
    uint64 done = 0;
    while (done < count)
    {
        const char* const source = static_cast<const char*>(buffer) + done;
        const size_t piece = static_cast<size_t>(std::min(count - done, LARGEST_PIECE));
        const ssize_t result = retryInterrupted([&] { return ::write(descriptor, source, piece); });
        if (result <= 0)
        {
            error = result < 0 ? toFileError(errno) : FileError::OTHER;
            break;
        }
        done += static_cast<uint64>(result);
    }
    return done;
}

int64 seekFile(int descriptor, int64 offset, uint32 origin)
{
    constexpr int ORIGINS[] = {SEEK_CUR, SEEK_END, SEEK_SET};
    return ::lseek(descriptor, offset, ORIGINS[origin - 1]);
}

bool flushFile(int descriptor)
{
    return retryInterrupted([&] { return ::fsync(descriptor); }) == 0;
}

bool isReadableFile(const char* path)
{
    FileError error;
    const int descriptor = openFile(path, 1, 1, error);
    if (descriptor < 0)
        return false;
    closeFile(descriptor);
    return true;
}

int deleteFile(const char* path)
{
    return ::unlink(path);
}

bool createTemporaryFile(char (&name)[18])
{
    constexpr char PATTERN[sizeof(name)] = "/tmp/korv-XXXXXX";
    std::memcpy(name, PATTERN, sizeof(name));
    const int descriptor = ::mkstemp(name);
    if (descriptor < 0)
        return false;
    closeFile(descriptor);
    return true;
}

bool isPathSeparator(char character)
{
    return character == '/';
}

bool setCurrentDirectory(const char* path)
{
    return ::chdir(path) == 0;
}

bool getCurrentDirectory(char* buffer, size_t size)
{
    return ::getcwd(buffer, size) != nullptr;
}

FileError createDirectory(const char* path)
{
    return ::mkdir(path, DIRECTORY_PERMISSIONS) == 0 ? FileError::NONE : toFileError(errno);
}

FileError deleteDirectory(const char* path)
{
    if (::rmdir(path) == 0)
        return FileError::NONE;
    return errno == EEXIST ? FileError::NOT_EMPTY : toFileError(errno); // some systems say EEXIST
}
} // namespace KORV::Common::Platform
