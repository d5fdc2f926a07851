// korvnav build: scene files in, a navigation mesh out.

#include "atomicfile.h"
#include "classifier.h"
#include "commands.h"
#include "failure.h"
#include "figures.h"
#include "interrupt.h"
#include "library.h"
#include "meshfile.h"
#include "options.h"
#include "picture.h"
#include "progress.h"
#include "scene.h"
#include "summary.h"
#include "text.h"

#include "korv/navmesh/interface.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>

namespace KORV::Tool
{
namespace
{
using BuilderPtr = Common::SharedPtr<NavMesh::NavMeshBuilder>;

constexpr int32 CHOOSE_SPLIT_DEPTH = -2;

/// The options as they were typed.
struct BuildArguments
{
    std::vector<std::string> mScenes;
    std::string mOutput;
    std::vector<std::string> mCharacters;
    std::vector<std::string> mSurfaces;
    std::string mCube = "0.25";
    std::string mUp = "y";
    std::string mMaxSlope = "45";
    std::string mWinding = "ccw";
    std::string mThreads = "0";
    std::string mSplitDepth = "-2";
    std::string mRules = "refined";
    std::string mPicture;
    bool mQuiet = false;
    bool mVerbose = false;
    bool mJson = false;
};

/// The options as they are meant.
struct BuildOptions
{
    std::vector<std::string> mScenes;
    std::string mOutput;
    std::string mPicture; ///< empty for none
    std::vector<CharacterOption> mCharacters;
    WalkRules mRules;
    std::vector<SurfaceOption> mSurfaceTypes; ///< all that the mesh gets
    float mCube = 0.0f;
    uint32 mThreads = 0;
    int32 mSplitDepth = CHOOSE_SPLIT_DEPTH;
    bool mRefined = true;
    Verbosity mVerbosity = Verbosity::Normal;
};

bool sameFile(const std::string& a, const std::string& b)
{
    std::error_code error;
    if (std::filesystem::equivalent(a, b, error))
        return std::filesystem::is_regular_file(a, error);
    return std::filesystem::path(a).lexically_normal() == std::filesystem::path(b).lexically_normal();
}

void checkFileNames(const BuildOptions& options)
{
    const auto clash = [](const std::string& output, const std::string& other, const std::string& what)
    {
        if (sameFile(output, other))
            throw Failure(ExitCode::BadUsage, output + ": this is also " + what + "; give another name to write to.");
    };
    for (const std::string& scene : options.mScenes)
    {
        clash(options.mOutput, scene, "a scene to read");
        if (!options.mPicture.empty())
            clash(options.mPicture, scene, "a scene to read");
    }
    if (!options.mPicture.empty())
        clash(options.mPicture, options.mOutput, "the mesh to write");
}

/// Type 0 is "Default" unless a name is given for it; the first name given for an id is the type's.
std::vector<SurfaceOption> surfaceTypesFor(const std::vector<SurfaceOption>& surfaces)
{
    const auto hasID = [](uint16 id) { return [id](const SurfaceOption& type) { return type.mID == id; }; };
    const auto zero = std::find_if(surfaces.begin(), surfaces.end(), hasID(0));
    std::vector<SurfaceOption> types{{zero == surfaces.end() ? "Default" : zero->mName, 0}};
    for (const SurfaceOption& surface : surfaces)
        if (std::none_of(types.begin(), types.end(), hasID(surface.mID)))
            types.push_back(surface);
    for (std::size_t index = 1; index < types.size(); ++index)
        if (types[index].mName == types[0].mName)
            throw Failure(ExitCode::BadUsage,
                          "--surface '" + types[index].mName + "=" + std::to_string(types[index].mID) +
                              "': that is the name of type 0; give type 0 another, such as --surface ground=0.");
    return types;
}

BuildOptions interpret(const BuildArguments& arguments)
{
    BuildOptions options;
    options.mScenes = arguments.mScenes;
    options.mOutput = arguments.mOutput;
    options.mPicture = arguments.mPicture;
    options.mCharacters = parseCharacters(arguments.mCharacters.empty() ? std::vector<std::string>{"human:1.8:0.5:1.0"}
                                                                        : arguments.mCharacters);
    options.mCube = parseCubeSize(arguments.mCube);
    options.mRules.mUp = parseUp(arguments.mUp);
    options.mRules.mMaxSlope = parseSlope(arguments.mMaxSlope);
    options.mRules.mWinding = parseWinding(arguments.mWinding);
    options.mRules.mSurfaces = parseSurfaces(arguments.mSurfaces);
    options.mSurfaceTypes = surfaceTypesFor(options.mRules.mSurfaces);
    options.mThreads = parseThreads(arguments.mThreads);
    options.mSplitDepth = parseSplitDepth(arguments.mSplitDepth);
    options.mRefined = arguments.mRules == "refined";
    options.mVerbosity = arguments.mQuiet     ? Verbosity::Quiet
                         : arguments.mVerbose ? Verbosity::Verbose
                         : arguments.mJson    ? Verbosity::Json
                                              : Verbosity::Normal;
    checkFileNames(options);
    return options;
}

/// The scenes with what the builder asks of them. The builder keeps addresses, so this stays where it is.
class Inputs
{
public:
    Inputs(const BuildOptions& options, Progress& progress) : mOptions(options)
    {
        for (const std::string& fileName : options.mScenes)
        {
            progress.step("Reading " + fileName);
            mScenes.push_back(std::make_unique<Scene>(loadScene(fileName)));
            mClassifiers.push_back(std::make_unique<SceneClassifier>(*mScenes.back(), options.mRules));
        }
        progress.clear();
        for (const auto& scene : mScenes)
            for (const std::string& warning : scene->mWarnings)
                printWarning(scene->mFileName + ": " + warning);
        warnOfUnmatchedSurfaces();
        requireWalkable();
    }

    void addTo(NavMesh::NavMeshBuilder& builder)
    {
        for (std::size_t index = 0; index < mScenes.size(); ++index)
        {
            const Scene& scene = *mScenes[index];
            NavMesh::GeometryInfo geometry;
            geometry.mClassifier = mClassifiers[index].get();
            geometry.mVertexData = scene.mVertices.data();
            geometry.mIndexData = scene.mTriangles.data();
            geometry.mVertexStride = sizeof(scene.mVertices[0]);
            geometry.mTriangleStride = sizeof(scene.mTriangles[0]);
            geometry.mIndexSize = 4;
            geometry.mNumVertices = static_cast<uint32>(scene.mVertices.size());
            geometry.mNumTriangles = static_cast<uint32>(scene.mTriangles.size());
            builder.addGeometry(geometry);
        }
    }

    const std::vector<std::unique_ptr<Scene>>& getScenes() const { return mScenes; }

    void countInto(BuildSummary& summary) const
    {
        for (std::size_t index = 0; index < mScenes.size(); ++index)
        {
            summary.mSceneVertices += mScenes[index]->mVertices.size();
            summary.mSceneTriangles += mScenes[index]->mTriangles.size();
            summary.mWalkableTriangles += mClassifiers[index]->getWalkableCount();
        }
    }

private:
    void warnOfUnmatchedSurfaces() const
    {
        for (std::size_t surface = 0; surface < mOptions.mRules.mSurfaces.size(); ++surface)
        {
            const bool matched = std::any_of(mClassifiers.begin(), mClassifiers.end(),
                                             [&](const auto& classifier) { return classifier->hasMatched(surface); });
            if (!matched)
                printWarning("--surface " + mOptions.mRules.mSurfaces[surface].mName +
                             ": no material, mesh or .wrl file has that name.");
        }
    }

    void requireWalkable() const
    {
        BuildSummary counts;
        countInto(counts);
        if (counts.mSceneTriangles == 0)
            throw Failure(ExitCode::NothingWalkable, "nothing is walkable: the scene has no triangles.");
        if (counts.mWalkableTriangles == 0)
            throw Failure(ExitCode::NothingWalkable,
                          "nothing is walkable: none of the " + grouped(counts.mSceneTriangles) +
                              " triangles faces up within the slope of " + decimal(mOptions.mRules.mMaxSlope, 3) +
                              " degrees; check --up, --winding and --max-slope.");
    }

    const BuildOptions& mOptions;
    std::vector<std::unique_ptr<Scene>> mScenes;
    std::vector<std::unique_ptr<SceneClassifier>> mClassifiers;
};

/// Gives the inputs back to nobody when the run is over: the builder outlives what it points to.
class Configured
{
public:
    Configured(NavMesh::NavMeshBuilder& builder, const BuildOptions& options, Inputs& inputs, Progress& progress)
        : mBuilder(builder)
    {
        for (const CharacterOption& character : options.mCharacters)
        {
            NavMesh::CharacterInfo info;
            info.mName = toLibrary(character.mName);
            info.mUserID = character.mUserID;
            info.mPhysicalHeight = character.mHeight;
            info.mJumpHeight = character.mJumpHeight;
            info.mFallHeight = character.mFallHeight;
            builder.addCharacter(info);
        }
        for (const SurfaceOption& type : options.mSurfaceTypes)
        {
            NavMesh::SurfaceType surfaceType;
            surfaceType.mName = toLibrary(type.mName);
            surfaceType.mID = type.mID;
            builder.addSurfaceType(surfaceType);
        }
        inputs.addTo(builder);
        builder.setRefined(options.mRefined);
        builder.setProgressReceiver(&progress);
    }
    ~Configured()
    {
        mBuilder.setProgressReceiver(nullptr);
        mBuilder.clearGeometries();
        mBuilder.clearSurfaceTypes();
        mBuilder.clearCharacters();
    }
    Configured(const Configured&) = delete;
    Configured& operator=(const Configured&) = delete;

private:
    NavMesh::NavMeshBuilder& mBuilder;
};

/// The library's own choice of the split depth, with its arithmetic.
int32 automaticSplitDepth(const Inputs& inputs, float cube)
{
    constexpr float LARGEST = std::numeric_limits<float>::max();
    Common::Math::Vec3<float> low(LARGEST, LARGEST, LARGEST);
    Common::Math::Vec3<float> high(-LARGEST, -LARGEST, -LARGEST);
    for (const auto& scene : inputs.getScenes())
    {
        for (const auto& vertex : scene->mVertices)
        {
            for (int axis = 0; axis < 3; ++axis)
            {
                low[axis] = std::min(low[axis], vertex[axis]);
                high[axis] = std::max(high[axis], vertex[axis]);
            }
        }
    }
    const auto extent = high - low;
    const float largest = std::max({extent.mX, extent.mY, extent.mZ});
    const double across = static_cast<double>((low.mX + largest - low.mX) / cube) / 400.0;
    return across < 1e9 ? static_cast<int32>(across) + 1 : std::numeric_limits<int32>::max();
}

/// The automatic value grows with the size of a scene, the octree's depth only with its logarithm. Without a limit a
/// very large scene would be split into single voxels, so seven levels (128 voxels across) stay whole.
int32 chooseSplitDepth(const Inputs& inputs, float cube, uint32 octreeDepth)
{
    const int32 limit = std::max(static_cast<int32>(octreeDepth) - 7, 1);
    return std::min(automaticSplitDepth(inputs, cube), limit);
}

void setParameter(NavMesh::NavMeshBuilder& builder, const BuildOptions& options, const Inputs& inputs)
{
    NavMesh::NavMeshBuilder::Parameter parameter;
    parameter.mGravityDir = Common::Math::Vec3<float>() - options.mRules.mUp;
    parameter.mCubeSize = options.mCube;
    parameter.mNumThreads = options.mThreads;
    parameter.mSplitDepth = options.mSplitDepth;
    builder.setParameter(parameter); // the depth depends on the cube size
    const uint32 depth = guarded("--cube " + shortest(options.mCube) + " does not suit this scene: ", "",
                                 [&] { return builder.computeOctreeDepth(); });
    if (options.mSplitDepth == CHOOSE_SPLIT_DEPTH && options.mRefined)
        return; // the library's choice is a good one then
    if (options.mSplitDepth == CHOOSE_SPLIT_DEPTH)
        parameter.mSplitDepth = chooseSplitDepth(inputs, options.mCube, depth);
    else if (options.mSplitDepth > 0 && static_cast<uint32>(options.mSplitDepth) >= depth)
        printWarning("--split-depth " + std::to_string(options.mSplitDepth) +
                     " reaches the depth of the octree, which is " + std::to_string(depth) +
                     ": every voxel becomes a node of its own; use a smaller one.");
    builder.setParameter(parameter);
}

void warnOfLowJumps(const BuildOptions& options)
{
    for (const CharacterOption& character : options.mCharacters)
        if (character.mJumpHeight < options.mCube)
            printWarning("the jump height " + shortest(character.mJumpHeight) + " of '" + character.mName +
                         "' is below the cube size " + shortest(options.mCube) +
                         ": slopes and stairs fall apart into levels; use a smaller cube or a larger jump height.");
}

MeshPtr generate(NavMesh::NavMeshBuilder& builder, const BuildOptions& options)
{
    MeshPtr mesh = guarded("the scene cannot be used: ", "", [&] { return builder.generateNavMesh(); });
    if (builder.getStatistics().mCancelled)
        Interrupt::throwIfRequested();
    if (mesh == nullptr || mesh->empty())
    {
        float smallest = std::numeric_limits<float>::max();
        for (const CharacterOption& character : options.mCharacters)
            smallest = std::min(smallest, character.mHeight);
        throw Failure(ExitCode::NothingWalkable,
                      "nothing is walkable: no character fits, for all walkable ground is covered within the height " +
                          shortest(smallest) + "; give a smaller character or a smaller cube.");
    }
    return mesh;
}

/// Writes mesh and picture; the old files stay until both are complete.
void writeFiles(const BuildOptions& options, const MeshPtr& mesh, const std::string& title)
{
    AtomicFile meshFile(options.mOutput);
    writeMesh(meshFile.getTemporaryName(), options.mOutput, mesh, formFor(options.mOutput));
    std::optional<AtomicFile> pictureFile;
    if (!options.mPicture.empty())
    {
        pictureFile.emplace(options.mPicture);
        pictureFile->write(drawPicture(*mesh, title));
    }
    Interrupt::throwIfRequested();
    meshFile.commit();
    if (pictureFile)
        pictureFile->commit();
}

std::string titleFor(const BuildOptions& options)
{
    std::string title;
    for (const std::string& scene : options.mScenes)
        title += (title.empty() ? "" : ", ") + std::filesystem::path(scene).filename().string();
    return title;
}

void report(const BuildOptions& options, const BuildSummary& summary, const NavMesh::NavMeshContainer& mesh)
{
    for (const std::string& warning : searchLimitWarnings(summary.mMesh))
        printWarning(warning);
    if (options.mVerbosity == Verbosity::Json)
        print(buildJson(summary, mesh));
    else if (options.mVerbosity != Verbosity::Quiet)
        print(buildText(summary, mesh));
}

/// The run proper, with the library up.
void build(const BuildOptions& options, Interrupt& interrupt)
{
    const Reports reports;
    warnOfLowJumps(options);
    Progress progress(options.mVerbosity != Verbosity::Quiet && options.mVerbosity != Verbosity::Verbose);
    Inputs inputs(options, progress);

    const BuilderPtr builder = NavMesh::Interface::getNavMeshBuilder();
    const Configured configured(*builder, options, inputs, progress);
    setParameter(*builder, options, inputs);
    interrupt.poll(true);
    const MeshPtr mesh = generate(*builder, options);

    progress.step("Writing " + options.mOutput);
    BuildSummary summary;
    inputs.countInto(summary);
    summary.mScenes = options.mScenes;
    summary.mOutput = options.mOutput;
    summary.mPicture = options.mPicture;
    summary.mStatistics = builder->getStatistics();
    summary.mMesh = measure(*mesh);
    writeFiles(options, mesh, titleFor(options));
    summary.mPeakMemoryBytes = peakMemoryBytes();
    progress.clear();
    report(options, summary, *mesh);
}

int runBuild(const BuildArguments& arguments)
{
    const BuildOptions options = interpret(arguments);
    AtomicFile::check(options.mOutput);
    if (!options.mPicture.empty())
        AtomicFile::check(options.mPicture);
    Interrupt interrupt;
    const Library library(options.mVerbosity == Verbosity::Verbose);
    guarded("", "", [&] { build(options, interrupt); }); // what is thrown must not outlive the library
    return static_cast<int>(ExitCode::Done);
}

void addInputOptions(CLI::App& command, BuildArguments& arguments)
{
    command.add_option("scene", arguments.mScenes, "scene files: .wrl, and what Assimp reads, such as .obj and .gltf")
        ->required()
        ->type_name("SCENE...");
    command.add_option("--up", arguments.mUp, "the direction that points up")
        ->type_name("x|y|z|-x|-y|-z")
        ->capture_default_str();
    command.add_option("--winding", arguments.mWinding, "how the corners run on the front of a triangle")
        ->type_name("ccw|cw|both")
        ->capture_default_str();
    command
        .add_option(
            "--surface", arguments.mSurfaces,
            "surface type of the triangles whose material, mesh or .wrl file has that name; type 0 is \"Default\"")
        ->type_name("NAME=ID")
        ->allow_extra_args(false);
}

void addMeshOptions(CLI::App& command, BuildArguments& arguments)
{
    command
        .add_option(
            "--character", arguments.mCharacters,
            "who walks: body height, how high it can step or jump, how far it can drop (default human:1.8:0.5:1.0)")
        ->type_name("NAME:HEIGHT:JUMP:FALL[:USERID]")
        ->allow_extra_args(false);
    command.add_option("--cube", arguments.mCube, "edge of a voxel, in units of the scene")
        ->type_name("SIZE")
        ->capture_default_str();
    command.add_option("--max-slope", arguments.mMaxSlope, "steepest slope that can be walked")
        ->type_name("DEGREES")
        ->capture_default_str();
    command
        .add_option("--split-depth", arguments.mSplitDepth,
                    "octree levels that a surface never crosses; -1: none, -2: chosen by the size of the scene")
        ->type_name("N")
        ->capture_default_str();
    command
        .add_option(
            "--rules", arguments.mRules,
            "rules of the generation: refined ones make fewer nodes and links that bodies can follow; specified ones\n"
            "are those of the library when nobody chooses")
        ->check(CLI::IsMember({"specified", "refined"}))
        ->capture_default_str();
    command
        .add_option("--threads", arguments.mThreads,
                    "worker threads; 0: one per processor. The mesh is the same for any number")
        ->type_name("N")
        ->capture_default_str();
}

void addOutputOptions(CLI::App& command, BuildArguments& arguments)
{
    command
        .add_option("-o,--output", arguments.mOutput,
                    "mesh to write, in binary form if it ends in .knm (recommended), else as a document")
        ->required()
        ->type_name("MESH.knm|MESH.xml");
    command.add_option("--svg", arguments.mPicture, "picture of the mesh to write")->type_name("PICTURE.svg");
    CLI::Option* const quiet = command.add_flag("--quiet", arguments.mQuiet, "print nothing but warnings and errors");
    CLI::Option* const verbose =
        command.add_flag("--verbose", arguments.mVerbose, "also print what the library traces");
    CLI::Option* const json =
        command.add_flag("--json", arguments.mJson, "print one JSON object, and nothing else, on standard output");
    quiet->excludes(verbose, json);
    verbose->excludes(json);
}
} // namespace

Command addBuildCommand(CLI::App& program)
{
    const auto arguments = std::make_shared<BuildArguments>();
    CLI::App* const command = program.add_subcommand("build", "Makes a navigation mesh from scene files.");
    addInputOptions(*command, *arguments);
    addMeshOptions(*command, *arguments);
    addOutputOptions(*command, *arguments);
    command->footer(BUILD_JSON_HELP);
    return {command, [arguments] { return runBuild(*arguments); }};
}
} // namespace KORV::Tool
