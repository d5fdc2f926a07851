#pragma once

#include "korv/common/io/ioexception.h"
#include "korv/common/io/stream.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

namespace KORV::Benchmarks
{
/// A stream over memory that is there already, so that nothing but the copying of bytes is measured with it.
class BufferStream : public Common::Stream
{
public:
    /// @param buffer  holds the stream; its size is the most that it can hold. Not owned.
    /// @param length  bytes that are there to be read.
    BufferStream(std::vector<std::uint8_t>& buffer, std::size_t length)
        : mBuffer(buffer), mLength(length), mFileName("memory")
    {
    }

    bool canRead() const override { return true; }
    bool canWrite() const override { return true; }
    bool canSeek() const override { return true; }
    bool isClosed() const override { return false; }
    uint64 getLength() const override { return mLength; }
    uint64 getPosition() const override { return mPosition; }
    const Common::BasicString& getFileName() const override { return mFileName; }

    uint64 read(void* target, uint64 count) override
    {
        const std::size_t done = std::min<std::size_t>(count, mLength - mPosition);
        std::memcpy(target, mBuffer.data() + mPosition, done);
        mPosition += done;
        return done;
    }

    void write(const void* source, uint64 count) override
    {
        if (count > mBuffer.size() - mPosition)
            throw new Common::IO::OutOfSpaceException("the buffer is full");
        std::memcpy(mBuffer.data() + mPosition, source, count);
        mPosition += count;
        mLength = std::max(mLength, mPosition);
    }

    uint64 seek(int64 offset, uint32 origin) override
    {
        using namespace Common::IO;
        const std::size_t base = origin == SORIGIN_START ? 0 : origin == SORIGIN_END ? mLength : mPosition;
        const int64 target = static_cast<int64>(base) + offset;
        if (target < 0 || target > static_cast<int64>(mLength))
            throw new Common::IO::IOException("a place outside the buffer");
        mPosition = static_cast<std::size_t>(target);
        return mPosition;
    }

    void flush() override {}
    void close() override {}

private:
    std::vector<std::uint8_t>& mBuffer;
    std::size_t mLength;
    std::size_t mPosition = 0;
    Common::BasicString mFileName;
};
} // namespace KORV::Benchmarks
