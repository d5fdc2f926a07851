#include "meshfile.h"

#include "atomicfile.h"
#include "failure.h"
#include "interrupt.h"
#include "library.h"
#include "text.h"

#include "korv/navmesh/navmeshserializer.h"

#include <bit>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace KORV::Tool
{
namespace
{
constexpr std::size_t SHOWN_VIOLATIONS = 20;

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
        throw Failure(ExitCode::BadInput, fileName + ": this is a directory; name the mesh in it.");
    errno = 0;
    if (!std::ifstream(fileName, std::ios::binary))
        throw Failure(ExitCode::BadInput,
                      fileName + ": cannot be opened: " + std::strerror(errno) + "; check the path.");
}
/// A file that is neither form is left to the reader of documents, which says what is wrong with it.
MeshPtr readByContent(const Common::BasicString& fileName)
{
    using NavMesh::NavMeshSerializer;
    return NavMeshSerializer::detectFormat(fileName) == NavMeshSerializer::FORMAT_BINARY
               ? NavMeshSerializer::readNavMeshBinary(fileName)
               : NavMeshSerializer::readNavMesh(fileName);
}

/// The library tells its developers that a file in the other byte order takes longer to read. That is no trouble.
constexpr const char* BYTE_ORDER_NOTE = "Stream stored has not the same endiness as the current system.";

void writeInForm(const Common::BasicString& fileName, const MeshPtr& mesh, MeshForm form)
{
    using NavMesh::NavMeshSerializer;
    if (form == MeshForm::Document)
        NavMeshSerializer::writeNavMesh(fileName, mesh);
    else
        NavMeshSerializer::writeNavMeshBinary(
            fileName, mesh, form == MeshForm::LittleEndian ? NavMesh::ENDIAN_LITTLE : NavMesh::ENDIAN_BIG);
}
} // namespace

MeshForm formFor(const std::string& fileName)
{
    if (std::filesystem::path(fileName).extension() != ".knm")
        return MeshForm::Document;
    return std::endian::native == std::endian::little ? MeshForm::LittleEndian : MeshForm::BigEndian;
}

MeshPtr readMesh(const std::string& fileName)
{
    constexpr const char* ADVICE =
        "\n  Name a mesh that 'korvnav build' wrote, or build the mesh again from its scene.";
    checkReadable(fileName);
    Reports reports(BYTE_ORDER_NOTE);
    MeshPtr mesh = guarded(
        "this is no mesh that can be used: ", fileName, [&] { return readByContent(toLibrary(fileName)); }, ADVICE);
    const std::vector<std::string> troubles = reports.take();
    if (mesh == nullptr || !troubles.empty())
        throw Failure(ExitCode::BadInput, fileName + ": this is no mesh that can be used:" + lines(troubles) + ADVICE);
    return mesh;
}

void writeMesh(const std::string& fileName, const std::string& shownName, const MeshPtr& mesh, MeshForm form)
{
    Reports reports;
    guarded(shownName + ": cannot be written: ", "", [&] { writeInForm(toLibrary(fileName), mesh, form); });
    const std::vector<std::string> troubles = reports.take();
    if (!troubles.empty())
        throw Failure(ExitCode::BadInput, shownName + ": cannot be written:" + lines(troubles));
}

void saveMesh(const std::string& fileName, const MeshPtr& mesh, MeshForm form)
{
    Interrupt interrupt;
    interrupt.poll(true); // a signal must not leave a temporary file behind
    AtomicFile file(fileName);
    writeMesh(file.getTemporaryName(), fileName, mesh, form);
    Interrupt::throwIfRequested();
    file.commit();
}

MeshPtr readSoundMesh(const std::string& fileName)
{
    MeshPtr mesh = readMesh(fileName);
    const std::vector<std::string> violations = findViolations(*mesh);
    if (!violations.empty())
        refuseBrokenMesh(fileName, violations);
    return mesh;
}

std::vector<std::string> findViolations(const NavMesh::NavMeshContainer& mesh)
{
    std::vector<std::string> texts;
    for (const NavMesh::NavMeshContainer::Violation& violation : mesh.checkInvariants())
    {
        std::string where;
        if (violation.mNode >= 0)
            where = "node " + std::to_string(violation.mNode);
        if (violation.mSide >= 0)
            where += ", side " + std::to_string(violation.mSide);
        texts.push_back((where.empty() ? "mesh" : where) + ": " + toStd(violation.mText));
    }
    return texts;
}

void refuseBrokenMesh(const std::string& fileName, const std::vector<std::string>& violations)
{
    std::string text = fileName + ": the mesh breaks its invariants:";
    for (std::size_t index = 0; index < violations.size() && index < SHOWN_VIOLATIONS; ++index)
        text += "\n  " + violations[index];
    if (violations.size() > SHOWN_VIOLATIONS)
        text += "\n  and " + grouped(violations.size() - SHOWN_VIOLATIONS) + " more (korvnav info --json lists them)";
    throw Failure(ExitCode::BadInput, text + "\n  Build the mesh again from its scene.");
}
} // namespace KORV::Tool
