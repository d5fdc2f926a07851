#include "scene.h"

#include "failure.h"
#include "library.h"
#include "text.h"

#include "korv/navmesh/geometryimporterror.h"
#include "korv/navmesh/interface.h"

#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>

#ifdef KORVNAV_WITH_ASSIMP
#include "assimpscene.h"
#endif

namespace KORV::Tool
{
namespace
{
namespace fs = std::filesystem;

std::string lowerExtension(const std::string& fileName)
{
    std::string extension = fs::path(fileName).extension().string();
    for (char& c : extension)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return extension;
}

void checkReadable(const std::string& fileName)
{
    std::error_code error;
    const fs::file_status status = fs::status(fileName, error);
    if (!fs::exists(status))
        throw Failure(ExitCode::BadInput, fileName + ": there is no such file; check the path.");
    if (fs::is_directory(status))
        throw Failure(ExitCode::BadInput, fileName + ": this is a directory; name the scene file in it.");
    errno = 0;
    const std::ifstream file(fileName, std::ios::binary);
    if (!file)
        throw Failure(ExitCode::BadInput, fileName + ": cannot be opened: " + std::strerror(errno) + ".");
}

std::string place(const Common::BasicString& file, uint32 line, uint32 row)
{
    return toStd(file) + (line > 0 ? ":" + std::to_string(line) + ":" + std::to_string(row + 1) : "");
}

/// The message of an import that failed, with the causes under it.
std::string describeImport(const NavMesh::GeometryImportError& error, const std::string& fileName)
{
    const Common::BasicString culprit = error.mFileName.empty() ? toLibrary(fileName) : error.mFileName;
    std::string text = place(culprit, error.mLine, error.mRow) + ": " + toStd(error.mMessage);
    for (const NavMesh::GeometryImportError::Cause& cause : error.mInner)
    {
        const std::string where = place(cause.mFileName, cause.mLine, cause.mRow);
        text += "\n  because: " + where + (where.empty() ? "" : ": ") + toStd(cause.mMessage);
    }
    if (toStd(culprit) != fileName)
        text += "\n  (wanted by " + fileName + ")";
    return text + "\n  Correct the file, or export the scene again, for instance as OBJ or glTF.";
}

Scene loadVRML(const std::string& fileName)
{
    NavMesh::Vector<NavMesh::Vec3<float>> vertices;
    NavMesh::Vector<NavMesh::IndexedTriangle> triangles;
    NavMesh::GeometryImportError error;
    Reports reports;
    const bool read = guarded(
        "", fileName,
        [&] { return NavMesh::Interface::importVRML2Geometry(vertices, triangles, toLibrary(fileName), error); });
    if (!read)
    {
        reports.take(); // they say the same with less
        throw Failure(ExitCode::BadInput, describeImport(error, fileName));
    }

    Scene scene;
    scene.mVertices.assign(vertices.begin(), vertices.end());
    scene.mTriangles.assign(triangles.begin(), triangles.end());
    scene.mPartOfTriangle.assign(scene.mTriangles.size(), 0);
    const fs::path path(fileName);
    scene.mParts.push_back({{fileName, path.filename().string(), path.stem().string()}});
    fs::path bare = path;
    scene.mParts[0].mNames.push_back(bare.replace_extension().string());
    scene.mWarnings = reports.take();
    return scene;
}

void checkVertices(const Scene& scene)
{
    if (scene.mVertices.size() > std::numeric_limits<uint32>::max() ||
        scene.mTriangles.size() > std::numeric_limits<uint32>::max())
        throw Failure(ExitCode::BadInput,
                      scene.mFileName + ": more than 4,294,967,295 vertices or triangles; split the file.");
    for (std::size_t index = 0; index < scene.mVertices.size(); ++index)
    {
        const auto& vertex = scene.mVertices[index];
        if (std::isfinite(vertex.mX) && std::isfinite(vertex.mY) && std::isfinite(vertex.mZ))
            continue;
        throw Failure(ExitCode::BadInput, scene.mFileName + ": vertex " + grouped(index) + " (counted from 0) at " +
                                              shortest(vertex.mX) + " " + shortest(vertex.mY) + " " +
                                              shortest(vertex.mZ) + " is not finite; correct or remove it.");
    }
}
} // namespace

Scene loadScene(const std::string& fileName)
{
    checkReadable(fileName);
    Scene scene;
    if (lowerExtension(fileName) == ".wrl")
        scene = loadVRML(fileName);
    else
    {
#ifdef KORVNAV_WITH_ASSIMP
        scene = loadWithAssimp(fileName);
#else
        throw Failure(ExitCode::BadInput, fileName +
                                              ": this korvnav was built without Assimp and reads .wrl files only; "
                                              "install libassimp-dev and build it again.");
#endif
    }
    scene.mFileName = fileName;
    checkVertices(scene);
    return scene;
}
} // namespace KORV::Tool
