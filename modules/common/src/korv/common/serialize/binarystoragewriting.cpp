// The items of a storage that is written: type, id of the name, value. A name gets its id when it is first used.

#include "korv/common/debug/messagetext.h"
#include "korv/common/serialize/binaryserializestorage.h"
#include "korv/common/serialize/serializeexception.h"

namespace KORV::Common::Serialize
{
namespace
{
/// What is written must be readable again.
void checkLength(size_t length, size_t longest, const char* what)
{
    if (length > longest)
        throw new SerializeException((Debug::MessageText() << what << " of length " << length
                                                           << " cannot be stored, the longest possible is " << longest)
                                         .c_str());
}
} // namespace

bool BinarySerializeStorage::findNames(ItemName* names, size_t count)
{
    if (!checkWriting("KORV::Common::Serialize::BinarySerializeStorage::writeValues"))
        return false;
    for (size_t i = 0; i < count; ++i)
        names[i].mID = getID(BasicString(names[i].mText, getMemory()), mNames, mNameIDs);
    return true;
}

/// The id of a name; a new one gets the next.
uint32 BinarySerializeStorage::getID(const BasicString& name, NameTable& table, NameMap& ids)
{
    const auto known = ids.find(name);
    if (known != ids.end())
        return known->second;
    checkLength(name.size(), MAX_NAME, "A name");
    const auto entry = ids.emplace(BasicString(name, getMemory()), 0).first;
    try
    {
        entry->second = table.append(BasicString(name, getMemory()));
    }
    catch (...)
    {
        ids.erase(entry);
        throw;
    }
    return entry->second;
}

template <class T>
void BinarySerializeStorage::writeNamed(const BasicString& name, T value)
{
    if (!checkWriting("KORV::Common::Serialize::BinarySerializeStorage::writeValue"))
        return;
    const uint32 nameID = getID(name, mNames, mNameIDs);
    unsigned char* const item = mBuffer.makeRoom(ITEM_SIZE<T>);
    mSwapped ? storeItem<true>(item, nameID, value) : storeItem<false>(item, nameID, value);
}

void BinarySerializeStorage::writeClassEnter(const BasicString& name, const BasicString& typeName,
                                             const BasicString& instanceName, uint32 version)
{
    if (!checkWriting("KORV::Common::Serialize::BinarySerializeStorage::writeClassEnter"))
        return;
    const uint32 nameID = getID(name, mNames, mNameIDs);
    const uint32 typeID = getID(typeName, mTypeNames, mTypeNameIDs);
    const uint32 instanceID = getID(instanceName, mTypeNames, mTypeNameIDs);
    writeItemStart(ITEM_CLASS_ENTER, nameID);
    writeNumber(typeID);
    writeNumber(instanceID);
    writeNumber(version);
}

void BinarySerializeStorage::writeClassExit()
{
    if (checkWriting("KORV::Common::Serialize::BinarySerializeStorage::writeClassExit"))
        writeNumber(static_cast<uint8>(ITEM_CLASS_EXIT));
}

void BinarySerializeStorage::writeItemStart(ItemType type, uint32 nameID)
{
    writeNumber(static_cast<uint8>(type));
    writeNumber(nameID);
}

template <class String>
void BinarySerializeStorage::writeText(ItemType type, const BasicString& name, const String& value)
{
    if (!checkWriting("KORV::Common::Serialize::BinarySerializeStorage::writeText"))
        return;
    checkLength(value.size(), MAX_STRING, "A string");
    writeItemStart(type, getID(name, mNames, mNameIDs));
    writeNumber(static_cast<uint16>(value.size()));
    mBuffer.write(value.data(), value.size() * sizeof(typename String::value_type));
}

void BinarySerializeStorage::writeWString(const BasicString& name, const WideString& value)
{
    writeText(ITEM_WSTRING, name, value);
}

void BinarySerializeStorage::writeBString(const BasicString& name, const BasicString& value)
{
    writeText(ITEM_BSTRING, name, value);
}

void BinarySerializeStorage::writeFloat64(const BasicString& name, double value)
{
    writeNamed(name, value);
}

void BinarySerializeStorage::writeFloat32(const BasicString& name, float value)
{
    writeNamed(name, value);
}

void BinarySerializeStorage::writeInt64(const BasicString& name, int64 value)
{
    writeNamed(name, value);
}

void BinarySerializeStorage::writeUInt64(const BasicString& name, uint64 value)
{
    writeNamed(name, value);
}

void BinarySerializeStorage::writeInt32(const BasicString& name, int32 value)
{
    writeNamed(name, value);
}

void BinarySerializeStorage::writeUInt32(const BasicString& name, uint32 value)
{
    writeNamed(name, value);
}

void BinarySerializeStorage::writeInt16(const BasicString& name, int16 value)
{
    writeNamed(name, value);
}

void BinarySerializeStorage::writeUInt16(const BasicString& name, uint16 value)
{
    writeNamed(name, value);
}

void BinarySerializeStorage::writeInt08(const BasicString& name, int8 value)
{
    writeNamed(name, value);
}

void BinarySerializeStorage::writeUInt08(const BasicString& name, uint8 value)
{
    writeNamed(name, value);
}

void BinarySerializeStorage::writeBool(const BasicString& name, bool value)
{
    writeNamed(name, value);
}
} // namespace KORV::Common::Serialize
