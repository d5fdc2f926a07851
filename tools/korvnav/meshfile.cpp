#include "meshfile.h"

#include "failure.h"
#include "library.h"

#include "korv/navmesh/navmeshserializer.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace KORV::Tool
{
namespace
{
std::string lines(const std::vector<std::string>& texts)
{
    std::string result;
    for (const std::string& text : texts)
        result += "\n  " + text;
    return result;
}

void checkReadable(const std::string& fileName)
{
    std::error_code error;
    if (std::filesystem::is_directory(fileName, error))
        throw Failure(ExitCode::BadInput, fileName + ": this is a directory; name the mesh document in it.");
    errno = 0;
    if (!std::ifstream(fileName, std::ios::binary))
        throw Failure(ExitCode::BadInput,
                      fileName + ": cannot be opened: " + std::strerror(errno) + "; check the path.");
}
} // namespace

MeshPtr readMesh(const std::string& fileName)
{
    constexpr const char* ADVICE =
        "\n  Name a document that 'korvnav build' wrote, or build the mesh again from its scene.";
    checkReadable(fileName);
    Reports reports;
    const MeshPtr mesh = guarded(
        "this is no mesh document that can be used: ", fileName,
        [&] { return NavMesh::NavMeshSerializer::readNavMesh(toLibrary(fileName)); }, ADVICE);
    const std::vector<std::string> troubles = reports.take();
    if (mesh == nullptr || !troubles.empty())
        throw Failure(ExitCode::BadInput,
                      fileName + ": this is no mesh document that can be used:" + lines(troubles) + ADVICE);
    return mesh;
}

void writeMesh(const std::string& fileName, const std::string& shownName, const MeshPtr& mesh)
{
    Reports reports;
    guarded(shownName + ": cannot be written: ", "",
            [&] { NavMesh::NavMeshSerializer::writeNavMesh(toLibrary(fileName), mesh); });
    const std::vector<std::string> troubles = reports.take();
    if (!troubles.empty())
        throw Failure(ExitCode::BadInput, shownName + ": cannot be written:" + lines(troubles));
}
} // namespace KORV::Tool
