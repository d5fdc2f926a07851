#pragma once

#include "korv/common/container/vector.h"
#include "korv/common/exceptions/exception.h"
#include "korv/common/io/ioexception.h"
#include "korv/common/io/stream.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <string_view>

namespace KORV::Testing
{
/// A stream over bytes in memory. Fields may be set to make it behave badly.
class MemoryStream : public Common::IO::Stream
{
public:
    MemoryStream() : mBytes(getMemory()), mFileName("memory") {}
    explicit MemoryStream(std::string_view text) : MemoryStream() { mBytes.assign(text.begin(), text.end()); }

    bool canRead() const override { return !mClosed && mReadable; }
    bool canWrite() const override { return !mClosed && mWritable; }
    bool canSeek() const override { return !mClosed && mSeekable; }
    bool isClosed() const override { return mClosed; }
    uint64 getLength() const override { return mBytes.size() + mClaimed; }
    uint64 getPosition() const override { return mPosition; }
    const Common::BasicString& getFileName() const override { return mFileName; }

    uint64 read(void* buffer, uint64 count) override
    {
        const size_t done = static_cast<size_t>(std::min<uint64>(count, mBytes.size() - mPosition));
        if (done > 0)
            std::memcpy(buffer, mBytes.data() + mPosition, done);
        mPosition += done;
        return done;
    }
    void write(const void* buffer, uint64 count) override
    {
        ++mWrites;
        if (count > mCapacity - std::min<uint64>(mCapacity, mPosition))
            throw new Common::IO::OutOfSpaceException("the memory stream is full");
        if (mPosition + count > mBytes.size())
            mBytes.resize(static_cast<size_t>(mPosition + count));
        if (count > 0)
            std::memcpy(mBytes.data() + mPosition, buffer, static_cast<size_t>(count));
        mPosition += static_cast<size_t>(count);
    }
    uint64 seek(int64 offset, uint32 origin) override
    {
        const size_t bases[] = {mPosition, mBytes.size(), 0};
        const int64 target = static_cast<int64>(bases[std::clamp<uint32>(origin, 1, 3) - 1]) + offset;
        if (target < 0 || target > static_cast<int64>(mBytes.size()))
            throw new Common::Exceptions::ArgumentOutOfRangeException("offset", "the memory stream ends before");
        mPosition = static_cast<size_t>(target);
        return mPosition;
    }
    void flush() override {}
    void close() override { mClosed = true; }

    std::string_view text() const { return {mBytes.data(), mBytes.size()}; }
    void rewind() { mPosition = 0; }

    Common::Vector<char> mBytes;
    Common::BasicString mFileName;
    size_t mPosition = 0;
    size_t mWrites = 0;                                    ///< calls of write so far
    uint64 mClaimed = 0;                                   ///< bytes that the length promises too much
    uint64 mCapacity = std::numeric_limits<uint64>::max(); ///< a write beyond it finds the disk full
    bool mReadable = true;
    bool mWritable = true;
    bool mSeekable = true;
    bool mClosed = false;
};
} // namespace KORV::Testing
