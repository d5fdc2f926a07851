#pragma once

#include "korv/common/geom/indexedtriangle.h"
#include "korv/common/math/vec3.h"

#include <string>
#include <vector>

namespace KORV::Tool
{
/// The triangles of one scene file, in the coordinates of the file with all its transforms applied.
struct Scene
{
    /// Triangles that share a material and a mesh.
    struct Part
    {
        /// Names that the part answers to: material, mesh, the nodes that place it, for .wrl the file.
        std::vector<std::string> mNames;
    };

    std::string mFileName;
    std::vector<Common::Math::Vec3<float>> mVertices;
    std::vector<Common::Geom::IndexedTriangle> mTriangles;
    std::vector<uint32> mPartOfTriangle; ///< index into mParts, one per triangle
    std::vector<Part> mParts;
    std::vector<std::string> mWarnings; ///< what the importer had to say of a file that it could read
};

/// Reads a scene file: .wrl through the library, which must be initialised, all else through Assimp where the program
/// was built with it. Vertices at the same place are joined, except those of .wrl.
/// Throws Failure (BadInput) that says what is wrong with the file, and where.
Scene loadScene(const std::string& fileName);
} // namespace KORV::Tool
