#pragma once

#include "korv/common/container/vector.h"
#include "korv/common/io/filestream.h"
#include "korv/common/sharedptr.h"

namespace KORV::Common::IO
{
/// The operating system's files, directories and paths. Path operations are lexical: they never look at the disk, apart
/// from the current directory. One thread at a time.
class KORV_COMMON_API FileSystem : public Memory::MemoryManaged
{
public:
    /// Longest full path and longest current directory, terminating zero included.
    static constexpr size_t MAX_FULL_PATH = 260;
    static constexpr size_t MAX_CURRENT_DIRECTORY = 1024;

    FileSystem();
    ~FileSystem() override;

    virtual bool isAvailable() const;

    /// Opens a file as FileStream::openFile does, with its failures.
    /// @param access  an AccessMode.
    /// @param mode  a FileOpenMode.
    virtual SharedPtr<Stream> openStream(const BasicString& path, uint32 access, uint32 mode);
    virtual SharedPtr<Stream> openForReading(const BasicString& path);
    /// Creates a file that must not exist, for reading and writing.
    virtual SharedPtr<Stream> createFile(const BasicString& path);
    /// Creates an empty file under a name of its own, for reading and writing. The caller deletes it.
    virtual SharedPtr<Stream> createTemporaryFile();
    virtual SharedPtr<Stream> openForAppending(const BasicString& path);

    /// @return whether the path denotes a file (not a directory) that can be read.
    virtual bool existsFile(const BasicString& path) const;
    /// @return 0, or -1 when the file could not be deleted.
    virtual int32 deleteFile(const BasicString& path);

    /// "a/b.txt" gives "b.txt".
    virtual BasicString getFileName(const BasicString& path) const;
    /// "a/b.txt" gives "b".
    virtual BasicString getFileNameWithoutExtension(const BasicString& path) const;
    /// "a/b.txt" gives "txt"; empty when there is none.
    virtual BasicString getExtension(const BasicString& path) const;
    /// The path from the root, without "." and "..". Links are not followed, the file need not exist.
    /// Throws ArgumentException when it does not fit MAX_FULL_PATH.
    virtual BasicString getFullPath(const BasicString& path) const;
    /// "a/b.txt" gives "a/"; the separator stays, so that a name can be appended. Empty when there is none.
    virtual BasicString getDirectory(const BasicString& path) const;

    /// An empty name does nothing. Throws DirectoryNotFoundException.
    virtual void setCurrentDirectory(const BasicString& dirName);
    virtual BasicString getCurrentDirectory() const;
    /// Throws DirectoryExistsException, or ArgumentException when the parent is missing.
    virtual void createDirectory(const BasicString& dirName);
    /// Throws DirectoryNotEmptyException, UnAuthorizedAccessException, or ArgumentException when there is none.
    virtual void deleteDirectory(const BasicString& dirName);
    /// Not available: reports that, and is false.
    virtual bool existsDirectory(const BasicString& dirName) const;

private:
    Vector<BasicString> mTemporaryNames;
};
} // namespace KORV::Common::IO
