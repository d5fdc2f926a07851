#pragma once

#include "korv/common/api.h"
#include "korv/common/container/basicstring.h"
#include "korv/common/io/stream.h"
#include "korv/common/sharedptr.h"

namespace KORV::Common::Serialize
{
enum SerializeMode : uint32
{
    SMODE_INPUT = 0,
    SMODE_OUTPUT = 1
};

enum StorageType : uint32
{
    STORAGE_BINARY = 0
};

/// A sequence of named, typed items on a stream, for one direction. Items are read in the order in which they were
/// written, by the operation of their type; a read gives the name stored with the item. One thread at a time.
class KORV_COMMON_API SerializeStorage : public Memory::MemoryManaged
{
public:
    /// A place in a storage that setPosition returns to.
    class KORV_COMMON_API Position : public Memory::MemoryManaged, public ReferenceCounted
    {
    public:
        ~Position() override;
        /// Whether both are the same place of the same kind of storage.
        virtual bool equals(const Position& other) const = 0;

        friend bool operator==(const Position& a, const Position& b) { return a.equals(b); }
        /// A StorageType.
        uint32 getStorageType() const { return mStorageType; }

    protected:
        explicit Position(uint32 storageType) : mStorageType(storageType) {}

    private:
        uint32 mStorageType;
    };

    SerializeStorage(const SerializeStorage&) = delete;
    SerializeStorage& operator=(const SerializeStorage&) = delete;
    ~SerializeStorage() override;

    virtual SharedPtr<Position> getPosition() = 0;
    /// Goes to a place of this storage's own kind; another kind is reported and changes nothing.
    virtual void setPosition(SharedPtr<Position> position) = 0;
    /// Attaches a stream and reads or writes what stands before the items. An attached one is closed first.
    virtual void open(const SharedPtr<Stream>& stream) = 0;
    /// Completes what was written and detaches the stream, which stays open.
    virtual void close() = 0;

    /// Passes the next item, a whole structure if it is the start of one; its end has no name.
    virtual void readSkipValue(BasicString& name, uint32& type) = 0;
    /// The type of the next item, which stays the next.
    virtual uint32 peekNextType() = 0;

    virtual void readClassEnter(BasicString& name, BasicString& typeName, BasicString& instanceName,
                                uint32& version) = 0;
    virtual void readClassExit() = 0;
    virtual void readWString(BasicString& name, WideString& value) = 0;
    virtual void readBString(BasicString& name, BasicString& value) = 0;
    virtual void readFloat64(BasicString& name, double& value) = 0;
    virtual void readFloat32(BasicString& name, float& value) = 0;
    virtual void readInt64(BasicString& name, int64& value) = 0;
    virtual void readUInt64(BasicString& name, uint64& value) = 0;
    virtual void readInt32(BasicString& name, int32& value) = 0;
    virtual void readUInt32(BasicString& name, uint32& value) = 0;
    virtual void readInt16(BasicString& name, int16& value) = 0;
    virtual void readUInt16(BasicString& name, uint16& value) = 0;
    virtual void readInt08(BasicString& name, int8& value) = 0;
    virtual void readUInt08(BasicString& name, uint8& value) = 0;
    virtual void readBool(BasicString& name, bool& value) = 0;

    virtual void writeClassEnter(const BasicString& name, const BasicString& typeName, const BasicString& instanceName,
                                 uint32 version) = 0;
    virtual void writeClassExit() = 0;
    virtual void writeWString(const BasicString& name, const WideString& value) = 0;
    virtual void writeBString(const BasicString& name, const BasicString& value) = 0;
    virtual void writeFloat64(const BasicString& name, double value) = 0;
    virtual void writeFloat32(const BasicString& name, float value) = 0;
    virtual void writeInt64(const BasicString& name, int64 value) = 0;
    virtual void writeUInt64(const BasicString& name, uint64 value) = 0;
    virtual void writeInt32(const BasicString& name, int32 value) = 0;
    virtual void writeUInt32(const BasicString& name, uint32 value) = 0;
    virtual void writeInt16(const BasicString& name, int16 value) = 0;
    virtual void writeUInt16(const BasicString& name, uint16 value) = 0;
    virtual void writeInt08(const BasicString& name, int8 value) = 0;
    virtual void writeUInt08(const BasicString& name, uint8 value) = 0;
    virtual void writeBool(const BasicString& name, bool value) = 0;

    /// A SerializeMode.
    uint32 getSerializeMode() const { return mSerializeMode; }
    /// A StorageType.
    uint32 getStorageType() const { return mStorageType; }

protected:
    SerializeStorage(uint32 serializeMode, uint32 storageType)
        : mSerializeMode(serializeMode), mStorageType(storageType)
    {
    }

private:
    uint32 mSerializeMode;
    uint32 mStorageType;
};
} // namespace KORV::Common::Serialize
