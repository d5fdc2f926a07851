#pragma once

#include "korv/common/sharedptr.h"
#include "korv/navmesh/navmeshcontainer.h"

#include <string>
#include <vector>

/// Mesh files, for the commands that read or write them. The library must be initialised. Any report that the library
/// makes while it reads or writes counts as a failure.
namespace KORV::Tool
{
using MeshPtr = Common::SharedPtr<NavMesh::NavMeshContainer>;

/// How a mesh is stored.
enum class MeshForm
{
    Document,     ///< XML, six digits of each number
    LittleEndian, ///< binary, everything bit for bit
    BigEndian
};

/// The form that a file name asks for: binary, in this machine's byte order, for .knm.
MeshForm formFor(const std::string& fileName);

/// Reads either form, told apart by the content. The mesh may break its invariants. Never null.
/// Throws Failure (BadInput) that says what is wrong with the file, and where.
MeshPtr readMesh(const std::string& fileName);
/// The same, and refuses a mesh that breaks its invariants.
MeshPtr readSoundMesh(const std::string& fileName);

/// What is broken in a mesh, a line each; empty when it holds.
std::vector<std::string> findViolations(const NavMesh::NavMeshContainer& mesh);
/// Throws Failure (BadInput) with the first of them.
[[noreturn]] void refuseBrokenMesh(const std::string& fileName, const std::vector<std::string>& violations);

/// Writes to a file that exists or is created.
/// @param shownName  what messages call the file. Throws Failure (BadInput).
void writeMesh(const std::string& fileName, const std::string& shownName, const MeshPtr& mesh, MeshForm form);
/// The same, and leaves the old file in place unless all goes well. Not while an Interrupt is in use.
void saveMesh(const std::string& fileName, const MeshPtr& mesh, MeshForm form);
} // namespace KORV::Tool
