// The layout, numbers in the byte order that the first byte names:
//
//   byte order (1 byte), format version (uint32), place of the tables (uint64, 0 while they are not written),
//   items: type (1 byte), id of the name (uint32; a "Class exit" has none), value,
//   table of item names, table of type and instance names: count (uint32), then length (uint16), text and id (uint32).
//
// A reader trusts none of it: counts and lengths are held against what is left of the stream, ids against the tables.
// The ids in the tables say nothing new, names are numbered in their order.

#include "korv/common/serialize/binaryserializestorage.h"

#include "korv/common/debug/assert.h"
#include "korv/common/serialize/serializeexception.h"

#include <algorithm>
#include <exception>
#include <iterator>

namespace KORV::Common::Serialize
{
using Debug::MessageText;
using Exceptions::ArgumentException;
using Exceptions::ArgumentNullException;
using Platform::Endian::getSystemEncoding;

namespace
{
constexpr const char* TYPE_NAMES[] = {"bool",    "uint08",  "int08",   "uint16",      "int16",
                                      "uint32",  "int32",   "uint64",  "int64",       "float32",
                                      "float64", "BString", "WString", "Class enter", "Class exit"};

constexpr const char* HEADER = "header";
constexpr size_t TABLE_PLACE = 5; // in the header
constexpr size_t SMALLEST_TABLE_ENTRY = sizeof(uint16) + sizeof(uint32);

bool isType(uint32 type)
{
    return type >= 1 && type <= std::size(TYPE_NAMES);
}

[[noreturn, gnu::noinline]] void throwCorrupt(const MessageText& what)
{
    throw new SerializeException((MessageText() << "The stream is corrupted. " << what).c_str());
}

[[noreturn, gnu::noinline]] void throwEnd(uint64 end, const char* where)
{
    throwCorrupt(MessageText() << "It ends at byte " << end << ", inside '" << where << "'");
}

[[noreturn, gnu::noinline]] void throwNoType(uint32 type, uint64 offset)
{
    throwCorrupt(MessageText() << "The item at byte " << offset << " is of type " << type << ", which does not exist");
}

[[noreturn, gnu::noinline]] void throwMismatch(uint32 expected, uint32 found)
{
    const char* const expectedName = TYPE_NAMES[expected - 1];
    const char* const foundName = TYPE_NAMES[found - 1];
    const MessageText message = MessageText() << "Expected an item of type: '" << expectedName
                                              << "' but found an item of type: '" << foundName << "'";
    throw new TypeMismatchException(message.c_str(), foundName, expectedName);
}

void checkStream(bool suited, const char* message)
{
    if (!suited)
        throw new ArgumentException("stream", message);
}
} // namespace

BinarySerializeStorage::BinaryPosition::~BinaryPosition() = default;

bool BinarySerializeStorage::BinaryPosition::equals(const Position& other) const
{
    return other.getStorageType() == STORAGE_BINARY &&
           static_cast<const BinaryPosition&>(other).mStreamPosition == mStreamPosition;
}

BinarySerializeStorage::BinarySerializeStorage(uint32 serializeMode, Endiness endiness)
    : SerializeStorage(serializeMode, STORAGE_BINARY), mBuffer(getMemory()), mEndiness(endiness), mNameIDs(getMemory()),
      mTypeNameIDs(getMemory()), mNames(getMemory()), mTypeNames(getMemory())
{
    if (!KORV_COMMON_ASSERT("KORV::Common::Serialize::BinarySerializeStorage::BinarySerializeStorage",
                            serializeMode == SMODE_INPUT || endiness <= Platform::Endian::ENDIAN_LITTLE,
                            "endiness <= ENDIAN_LITTLE", "Byte order to write is neither big nor little endian"))
        mEndiness = getSystemEncoding();
}

BinarySerializeStorage::~BinarySerializeStorage()
{
    if (std::uncaught_exceptions() > mNumExceptions)
        detach(); // what was to be written is not complete, and must not look so
    try
    {
        BinarySerializeStorage::close();
    }
    catch (Exceptions::Exception* error)
    {
        KORV_COMMON_FAIL("KORV::Common::Serialize::BinarySerializeStorage::~BinarySerializeStorage",
                         "The storage could not be completed: " << error->getMessage());
        delete error;
    }
    catch (...) // a host's stream may throw anything
    {
        KORV_COMMON_FAIL("KORV::Common::Serialize::BinarySerializeStorage::~BinarySerializeStorage",
                         "The storage could not be completed");
    }
}

SharedPtr<SerializeStorage::Position> BinarySerializeStorage::getPosition()
{
    return SharedPtr<Position>(new (getAllocator()) BinaryPosition(mBuffer.getPosition()));
}

void BinarySerializeStorage::setPosition(SharedPtr<Position> position)
{
    constexpr const char* FUNCTION = "KORV::Common::Serialize::BinarySerializeStorage::setPosition";
    if (!KORV_COMMON_ASSERT(FUNCTION, position != nullptr, "position != NULL", "Position is a null pointer") ||
        !KORV_COMMON_ASSERT(FUNCTION, position->getStorageType() == STORAGE_BINARY,
                            "storagePos->getStorageType() == STORAGE_BINARY",
                            "Cannot use StoragePosition from wrong type") ||
        !KORV_COMMON_ASSERT(FUNCTION, isOpen(), "mStream != NULL", "No stream is open"))
        return;
    mBuffer.seek(static_cast<const BinaryPosition&>(*position).getStreamPosition());
}

void BinarySerializeStorage::open(const SharedPtr<Stream>& stream)
{
    const SharedPtr<Stream> kept(stream); // the caller may hand in a reference to ours
    close();
    if (kept == nullptr)
        throw new ArgumentNullException("stream", "IO stream cannot be a NULL pointer for a serialize stream");
    const bool isInput = getSerializeMode() == SMODE_INPUT;
    if (isInput)
    {
        checkStream(kept->canRead(), "IO stream has to be readable for an input serialize stream");
        checkStream(kept->canSeek(), "IO stream has to be seekable for an input serialize stream");
    }
    else
    {
        checkStream(kept->canWrite(), "IO stream has to be writable for an output serialize stream");
        checkStream(kept->canSeek(), "IO stream has to be seekable for an output serialize stream");
    }
    mNumExceptions = std::uncaught_exceptions();
    try
    {
        isInput ? openInput(kept) : openOutput(kept);
    }
    catch (...)
    {
        detach();
        throw;
    }
}

void BinarySerializeStorage::openInput(const SharedPtr<Stream>& stream)
{
    mBuffer.attachInput(stream);
    mStart = mBuffer.getPosition();
    uint8 order = 0;
    readBytes(&order, sizeof(order), HEADER);
    if (order > Platform::Endian::ENDIAN_LITTLE)
        throwCorrupt(MessageText() << "It starts with byte " << order << ", which is no byte order");
    mEndiness = static_cast<Endiness>(order);
    mSwapped = !KORV_COMMON_ASSERT("KORV::Common::Serialize::BinarySerializeStorage::open",
                                   mEndiness == getSystemEncoding(), "this->mEndiness == Endian::getSystemEncoding()",
                                   "Stream stored has not the same endiness as the current system. Performance "
                                   "warning, can be ignored !");
    const uint32 version = readNumber<uint32>(HEADER);
    if (version != FORMAT_VERSION)
        throw new VersionMismatchException(
            (MessageText() << "The input stream has a wrong version for this serialize storage. We found version '"
                           << version << "' but expected version '" << FORMAT_VERSION << "'")
                .c_str(),
            static_cast<int32>(version), FORMAT_VERSION);
    readTables(readNumber<uint64>(HEADER));
    mNumNames = static_cast<uint32>(mNames.size());
}

void BinarySerializeStorage::readTables(uint64 place)
{
    if (place == 0)
        throw new SerializeException("Stream is corrupted, no lookup table stored in the stream");
    const uint64 items = mBuffer.getPosition();
    const uint64 end = items + mBuffer.getRest();
    if (place < items || place > end)
        throwCorrupt(MessageText() << "The lookup tables should be at byte " << place << ", outside of the items and "
                                   << "tables from byte " << items << " to " << end);
    mBuffer.seek(place);
    readTable(mNames, "instance name lookup table");
    readTable(mTypeNames, "type name lookup table");
    mBuffer.seek(items);
}

void BinarySerializeStorage::readTable(NameTable& table, const char* what)
{
    const uint64 place = mBuffer.getPosition();
    const uint32 count = readNumber<uint32>(what);
    if (count > mBuffer.getRest() / SMALLEST_TABLE_ENTRY)
        throwCorrupt(MessageText() << "The " << what << " at byte " << place << " should hold " << count
                                   << " names, but only " << mBuffer.getRest() << " bytes follow");
    table.reserve(count);
    for (uint32 i = 0; i < count; ++i)
    {
        const uint16 length = readNumber<uint16>(what);
        if (length > MAX_NAME)
            throwCorrupt(MessageText() << "The " << what << " holds a name of length " << length << " before byte "
                                       << mBuffer.getPosition() << ", the longest possible is " << MAX_NAME);
        char text[MAX_NAME];
        readBytes(text, length, what);
        table.append(BasicString(text, length, getMemory()));
        readNumber<uint32>(what); // the id
    }
}

void BinarySerializeStorage::openOutput(const SharedPtr<Stream>& stream)
{
    mBuffer.attachOutput(stream);
    mStart = mBuffer.getPosition();
    mSwapped = mEndiness != getSystemEncoding();
    writeNumber(static_cast<uint8>(mEndiness));
    writeNumber(FORMAT_VERSION);
    writeNumber(uint64{0});
    mIsWriting = true;
}

void BinarySerializeStorage::close()
{
    try
    {
        if (mIsWriting && !mBuffer.hasFailed())
            writeTables();
    }
    catch (...)
    {
        detach();
        throw;
    }
    detach();
}

void BinarySerializeStorage::detach() noexcept
{
    mBuffer.detach();
    mIsWriting = false;
    mNumNames = 0;
    mNames.clear();
    mTypeNames.clear();
    mNameIDs.clear();
    mTypeNameIDs.clear();
}

void BinarySerializeStorage::writeTables()
{
    const uint64 place = mBuffer.getPosition();
    writeTable(mNames);
    writeTable(mTypeNames);
    mBuffer.seek(mStart + TABLE_PLACE);
    writeNumber(place);
    mBuffer.seekEnd();
}

void BinarySerializeStorage::writeTable(const NameTable& table)
{
    writeNumber(static_cast<uint32>(table.size()));
    uint32 id = 0;
    for (const BasicString& name : table)
    {
        writeNumber(static_cast<uint16>(name.size()));
        mBuffer.write(name.data(), name.size());
        writeNumber(id++);
    }
}

bool BinarySerializeStorage::checkReading(const char* function) const
{
    return (isOpen() && getSerializeMode() == SMODE_INPUT) || reportNotReading(function);
}

bool BinarySerializeStorage::checkWriting(const char* function) const
{
    return mIsWriting || reportNotWriting(function);
}

// Apart, because the texts of a report take much of the stack.
[[gnu::noinline]] bool BinarySerializeStorage::reportNotReading(const char* function) const
{
    return KORV_COMMON_ASSERT(function, getSerializeMode() == SMODE_INPUT, "getSerializeMode() == SMODE_INPUT",
                              "Cannot read on a write stream") &&
           KORV_COMMON_ASSERT(function, isOpen(), "mStream != NULL", "No stream is open");
}

[[gnu::noinline]] bool BinarySerializeStorage::reportNotWriting(const char* function) const
{
    return KORV_COMMON_ASSERT(function, getSerializeMode() == SMODE_OUTPUT, "getSerializeMode() == SMODE_OUTPUT",
                              "Cannot write on a read stream") &&
           KORV_COMMON_ASSERT(function, isOpen(), "mStream != NULL", "No stream is open");
}

void BinarySerializeStorage::readBytes(void* target, size_t count, const char* where)
{
    if (mBuffer.read(target, count) != count)
        throwEnd(mBuffer.getPosition(), where);
}

template <class T>
T BinarySerializeStorage::readNumber(const char* where)
{
    unsigned char bytes[sizeof(T)];
    readBytes(bytes, sizeof(T), where);
    return mSwapped ? load<true, T>(bytes) : load<false, T>(bytes);
}

/// Reads type and, where there is one, name of an item.
void BinarySerializeStorage::readItemStart(ItemType type, BasicString* name)
{
    const char* const where = TYPE_NAMES[type - 1];
    const uint64 place = mBuffer.getPosition();
    const uint8 found = readNumber<uint8>(where);
    if (!isType(found))
        throwNoType(found, place);
    if (found != type)
        throwMismatch(type, found);
    if (type == ITEM_CLASS_EXIT)
        return;
    const uint32 nameID = readNumber<uint32>(where);
    if (!mNames.isValid(nameID))
        throw new SerializeException("The stream is corrupted. The instance name lookup table is not valid");
    if (name != nullptr)
        *name = mNames[nameID];
}

template <class T>
T BinarySerializeStorage::readValueSlowly(BasicString* name)
{
    if (!checkReading("KORV::Common::Serialize::BinarySerializeStorage::readValue"))
        return T();
    readItemStart(ITEM_TYPE_OF<T>, name);
    return readNumber<T>(TYPE_NAMES[ITEM_TYPE_OF<T> - 1]);
}

// What the header's fast path falls back on.
template KORV_COMMON_API bool BinarySerializeStorage::readValueSlowly(BasicString*);
template KORV_COMMON_API uint8 BinarySerializeStorage::readValueSlowly(BasicString*);
template KORV_COMMON_API int8 BinarySerializeStorage::readValueSlowly(BasicString*);
template KORV_COMMON_API uint16 BinarySerializeStorage::readValueSlowly(BasicString*);
template KORV_COMMON_API int16 BinarySerializeStorage::readValueSlowly(BasicString*);
template KORV_COMMON_API uint32 BinarySerializeStorage::readValueSlowly(BasicString*);
template KORV_COMMON_API int32 BinarySerializeStorage::readValueSlowly(BasicString*);
template KORV_COMMON_API uint64 BinarySerializeStorage::readValueSlowly(BasicString*);
template KORV_COMMON_API int64 BinarySerializeStorage::readValueSlowly(BasicString*);
template KORV_COMMON_API float BinarySerializeStorage::readValueSlowly(BasicString*);
template KORV_COMMON_API double BinarySerializeStorage::readValueSlowly(BasicString*);

template <class T>
void BinarySerializeStorage::readNamed(BasicString& name, T& value)
{
    value = readValueSlowly<T>(&name);
}

void BinarySerializeStorage::readSkipValue(BasicString& name, uint32& type)
{
    name.clear();
    type = 0;
    if (!checkReading("KORV::Common::Serialize::BinarySerializeStorage::readSkipValue"))
        return;
    type = peekNextType();
    skipItem(name, type);
    BasicString inner(getMemory());
    for (uint64 depth = type == ITEM_CLASS_ENTER ? 1 : 0; depth > 0;)
    {
        const uint32 innerType = peekNextType();
        skipItem(inner, innerType);
        depth += innerType == ITEM_CLASS_ENTER ? 1 : 0;
        depth -= innerType == ITEM_CLASS_EXIT ? 1 : 0;
    }
}

/// Reads one item of any type, of a structure its start or its end.
void BinarySerializeStorage::skipItem(BasicString& name, uint32 type)
{
    if (!isType(type))
        throwNoType(type, mBuffer.getPosition());
    readItemStart(static_cast<ItemType>(type), &name);
    constexpr uint8 VALUE_SIZES[] = {1, 1, 1, 2, 2, 4, 4, 8, 8, 4, 8, 0, 0, 0, 0};
    unsigned char value[8];
    readBytes(value, VALUE_SIZES[type - 1], TYPE_NAMES[type - 1]);
    if (type == ITEM_BSTRING)
        skipText(sizeof(char), TYPE_NAMES[type - 1]);
    else if (type == ITEM_WSTRING)
        skipText(sizeof(char16_t), TYPE_NAMES[type - 1]);
    else if (type == ITEM_CLASS_ENTER)
    {
        readTypeName();
        readTypeName();
        readNumber<uint32>(TYPE_NAMES[type - 1]);
    }
}

void BinarySerializeStorage::skipText(size_t characterSize, const char* where)
{
    size_t left = readNumber<uint16>(where) * characterSize;
    while (left > 0)
    {
        unsigned char piece[256];
        const size_t count = std::min(left, sizeof(piece));
        readBytes(piece, count, where);
        left -= count;
    }
}

uint32 BinarySerializeStorage::peekNextType()
{
    if (!checkReading("KORV::Common::Serialize::BinarySerializeStorage::peekNextType"))
        return 0;
    const int32 type = mBuffer.peek();
    if (type < 0)
        throwCorrupt(MessageText() << "It ends at byte " << mBuffer.getPosition() << ", where an item should be");
    return static_cast<uint32>(type);
}

const BasicString& BinarySerializeStorage::readTypeName()
{
    const uint32 id = readNumber<uint32>(TYPE_NAMES[ITEM_CLASS_ENTER - 1]);
    if (!mTypeNames.isValid(id))
        throw new SerializeException("The stream is corrupted. The type name lookup table is not valid");
    return mTypeNames[id];
}

void BinarySerializeStorage::readClassEnter(BasicString& name, BasicString& typeName, BasicString& instanceName,
                                            uint32& version)
{
    version = 0;
    if (!checkReading("KORV::Common::Serialize::BinarySerializeStorage::readClassEnter"))
        return;
    readItemStart(ITEM_CLASS_ENTER, &name);
    typeName = readTypeName();
    instanceName = readTypeName();
    version = readNumber<uint32>(TYPE_NAMES[ITEM_CLASS_ENTER - 1]);
}

void BinarySerializeStorage::readClassExit()
{
    if (checkReading("KORV::Common::Serialize::BinarySerializeStorage::readClassExit"))
        readItemStart(ITEM_CLASS_EXIT, nullptr);
}

template <class String>
void BinarySerializeStorage::readText(ItemType type, BasicString& name, String& value)
{
    value.clear();
    if (!checkReading("KORV::Common::Serialize::BinarySerializeStorage::readText"))
        return;
    const char* const where = TYPE_NAMES[type - 1];
    readItemStart(type, &name);
    const size_t length = readNumber<uint16>(where);
    const size_t size = length * sizeof(typename String::value_type);
    if (size > mBuffer.getRest())
        throwEnd(mBuffer.getPosition() + mBuffer.getRest(), where);
    String text(length, typename String::value_type(), value.get_allocator());
    readBytes(text.data(), size, where);
    value = std::move(text);
}

void BinarySerializeStorage::readWString(BasicString& name, WideString& value)
{
    readText(ITEM_WSTRING, name, value);
}

void BinarySerializeStorage::readBString(BasicString& name, BasicString& value)
{
    readText(ITEM_BSTRING, name, value);
}

void BinarySerializeStorage::readFloat64(BasicString& name, double& value)
{
    readNamed(name, value);
}

void BinarySerializeStorage::readFloat32(BasicString& name, float& value)
{
    readNamed(name, value);
}

void BinarySerializeStorage::readInt64(BasicString& name, int64& value)
{
    readNamed(name, value);
}

void BinarySerializeStorage::readUInt64(BasicString& name, uint64& value)
{
    readNamed(name, value);
}

void BinarySerializeStorage::readInt32(BasicString& name, int32& value)
{
    readNamed(name, value);
}

void BinarySerializeStorage::readUInt32(BasicString& name, uint32& value)
{
    readNamed(name, value);
}

void BinarySerializeStorage::readInt16(BasicString& name, int16& value)
{
    readNamed(name, value);
}

void BinarySerializeStorage::readUInt16(BasicString& name, uint16& value)
{
    readNamed(name, value);
}

void BinarySerializeStorage::readInt08(BasicString& name, int8& value)
{
    readNamed(name, value);
}

void BinarySerializeStorage::readUInt08(BasicString& name, uint8& value)
{
    readNamed(name, value);
}

void BinarySerializeStorage::readBool(BasicString& name, bool& value)
{
    readNamed(name, value);
}
} // namespace KORV::Common::Serialize
