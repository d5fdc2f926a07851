#include "atomicfile.h"

#include "failure.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace KORV::Tool
{
namespace
{
namespace fs = std::filesystem;

[[noreturn]] void refuse(const std::string& fileName, const std::string& why)
{
    throw Failure(ExitCode::BadInput, fileName + ": cannot be written: " + why);
}

std::string systemError()
{
    return std::string(std::strerror(errno)) + ".";
}

/// The file that a name stands for, through links, also where the last of them leads nowhere yet.
std::string resolve(const std::string& fileName)
{
    std::error_code error;
    fs::path path(fileName);
    for (int hop = 0; hop < 40 && fs::is_symlink(path, error); ++hop)
    {
        const fs::path next = fs::read_symlink(path, error);
        if (error)
            break;
        path = next.is_absolute() ? next : path.parent_path() / next;
    }
    return path.string();
}

/// The permissions of the old file, else what the mask leaves of read and write for all.
mode_t permissionsFor(const std::string& fileName)
{
    struct stat old = {};
    if (stat(fileName.c_str(), &old) == 0)
        return old.st_mode & 0777;
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

bool isSpecial(const std::string& fileName)
{
    struct stat status = {};
    return stat(fileName.c_str(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

/// Flushes what others wrote into the file. @return whether the disk has taken it.
bool synchronise(const std::string& fileName)
{
    const int file = open(fileName.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return false;
    const bool done = fsync(file) == 0 || errno == EINVAL;
    return close(file) == 0 && done;
}
} // namespace

void AtomicFile::check(const std::string& fileName)
{
    const std::string target = resolve(fileName);
    std::error_code error;
    if (fs::is_directory(target, error))
        refuse(fileName, "it is a directory; add a file name.");
    if (isSpecial(target))
        return;
    fs::path directory = fs::path(target).parent_path();
    if (directory.empty())
        directory = ".";
    if (!fs::is_directory(directory, error))
        refuse(fileName, "there is no directory '" + directory.string() + "'; create it first.");
    if (access(directory.c_str(), W_OK | X_OK) != 0)
        refuse(fileName, "the directory '" + directory.string() + "': " + systemError());
    if (fs::exists(target, error) && access(target.c_str(), W_OK) != 0)
        refuse(fileName, systemError());
}

AtomicFile::AtomicFile(const std::string& fileName) : mFileName(fileName), mTarget(resolve(fileName))
{
    check(fileName);
    mDirect = isSpecial(mTarget);
    if (mDirect)
    {
        mTemporary = mTarget;
        return;
    }
    const fs::path path(mTarget);
    const std::string pattern =
        (path.parent_path() / ("." + path.filename().string().substr(0, 200) + ".XXXXXX")).string();
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    const int file = mkstemp(name.data());
    if (file < 0)
        refuse(mFileName, systemError());
    mTemporary = name.data();
    fchmod(file, permissionsFor(mTarget));
    close(file);
}

AtomicFile::~AtomicFile()
{
    if (!mCommitted && !mDirect)
        unlink(mTemporary.c_str());
}

void AtomicFile::write(std::string_view text)
{
    const int file = open(mTemporary.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
    if (file < 0)
        refuse(mFileName, systemError());
    while (!text.empty())
    {
        const ssize_t written = ::write(file, text.data(), text.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
        {
            const std::string why = systemError();
            close(file);
            refuse(mFileName, why);
        }
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    if (close(file) != 0)
        refuse(mFileName, systemError());
}

void AtomicFile::commit()
{
    if (!mDirect)
    {
        if (!synchronise(mTemporary))
            refuse(mFileName, systemError());
        if (rename(mTemporary.c_str(), mTarget.c_str()) != 0)
            refuse(mFileName, systemError());
    }
    mCommitted = true;
}
} // namespace KORV::Tool
