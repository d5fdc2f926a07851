#include "itemloop.h"

#include "korv/common/interface.h"
#include "korv/common/serialize/binaryserializestorage.h"

#include <cstring>
#include <stdexcept>
#include <utility>

namespace KORV::Benchmarks
{
using namespace NavMesh;
using namespace Common::Serialize;

namespace
{
class Writer
{
public:
    explicit Writer(std::uint8_t* bytes) : mAt(bytes) {}

    template <class T>
    void item(std::uint32_t id, T value)
    {
        *mAt = ITEM_TYPE_OF<T>;
        std::memcpy(mAt + 1, &id, sizeof id);
        std::memcpy(mAt + 1 + sizeof id, &value, sizeof value);
        mAt += 1 + sizeof id + sizeof value;
    }

    std::uint8_t* mAt;
};

class Reader
{
public:
    explicit Reader(const std::uint8_t* bytes) : mAt(bytes) {}

    template <class T>
    T item()
    {
        T value;
        std::memcpy(&value, mAt + 1 + sizeof(std::uint32_t), sizeof value);
        mAt += 1 + sizeof(std::uint32_t) + sizeof value;
        return value;
    }

    /// The same, with the id of the name.
    template <class T>
    T item(std::uint32_t& id)
    {
        std::memcpy(&id, mAt + 1, sizeof id);
        return item<T>();
    }

    const std::uint8_t* mAt;
};

/// Where the count of the vertices stands: the first item of its type with that value.
std::size_t findVertices(const NavMeshContainer& mesh, const std::vector<std::uint8_t>& stored)
{
    for (std::size_t at = 0; at + 9 < stored.size(); ++at)
        if (stored[at] == ITEM_UINT32 && Reader(&stored[at]).item<std::uint32_t>() == mesh.mVertices.size())
            return at;
    throw std::runtime_error("no vertices in the binary form");
}
} // namespace

ItemLoop::ItemLoop(const NavMeshContainer& mesh, const std::vector<std::uint8_t>& stored)
    : mOffset(findVertices(mesh, stored))
{
    Reader reader(stored.data() + mOffset);
    reader.item<std::uint32_t>(mCountIDs[0]);
    for (std::uint32_t& id : mVertexIDs)
        reader.item<float>(id);
    reader.mAt += (mesh.mVertices.size() - 1) * 3 * (1 + sizeof(std::uint32_t) + sizeof(float));
    if (reader.item<std::uint32_t>(mCountIDs[1]) != mesh.mNodes.size())
        throw std::runtime_error("no nodes in the binary form");
    reader.item<int32>(mNodeIDs[0]);
    reader.item<uint16>(mNodeIDs[1]);
    const uint32 corners = reader.item<uint32>(mNodeIDs[2]);
    for (const int list : {0, 1})
        for (uint32 i = 0; i < corners; ++i)
            reader.item<uint32>(mCornerIDs[list]);
}

std::size_t ItemLoop::write(const NavMeshContainer& mesh, std::uint8_t* bytes) const
{
    Writer writer(bytes);
    writer.item(mCountIDs[0], static_cast<uint32>(mesh.mVertices.size()));
    for (const Vec3<float>& vertex : mesh.mVertices)
    {
        writer.item(mVertexIDs[0], vertex.mX);
        writer.item(mVertexIDs[1], vertex.mY);
        writer.item(mVertexIDs[2], vertex.mZ);
    }
    writer.item(mCountIDs[1], static_cast<uint32>(mesh.mNodes.size()));
    for (const NavMeshContainer::NavNode& node : mesh.mNodes)
    {
        writer.item(mNodeIDs[0], node.mHeightClass);
        writer.item(mNodeIDs[1], node.mSurfaceTypeID);
        writer.item(mNodeIDs[2], static_cast<uint32>(node.mPolygon.size()));
        for (const uint32 vertex : node.mPolygon)
            writer.item(mCornerIDs[0], vertex);
        for (const int32 neighbour : node.mNeighbours)
            writer.item(mCornerIDs[1], neighbour);
    }
    return static_cast<std::size_t>(writer.mAt - bytes);
}

SharedPtr<NavMeshContainer> ItemLoop::read(const std::uint8_t* bytes) const
{
    SharedPtr<NavMeshContainer> mesh(new (Common::Interface::getSharedAllocator()) NavMeshContainer);
    Reader reader(bytes);
    mesh->mVertices.resize(reader.item<uint32>());
    for (Vec3<float>& vertex : mesh->mVertices)
    {
        vertex.mX = reader.item<float>();
        vertex.mY = reader.item<float>();
        vertex.mZ = reader.item<float>();
    }
    const uint32 count = reader.item<uint32>();
    mesh->mNodes.reserve(count);
    for (uint32 i = 0; i < count; ++i)
    {
        NavMeshContainer::NavNode& node = mesh->mNodes.emplace_back(mesh->getMemory());
        node.mHeightClass = reader.item<int32>();
        node.mSurfaceTypeID = reader.item<uint16>();
        const uint32 corners = reader.item<uint32>();
        node.mPolygon.resize(corners);
        for (uint32& vertex : node.mPolygon)
            vertex = reader.item<uint32>();
        node.mNeighbours.resize(corners);
        for (int32& neighbour : node.mNeighbours)
            neighbour = reader.item<int32>();
    }
    return mesh;
}

std::uint64_t ItemLoop::sum(const std::uint8_t* bytes) const
{
    Reader reader(bytes);
    std::uint64_t total = 0;
    const uint32 vertices = reader.item<uint32>();
    for (uint32 i = 0; i < 3 * vertices; ++i)
        total += reader.item<uint32>();
    const uint32 nodes = reader.item<uint32>();
    for (uint32 i = 0; i < nodes; ++i)
    {
        total += reader.item<uint32>();
        total += reader.item<uint16>();
        const uint32 corners = reader.item<uint32>();
        for (uint32 corner = 0; corner < 2 * corners; ++corner)
            total += reader.item<uint32>();
    }
    return total;
}
} // namespace KORV::Benchmarks
