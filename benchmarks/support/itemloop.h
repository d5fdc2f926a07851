#pragma once

#include "korv/navmesh/navmeshcontainer.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace KORV::Benchmarks
{
/// The vertices and nodes of a mesh in the bytes of the binary form, by loops over memory without a check: the limit
/// that a storage can approach. Little-endian systems only.
class ItemLoop
{
public:
    /// Takes the ids of names from the stored form of the mesh, and the place of the vertices in it.
    /// Throws std::runtime_error when they are not where they should be.
    ItemLoop(const NavMesh::NavMeshContainer& mesh, const std::vector<std::uint8_t>& stored);

    /// Writes into a buffer that has room.
    /// @return the number of bytes.
    std::size_t write(const NavMesh::NavMeshContainer& mesh, std::uint8_t* bytes) const;
    /// Fills a new mesh from those bytes.
    NavMesh::SharedPtr<NavMesh::NavMeshContainer> read(const std::uint8_t* bytes) const;
    /// Reads all values without keeping them.
    /// @return their sum.
    std::uint64_t sum(const std::uint8_t* bytes) const;

    /// Where those bytes begin in the stored form.
    std::size_t getOffset() const { return mOffset; }

private:
    std::size_t mOffset = 0;
    std::uint32_t mCountIDs[2] = {0, 0}; // of the vertices, of the nodes
    std::uint32_t mVertexIDs[3] = {0, 0, 0};
    std::uint32_t mNodeIDs[3] = {0, 0, 0};
    std::uint32_t mCornerIDs[2] = {0, 0}; // vertex, neighbour
};
} // namespace KORV::Benchmarks
