#include "korv/common/callback/callbackallocator.h"
#include "korv/common/container/segmentvector.h"
#include "korv/common/memory/memoryexception.h"
#include "support/test.h"

#include <vector>

using namespace KORV;
using namespace KORV::Common;
using Container::SegmentVector;

namespace
{
struct Counted
{
    static inline int sAlive = 0;

    explicit Counted(uint32 value = 0) : mValue(value) { ++sAlive; }
    Counted(const Counted& other) : mValue(other.mValue) { ++sAlive; }
    Counted& operator=(const Counted&) = default;
    ~Counted() { --sAlive; }

    uint32 mValue;
};
} // namespace

KORV_TEST(SegmentVector, elementsStayInPlaceAcrossSegments)
{
    constexpr uint32 COUNT = SegmentVector<Counted>::SEGMENT_SIZE + 10;
    const int aliveBefore = Counted::sAlive;
    {
        SegmentVector<Counted> vector(Memory::getDefaultAllocator());
        EXPECT_EQ(vector.capacity(), 0u);
        EXPECT_EQ(vector.append(Counted(0)), 0u);
        const Counted* first = &vector[0];
        for (uint32 i = 1; i < COUNT; ++i)
            vector.append(Counted(i));
        EXPECT_EQ(&vector[0], first);
        EXPECT_EQ(vector.size(), COUNT);
        EXPECT_EQ(vector.capacity(), 2u * SegmentVector<Counted>::SEGMENT_SIZE);
        for (const uint32 i : {0u, 65535u, 65536u, COUNT - 1})
        {
            EXPECT_EQ(vector[i].mValue, i);
            EXPECT_EQ(&vector[i], &vector.getUnchecked(i));
        }
        EXPECT_EQ(Counted::sAlive - aliveBefore, static_cast<int>(COUNT));
    }
    EXPECT_EQ(Counted::sAlive, aliveBefore);
}

KORV_TEST(SegmentVector, appendsManyAcrossSegments)
{
    constexpr uint32 COUNT = SegmentVector<uint32>::SEGMENT_SIZE;
    std::vector<uint32> numbers(2 * COUNT + 7);
    for (uint32 i = 0; i < numbers.size(); ++i)
        numbers[i] = i;
    SegmentVector<uint32> vector(Memory::getDefaultAllocator());
    uint32 size = 0;
    for (const uint32 count : {0u, 5u, COUNT - 5u, COUNT, COUNT + 3u, 2 * COUNT + 7u})
    {
        EXPECT_EQ(vector.append(numbers.data(), count), size);
        for (uint32 i = 0; i < count; ++i)
            ASSERT_EQ(vector[size + i], i);
        size += count;
        EXPECT_EQ(vector.size(), size);
    }
    EXPECT_LT(vector.capacity(), size + COUNT);
}

KORV_TEST(SegmentVector, anIndexOutOfRangeIsReportedAndReachesNoElement)
{
    SegmentVector<int> vector(Memory::getDefaultAllocator());
    vector.append(7);
    vector[1] = 9;
    expectReports({"index < mSize\nError Message: index out of range"});
    EXPECT_EQ(mTraces.back().mText,
              "KORV::Common::Container::SegmentVector::operator [] : index < mSize :  index out of range");
    EXPECT_EQ(vector[1], 0);
    dropReports();
    EXPECT_EQ(vector[0], 7);
}

KORV_TEST(SegmentVector, aSegmentThatMemoryRefusesLeavesTheElements)
{
    Testing::CountingMemory* memory = new Testing::CountingMemory;
    const SharedPtr<Callback::MemoryCallback> callback(memory);
    const Memory::AllocatorPtr base(new (callback) Callback::CallbackAllocator);
    SegmentVector<uint16> vector(base.get());
    for (uint32 i = 0; i < SegmentVector<uint16>::SEGMENT_SIZE; ++i)
        vector.append(static_cast<uint16>(i));
    for (const int64 allowed : {0, 1}) // the list of segments, the segment
    {
        memory->mFailAfter = allowed;
        Testing::expectThrow<Memory::OutOfMemoryException>([&] { vector.append(1); });
        EXPECT_EQ(vector.size(), 65536u);
        EXPECT_EQ(vector.capacity(), 65536u);
        EXPECT_EQ(vector[65535], 65535u);
    }
    memory->mFailAfter = -1;
    EXPECT_EQ(vector.append(5), 65536u);
}
