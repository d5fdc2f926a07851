#pragma once

#include "korv/common/io/filesystem.h"
#include "korv/common/io/ioexception.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <string>

namespace KORV::Testing
{
/// Reads a text; at most @p step bytes at a time, as a slow device would.
class TextStream : public Common::Stream
{
public:
    TextStream(const std::string& text, uint64 step) : mText(text), mStep(step) {}

    bool canRead() const override { return true; }
    bool canWrite() const override { return false; }
    bool canSeek() const override { return false; }
    bool isClosed() const override { return false; }
    uint64 getLength() const override { return mText.size(); }
    uint64 getPosition() const override { return mPosition; }
    const Common::BasicString& getFileName() const override { return mName; }
    uint64 read(void* buffer, uint64 count) override
    {
        const uint64 length = std::min({count, mStep, mText.size() - mPosition});
        std::memcpy(buffer, mText.data() + mPosition, length);
        mPosition += length;
        return length;
    }
    void write(const void*, uint64) override {}
    uint64 seek(int64, uint32) override { return mPosition; }
    void flush() override {}
    void close() override {}

private:
    const std::string& mText;
    uint64 mStep;
    uint64 mPosition = 0;
    Common::BasicString mName;
};

/// A file system whose files are the texts given to it.
class StringFiles : public Common::IO::FileSystem
{
public:
    Common::SharedPtr<Common::Stream> openForReading(const Common::BasicString& path) override
    {
        const auto file = mFiles.find(path.c_str());
        if (file == mFiles.end())
            throw new Common::IO::FileNotFoundException(path, path, "no such file");
        ++mOpened;
        return Common::SharedPtr<Common::Stream>(new (getAllocator()) TextStream(file->second, mStep));
    }

    std::map<std::string, std::string> mFiles;
    uint64 mStep = ~0ull;
    uint32 mOpened = 0;
};
} // namespace KORV::Testing
