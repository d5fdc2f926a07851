#include "korv/common/callback/callbackfilestream.h"
#include "korv/common/callback/standardcallbacks.h"
#include "korv/common/io/filesystem.h"
#include "korv/common/io/ioexception.h"
#include "support/test.h"

#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include <unistd.h>

using namespace KORV;
using namespace KORV::Common;
using namespace KORV::Common::Exceptions;
using namespace KORV::Common::IO;
using Callback::CallbackFileStream;
using Callback::FileIOCallback;
using Callback::StandardFileIOCallback;
using Testing::expectThrow;

namespace
{
/// A directory of its own for one test, removed afterwards.
class Folder
{
public:
    Folder() : mPath(std::filesystem::path(testing::TempDir()) / ("korv_streams_" + std::to_string(::getpid())))
    {
        std::filesystem::remove_all(mPath);
        std::filesystem::create_directories(mPath);
    }
    ~Folder() { std::filesystem::remove_all(mPath); }

    BasicString operator/(const char* name) const { return BasicString((mPath / name).c_str()); }
    void write(const char* name, const char* text) const { std::ofstream(mPath / name) << text; }
    std::string read(const char* name) const
    {
        std::ifstream file(mPath / name);
        return {std::istreambuf_iterator<char>(file), {}};
    }

private:
    std::filesystem::path mPath;
};

/// A host whose answers a test decides. It never touches the buffers.
class ScriptedHost : public FileIOCallback
{
public:
    bool isValidHandle(uint32 handle) override { return handle == 7; }
    uint32 getInvalidHandle() override { return 99; }
    int32 openFile(uint32& handle, const BasicString&, uint32) override
    {
        if (mOpenResult >= 0)
            handle = 7;
        return mOpenResult;
    }
    void closeFile(uint32) override { ++mCloses; }
    uint64 getFileLength(uint32) override { return 11; }
    int32 readFile(void*, uint32 count, uint32) override { return answer(mReadResult, count); }
    int32 writeFile(const void*, uint32 count, uint32) override { return answer(mWriteResult, count); }
    uint64 tellFile(uint32) override { return 5; }
    int64 seekFile(int64 offset, uint32 origin, uint32) override
    {
        mLastOrigin = origin;
        return mSeekResult != 0 ? mSeekResult : offset;
    }
    BasicString getFullPath(const BasicString& path) override { return "/host/" + path; }

    int32 answer(int32 scripted, uint32 count)
    {
        mPieces.push_back(count);
        return scripted != 0 ? scripted : static_cast<int32>(count);
    }

    int32 mOpenResult = 0;
    int32 mReadResult = 0; ///< 0: all that was asked for
    int32 mWriteResult = 0;
    int64 mSeekResult = 0;
    uint32 mLastOrigin = 0;
    int mCloses = 0;
    std::vector<uint64> mPieces;
};

std::string readAll(Stream& stream)
{
    std::string text(static_cast<size_t>(stream.getLength()), '?');
    stream.seek(0, SORIGIN_START);
    text.resize(static_cast<size_t>(stream.read(text.data(), text.size() + 100)));
    return text;
}
} // namespace

KORV_TEST(Streams, fileKeepsWhatIsWrittenInEveryOpenMode)
{
    const Folder folder;
    const BasicString path = folder / "a.bin";
    FileStream stream;
    stream.openFile(path, FACCESS_READWRITE, FMODE_CREATENEW);
    EXPECT_EQ(stream.getFileName(), path);
    stream.write("hello\r\n", 7);
    EXPECT_EQ(stream.getPosition(), 7u);
    EXPECT_EQ(stream.seek(0, SORIGIN_END), 7u);
    EXPECT_EQ(stream.seek(-1, SORIGIN_CURRENT), 6u);
    stream.flush();
    EXPECT_EQ(readAll(stream), "hello\r\n");

    stream.openFile(path, FACCESS_READWRITE, FMODE_APPEND); // the open one is closed first
    stream.seek(0, SORIGIN_START);
    stream.write("!", 1);
    stream.openFile(path, FACCESS_WRITE, FMODE_OPENCREATE);
    EXPECT_FALSE(stream.canRead());
    stream.write("J", 1);
    stream.openFile(stream.getFileName(), FACCESS_READ, FMODE_OPEN);
    EXPECT_FALSE(stream.canWrite());
    EXPECT_EQ(readAll(stream), "Jello\r\n!");
    stream.openFile(path, FACCESS_WRITE, FMODE_CREATE);
    EXPECT_EQ(stream.getLength(), 0u);
}

KORV_TEST(Streams, fileFailuresAreToldApart)
{
    const Folder folder;
    folder.write("old", "x");
    FileStream stream;
    const auto open = [&](const char* name, uint32 access, uint32 mode)
    { return [&stream, path = folder / name, access, mode] { stream.openFile(path, access, mode); }; };
    EXPECT_EQ(expectThrow<FileNotFoundException>(open("none", 1, 1)), "FileStream: File or path not found");
    EXPECT_EQ(expectThrow<FileNotFoundException>(open("old/below", 1, 1)), "FileStream: File or path not found");
    EXPECT_EQ(expectThrow<FileExistException>(open("old", 2, 4)),
              "FileStream: File has been opened with FMODE_CREATENEW but the file exists already");
    expectThrow<UnAuthorizedAccessException>(open("", 1, 1)); // the directory itself
    expectThrow<UnAuthorizedAccessException>(open("", 3, 3));
    EXPECT_EQ(expectThrow<ArgumentOutOfRangeException>(open("old", 4, 1)), "FileStream: Unknown access mode");
    EXPECT_EQ(expectThrow<ArgumentOutOfRangeException>(open("old", 1, 6)), "FileStream: Unknown file open mode");
    EXPECT_TRUE(stream.isClosed());

    open("old", 1, 1)();
    char buffer[4] = {};
    EXPECT_EQ(expectThrow<NotSupportedException>([&] { stream.write(buffer, 1); }),
              "FileStream: Cannot write to the file. Not opened for writing.");
    expectThrow<ArgumentNullException>([&] { stream.read(nullptr, 1); });
    EXPECT_EQ(expectThrow<ArgumentOutOfRangeException>([&] { stream.seek(0, 4); }),
              "FileStream: Unknown origin '4' specified.");
    EXPECT_EQ(expectThrow<ArgumentOutOfRangeException>([&] { stream.seek(-2, SORIGIN_START); }),
              "FileStream: Offset seeks out of file range.");
    stream.close();
    for (const auto& misuse :
         std::initializer_list<std::function<void()>>{[&] { stream.read(buffer, 1); }, [&] { stream.write(buffer, 1); },
                                                      [&] { stream.seek(0, 1); }, [&] { stream.flush(); },
                                                      [&] { stream.getLength(); }, [&] { stream.getPosition(); },
                                                      [&] { stream.getFileName(); }})
        expectThrow<InvalidStateException>(misuse);
}

// A relative name in a message helps nobody who does not know where the program ran.
KORV_TEST(Streams, missingFileIsNamedInFull)
{
    FileStream stream;
    try
    {
        stream.openFile("no/such/../file", FACCESS_READ, FMODE_OPEN);
        ADD_FAILURE();
    }
    catch (FileNotFoundException* error)
    {
        EXPECT_EQ(error->getFileName(), "no/such/../file");
        EXPECT_EQ(error->getFullFileName(), BasicString((std::filesystem::current_path() / "no/file").c_str()));
        delete error;
    }
}

KORV_TEST(Streams, callbackStreamTranslatesTheHostsAnswers)
{
    ScriptedHost* host = new ScriptedHost;
    const SharedPtr<FileIOCallback> callback(host);
    char buffer[8] = {};
    {
        CallbackFileStream stream(callback);
        EXPECT_TRUE(stream.isClosed());
        host->mOpenResult = -1;
        EXPECT_EQ(expectThrow<FileNotFoundException>([&] { stream.openFile("x", 1); }),
                  "CallbackFileStream: File or path not found");
        host->mOpenResult = -2;
        expectThrow<UnAuthorizedAccessException>([&] { stream.openFile("x", 1); });
        host->mOpenResult = -77;
        EXPECT_EQ(expectThrow<IOException>([&] { stream.openFile("x", 1); }),
                  "CallbackFileStream: Unknown file open error");
        expectThrow<InvalidStateException>([&] { stream.getLength(); });

        host->mOpenResult = 0;
        stream.openFile("x", FACCESS_READ);
        expectThrow<NotSupportedException>([&] { stream.write(buffer, 1); });
        stream.openFile("x", FACCESS_WRITE);
        EXPECT_EQ(host->mCloses, 1);
        EXPECT_TRUE(stream.canRead()); // the host's answer decides
        EXPECT_EQ(stream.getLength(), 11u);
        EXPECT_EQ(stream.getPosition(), 5u);

        host->mSeekResult = -4;
        EXPECT_EQ(expectThrow<ArgumentOutOfRangeException>([&] { stream.seek(3, 2); }),
                  "FileStream: Offset seeks out of file range.");
        host->mSeekResult = -3;
        EXPECT_EQ(stream.seek(3, 17), 0u);
        EXPECT_EQ(host->mLastOrigin, 17u);
        expectReports({"\nError Message: Unhandled error condition from seekFile callback."});

        host->mWriteResult = -5;
        EXPECT_EQ(expectThrow<OutOfSpaceException>([&] { stream.write(buffer, 8); }),
                  "CallbackFileStream: Cannot write to file, disk full.");
        host->mWriteResult = 3;
        stream.write(buffer, 8);
        expectReports({"\nError Message: Internal error: Unhandeled error condition during write."});
        host->mReadResult = -3;
        EXPECT_EQ(stream.read(buffer, 8), 0u);
    }
    EXPECT_EQ(host->mCloses, 2); // by the destructor
}

// The host counts in 32 bits. A count cut to its low 32 bits would lose 4 GB without a word.
KORV_TEST(Streams, countsBeyondTheHostsRangeComeInPieces)
{
    ScriptedHost* host = new ScriptedHost;
    const SharedPtr<FileIOCallback> callback(host);
    CallbackFileStream stream(callback);
    stream.openFile("x", FACCESS_READWRITE);
    char buffer = 0;
    const uint64 count = (uint64(5) << 30) + 3;
    const std::vector<uint64> pieces = {1u << 30, 1u << 30, 1u << 30, 1u << 30, 1u << 30, 3};
    EXPECT_EQ(stream.read(&buffer, count), count);
    EXPECT_EQ(host->mPieces, pieces);
    host->mPieces.clear();
    stream.write(&buffer, count);
    EXPECT_EQ(host->mPieces, pieces);
}

KORV_TEST(Streams, streamWithoutHostIsReportedAndStaysClosed)
{
    CallbackFileStream stream{SharedPtr<FileIOCallback>()};
    expectReports({"mFileIO != NULL\nError Message: File callback cannot be a NULL pointer"});
    expectThrow<IOException>([&] { stream.openFile("x", 1); });
    EXPECT_TRUE(stream.isClosed());
}

KORV_TEST(Streams, standardFilesFollowTheContract)
{
    const Folder folder;
    StandardFileIOCallback files;
    uint32 handle = files.getInvalidHandle();
    EXPECT_EQ(files.openFile(handle, folder / "none", 1), -1);
    EXPECT_EQ(files.openFile(handle, folder / "none", 2), -1);
    EXPECT_EQ(files.openFile(handle, folder / "no/dir", 3), -1);
    EXPECT_EQ(files.openFile(handle, folder / "", 1), -2);
    EXPECT_EQ(files.openFile(handle, folder / "", 3), -2);
    EXPECT_FALSE(files.isValidHandle(handle));

    ASSERT_EQ(files.openFile(handle, folder / "a", 3), 0);
    EXPECT_EQ(files.writeFile("abcdef", 6, handle), 6);
    files.closeFile(handle);
    EXPECT_FALSE(files.isValidHandle(handle));
    ASSERT_EQ(files.openFile(handle, folder / "a", 2), 0);
    char buffer[8] = {};
    EXPECT_EQ(files.readFile(buffer, 2, handle), 2);
    EXPECT_EQ(files.writeFile("CD", 2, handle), 2);
    EXPECT_EQ(files.readFile(buffer, 8, handle), 2);
    EXPECT_EQ(std::string(buffer, 2), "ef");
    EXPECT_EQ(files.getFileLength(handle), 6u);
    EXPECT_EQ(files.tellFile(handle), 6u);
    EXPECT_EQ(files.seekFile(-6, 2, handle), 0);
    EXPECT_EQ(files.seekFile(-1, 1, handle), -4);
    EXPECT_EQ(files.seekFile(7, 3, handle), -4);
    EXPECT_EQ(files.seekFile(INT64_MIN, 2, handle), -4);
    files.closeFile(handle);
    EXPECT_EQ(folder.read("a"), "abCDef");
    EXPECT_EQ(files.getFullPath("/a/../b"), "/b");

    if (std::filesystem::exists("/dev/full"))
    {
        ASSERT_EQ(files.openFile(handle, "/dev/full", 3), 0);
        EXPECT_EQ(files.writeFile("x", 1, handle), -5);
    }
}

KORV_TEST(FileSystem, pathsAreTakenApartByTheirText)
{
    FileSystem files;
    const struct
    {
        const char *mPath, *mDirectory, *mFileName, *mName, *mExtension;
    } rows[] = {
        {"a/b.txt", "a/", "b.txt", "b", "txt"},
        {"a/b", "a/", "b", "b", ""},
        {"a.b/c", "a.b/", "c", "c", ""},
        {"/b.tar.gz", "/", "b.tar.gz", "b.tar", "gz"},
        {"b.", "", "b.", "b", ""},
        {"a/", "a/", "", "", ""},
        {"", "", "", "", ""},
    };
    for (const auto& row : rows)
    {
        KORV_CONTEXT(row.mPath);
        EXPECT_EQ(files.getDirectory(row.mPath), row.mDirectory);
        EXPECT_EQ(files.getFileName(row.mPath), row.mFileName);
        EXPECT_EQ(files.getFileNameWithoutExtension(row.mPath), row.mName);
        EXPECT_EQ(files.getExtension(row.mPath), row.mExtension);
    }
    EXPECT_EQ(files.getFullPath("/a//b/./c/../d"), "/a/b/d");
    EXPECT_EQ(files.getFullPath("/../../a/"), "/a/");
    EXPECT_EQ(files.getFullPath("/a/.."), "/");
    EXPECT_EQ(files.getFullPath("x"), files.getCurrentDirectory() + "/x");
    EXPECT_EQ(files.getFullPath(""), files.getCurrentDirectory());
    const BasicString tooLong = "/" + BasicString(259, 'x');
    EXPECT_EQ(files.getFullPath(tooLong.substr(0, 259)).size(), 259u);
    EXPECT_EQ(expectThrow<ArgumentException>([&] { files.getFullPath(tooLong); }),
              ("FileSystem: Cannot build full path for an invalid path argument '" + tooLong + "'").c_str());
}

KORV_TEST(FileSystem, filesAndDirectoriesComeAndGo)
{
    const Folder folder;
    FileSystem files;
    files.createDirectory(folder / "d");
    EXPECT_EQ(expectThrow<DirectoryExistsException>([&] { files.createDirectory(folder / "d"); }),
              "FileSystem: Cannot create the directory, it already exists");
    EXPECT_EQ(expectThrow<ArgumentException>([&] { files.createDirectory(folder / "x/y"); }),
              "FileSystem: Directory name is malformed");
    EXPECT_FALSE(files.existsFile(folder / "d")); // a directory is no file

    const SharedPtr<Stream> file = files.createFile(folder / "d/f");
    file->write("1", 1);
    file->close();
    EXPECT_TRUE(files.existsFile(folder / "d/f"));
    expectThrow<FileExistException>([&] { files.createFile(folder / "d/f"); });
    EXPECT_EQ(readAll(*files.openForReading(folder / "d/f")), "1");
    files.openForAppending(folder / "d/f")->write("2", 1);
    EXPECT_EQ(folder.read("d/f"), "12");

    EXPECT_EQ(expectThrow<DirectoryNotEmptyException>([&] { files.deleteDirectory(folder / "d"); }),
              "FileSystem: Directory cannot be deleted because it is not empty");
    EXPECT_EQ(files.deleteFile(folder / "d/f"), 0);
    EXPECT_EQ(files.deleteFile(folder / "d/f"), -1);
    files.deleteDirectory(folder / "d");
    expectThrow<ArgumentException>([&] { files.deleteDirectory(folder / "d"); });
    expectThrow<DirectoryNotFoundException>([&] { files.setCurrentDirectory(folder / "d"); });
    files.setCurrentDirectory("");

    EXPECT_FALSE(files.existsDirectory(folder / ""));
    expectReports({"\nError Message: not implemented"});
}

KORV_TEST(FileSystem, temporaryFilesAreFreshAndNamed)
{
    FileSystem files;
    const SharedPtr<Stream> a = files.createTemporaryFile();
    const SharedPtr<Stream> b = files.createTemporaryFile();
    EXPECT_NE(a->getFileName(), b->getFileName());
    a->write("abc", 3);
    EXPECT_EQ(readAll(*a), "abc");
    for (const SharedPtr<Stream>& file : {a, b})
        EXPECT_EQ(files.deleteFile(file->getFileName()), 0);
}
