#pragma once

#include "korv/common/io/stream.h"
#include "korv/common/serialize/serializeexception.h"
#include "korv/navmesh/navmeshcontainer.h"
#include "korv/navmesh/types.h"

namespace KORV::NavMesh
{
/// A stored mesh was read, but it breaks promises of a finished one; the message lists the first of them, a line each.
class KORV_NAVMESH_API InvalidMeshException : public Common::Serialize::SerializeException
{
public:
    using SerializeException::SerializeException;
    BasicString getName() const override;
};

/// Stores meshes and loads them again, as XML documents or in the binary form, which keeps every bit of each number and
/// loads faster. Files are opened by name through the host's file callback, and closed on every way out. A mesh must
/// not be modified while it is written. What is read may break the promises of a finished mesh (ids out of range), but
/// for readCheckedNavMesh.
class KORV_NAVMESH_API NavMeshSerializer
{
public:
    /// What a file holds, by its content.
    enum MeshFormat : uint32
    {
        FORMAT_UNKNOWN, ///< neither; also an empty file
        FORMAT_XML,     ///< text that starts with a tag: for readNavMesh
        FORMAT_BINARY   ///< a binary storage of any version: for readNavMeshBinary
    };

    /// Violations that the message of an InvalidMeshException lists unless told otherwise.
    static constexpr uint32 DEFAULT_VIOLATIONS = 10;

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

    /// Reads a mesh in binary form by file name. Failures as NavMeshContainer::initFromBinary.
    /// @return null when the file can't be opened, after a message on standard error.
    static SharedPtr<NavMeshContainer> readNavMeshBinary(const BasicString& fileName);
    /// The same from a stream that stands at its start; it is left behind the mesh, open. The byte order is told from
    /// the stream; one that is not the system's is reported as a warning.
    static SharedPtr<NavMeshContainer> readNavMeshBinary(const SharedPtr<Common::Stream>& stream);

    /// Writes a mesh in binary form. Failures as NavMeshContainer::writeToBinary; a mesh that it refuses leaves an
    /// existing file as it is. Exceptions of the file pass through.
    static void writeNavMeshBinary(const BasicString& fileName, const SharedPtr<NavMeshContainer>& navMesh,
                                   Endiness endiness);
    /// The same on a writable, seekable stream that stands at its start. The stream stays open.
    static void writeNavMeshBinary(const SharedPtr<Common::Stream>& stream, const SharedPtr<NavMeshContainer>& navMesh,
                                   Endiness endiness);

    /// Tells what a file holds by its first bytes; whether the rest is sound only reading can tell.
    /// A file that can't be opened throws what opening throws.
    static MeshFormat detectFormat(const BasicString& fileName);
    /// The same for a readable, seekable stream, from its current position, which it keeps.
    static MeshFormat detectFormat(Common::Stream* stream);

    /// Reads a mesh of either form, told by its content, and checks it with NavMeshContainer::checkInvariants.
    /// Throws an InvalidMeshException when the mesh breaks a promise, a SerializeException when the content is of
    /// neither form, and what the forms' own readers throw.
    /// @param maxViolations  how many violations the message lists at most, at least one.
    /// @return null where the forms' own readers return null.
    static SharedPtr<NavMeshContainer> readCheckedNavMesh(const BasicString& fileName,
                                                          uint32 maxViolations = DEFAULT_VIOLATIONS);
    /// The same from a readable, seekable stream that stands at its start. The stream stays open.
    static SharedPtr<NavMeshContainer> readCheckedNavMesh(const SharedPtr<Common::Stream>& stream,
                                                          uint32 maxViolations = DEFAULT_VIOLATIONS);
};
} // namespace KORV::NavMesh
