#include "korv/common/interface.h"
#include "korv/common/io/ioexception.h"
#include "korv/common/serialize/binaryserializestorage.h"
#include "korv/common/serialize/serializeexception.h"
#include "support/memorystream.h"
#include "support/test.h"

#include <cmath>
#include <functional>
#include <limits>
#include <stdexcept>

using namespace KORV;
using namespace KORV::Common;
using namespace KORV::Common::Serialize;
using Exceptions::ArgumentException;
using Platform::Endian::ENDIAN_BIG;
using Platform::Endian::ENDIAN_LITTLE;
using Platform::Endian::ENDIAN_UNKNOWN;
using Platform::Endian::Endiness;
using Testing::expectThrow;
using Testing::MemoryStream;

namespace
{
const std::string WARNING = "this->mEndiness == Endian::getSystemEncoding()\nError Message: Stream stored has not the "
                            "same endiness as the current system. Performance warning, can be ignored !";

/// A storage and its stream. The bytes are built by plain code of the test.
struct Fixture
{
    explicit Fixture(uint32 mode, Endiness endiness = ENDIAN_LITTLE, std::string_view bytes = {})
        : mStream(new (Interface::getSharedAllocator()) MemoryStream(bytes)), mShared(mStream), mStorage(mode, endiness)
    {
    }
    static Fixture output(Endiness endiness = ENDIAN_LITTLE) { return Fixture(SMODE_OUTPUT, endiness); }

    std::string bytes() const { return std::string(mStream->text()); }

    MemoryStream* mStream;
    SharedPtr<Stream> mShared;
    BinarySerializeStorage mStorage;
};

/// Puts numbers into a byte string, in either order.
struct Bytes
{
    explicit Bytes(bool big = false) : mBig(big) {}

    Bytes& put(uint64 value, int size)
    {
        for (int i = 0; i < size; ++i)
            mText += static_cast<char>(value >> 8 * (mBig ? size - 1 - i : i));
        return *this;
    }
    Bytes& text(std::string_view value)
    {
        mText += value;
        return *this;
    }
    Bytes& header(uint64 tables) { return put(mBig ? 0 : 1, 1).put(1, 4).put(tables, 8); }
    Bytes& table(const std::vector<std::string>& names)
    {
        put(names.size(), 4);
        for (const std::string& name : names)
            put(name.size(), 2).text(name).put(0xDEAD, 4); // the ids play no part
        return *this;
    }

    std::string mText;
    bool mBig;
};

/// A whole stream with these items, and the names "a" and "T".
std::string streamWith(const std::string& items)
{
    return Bytes().header(13 + items.size()).text(items).table({"a"}).table({"T"}).mText;
}

std::string refused(const std::string& bytes, const std::function<void(BinarySerializeStorage&)>& read)
{
    Fixture input(SMODE_INPUT, ENDIAN_UNKNOWN, bytes);
    return expectThrow<SerializeException>(
        [&]
        {
            input.mStorage.open(input.mShared);
            read(input.mStorage);
        });
}

void writeAll(SerializeStorage& storage)
{
    storage.writeClassEnter("object", "Type", "instance", 7);
    storage.writeBool("bool", true);
    storage.writeUInt08("u8", 200);
    storage.writeInt08("i8", -100);
    storage.writeUInt16("u16", 65535);
    storage.writeInt16("i16", -32768);
    storage.writeUInt32("u32", 0x01020304);
    storage.writeInt32("i32", std::numeric_limits<int32>::min());
    storage.writeUInt64("u64", 0x0102030405060708);
    storage.writeInt64("i64", std::numeric_limits<int64>::min());
    storage.writeFloat32("f32", -0.0f);
    storage.writeFloat64("f64", 1e300);
    storage.writeBString("text", BasicString("a\0b", 3));
    storage.writeWString("wide", u"\x0102\xFFFF");
    storage.writeClassExit();
}

template <class T, class Read>
void expectNext(const char* expectedName, const T& expected, Read read)
{
    BasicString name;
    T value{};
    read(name, value);
    EXPECT_EQ(name, expectedName);
    EXPECT_TRUE(value == expected) << expectedName;
}

void readAll(SerializeStorage& s)
{
    BasicString name, type, instance;
    uint32 version = 0;
    s.readClassEnter(name, type, instance, version);
    EXPECT_EQ(name + "," + type + "," + instance, "object,Type,instance");
    EXPECT_EQ(version, 7u);
    expectNext<bool>("bool", true, [&](auto& n, auto& v) { s.readBool(n, v); });
    expectNext<uint8>("u8", 200, [&](auto& n, auto& v) { s.readUInt08(n, v); });
    expectNext<int8>("i8", -100, [&](auto& n, auto& v) { s.readInt08(n, v); });
    expectNext<uint16>("u16", 65535, [&](auto& n, auto& v) { s.readUInt16(n, v); });
    expectNext<int16>("i16", -32768, [&](auto& n, auto& v) { s.readInt16(n, v); });
    expectNext<uint32>("u32", 0x01020304, [&](auto& n, auto& v) { s.readUInt32(n, v); });
    expectNext<int32>("i32", std::numeric_limits<int32>::min(), [&](auto& n, auto& v) { s.readInt32(n, v); });
    expectNext<uint64>("u64", 0x0102030405060708, [&](auto& n, auto& v) { s.readUInt64(n, v); });
    expectNext<int64>("i64", std::numeric_limits<int64>::min(), [&](auto& n, auto& v) { s.readInt64(n, v); });
    float zero = 1.0f;
    s.readFloat32(name, zero);
    EXPECT_TRUE(zero == 0.0f && std::signbit(zero));
    expectNext<double>("f64", 1e300, [&](auto& n, auto& v) { s.readFloat64(n, v); });
    expectNext<BasicString>("text", BasicString("a\0b", 3), [&](auto& n, auto& v) { s.readBString(n, v); });
    expectNext<WideString>("wide", u"\x0102\xFFFF", [&](auto& n, auto& v) { s.readWString(n, v); });
    s.readClassExit();
}
} // namespace

KORV_TEST(Storage, layoutIsAsDocumented)
{
    Fixture empty = Fixture::output();
    empty.mStorage.open(empty.mShared);
    empty.mStorage.close();
    EXPECT_EQ(empty.bytes(), Bytes().header(13).table({}).table({}).mText);
    EXPECT_EQ(empty.bytes().size(), 21u);

    for (const bool big : {false, true})
    {
        Fixture output = Fixture::output(big ? ENDIAN_BIG : ENDIAN_LITTLE);
        output.mStorage.open(output.mShared);
        output.mStorage.writeInt32("a", 5);
        output.mStorage.writeFloat32("a", 1.0f); // the name again
        output.mStorage.writeClassEnter("b", "T", "T", 3);
        output.mStorage.writeWString("b", u"\x0102");
        output.mStorage.writeClassExit();
        output.mStorage.close();
        Bytes items(big);
        items.put(7, 1).put(0, 4).put(5, 4).put(10, 1).put(0, 4).put(0x3F800000, 4);
        items.put(14, 1).put(1, 4).put(0, 4).put(0, 4).put(3, 4);
        items.put(13, 1).put(1, 4).put(1, 2).text("\x02\x01").put(15, 1); // wide characters are never swapped
        Bytes expected(big);
        expected.header(13 + items.mText.size()).text(items.mText);
        expected.put(2, 4).put(1, 2).text("a").put(0, 4).put(1, 2).text("b").put(1, 4);
        expected.put(1, 4).put(1, 2).text("T").put(0, 4);
        EXPECT_EQ(output.bytes(), expected.mText);
    }
}

KORV_TEST(Storage, everyTypeComesBackInBothByteOrders)
{
    for (const Endiness endiness : {ENDIAN_LITTLE, ENDIAN_BIG})
    {
        Fixture output = Fixture::output(endiness);
        output.mStorage.open(output.mShared);
        writeAll(output.mStorage);
        output.mStorage.close();
        EXPECT_FALSE(output.mStream->isClosed());

        Fixture input(SMODE_INPUT, ENDIAN_UNKNOWN, output.bytes());
        input.mStorage.open(input.mShared);
        EXPECT_EQ(input.mStorage.getEndiness(), endiness);
        readAll(input.mStorage);
        if (endiness == ENDIAN_BIG)
            expectReports({WARNING});
    }
}

// The buffer is refilled in the middle of items, and lists are longer than it.
KORV_TEST(Storage, listsAndRecordsCrossTheBuffer)
{
    std::vector<uint32> list(30001);
    for (uint32 i = 0; i < list.size(); ++i)
        list[i] = i * 2654435761u;
    for (const Endiness endiness : {ENDIAN_LITTLE, ENDIAN_BIG})
    {
        Fixture output = Fixture::output(endiness);
        output.mStorage.open(output.mShared);
        BinarySerializeStorage::ItemName names[] = {"x", "y"};
        BinarySerializeStorage::ItemName element("element");
        for (uint16 i = 0; i < 9000; ++i)
            output.mStorage.writeValues(names, static_cast<double>(i), i);
        output.mStorage.writeList(element, list.data(), list.size());
        output.mStorage.writeList(element, list.data(), 0);
        output.mStorage.writeBString("z", BasicString(65535, 'z'));
        output.mStorage.close();
        EXPECT_LT(output.mStream->mWrites, 80u); // half a megabyte, in pages

        Fixture input(SMODE_INPUT, ENDIAN_UNKNOWN, output.bytes());
        input.mStorage.open(input.mShared);
        bool same = true;
        for (uint16 i = 0; i < 9000; ++i)
        {
            double x = 0;
            uint16 y = 0;
            input.mStorage.readValues(x, y);
            same = same && x == i && y == i;
        }
        std::vector<uint32> found(list.size());
        input.mStorage.readList(found.data(), found.size());
        EXPECT_TRUE(same && found == list);
        expectNext<BasicString>("z", BasicString(65535, 'z'),
                                [&](auto& n, auto& v) { input.mStorage.readBString(n, v); });
        dropReports();
    }
}

KORV_TEST(Storage, positionsPeekingAndSkippingSeeTheStreamWithoutABuffer)
{
    Fixture output = Fixture::output();
    output.mStorage.open(output.mShared);
    const SharedPtr<SerializeStorage::Position> start = output.mStorage.getPosition();
    output.mStorage.writeInt32("n", 0);
    output.mStorage.writeClassEnter("outer", "T", "o", 1);
    for (uint32 i = 0; i < 20000; ++i) // more than a buffer of structures in each other
        output.mStorage.writeClassEnter("inner", "T", "i", i);
    writeAll(output.mStorage);
    for (uint32 i = 0; i < 20000; ++i)
        output.mStorage.writeClassExit();
    output.mStorage.writeClassExit();
    output.mStorage.writeInt32("last", 3);
    const SharedPtr<SerializeStorage::Position> end = output.mStorage.getPosition();
    output.mStorage.setPosition(start);
    output.mStorage.writeInt32("n", 2); // over the first
    output.mStorage.setPosition(end);
    output.mStorage.close();
    EXPECT_EQ(output.mStream->getPosition(), output.mStream->getLength());

    Fixture input(SMODE_INPUT, ENDIAN_UNKNOWN, output.bytes());
    SerializeStorage& storage = input.mStorage;
    storage.open(input.mShared);
    EXPECT_TRUE(*storage.getPosition() == *start);
    EXPECT_FALSE(*storage.getPosition() == *end);
    expectNext<int32>("n", 2, [&](auto& n, auto& v) { storage.readInt32(n, v); });
    EXPECT_EQ(storage.peekNextType(), uint32(ITEM_CLASS_ENTER));
    EXPECT_EQ(storage.peekNextType(), uint32(ITEM_CLASS_ENTER));
    BasicString name;
    uint32 type = 0;
    storage.readSkipValue(name, type);
    EXPECT_EQ(name, "outer");
    EXPECT_EQ(type, uint32(ITEM_CLASS_ENTER));
    storage.setPosition(start);
    storage.readSkipValue(name, type);
    EXPECT_EQ(name, "n");
    storage.readSkipValue(name, type);
    storage.readSkipValue(name, type);
    EXPECT_EQ(name, "last");
    EXPECT_TRUE(*storage.getPosition() == *end);
    storage.close();
    EXPECT_EQ(input.mStream->getPosition(),
              static_cast<const BinarySerializeStorage::BinaryPosition&>(*end).getStreamPosition());
}

KORV_TEST(Storage, aFailedReadLeavesTheStreamWhereItStopped)
{
    const std::string items = Bytes().put(7, 1).put(0, 4).put(5, 4).mText;
    Fixture input(SMODE_INPUT, ENDIAN_UNKNOWN, streamWith(items));
    input.mStorage.open(input.mShared);
    BasicString name;
    uint32 value = 0;
    EXPECT_EQ(expectThrow<TypeMismatchException>([&] { input.mStorage.readUInt32(name, value); }),
              "Expected an item of type: 'uint32' but found an item of type: 'int32'");
    EXPECT_EQ(input.mStorage.getOffset(), 14u);
    input.mStorage.close();
    EXPECT_EQ(input.mStream->getPosition(), 14u);
}

KORV_TEST(Storage, unsuitableStreamsAreRefused)
{
    const struct
    {
        uint32 mMode;
        bool MemoryStream::*mLacks;
        const char* mMessage;
    } rows[] = {
        {SMODE_INPUT, &MemoryStream::mReadable, "IO stream has to be readable for an input serialize stream"},
        {SMODE_INPUT, &MemoryStream::mSeekable, "IO stream has to be seekable for an input serialize stream"},
        {SMODE_OUTPUT, &MemoryStream::mWritable, "IO stream has to be writable for an output serialize stream"},
        {SMODE_OUTPUT, &MemoryStream::mSeekable, "IO stream has to be seekable for an output serialize stream"},
    };
    for (const auto& row : rows)
    {
        Fixture fixture(row.mMode);
        fixture.mStream->*row.mLacks = false;
        EXPECT_EQ(expectThrow<ArgumentException>([&] { fixture.mStorage.open(fixture.mShared); }), row.mMessage);
        EXPECT_EQ(fixture.bytes(), "");
    }
}

KORV_TEST(Storage, headersAndTablesAreNotTrusted)
{
    const auto none = [](BinarySerializeStorage&) {};
    const std::string corrupt = "The stream is corrupted. ";
    EXPECT_EQ(refused("", none), corrupt + "It ends at byte 0, inside 'header'");
    EXPECT_EQ(refused("<KORV>", none), corrupt + "It starts with byte 60, which is no byte order");
    EXPECT_EQ(refused(Bytes().put(1, 1).put(2, 4).put(13, 8).mText, none),
              "The input stream has a wrong version for this serialize storage. We found version '2' but expected "
              "version '1'");
    EXPECT_EQ(refused(Bytes().header(0).mText, none), "Stream is corrupted, no lookup table stored in the stream");
    for (const uint64 place : {uint64(1), uint64(12), uint64(22), uint64(1) << 63, ~uint64(0)})
        EXPECT_EQ(refused(Bytes().header(place).table({}).table({}).mText, none),
                  corrupt + "The lookup tables should be at byte " + std::to_string(place) +
                      ", outside of the items and tables from byte 13 to 21");
    EXPECT_EQ(refused(Bytes().header(13).put(0xFFFFFFFF, 4).put(0, 4).mText, none),
              corrupt + "The instance name lookup table at byte 13 should hold 4294967295 names, but only 4 bytes "
                        "follow");
    EXPECT_EQ(refused(Bytes().header(13).table({}).table({std::string(2048, 'x')}).mText, none),
              corrupt + "The type name lookup table holds a name of length 2048 before byte 23, the longest possible "
                        "is 2047");
    EXPECT_EQ(refused(Bytes().header(13).put(1, 4).put(9, 2).text("abcdefg").mText, none),
              corrupt + "It ends at byte 26, inside 'instance name lookup table'");
    refused(Bytes().header(17).put(0, 4).table({}).mText, none);

    Fixture longest(SMODE_INPUT, ENDIAN_UNKNOWN, Bytes().header(13).table({std::string(2047, 'x')}).table({}).mText);
    longest.mStorage.open(longest.mShared);
}

KORV_TEST(Storage, itemsAreNotTrusted)
{
    BasicString name, text;
    uint32 version = 0;
    int32 number = 0;
    const auto readInt32 = [&](BinarySerializeStorage& s) { s.readInt32(name, number); };
    const auto skip = [&](BinarySerializeStorage& s) { s.readSkipValue(name, version); };
    for (const uint64 type : {0u, 16u, 255u})
    {
        const std::string message = "The stream is corrupted. The item at byte 13 is of type " + std::to_string(type) +
                                    ", which does not exist";
        EXPECT_EQ(refused(streamWith(Bytes().put(type, 1).put(0, 8).mText), readInt32), message);
        EXPECT_EQ(refused(streamWith(Bytes().put(type, 1).put(0, 8).mText), skip), message);
    }
    const std::string noName = streamWith(Bytes().put(7, 1).put(1, 4).put(0, 4).mText);
    for (const auto& read :
         std::vector<std::function<void(BinarySerializeStorage&)>>{
             readInt32, skip, [](BinarySerializeStorage& s) { s.readValue<int32>(); },
             [&](BinarySerializeStorage& s) { s.readList(&number, 1); }})
        EXPECT_EQ(refused(noName, read), "The stream is corrupted. The instance name lookup table is not valid");
    for (const uint64 instance : {uint64(1), ~uint64(0)})
    {
        const std::string items = Bytes().put(14, 1).put(0, 4).put(0, 4).put(instance, 4).put(0, 4).mText;
        EXPECT_EQ(
            refused(streamWith(items), [&](BinarySerializeStorage& s) { s.readClassEnter(name, text, text, version); }),
            "The stream is corrupted. The type name lookup table is not valid");
    }
    const std::string endless =
        Bytes().header(13).table({"a"}).table({}).put(12, 1).put(0, 4).put(9, 2).mText + "12345678";
    EXPECT_EQ(refused(endless,
                      [&](BinarySerializeStorage& s)
                      {
                          s.setPosition(SharedPtr<SerializeStorage::Position>(
                              new (s.getAllocator()) BinarySerializeStorage::BinaryPosition(28)));
                          s.readBString(name, text);
                      }),
              "The stream is corrupted. It ends at byte 43, inside 'BString'");
    // a structure without an end runs into the tables, and then out of the stream
    refused(streamWith(Bytes().put(14, 1).put(0, 4).put(0, 4).put(0, 4).put(0, 4).mText), skip);
}

KORV_TEST(Storage, textsTooLongToBeReadBackAreNotWritten)
{
    Fixture output = Fixture::output();
    SerializeStorage& storage = output.mStorage;
    storage.open(output.mShared);
    storage.writeBool(BasicString(2047, 'n'), true);
    const auto position = storage.getPosition();
    EXPECT_EQ(expectThrow<SerializeException>([&] { storage.writeBool(BasicString(2048, 'n'), true); }),
              "A name of length 2048 cannot be stored, the longest possible is 2047");
    expectThrow<SerializeException>([&] { storage.writeClassEnter("a", BasicString(2048, 'n'), "", 0); });
    expectThrow<SerializeException>([&] { storage.writeBString("a", BasicString(65536, 'n')); });
    expectThrow<SerializeException>([&] { storage.writeWString("a", WideString(65536, u'n')); });
    EXPECT_TRUE(*position == *storage.getPosition());
}

KORV_TEST(Storage, misuseIsReportedAndHarmless)
{
    Fixture output = Fixture::output();
    Fixture input(SMODE_INPUT, ENDIAN_UNKNOWN, streamWith(""));
    BasicString name("stays?");
    uint32 type = 77;
    int32 number = 5;
    output.mStorage.open(output.mShared);
    output.mStorage.readSkipValue(name, type);
    EXPECT_EQ(output.mStorage.readValue<int32>(), 0);
    output.mStorage.readInt32(name, number);
    EXPECT_TRUE(name.empty() && type == 0 && number == 0);
    const std::string noRead = "getSerializeMode() == SMODE_INPUT\nError Message: Cannot read on a write stream";
    expectReports({noRead, noRead, noRead});

    input.mStorage.readClassExit();
    expectReports({"mStream != NULL\nError Message: No stream is open"});
    input.mStorage.open(input.mShared);
    input.mStorage.writeInt32("a", 1);
    BinarySerializeStorage::ItemName item("a");
    input.mStorage.writeList(item, &number, 1);
    EXPECT_EQ(dropReports(), 2u);
    input.mStorage.setPosition(nullptr);
    EXPECT_EQ(dropReports(), 1u);

    struct OtherPosition : SerializeStorage::Position
    {
        OtherPosition() : Position(99) {}
        bool equals(const Position&) const override { return false; }
    };
    const SharedPtr<SerializeStorage::Position> other(new (input.mStorage.getAllocator()) OtherPosition);
    input.mStorage.setPosition(other);
    expectReports({"storagePos->getStorageType() == STORAGE_BINARY\nError Message: Cannot use StoragePosition from "
                   "wrong type"});
    EXPECT_FALSE(*input.mStorage.getPosition() == *other);
}

// A stream that lacks something must not look whole.
KORV_TEST(Storage, noTablesAfterAFailure)
{
    const auto tablesOf = [](const std::string& bytes) { return bytes.size() < 13 ? "" : bytes.substr(5, 8); };
    const std::string none(8, '\0');
    {
        Fixture output = Fixture::output();
        output.mStream->mCapacity = 70000;
        expectThrow<IO::OutOfSpaceException>(
            [&]
            {
                output.mStorage.open(output.mShared);
                for (;;)
                    output.mStorage.writeUInt64("value", 1);
            });
        output.mStream->mCapacity = 1000000;
        expectThrow<SerializeException>(
            [&]
            {
                for (;;)
                    output.mStorage.writeUInt64("value", 1);
            });
        output.mStorage.close();
        EXPECT_EQ(tablesOf(output.bytes()), none);
    }
    {
        SharedPtr<Stream> stream(new (Interface::getSharedAllocator()) MemoryStream);
        try
        {
            BinarySerializeStorage storage(SMODE_OUTPUT, ENDIAN_LITTLE);
            storage.open(stream);
            storage.writeInt32("a", 1);
            throw std::runtime_error("the host's own trouble");
        }
        catch (const std::runtime_error&)
        {
        }
        EXPECT_NE(tablesOf(std::string(static_cast<MemoryStream&>(*stream).text())),
                  std::string("\x16") + none.substr(1));
        EXPECT_EQ(stream->getLength(), 0u);
    }
    SharedPtr<Stream> full(new (Interface::getSharedAllocator()) MemoryStream);
    static_cast<MemoryStream&>(*full).mCapacity = 3;
    {
        BinarySerializeStorage storage(SMODE_OUTPUT, ENDIAN_LITTLE);
        storage.open(full);
    }
    expectReports({"\nError Message: The storage could not be completed: the memory stream is full"});
    {
        BinarySerializeStorage storage(SMODE_OUTPUT, ENDIAN_LITTLE);
        storage.open(full);
        expectThrow<IO::OutOfSpaceException>([&] { storage.close(); });
    }
}

KORV_TEST(Storage, runningOutOfMemoryLeaksNothing)
{
    SharedPtr<Stream> stream(new (Interface::getSharedAllocator()) MemoryStream);
    bool done = false;
    for (int64 limit = 0; !done && limit < 1000; ++limit)
    {
        mMemory->mFailAfter = limit;
        try
        {
            BinarySerializeStorage output(SMODE_OUTPUT, ENDIAN_LITTLE);
            stream->seek(0, IO::SORIGIN_START);
            output.open(stream);
            writeAll(output);
            output.close();
            stream->seek(0, IO::SORIGIN_START);
            BinarySerializeStorage input(SMODE_INPUT, ENDIAN_UNKNOWN);
            input.open(stream);
            readAll(input);
            done = true;
        }
        catch (Exceptions::Exception* error)
        {
            mMemory->mFailAfter = -1;
            EXPECT_EQ(error->getName(), "OutOfMemoryException");
            delete error;
        }
        mMemory->mFailAfter = -1;
        dropReports(); // the allocators' own
    }
    EXPECT_TRUE(done);
}
