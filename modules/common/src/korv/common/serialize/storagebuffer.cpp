#include "korv/common/serialize/storagebuffer.h"

#include "korv/common/debug/messagetext.h"
#include "korv/common/serialize/serializeexception.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace KORV::Common::Serialize
{
void StorageBuffer::attachInput(const SharedPtr<Stream>& stream)
{
    mLength = stream->getLength();
    attach(stream, true);
}

void StorageBuffer::attachOutput(const SharedPtr<Stream>& stream)
{
    attach(stream, false);
}

void StorageBuffer::attach(const SharedPtr<Stream>& stream, bool input)
{
    mBase = stream->getPosition();
    mLines.resize((LEAD + (input ? READ_SIZE : WRITE_CAPACITY) + sizeof(CacheLine) - 1) / sizeof(CacheLine));
    mBegin = reinterpret_cast<unsigned char*>(mLines.data()) + LEAD;
    mCursor = mBegin;
    mEnd = input ? mBegin : mBegin + WRITE_CAPACITY;
    mInput = input;
    mFailed = false;
    mStream = stream;
}

void StorageBuffer::detach() noexcept
{
    if (mStream == nullptr)
        return;
    try
    {
        if (mInput && mCursor != mEnd)
            mStream->seek(static_cast<int64>(getPosition()), IO::SORIGIN_START);
    }
    catch (Exceptions::Exception* error)
    {
        delete error; // such as a stream that has been closed meanwhile
    }
    catch (...) // a host's stream may throw anything
    {
    }
    mStream.release();
    mCursor = mEnd = mBegin;
    mBase = 0;
}

uint64 StorageBuffer::getRest() const
{
    const uint64 position = getPosition();
    return position < mLength ? mLength - position : 0;
}

void StorageBuffer::seek(uint64 position)
{
    if (!mInput)
        flush();
    if (mInput && position >= mBase && position - mBase <= static_cast<size_t>(mEnd - mBegin))
    {
        mCursor = mBegin + (position - mBase);
        return;
    }
    if (position > static_cast<uint64>(std::numeric_limits<int64>::max()))
        throw new SerializeException((Debug::MessageText() << "The stream has no byte " << position).c_str());
    moveStream(mStream->seek(static_cast<int64>(position), IO::SORIGIN_START));
    if (mBase != position)
        throw new SerializeException((Debug::MessageText() << "The stream cannot be moved to byte " << position
                                                           << ", it stands at byte " << mBase)
                                         .c_str());
}

void StorageBuffer::seekEnd()
{
    flush();
    moveStream(mStream->seek(0, IO::SORIGIN_END));
}

/// Starts again with an empty buffer where the stream now stands.
void StorageBuffer::moveStream(uint64 position)
{
    mCursor = mBegin;
    mEnd = mInput ? mBegin : mBegin + WRITE_CAPACITY;
    mBase = position;
}

size_t StorageBuffer::read(void* target, size_t count)
{
    size_t done = 0;
    while (done < count && (mCursor != mEnd || fill()))
    {
        const size_t piece = std::min(count - done, static_cast<size_t>(mEnd - mCursor));
        std::memcpy(static_cast<unsigned char*>(target) + done, mCursor, piece);
        mCursor += piece;
        done += piece;
    }
    return done;
}

int32 StorageBuffer::peek()
{
    return mCursor != mEnd || fill() ? *mCursor : -1;
}

/// Reads on where all has been passed.
/// @return whether there was more.
bool StorageBuffer::fill()
{
    moveStream(getPosition());
    const uint64 length = std::min<uint64>(mStream->read(mBegin, READ_SIZE), READ_SIZE);
    mEnd += length;
    return length > 0;
}

void StorageBuffer::write(const void* source, size_t count)
{
    for (size_t done = 0; done < count;)
    {
        const size_t piece = std::min(count - done, MAX_ROOM);
        std::memcpy(makeRoom(piece), static_cast<const unsigned char*>(source) + done, piece);
        done += piece;
    }
}

void StorageBuffer::flush()
{
    writeFront(getPassed());
}

/// Writes what lies before the last multiple of WRITE_SIZE in the stream. At least MAX_ROOM bytes are free afterwards.
void StorageBuffer::writePieces()
{
    writeFront(getPassed() - static_cast<size_t>(getPosition() % WRITE_SIZE));
}

/// Writes the buffer's first bytes to the stream; the others move up.
void StorageBuffer::writeFront(size_t count)
{
    if (mFailed)
        throw new SerializeException("The stream has failed before, nothing more can be written to it");
    if (count == 0)
        return;
    mFailed = true; // unless the stream takes it all
    mStream->write(mBegin, count);
    mFailed = false;
    const size_t rest = getPassed() - count;
    std::memmove(mBegin, mBegin + count, rest);
    mCursor = mBegin + rest;
    mBase += count;
}
} // namespace KORV::Common::Serialize
