// The mesh as a flat sequence of items. Their names are for people: a reader goes by types and order alone. Each list
// comes after its count; the neighbour entries of a node share the count of its corners.

#include "korv/common/debug/assert.h"
#include "korv/common/exceptions/exception.h"
#include "korv/common/serialize/binaryserializestorage.h"
#include "korv/common/serialize/serializeexception.h"
#include "korv/navmesh/binaryform.h"
#include "korv/navmesh/moduleallocator.h"
#include "korv/navmesh/navmeshcontainer.h"

#include <algorithm>
#include <limits>
#include <memory>

namespace KORV::NavMesh
{
using Common::Debug::MessageText;
using Common::Serialize::BinarySerializeStorage;
using NavNode = NavMeshContainer::NavNode;

namespace
{
constexpr uint32 FORMAT_VERSION = 25;

[[noreturn]] void throwNotHeld(const MessageText& why)
{
    throw new Common::Exceptions::ArgumentException(
        "navMesh", (MessageText() << "The mesh cannot be stored in binary form: " << why).c_str());
}

template <class T>
void checkCount(const Vector<T>& list, const char* what)
{
    if (list.size() > std::numeric_limits<uint32>::max())
        throwNotHeld(MessageText() << "there are too many " << what);
}

void checkName(const BasicString& name, const char* what)
{
    if (name.size() > BinarySerializeStorage::MAX_STRING)
        throwNotHeld(MessageText() << "the name of a " << what << " is " << name.size()
                                   << " bytes long, the longest possible is " << BinarySerializeStorage::MAX_STRING);
}

class MeshWriter
{
public:
    explicit MeshWriter(BinarySerializeStorage& storage) : mStorage(storage) {}

    void write(const NavMeshContainer& mesh)
    {
        mStorage.writeClassEnter("navmesh", "navmesh", "navmesh", FORMAT_VERSION);
        writeCount("heightmapcount", mesh.mHeight);
        Name height("height");
        mStorage.writeList(height, mesh.mHeight.data(), mesh.mHeight.size());
        writeVector({"normal_x", "normal_y", "normal_z"}, mesh.mNormal);
        writeVector({"xaxis_x", "xaxis_y", "xaxis_z"}, mesh.mXAxis);
        writeVector({"yaxis_x", "yaxis_y", "yaxis_z"}, mesh.mYAxis);
        mStorage.writeFloat32("cubesize", mesh.mCubeSize);
        writeVertices(mesh.mVertices);
        writeNodes(mesh.mNodes);
        writeCharacters(mesh.mCharacters);
        writeSurfaceTypes(mesh.mSurfaceTypes);
        mStorage.writeClassExit();
    }

private:
    using Storage = BinarySerializeStorage;
    using Name = Storage::ItemName;

    template <class T>
    void writeCount(const char* name, const Vector<T>& list)
    {
        mStorage.writeUInt32(name, static_cast<uint32>(list.size()));
    }

    void writeVector(Name (&&names)[3], const Vec3<float>& v) { mStorage.writeValues(names, v.mX, v.mY, v.mZ); }

    // Vertices and nodes are nearly all of a mesh, so they are put in blocks, with the ids of the names at hand.

    void writeVertices(const Vector<Vec3<float>>& vertices)
    {
        constexpr size_t SIZE = 3 * Storage::ITEM_SIZE<float>;
        constexpr size_t BATCH = Storage::MAX_BLOCK / SIZE;
        writeCount("numvertices", vertices);
        Name names[] = {"pos_x", "pos_y", "pos_z"};
        if (vertices.empty() || !mStorage.prepareNames(names))
            return;
        const uint32 ids[] = {names[0].getID(), names[1].getID(), names[2].getID()};
        for (size_t begin = 0; begin < vertices.size(); begin += BATCH)
        {
            const size_t count = std::min(BATCH, vertices.size() - begin);
            const auto put = [batch = &vertices[begin], count, &ids](auto block)
            {
                for (size_t i = 0; i < count; ++i)
                {
                    block.put(ids[0], batch[i].mX);
                    block.put(ids[1], batch[i].mY);
                    block.put(ids[2], batch[i].mZ);
                }
            };
            mStorage.writeBlock(count * SIZE, put);
        }
    }

    void writeNodes(const Vector<NavNode>& nodes)
    {
        constexpr size_t SIZE = Storage::ITEM_SIZE<int32> + Storage::ITEM_SIZE<uint16> + Storage::ITEM_SIZE<uint32>;
        constexpr size_t CORNER_SIZE = Storage::ITEM_SIZE<uint32> + Storage::ITEM_SIZE<int32>;
        constexpr size_t MAX_CORNERS = (Storage::MAX_BLOCK - SIZE) / CORNER_SIZE;
        writeCount("numnodes", nodes);
        Name names[] = {"heightclass", "surfacetypeid", "numpolygon"};
        Name listNames[] = {"vert_id", "node_id"};
        for (const NavNode& node : nodes)
        {
            const uint32 count = static_cast<uint32>(node.mPolygon.size());
            if (count == 0 || count > MAX_CORNERS)
            {
                writeNode(node, count, names, listNames);
                continue;
            }
            if (!mStorage.prepareNames(names) || !mStorage.prepareNames(listNames))
                return;
            const auto put = [&](auto block)
            {
                block.put(names[0].getID(), node.mHeightClass);
                block.put(names[1].getID(), node.mSurfaceTypeID);
                block.put(names[2].getID(), count);
                block.putList(listNames[0].getID(), node.mPolygon.data(), count);
                block.putList(listNames[1].getID(), node.mNeighbours.data(), count);
            };
            mStorage.writeBlock(SIZE + count * CORNER_SIZE, put);
        }
    }

    /// A node of any size.
    void writeNode(const NavNode& node, uint32 count, Name (&names)[3], Name (&listNames)[2])
    {
        mStorage.writeValues(names, node.mHeightClass, node.mSurfaceTypeID, count);
        mStorage.writeList(listNames[0], node.mPolygon.data(), count);
        mStorage.writeList(listNames[1], node.mNeighbours.data(), count);
    }

    void writeCharacters(const Vector<CharacterInfo>& characters)
    {
        writeCount("numcharacters", characters);
        for (const CharacterInfo& character : characters)
        {
            mStorage.writeBString("name", character.mName);
            mStorage.writeInt64("userid", character.mUserID);
            mStorage.writeFloat32("physicalheight", character.mPhysicalHeight);
            mStorage.writeFloat32("jumpheight", character.mJumpHeight);
            mStorage.writeFloat32("fallheight", character.mFallHeight);
            mStorage.writeUInt32("maxheightclassid", character.mMaxHeightClassID);
        }
    }

    void writeSurfaceTypes(const Vector<SurfaceType>& surfaceTypes)
    {
        writeCount("numsurfacetypes", surfaceTypes);
        for (const SurfaceType& surfaceType : surfaceTypes)
        {
            mStorage.writeBString("name", surfaceType.mName);
            mStorage.writeUInt16("id", surfaceType.mID);
        }
    }

    BinarySerializeStorage& mStorage;
};

/// Fills an empty mesh. No list is given more room than the rest of the stream can fill.
class MeshReader
{
public:
    MeshReader(BinarySerializeStorage& storage, NavMeshContainer& mesh)
        : mStorage(storage), mMesh(mesh), mName(mesh.getMemory())
    {
    }

    void read()
    {
        BasicString typeName(mMesh.getMemory());
        BasicString instanceName(mMesh.getMemory());
        uint32 version = 0;
        mStorage.readClassEnter(mName, typeName, instanceName, version);
        readList(mMesh.mHeight, readCount(ITEM_SIZE<float>, "heights"));
        readVector(mMesh.mNormal);
        readVector(mMesh.mXAxis);
        readVector(mMesh.mYAxis);
        mStorage.readValues(mMesh.mCubeSize);
        readVertices();
        readNodes();
        readCharacters();
        readSurfaceTypes();
        mStorage.readClassExit();
    }

private:
    template <class T>
    static constexpr size_t ITEM_SIZE = BinarySerializeStorage::ITEM_SIZE<T>;
    static constexpr size_t STRING_SIZE = ITEM_SIZE<uint16>; // of an empty one: its length

    /// @param entrySize  the fewest bytes that an entry of the list can take.
    uint32 readCount(size_t entrySize, const char* what)
    {
        const uint32 count = mStorage.readValue<uint32>();
        checkRoom(count, entrySize, what);
        return count;
    }

    /// Checks a count that has just been read.
    void checkRoom(uint32 count, size_t entrySize, const char* what) const
    {
        if (uint64{count} * entrySize > mStorage.getRest())
            throwTooMany(count, what);
    }

    [[noreturn, gnu::noinline]] void throwTooMany(uint32 count, const char* what) const
    {
        const MessageText message = MessageText() << "The stream is corrupted. Before byte " << mStorage.getOffset()
                                                  << " it announces " << count << ' ' << what << ", but only "
                                                  << mStorage.getRest() << " bytes follow";
        throw new Common::Serialize::SerializeException(message.c_str());
    }

    void readVector(Vec3<float>& v) { mStorage.readValues(v.mX, v.mY, v.mZ); }

    template <class T>
    void readList(Vector<T>& list, uint32 count)
    {
        list.resize(count);
        mStorage.readList(list.data(), count);
    }

    void readVertices()
    {
        const uint32 count = readCount(3 * ITEM_SIZE<float>, "vertices");
        mMesh.mVertices.resize(count);
        for (Vec3<float>& vertex : mMesh.mVertices)
            readVector(vertex);
    }

    void readNodes()
    {
        const uint32 count = readCount(ITEM_SIZE<int32> + ITEM_SIZE<uint16> + ITEM_SIZE<uint32>, "nodes");
        mMesh.mNodes.reserve(count);
        for (uint32 i = 0; i < count; ++i)
            readNode(mMesh.mNodes.emplace_back(mMesh.getMemory()));
    }

    void readNode(NavNode& node)
    {
        uint32 count = 0;
        mStorage.readValues(node.mHeightClass, node.mSurfaceTypeID, count);
        checkRoom(count, ITEM_SIZE<uint32> + ITEM_SIZE<int32>, "corners of a node");
        readList(node.mPolygon, count);
        readList(node.mNeighbours, count);
    }

    void readCharacters()
    {
        const uint32 count =
            readCount(STRING_SIZE + ITEM_SIZE<int64> + 3 * ITEM_SIZE<float> + ITEM_SIZE<uint32>, "characters");
        mMesh.mCharacters.reserve(count);
        for (uint32 i = 0; i < count; ++i)
        {
            CharacterInfo& character = mMesh.mCharacters.emplace_back();
            readName(character.mName);
            mStorage.readValues(character.mUserID, character.mPhysicalHeight, character.mJumpHeight,
                                character.mFallHeight, character.mMaxHeightClassID);
        }
    }

    void readSurfaceTypes()
    {
        const uint32 count = readCount(STRING_SIZE + ITEM_SIZE<uint16>, "surface types");
        mMesh.mSurfaceTypes.reserve(count);
        for (uint32 i = 0; i < count; ++i)
        {
            SurfaceType& surfaceType = mMesh.mSurfaceTypes.emplace_back();
            readName(surfaceType.mName);
            mStorage.readValues(surfaceType.mID);
        }
    }

    /// A name on the allocator of the mesh.
    void readName(BasicString& name)
    {
        name = BasicString(mMesh.getMemory());
        mStorage.readBString(mName, name);
    }

    BinarySerializeStorage& mStorage;
    NavMeshContainer& mMesh;
    BasicString mName; // of the last item; it plays no part
};

std::unique_ptr<BinarySerializeStorage> createStorage(const NavMeshContainer& mesh, uint32 mode, Endiness endiness)
{
    return std::unique_ptr<BinarySerializeStorage>(new (mesh.getAllocator()) BinarySerializeStorage(mode, endiness));
}
} // namespace

void checkBinaryForm(const NavMeshContainer& mesh)
{
    checkCount(mesh.mHeight, "heights");
    checkCount(mesh.mVertices, "vertices");
    checkCount(mesh.mNodes, "nodes");
    checkCount(mesh.mCharacters, "characters");
    checkCount(mesh.mSurfaceTypes, "surface types");
    for (size_t i = 0; i < mesh.mNodes.size(); ++i)
    {
        const NavNode& node = mesh.mNodes[i];
        checkCount(node.mPolygon, "corners of a node");
        if (node.mNeighbours.size() != node.mPolygon.size())
            throwNotHeld(MessageText() << "node " << i << " has " << node.mPolygon.size() << " sides, but "
                                       << node.mNeighbours.size() << " neighbour entries");
    }
    for (const CharacterInfo& character : mesh.mCharacters)
        checkName(character.mName, "character");
    for (const SurfaceType& surfaceType : mesh.mSurfaceTypes)
        checkName(surfaceType.mName, "surface type");
}

void NavMeshContainer::writeToBinary(const SharedPtr<Common::Stream>& stream, Endiness endiness) const
{
    checkBinaryForm(*this);
    const auto storage = createStorage(*this, Common::Serialize::SMODE_OUTPUT, endiness);
    storage->open(stream);
    MeshWriter(*storage).write(*this);
    storage->close(); // here a failure can be told, in a destructor it can't
}

bool NavMeshContainer::initFromBinary(const SharedPtr<Common::Stream>& stream)
{
    const auto storage = createStorage(*this, Common::Serialize::SMODE_INPUT, Common::Platform::Endian::ENDIAN_UNKNOWN);
    storage->open(stream);
    MeshReader(*storage, *this).read();
    return true;
}
} // namespace KORV::NavMesh
