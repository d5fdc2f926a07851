#pragma once

namespace KORV::NavMesh
{
class NavMeshContainer;

/// Throws an ArgumentException for a mesh that the binary form cannot hold as it is.
void checkBinaryForm(const NavMeshContainer& mesh);
} // namespace KORV::NavMesh
