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
    mBytes.resize(SIZE);
    mCursor = mBytes.data();
    mEnd = input ? mCursor : mCursor + SIZE;
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
    mCursor = mEnd = mBytes.data();
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
    unsigned char* const begin = mBytes.data();
    if (mInput && position >= mBase && position - mBase <= static_cast<size_t>(mEnd - begin))
    {
        mCursor = begin + (position - mBase);
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
    mCursor = mBytes.data();
    mEnd = mInput ? mCursor : mCursor + SIZE;
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
    const uint64 length = std::min<uint64>(mStream->read(mBytes.data(), SIZE), SIZE);
    mEnd += length;
    return length > 0;
}

void StorageBuffer::write(const void* source, size_t count)
{
    for (size_t done = 0; done < count;)
    {
        const size_t piece = std::min(count - done, SIZE);
        std::memcpy(makeRoom(piece), static_cast<const unsigned char*>(source) + done, piece);
        done += piece;
    }
}

void StorageBuffer::flush()
{
    const size_t count = static_cast<size_t>(mCursor - mBytes.data());
    moveStream(mBase + count);
    if (mFailed)
        throw new SerializeException("The stream has failed before, nothing more can be written to it");
    if (count == 0)
        return;
    mFailed = true; // unless the stream takes it all
    mStream->write(mBytes.data(), count);
    mFailed = false;
}
} // namespace KORV::Common::Serialize
