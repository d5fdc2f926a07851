#include "korv/common/io/filesystem.h"

#include "korv/common/debug/assert.h"
#include "korv/common/exceptions/exception.h"
#include "korv/common/io/filepath.h"
#include "korv/common/io/ioexception.h"
#include "korv/common/platform/file.h"

namespace KORV::Common::IO
{
using namespace Exceptions;

FileSystem::FileSystem() : mTemporaryNames(getMemory()) {}

FileSystem::~FileSystem() = default;

bool FileSystem::isAvailable() const
{
    return true;
}

SharedPtr<Stream> FileSystem::openStream(const BasicString& path, uint32 access, uint32 mode)
{
    FileStream* const file = new (getAllocator()) FileStream;
    SharedPtr<Stream> stream(file);
    file->openFile(path, access, mode);
    return stream;
}

SharedPtr<Stream> FileSystem::openForReading(const BasicString& path)
{
    return openStream(path, FACCESS_READ, FMODE_OPEN);
}

SharedPtr<Stream> FileSystem::createFile(const BasicString& path)
{
    return openStream(path, FACCESS_READWRITE, FMODE_CREATENEW);
}

SharedPtr<Stream> FileSystem::createTemporaryFile()
{
    char name[18];
    if (!Platform::createTemporaryFile(name))
        throw new IOException("FileSystem: Cannot create a temporary file");
    mTemporaryNames.emplace_back(name, getMemory());
    return openStream(mTemporaryNames.back(), FACCESS_READWRITE, FMODE_CREATE);
}

SharedPtr<Stream> FileSystem::openForAppending(const BasicString& path)
{
    return openStream(path, FACCESS_READWRITE, FMODE_APPEND);
}

bool FileSystem::existsFile(const BasicString& path) const
{
    return Platform::isReadableFile(path.c_str());
}

int32 FileSystem::deleteFile(const BasicString& path)
{
    return Platform::deleteFile(path.c_str());
}

BasicString FileSystem::getFileName(const BasicString& path) const
{
    std::string_view directory, fileName;
    splitPath(path, directory, fileName);
    return BasicString(fileName, getMemory());
}

BasicString FileSystem::getFileNameWithoutExtension(const BasicString& path) const
{
    std::string_view directory, fileName, name, extension;
    splitPath(path, directory, fileName);
    splitFileName(fileName, name, extension);
    return BasicString(name, getMemory());
}

BasicString FileSystem::getExtension(const BasicString& path) const
{
    std::string_view directory, fileName, name, extension;
    splitPath(path, directory, fileName);
    splitFileName(fileName, name, extension);
    if (!extension.empty())
        extension.remove_prefix(1);
    return BasicString(extension, getMemory());
}

BasicString FileSystem::getFullPath(const BasicString& path) const
{
    BasicString full(makeFullPath(path), getMemory());
    if (!full.empty() && full.size() < MAX_FULL_PATH)
        return full;
    BasicString message("FileSystem: Cannot build full path for an invalid path argument '");
    message += path;
    message += "'";
    throw new ArgumentException("path", message);
}

BasicString FileSystem::getDirectory(const BasicString& path) const
{
    std::string_view directory, fileName;
    splitPath(path, directory, fileName);
    return BasicString(directory, getMemory());
}

void FileSystem::setCurrentDirectory(const BasicString& dirName)
{
    if (!dirName.empty() && !Platform::setCurrentDirectory(dirName.c_str()))
        throw new DirectoryNotFoundException(
            dirName, "FileSystem: Cannot set current working directory to invalid directory name");
}

BasicString FileSystem::getCurrentDirectory() const
{
    char name[MAX_CURRENT_DIRECTORY];
    if (!Platform::getCurrentDirectory(name, sizeof(name)))
        throw new IOException("FileSystem: Cannot get current working directory - internal error ?");
    return BasicString(name, getMemory());
}

void FileSystem::createDirectory(const BasicString& dirName)
{
    switch (Platform::createDirectory(dirName.c_str()))
    {
    case Platform::FileError::NONE:
        return;
    case Platform::FileError::EXISTS:
        throw new DirectoryExistsException(dirName, "FileSystem: Cannot create the directory, it already exists");
    case Platform::FileError::NOT_FOUND:
        throw new ArgumentException("dirName", "FileSystem: Directory name is malformed");
    default:
        KORV_COMMON_FAIL("KORV::Common::IO::FileSystem::createDirectory", "Unkown error code");
    }
}

void FileSystem::deleteDirectory(const BasicString& dirName)
{
    switch (Platform::deleteDirectory(dirName.c_str()))
    {
    case Platform::FileError::NONE:
        return;
    case Platform::FileError::NOT_EMPTY:
        throw new DirectoryNotEmptyException(dirName,
                                             "FileSystem: Directory cannot be deleted because it is not empty");
    case Platform::FileError::ACCESS_DENIED:
        throw new UnAuthorizedAccessException(
            "FileSystem: Cannot delete directory because there is an opened file in the directory");
    case Platform::FileError::NOT_FOUND:
        throw new ArgumentException("dirName", "FileSystem: Directory name is malformed");
    default:
        KORV_COMMON_FAIL("KORV::Common::IO::FileSystem::deleteDirectory", "Unkown error code");
    }
}

bool FileSystem::existsDirectory(const BasicString&) const
{
    KORV_COMMON_FAIL("KORV::Common::IO::FileSystem::existsDirectory", "not implemented");
    return false;
}
} // namespace KORV::Common::IO
