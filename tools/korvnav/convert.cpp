// korvnav convert: stores a mesh in another form.

#include "atomicfile.h"
#include "commands.h"
#include "failure.h"
#include "library.h"
#include "meshfile.h"
#include "summary.h"
#include "text.h"

#include <filesystem>
#include <memory>

namespace KORV::Tool
{
namespace
{
struct ConvertOptions
{
    std::string mInput;
    std::string mOutput;
    std::string mEndian; ///< empty: this machine's
};

MeshForm outputForm(const ConvertOptions& options)
{
    const std::string extension = std::filesystem::path(options.mOutput).extension().string();
    if (extension != ".knm" && extension != ".xml")
        throw Failure(ExitCode::BadUsage,
                      options.mOutput +
                          ": the name must end in .knm (binary) or .xml (document), which tells the form.");
    if (extension == ".xml" && !options.mEndian.empty())
        throw Failure(ExitCode::BadUsage, "--endian " + options.mEndian + ": a document has no byte order.");
    if (options.mEndian.empty())
        return formFor(options.mOutput);
    return options.mEndian == "little" ? MeshForm::LittleEndian : MeshForm::BigEndian;
}

void convert(const ConvertOptions& options, MeshForm form)
{
    const Reports reports;
    const MeshPtr mesh = readSoundMesh(options.mInput);
    saveMesh(options.mOutput, mesh, form);
    const std::filesystem::path output(options.mOutput);
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(output, error);
    print(options.mInput + "\n" + entry("mesh", counted(mesh->mNodes.size(), "node")) +
          entry("written", options.mOutput + (error ? "" : ", " + grouped(size) + " bytes")));
}

int runConvert(const ConvertOptions& options)
{
    const MeshForm form = outputForm(options);
    AtomicFile::check(options.mOutput);
    const Library library(false);
    guarded("", "", [&] { convert(options, form); }); // what is thrown must not outlive the library
    return static_cast<int>(ExitCode::Done);
}
} // namespace

Command addConvertCommand(CLI::App& program)
{
    const auto options = std::make_shared<ConvertOptions>();
    CLI::App* const command = program.add_subcommand("convert", "Stores a mesh in another form.");
    command->add_option("input", options->mInput, "mesh to read, in either form")->required()->type_name("IN");
    command
        ->add_option("output", options->mOutput,
                     "mesh to write: .knm is binary and keeps every bit, .xml is a document with six digits a number")
        ->required()
        ->type_name("OUT");
    command->add_option("--endian", options->mEndian, "byte order of a .knm (default: this machine's)")
        ->check(CLI::IsMember({"little", "big"}));
    return {command, [options] { return runConvert(*options); }};
}
} // namespace KORV::Tool
