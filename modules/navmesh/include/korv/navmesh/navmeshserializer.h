#pragma once

#include "korv/common/io/stream.h"
#include "korv/navmesh/navmeshcontainer.h"
#include "korv/navmesh/types.h"

namespace KORV::NavMesh
{
/// Stores meshes and loads them again. Files are opened by name through the host's file callback, and closed on every
/// way out. A mesh must not be modified while it is written.
class KORV_NAVMESH_API NavMeshSerializer
{
public:
    /// Reads a mesh document by file name.
    /// @return null when the file can't be opened, after a message on standard error, or when a required element or
    /// attribute is missing, after a report. Malformed text throws an XMLParserException.
    static SharedPtr<NavMeshContainer> readNavMesh(const BasicString& fileName);
    /// Reads a mesh document from a whole stream that stands at its start; failures as above. The stream stays open.
    static SharedPtr<NavMeshContainer> readNavMesh(Common::Stream* stream);

    /// Writes a mesh as a document. Six digits of each number are kept.
    /// Throws, before anything is written, an ArgumentException for a name that a document cannot hold: one with '<' or
    /// a zero byte in it, or of white space alone. Exceptions of the file pass through.
    static void writeNavMesh(const BasicString& fileName, const SharedPtr<NavMeshContainer>& navMesh);
    /// The same on a stream, from its current position. The stream stays open.
    static void writeNavMesh(Common::Stream* stream, const SharedPtr<NavMeshContainer>& navMesh);
};
} // namespace KORV::NavMesh
