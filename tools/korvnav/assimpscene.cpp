#include "assimpscene.h"

#include "failure.h"

#include <assimp/Importer.hpp>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <array>
#include <bit>
#include <filesystem>
#include <unordered_map>

namespace KORV::Tool
{
namespace
{
using Vector3 = Common::Math::Vec3<float>;

struct BitsHash
{
    std::size_t operator()(const std::array<uint32, 3>& bits) const
    {
        uint64 hash = 0;
        for (const uint32 part : bits)
            hash = (hash ^ part) * 0x9e3779b97f4a7c15u;
        return static_cast<std::size_t>(hash ^ (hash >> 32));
    }
};

/// Puts the meshes of an imported scene into one list, each as often as nodes place it.
class Collector
{
public:
    Collector(const aiScene& source, Scene& target) : mSource(source), mTarget(target) {}

    void collect()
    {
        struct Entry
        {
            const aiNode* mNode;
            aiMatrix4x4 mTransform;
        };
        std::vector<Entry> stack{{mSource.mRootNode, mSource.mRootNode->mTransformation}};
        while (!stack.empty())
        {
            const Entry entry = stack.back();
            stack.pop_back();
            for (unsigned mesh = 0; mesh < entry.mNode->mNumMeshes; ++mesh)
                addMesh(*mSource.mMeshes[entry.mNode->mMeshes[mesh]], *entry.mNode, entry.mTransform);
            for (unsigned child = entry.mNode->mNumChildren; child-- > 0;) // backwards: the first comes off first
            {
                const aiNode* node = entry.mNode->mChildren[child];
                stack.push_back({node, entry.mTransform * node->mTransformation});
            }
        }
    }

private:
    void addMesh(const aiMesh& mesh, const aiNode& node, const aiMatrix4x4& transform)
    {
        const auto part = static_cast<uint32>(mTarget.mParts.size());
        mTarget.mParts.push_back({namesOf(mesh, node)});
        // a mirroring transform turns the triangles inside out
        const bool mirrored = transform.Determinant() < 0;
        std::vector<uint32> ids(mesh.mNumVertices, UNUSED);
        for (unsigned index = 0; index < mesh.mNumFaces; ++index)
        {
            const aiFace& face = mesh.mFaces[index];
            if (face.mNumIndices != 3)
                continue;
            Common::Geom::IndexedTriangle triangle;
            for (unsigned corner = 0; corner < 3; ++corner)
            {
                const unsigned vertex = face.mIndices[mirrored ? 2 - corner : corner];
                if (ids.at(vertex) == UNUSED)
                    ids[vertex] = join(transform * mesh.mVertices[vertex]);
                triangle.mVertices[corner] = ids[vertex];
            }
            mTarget.mTriangles.push_back(triangle);
            mTarget.mPartOfTriangle.push_back(part);
        }
    }

    uint32 join(const aiVector3D& position)
    {
        const Vector3 vertex(position.x + 0.0f, position.y + 0.0f, position.z + 0.0f); // -0 becomes 0
        const std::array<uint32, 3> bits{std::bit_cast<uint32>(vertex.mX), std::bit_cast<uint32>(vertex.mY),
                                         std::bit_cast<uint32>(vertex.mZ)};
        const auto [known, added] = mIds.try_emplace(bits, static_cast<uint32>(mTarget.mVertices.size()));
        if (added)
            mTarget.mVertices.push_back(vertex);
        return known->second;
    }

    std::vector<std::string> namesOf(const aiMesh& mesh, const aiNode& node) const
    {
        std::vector<std::string> names;
        if (mesh.mMaterialIndex < mSource.mNumMaterials)
            names.push_back(mSource.mMaterials[mesh.mMaterialIndex]->GetName().C_Str());
        names.push_back(mesh.mName.C_Str());
        names.push_back(node.mName.C_Str());
        return names;
    }

    static constexpr uint32 UNUSED = 0xFFFFFFFFu;
    const aiScene& mSource;
    Scene& mTarget;
    std::unordered_map<std::array<uint32, 3>, uint32, BitsHash> mIds;
};
} // namespace

Scene loadWithAssimp(const std::string& fileName)
{
    Assimp::Importer importer;
    const std::string extension = std::filesystem::path(fileName).extension().string();
    if (extension.empty() || !importer.IsExtensionSupported(extension))
        throw Failure(ExitCode::BadInput, fileName + ": nothing here reads files of the type '" + extension +
                                              "'; give a .wrl, .obj, .gltf, .glb, .ply, .stl, .dae or .fbx file.");
    const aiScene* const source = importer.ReadFile(fileName, aiProcess_Triangulate);
    if (source == nullptr || source->mRootNode == nullptr)
        throw Failure(ExitCode::BadInput,
                      fileName + ": cannot be read: " + importer.GetErrorString() +
                          "\n  Correct the file, or export the scene again, for instance as OBJ or glTF.");
    Scene scene;
    Collector(*source, scene).collect();
    return scene;
}
} // namespace KORV::Tool
