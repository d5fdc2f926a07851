#pragma once

#include "korv/common/container/idvector.h"
#include "korv/common/container/nodecontainers.h"
#include "korv/common/platform/endian.h"
#include "korv/common/serialize/serializestorage.h"
#include "korv/common/serialize/storagebuffer.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

namespace KORV::Common::Serialize
{
using Platform::Endian::Endiness;

/// Type of an item, as its first byte says.
enum ItemType : uint8
{
    ITEM_BOOL = 1,
    ITEM_UINT08,
    ITEM_INT08,
    ITEM_UINT16,
    ITEM_INT16,
    ITEM_UINT32,
    ITEM_INT32,
    ITEM_UINT64,
    ITEM_INT64,
    ITEM_FLOAT32,
    ITEM_FLOAT64,
    ITEM_BSTRING,
    ITEM_WSTRING,
    ITEM_CLASS_ENTER,
    ITEM_CLASS_EXIT ///< without a name
};

/// The item type of a number.
template <class T>
inline constexpr ItemType ITEM_TYPE_OF = ItemType(0);
template <>
inline constexpr ItemType ITEM_TYPE_OF<bool> = ITEM_BOOL;
template <>
inline constexpr ItemType ITEM_TYPE_OF<uint8> = ITEM_UINT08;
template <>
inline constexpr ItemType ITEM_TYPE_OF<int8> = ITEM_INT08;
template <>
inline constexpr ItemType ITEM_TYPE_OF<uint16> = ITEM_UINT16;
template <>
inline constexpr ItemType ITEM_TYPE_OF<int16> = ITEM_INT16;
template <>
inline constexpr ItemType ITEM_TYPE_OF<uint32> = ITEM_UINT32;
template <>
inline constexpr ItemType ITEM_TYPE_OF<int32> = ITEM_INT32;
template <>
inline constexpr ItemType ITEM_TYPE_OF<uint64> = ITEM_UINT64;
template <>
inline constexpr ItemType ITEM_TYPE_OF<int64> = ITEM_INT64;
template <>
inline constexpr ItemType ITEM_TYPE_OF<float> = ITEM_FLOAT32;
template <>
inline constexpr ItemType ITEM_TYPE_OF<double> = ITEM_FLOAT64;

/// Items on a seekable stream in a compact form: a header, tagged items whose names are ids, and two tables of the
/// names behind them. Either byte order is read; one that is not the system's is reported as a warning.
///
/// A stream that is not what it claims throws a SerializeException. An item of another type than asked for throws a
/// TypeMismatchException, a stream of another version a VersionMismatchException, an unsuitable stream an
/// ArgumentException; the stream's own exceptions pass through. Reading without an open stream or from one to be
/// written, and the reverse, is reported; what is read is then 0 or empty.
///
/// Bytes pass through a buffer of the storage: while a stream is attached, nobody else should move it.
class KORV_COMMON_API BinarySerializeStorage : public SerializeStorage
{
public:
    /// A place in the stream.
    class KORV_COMMON_API BinaryPosition : public Position
    {
    public:
        explicit BinaryPosition(uint64 streamPosition) : Position(STORAGE_BINARY), mStreamPosition(streamPosition) {}
        ~BinaryPosition() override;
        bool equals(const Position& other) const override;
        /// From the stream's start. [bytes]
        uint64 getStreamPosition() const { return mStreamPosition; }

    private:
        uint64 mStreamPosition;
    };

    /// A name that is looked up only once. It belongs to one storage, and one opening of it.
    class ItemName
    {
    public:
        constexpr ItemName(const char* text) : mText(text) {} // NOLINT: a list of names is a list of texts

        /// Valid once the name has been written or prepared.
        uint32 getID() const { return mID; }

    private:
        friend class BinarySerializeStorage;

        static constexpr uint32 NO_ID = 0xFFFFFFFF;

        const char* mText;
        uint32 mID = NO_ID;
    };

    static constexpr uint32 FORMAT_VERSION = 1;
    /// Longest item, type or instance name that can be read back. [bytes]
    static constexpr size_t MAX_NAME = 2047;
    /// Longest string. [bytes, or 16-bit units]
    static constexpr size_t MAX_STRING = 65535;
    /// Size of a number's item. [bytes]
    template <class T>
    static constexpr size_t ITEM_SIZE = 1 + sizeof(uint32) + sizeof(T); // type, name, value
    /// Most that can be written as one block. [bytes]
    static constexpr size_t MAX_BLOCK = StorageBuffer::MAX_ROOM;

    /// @param serializeMode  a SerializeMode.
    /// @param endiness  byte order to write; a storage that reads is told by the stream.
    BinarySerializeStorage(uint32 serializeMode, Endiness endiness);
    /// Closes the storage. Never throws: a failure to write the tables is reported. After a failure, or while an
    /// exception passes, the tables are not written; such a stream cannot be read back.
    ~BinarySerializeStorage() override;

    SharedPtr<Position> getPosition() override;
    void setPosition(SharedPtr<Position> position) override;
    void open(const SharedPtr<Stream>& stream) override;
    /// A stream that was read is left behind the last item read, one that was written at its end.
    void close() override;
    void readSkipValue(BasicString& name, uint32& type) override;
    uint32 peekNextType() override;

    void readClassEnter(BasicString& name, BasicString& typeName, BasicString& instanceName, uint32& version) override;
    void readClassExit() override;
    void readWString(BasicString& name, WideString& value) override;
    void readBString(BasicString& name, BasicString& value) override;
    void readFloat64(BasicString& name, double& value) override;
    void readFloat32(BasicString& name, float& value) override;
    void readInt64(BasicString& name, int64& value) override;
    void readUInt64(BasicString& name, uint64& value) override;
    void readInt32(BasicString& name, int32& value) override;
    void readUInt32(BasicString& name, uint32& value) override;
    void readInt16(BasicString& name, int16& value) override;
    void readUInt16(BasicString& name, uint16& value) override;
    void readInt08(BasicString& name, int8& value) override;
    void readUInt08(BasicString& name, uint8& value) override;
    void readBool(BasicString& name, bool& value) override;

    // A name or string that is too long throws a SerializeException; nothing of the item is then written.

    void writeClassEnter(const BasicString& name, const BasicString& typeName, const BasicString& instanceName,
                         uint32 version) override;
    void writeClassExit() override;
    void writeWString(const BasicString& name, const WideString& value) override;
    void writeBString(const BasicString& name, const BasicString& value) override;
    void writeFloat64(const BasicString& name, double value) override;
    void writeFloat32(const BasicString& name, float value) override;
    void writeInt64(const BasicString& name, int64 value) override;
    void writeUInt64(const BasicString& name, uint64 value) override;
    void writeInt32(const BasicString& name, int32 value) override;
    void writeUInt32(const BasicString& name, uint32 value) override;
    void writeInt16(const BasicString& name, int16 value) override;
    void writeUInt16(const BasicString& name, uint16 value) override;
    void writeInt08(const BasicString& name, int8 value) override;
    void writeUInt08(const BasicString& name, uint8 value) override;
    void writeBool(const BasicString& name, bool value) override;

    /// Byte order of the stream.
    Endiness getEndiness() const { return mEndiness; }
    /// Bytes of a stream that is read from the next item on: no count of things to come can be larger.
    uint64 getRest() const { return mBuffer.getRest(); }
    /// Where the next item stands, from the stream's start. [bytes]
    uint64 getOffset() const { return mBuffer.getPosition(); }

    /// Takes items of a block, one behind the other.
    template <bool SWAPPED>
    class ItemBlock
    {
    public:
        /// @param nameID  of a name that has been prepared.
        template <class T>
        void put(uint32 nameID, T value)
        {
            storeItem<SWAPPED>(mItem, nameID, value);
            mItem += ITEM_SIZE<T>;
        }
        template <class T>
        void putList(uint32 nameID, const T* values, size_t count)
        {
            storeList<SWAPPED>(mItem, nameID, values, count);
            mItem += count * ITEM_SIZE<T>;
        }

    private:
        friend class BinarySerializeStorage;

        explicit ItemBlock(unsigned char* room) : mItem(room) {}

        unsigned char* mItem;
    };

    // What loops over many values use. T is the type of one of the read or write operations.

    /// Reads a number, whatever its name.
    template <class T>
    T readValue()
    {
        T value;
        readValues(value);
        return value;
    }
    /// Reads numbers that follow each other, whatever their names.
    template <class... T>
    void readValues(T&... values)
    {
        const unsigned char* const items = mBuffer.look((ITEM_SIZE<T> + ...));
        const bool usual =
            items != nullptr && (mSwapped ? loadItems<true>(items, values...) : loadItems<false>(items, values...));
        if (usual)
            mBuffer.pass((ITEM_SIZE<T> + ...));
        else
            ((values = readValueSlowly<T>(nullptr)), ...);
    }
    /// Reads @p count numbers of one type, whatever their names.
    template <class T>
    void readList(T* values, size_t count)
    {
        for (size_t done = 0; done < count; ++done)
        {
            done +=
                mSwapped ? loadList<true>(values + done, count - done) : loadList<false>(values + done, count - done);
            if (done == count)
                return;
            values[done] = readValueSlowly<T>(nullptr);
        }
    }

    /// Writes numbers, each under the name of its place.
    template <class... T>
    void writeValues(ItemName (&names)[sizeof...(T)], T... values)
    {
        if (!isReady(names, sizeof...(T)))
            return;
        unsigned char* const items = mBuffer.makeRoom((ITEM_SIZE<T> + ...));
        mSwapped ? storeItems<true>(items, names, values...) : storeItems<false>(items, names, values...);
    }
    /// Writes @p count numbers under one name.
    template <class T>
    void writeList(ItemName& name, const T* values, size_t count)
    {
        constexpr size_t LARGEST_BATCH = StorageBuffer::MAX_ROOM / ITEM_SIZE<T>;
        if (count == 0 || !isReady(&name, 1))
            return;
        for (; count > LARGEST_BATCH; count -= LARGEST_BATCH, values += LARGEST_BATCH)
            writeBatch(name.mID, values, LARGEST_BATCH);
        writeBatch(name.mID, values, count);
    }

    /// Gives names their ids, so that they can be used in blocks. They count as used: no name that is not written
    /// should be among them.
    /// @return false, after a report, when no stream is open to be written.
    template <size_t N>
    bool prepareNames(ItemName (&names)[N])
    {
        return isReady(names, N);
    }
    /// Writes many items of various types at once: gives @p fill an ItemBlock, to put items of @p size bytes in it.
    /// A stream must be open to be written.
    /// @param size  of exactly what fill puts there. [bytes, at most MAX_BLOCK]
    template <class Fill>
    void writeBlock(size_t size, Fill&& fill)
    {
        unsigned char* const room = mBuffer.makeRoom(size);
        mSwapped ? fill(ItemBlock<true>(room)) : fill(ItemBlock<false>(room));
    }

private:
    using NameTable = Container::IDVector<BasicString, uint32, 0>;
    using NameMap = Container::Map<BasicString, uint32>;

    static constexpr size_t ITEM_HEADER = 1 + sizeof(uint32); // type and name

    template <class T>
    using Bits = std::conditional_t<
        sizeof(T) == 1, uint8,
        std::conditional_t<sizeof(T) == 2, uint16, std::conditional_t<sizeof(T) == 4, uint32, uint64>>>;

    // The byte order is looked at once for many values.

    template <bool SWAPPED, class T>
    static T load(const unsigned char* bytes)
    {
        Bits<T> bits;
        std::memcpy(&bits, bytes, sizeof(bits));
        if constexpr (SWAPPED)
            bits = Platform::Endian::swapBytes(bits);
        if constexpr (std::is_same_v<T, bool>)
            return bits != 0;
        else
            return std::bit_cast<T>(bits);
    }
    template <bool SWAPPED, class T>
    static void store(unsigned char* bytes, T value)
    {
        Bits<T> bits = std::bit_cast<Bits<T>>(value);
        if constexpr (SWAPPED)
            bits = Platform::Endian::swapBytes(bits);
        std::memcpy(bytes, &bits, sizeof(bits));
    }
    /// Two numbers one behind the other, in one move.
    template <bool SWAPPED>
    static void storePair(unsigned char* bytes, uint32 first, uint32 second)
    {
        if constexpr (std::endian::native == std::endian::big)
            std::swap(first, second);
        if constexpr (SWAPPED)
        {
            first = Platform::Endian::swapBytes(first);
            second = Platform::Endian::swapBytes(second);
        }
        const uint64 pair = first | uint64{second} << 32;
        std::memcpy(bytes, &pair, sizeof(pair));
    }
    template <bool SWAPPED, class T>
    static bool loadItem(const unsigned char* item, uint32 numNames, T& value)
    {
        if (item[0] != ITEM_TYPE_OF<T> || load<SWAPPED, uint32>(item + 1) >= numNames)
            return false;
        value = load<SWAPPED, T>(item + ITEM_HEADER);
        return true;
    }
    template <bool SWAPPED, class T>
    static void storeItem(unsigned char* item, uint32 nameID, T value)
    {
        item[0] = ITEM_TYPE_OF<T>;
        if constexpr (sizeof(T) == sizeof(nameID))
            storePair<SWAPPED>(item + 1, nameID, std::bit_cast<uint32>(value));
        else
        {
            store<SWAPPED>(item + 1, nameID);
            store<SWAPPED>(item + ITEM_HEADER, value);
        }
    }

    /// Whether there were items of these types, with valid names.
    template <bool SWAPPED, class... T>
    bool loadItems(const unsigned char* item, T&... values) const
    {
        const uint32 numNames = mNumNames;
        const auto next = [&item](size_t size) { return (item += size) - size; };
        return (loadItem<SWAPPED>(next(ITEM_SIZE<T>), numNames, values) && ...);
    }
    /// Reads what the buffer holds of a list, up to an item that is not as it should be.
    /// @return how many.
    template <bool SWAPPED, class T>
    size_t loadList(T* values, size_t count)
    {
        const size_t ready = std::min(mBuffer.getReady() / ITEM_SIZE<T>, count);
        const unsigned char* const items = mBuffer.look(ready * ITEM_SIZE<T>);
        const uint32 numNames = mNumNames;
        size_t done = 0;
        while (done < ready && loadItem<SWAPPED>(items + done * ITEM_SIZE<T>, numNames, values[done]))
            ++done;
        mBuffer.pass(done * ITEM_SIZE<T>);
        return done;
    }
    template <class T>
    void writeBatch(uint32 nameID, const T* values, size_t count)
    {
        unsigned char* const items = mBuffer.makeRoom(count * ITEM_SIZE<T>);
        mSwapped ? storeList<true>(items, nameID, values, count) : storeList<false>(items, nameID, values, count);
    }
    template <bool SWAPPED, class... T>
    static void storeItems(unsigned char* item, const ItemName* names, T... values)
    {
        const auto next = [&item](size_t size) { return (item += size) - size; };
        (storeItem<SWAPPED>(next(ITEM_SIZE<T>), (names++)->mID, values), ...);
    }
    template <bool SWAPPED, class T>
    static void storeList(unsigned char* item, uint32 nameID, const T* values, size_t count)
    {
        for (size_t i = 0; i < count; ++i, item += ITEM_SIZE<T>)
            storeItem<SWAPPED>(item, nameID, values[i]);
    }
    /// Whether the names have got their ids, and can be written.
    bool isReady(ItemName* names, size_t count)
    {
        return (mIsWriting && names[count - 1].mID != ItemName::NO_ID) || findNames(names, count);
    }
    /// Reads step by step: where the buffer ends, something is wrong, or the name is asked for.
    template <class T>
    T readValueSlowly(BasicString* name);
    template <class T>
    T readNumber(const char* where);
    template <class T>
    void writeNumber(T value)
    {
        unsigned char* const room = mBuffer.makeRoom(sizeof(T));
        mSwapped ? store<true>(room, value) : store<false>(room, value);
    }
    template <class T>
    void readNamed(BasicString& name, T& value);
    template <class T>
    void writeNamed(const BasicString& name, T value);

    void openInput(const SharedPtr<Stream>& stream);
    void openOutput(const SharedPtr<Stream>& stream);
    void readTables(uint64 place);
    void readTable(NameTable& table, const char* what);
    void writeTables();
    void writeTable(const NameTable& table);

    bool checkReading(const char* function) const;
    bool checkWriting(const char* function) const;
    bool reportNotReading(const char* function) const;
    bool reportNotWriting(const char* function) const;
    bool isOpen() const { return mBuffer.isAttached(); }
    void detach() noexcept;
    void readItemStart(ItemType type, BasicString* name);
    const BasicString& readTypeName();
    void readBytes(void* target, size_t count, const char* where);
    template <class String>
    void readText(ItemType type, BasicString& name, String& value);
    template <class String>
    void writeText(ItemType type, const BasicString& name, const String& value);
    void skipItem(BasicString& name, uint32 type);
    void skipText(size_t characterSize, const char* where);
    bool findNames(ItemName* names, size_t count);
    uint32 getID(const BasicString& name, NameTable& table, NameMap& ids);
    void writeItemStart(ItemType type, uint32 nameID);

    StorageBuffer mBuffer;
    Endiness mEndiness;
    NameMap mNameIDs;
    NameMap mTypeNameIDs;
    NameTable mNames;
    NameTable mTypeNames;
    uint64 mStart = 0;      // of the header
    int mNumExceptions = 0; // that were passing when the stream was opened
    uint32 mNumNames = 0;   // of an open stream that is read; 0 otherwise
    bool mIsWriting = false;
    bool mSwapped = false;
};
} // namespace KORV::Common::Serialize
