#pragma once

#include "korv/common/types.h"

#include <algorithm>
#include <limits>

namespace KORV::Common::Parser::XML
{
/// Line and row of errors in a document, in constant memory. Lines are counted where a reader steps over white space
/// between its tokens; line feeds inside texts, values and comments don't count. A position is recorded once, however
/// often it is stepped over, and positions come in ascending order, with one exception: before a start tag is read, the
/// white space behind it has been looked at. That run is kept as a range and counted when the reader gets there.
class LineCounter
{
public:
    explicit LineCounter(const char* buffer) : mBuffer(buffer) {}

    /// A line feed was stepped over.
    void record(uint64 position)
    {
        if (position < mFrontier)
            return;
        if (mAheadBegin < position)
            countAhead(position);
        count(position);
        if (position == mErrorPosition)
            rememberError();
    }
    /// White space of this range was stepped over ahead of the reader.
    void recordAhead(uint64 begin, uint64 end)
    {
        countAhead(mAheadEnd);
        mAheadBegin = begin;
        mAheadEnd = end;
    }
    /// The reader steps over white space from here.
    void enterSpace(uint64 position)
    {
        if (position == mAheadBegin)
            mAheadBegin = mAheadEnd; // it is counted on the way
    }

    /// A step of the reader starts; errors are located here.
    void setErrorPosition(uint64 position)
    {
        if (mAheadBegin <= position)
            countAhead(position + 1);
        mErrorPosition = position;
        rememberError();
    }
    uint32 getErrorLine() const { return static_cast<uint32>(mErrorCount + 1); }
    uint32 getErrorRow() const { return static_cast<uint32>(mErrorPosition - mErrorLast); }

private:
    void count(uint64 position)
    {
        ++mCount;
        mLast = position;
        mFrontier = position + 1;
    }
    /// Counts the line feeds ahead that lie before @p limit.
    void countAhead(uint64 limit)
    {
        const uint64 end = std::min(limit, mAheadEnd);
        for (uint64 i = std::max(mAheadBegin, mFrontier); i < end; ++i)
        {
            if (mBuffer[i] == '\n')
                count(i);
        }
        mAheadBegin = std::max(mAheadBegin, end);
    }
    void rememberError()
    {
        mErrorCount = mCount;
        mErrorLast = mLast;
    }

    const char* mBuffer;
    uint64 mCount = 0;
    uint64 mLast = 0;     // of the last one counted
    uint64 mFrontier = 0; // all below are counted
    uint64 mAheadBegin = std::numeric_limits<uint64>::max();
    uint64 mAheadEnd = 0;
    uint64 mErrorPosition = 0;
    uint64 mErrorCount = 0;
    uint64 mErrorLast = 0;
};
} // namespace KORV::Common::Parser::XML
