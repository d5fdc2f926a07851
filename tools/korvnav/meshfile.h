#pragma once

#include "korv/common/sharedptr.h"
#include "korv/navmesh/navmeshcontainer.h"

#include <string>

/// Mesh documents, for the commands that read or write them. The library must be initialised. Any report that the
/// library makes while it reads or writes counts as a failure.
namespace KORV::Tool
{
using MeshPtr = Common::SharedPtr<NavMesh::NavMeshContainer>;

/// Never null. Throws Failure (BadInput) that says what is wrong with the file, and where.
MeshPtr readMesh(const std::string& fileName);

/// Writes the document to a file that exists or is created.
/// @param shownName  what messages call the file. Throws Failure (BadInput).
void writeMesh(const std::string& fileName, const std::string& shownName, const MeshPtr& mesh);
} // namespace KORV::Tool
