#pragma once

#include "korv/common/container/vector.h"
#include "korv/common/io/stream.h"
#include "korv/common/sharedptr.h"

namespace KORV::Common::Serialize
{
/// The bytes of a stream that a storage is about to read, or has written last, so that a value costs no stream call.
/// Positions are those that the stream would have without a buffer.
class KORV_COMMON_API StorageBuffer
{
public:
    /// What a stream is asked for at once. [bytes]
    static constexpr size_t READ_SIZE = 16384;
    /// What a stream is given at once, from multiples of it on. Larger pieces would suit files a little better, smaller
    /// ones streams in memory, which copy them while the processor's nearest cache still has them. [bytes]
    static constexpr size_t WRITE_SIZE = 8192;
    /// The most that can be written in place at once. [bytes]
    static constexpr size_t MAX_ROOM = 2048;

    explicit StorageBuffer(Memory::Allocator* allocator) : mLines(allocator) {}
    StorageBuffer(const StorageBuffer&) = delete;
    StorageBuffer& operator=(const StorageBuffer&) = delete;
    ~StorageBuffer() { detach(); }

    /// Starts to read or to write at the stream's position.
    void attachInput(const SharedPtr<Stream>& stream);
    void attachOutput(const SharedPtr<Stream>& stream);
    /// Gives the stream up where it would stand without a buffer, as far as it lets itself be moved. What was written
    /// and not flushed is dropped.
    void detach() noexcept;
    bool isAttached() const { return mStream != nullptr; }

    uint64 getPosition() const { return mBase + getPassed(); }
    /// Bytes of the stream from the position on; 0 beyond its end.
    uint64 getRest() const;
    /// Goes to a position from the stream's start, after writing what is to be written.
    /// Throws what the stream throws, or a SerializeException when it ends up elsewhere.
    void seek(uint64 position);

    /// Bytes that can be looked at, or written before the buffer is full.
    size_t getReady() const { return static_cast<size_t>(mEnd - mCursor); }
    /// The next bytes, if the buffer holds so many; else null, and nothing is read.
    const unsigned char* look(size_t count) const { return getReady() >= count ? mCursor : nullptr; }
    /// Passes bytes that look has shown.
    void pass(size_t count) { mCursor += count; }
    /// Reads and passes bytes.
    /// @return how many; fewer than @p count only where the stream ends.
    size_t read(void* target, size_t count);
    /// The next byte, which stays the next; negative at the end of the stream.
    int32 peek();

    /// Room for bytes to be filled by the caller, as if written. [at most MAX_ROOM]
    unsigned char* makeRoom(size_t count)
    {
        if (getReady() < count)
            writePieces();
        unsigned char* const room = mCursor;
        mCursor += count;
        return room;
    }
    void write(const void* source, size_t count);
    /// Writes to the stream what the buffer holds. Once that has failed, it throws a SerializeException.
    void flush();
    /// Whether the stream lacks some of what was written.
    bool hasFailed() const { return mFailed; }
    /// Flushes and moves the stream to its end, where the position then is.
    void seekEnd();

private:
    struct alignas(64) CacheLine
    {
        unsigned char mBytes[64];
    };
    // Streams copy whole pieces, fastest between places that lie alike within a cache line. Those in memory are mostly
    // blocks of malloc, which begin so many bytes behind a page's start when they are large.
    static constexpr size_t LEAD = 16;
    static constexpr size_t WRITE_CAPACITY = WRITE_SIZE + MAX_ROOM;

    void attach(const SharedPtr<Stream>& stream, bool input);
    bool fill();
    void moveStream(uint64 position);
    void writePieces();
    void writeFront(size_t count);
    size_t getPassed() const { return static_cast<size_t>(mCursor - mBegin); }

    Vector<CacheLine> mLines;
    unsigned char* mBegin = nullptr;
    unsigned char* mCursor = nullptr; // of the next byte
    unsigned char* mEnd = nullptr;    // of what has been read, or of the room to write
    uint64 mBase = 0;                 // position of the buffer's first byte
    uint64 mLength = 0;               // of an input stream
    SharedPtr<Stream> mStream;
    bool mInput = false;
    bool mFailed = false;
};
} // namespace KORV::Common::Serialize
