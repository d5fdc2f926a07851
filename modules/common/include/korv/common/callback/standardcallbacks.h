#pragma once

// Ready-made callbacks for hosts without memory and files of their own: the C heap and C's files.
// Header only, so that a host that brings its own pays nothing.

#include "korv/common/callback/fileiocallback.h"
#include "korv/common/callback/memorycallback.h"
#include "korv/common/exceptions/exception.h"
#include "korv/common/io/filesystem.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <mutex>

namespace KORV::Common::Callback
{
/// The C heap.
class StandardMemoryCallback : public MemoryCallback
{
public:
    void* allocate(uint32 size) override { return std::malloc(size); }
    void free(void* block) override { std::free(block); }
};

/// The files of the C library, in binary and unbuffered, so that a full disk shows at the write that meets it.
/// Access 3 creates or empties a file; access 2 needs an existing one. Up to MAX_FILES files are open at once.
/// Several threads may use it, each on files of its own.
class StandardFileIOCallback : public FileIOCallback
{
public:
    static constexpr uint32 MAX_FILES = 256;

    ~StandardFileIOCallback() override
    {
        for (File& file : mFiles)
        {
            if (file.mFile != nullptr)
                std::fclose(file.mFile);
        }
    }

    bool isValidHandle(uint32 handle) override { return find(handle) != nullptr; }
    uint32 getInvalidHandle() override { return 0; }

    int32 openFile(uint32& handle, const BasicString& path, uint32 access) override
    {
        if (access < 1 || access > 3 || path.find('\0') != BasicString::npos)
            return FAILED;
        constexpr const char* MODES[] = {"rb", "r+b", "wb"};
        errno = 0;
        std::FILE* file = std::fopen(path.c_str(), MODES[access - 1]);
        if (file == nullptr)
            return toResult(errno);
        std::setvbuf(file, nullptr, _IONBF, 0);
        const int32 result = access == 1 && isDirectory(file) ? NO_ACCESS : store(file, handle);
        if (result < 0)
            std::fclose(file);
        return result;
    }

    void closeFile(uint32 handle) override
    {
        const std::lock_guard<std::mutex> guard(mMutex);
        if (handle == 0 || handle > MAX_FILES || mFiles[handle - 1].mFile == nullptr)
            return;
        std::fclose(mFiles[handle - 1].mFile);
        mFiles[handle - 1] = File();
    }

    uint64 getFileLength(uint32 handle) override
    {
        const File* file = find(handle);
        return file != nullptr ? static_cast<uint64>(lengthOf(file->mFile)) : 0;
    }

    int32 readFile(void* buffer, uint32 count, uint32 handle) override
    {
        File* file = find(handle);
        if (file == nullptr || !turn(*file, READ))
            return FAILED;
        std::clearerr(file->mFile);
        const size_t done = std::fread(buffer, 1, count, file->mFile);
        return done == 0 && std::ferror(file->mFile) != 0 ? FAILED : static_cast<int32>(done);
    }

    int32 writeFile(const void* buffer, uint32 count, uint32 handle) override
    {
        File* file = find(handle);
        if (file == nullptr || !turn(*file, WRITE))
            return FAILED;
        errno = 0;
        const size_t done = std::fwrite(buffer, 1, count, file->mFile);
        const bool isFull = errno == ENOSPC || errno == EDQUOT || errno == EFBIG;
        return done < count && isFull ? DISK_FULL : static_cast<int32>(done);
    }

    uint64 tellFile(uint32 handle) override
    {
        const File* file = find(handle);
        const off_t position = file != nullptr ? ftello(file->mFile) : 0;
        return position > 0 ? static_cast<uint64>(position) : 0;
    }

    int64 seekFile(int64 offset, uint32 origin, uint32 handle) override
    {
        File* file = find(handle);
        if (file == nullptr || origin < 1 || origin > 3)
            return FAILED;
        const int64 length = lengthOf(file->mFile);
        const int64 bases[] = {static_cast<int64>(ftello(file->mFile)), length, 0};
        const int64 base = bases[origin - 1];
        if (offset < -base || offset > length - base) // base + offset need not fit
            return OUT_OF_RANGE;
        file->mLast = NONE;
        return fseeko(file->mFile, static_cast<off_t>(base + offset), SEEK_SET) == 0 ? base + offset : int64(FAILED);
    }

    BasicString getFullPath(const BasicString& path) override
    {
        try
        {
            return IO::FileSystem().getFullPath(path);
        }
        catch (Exceptions::Exception* error)
        {
            delete error;
            return path;
        }
    }

private:
    enum Result : int32
    {
        NOT_FOUND = -1,
        NO_ACCESS = -2,
        FAILED = -3,
        OUT_OF_RANGE = -4,
        DISK_FULL = -5
    };
    enum Operation
    {
        NONE,
        READ,
        WRITE
    };
    struct File
    {
        std::FILE* mFile = nullptr;
        Operation mLast = NONE;
    };

    static int32 toResult(int error)
    {
        if (error == ENOENT || error == ENOTDIR || error == ENAMETOOLONG || error == ELOOP)
            return NOT_FOUND;
        if (error == EACCES || error == EISDIR || error == EROFS || error == EPERM || error == ETXTBSY)
            return NO_ACCESS;
        return FAILED;
    }

    /// C opens directories for reading; only the first read tells.
    static bool isDirectory(std::FILE* file)
    {
        errno = 0;
        const int first = std::fgetc(file);
        if (first != EOF)
            std::ungetc(first, file);
        return first == EOF && errno == EISDIR;
    }

    static int64 lengthOf(std::FILE* file)
    {
        const off_t position = ftello(file);
        if (position < 0 || fseeko(file, 0, SEEK_END) != 0)
            return 0;
        const off_t length = ftello(file);
        fseeko(file, position, SEEK_SET);
        return length > 0 ? static_cast<int64>(length) : 0;
    }

    /// C wants a seek between a read and a write.
    static bool turn(File& file, Operation operation)
    {
        if (file.mLast != NONE && file.mLast != operation && fseeko(file.mFile, 0, SEEK_CUR) != 0)
            return false;
        file.mLast = operation;
        return true;
    }

    int32 store(std::FILE* file, uint32& handle)
    {
        const std::lock_guard<std::mutex> guard(mMutex);
        for (uint32 i = 0; i < MAX_FILES; ++i)
        {
            if (mFiles[i].mFile != nullptr)
                continue;
            mFiles[i].mFile = file;
            handle = i + 1;
            return 0;
        }
        return FAILED;
    }

    File* find(uint32 handle)
    {
        const std::lock_guard<std::mutex> guard(mMutex);
        if (handle == 0 || handle > MAX_FILES || mFiles[handle - 1].mFile == nullptr)
            return nullptr;
        return &mFiles[handle - 1];
    }

    std::mutex mMutex;
    File mFiles[MAX_FILES];
};
} // namespace KORV::Common::Callback
