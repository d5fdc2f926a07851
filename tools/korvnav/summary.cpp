#include "summary.h"

#include "failure.h"
#include "json.h"
#include "library.h"
#include "text.h"

#include <iostream>
#include <sys/resource.h>

namespace KORV::Tool
{
namespace
{
using Mesh = NavMesh::NavMeshContainer;

constexpr double MEBIBYTE = 1024.0 * 1024.0;

std::string linkText(const LinkCounts& links)
{
    return grouped(links.mLevel) + " level, " + grouped(links.mUp) + " up, " + grouped(links.mDown) + " down";
}

/// "1.1 (child), 1.8 (human, guard)"
std::string heightText(const Mesh& mesh)
{
    std::string text;
    for (std::size_t height = 0; height < mesh.mHeight.size(); ++height)
    {
        std::string names;
        for (const NavMesh::CharacterInfo& character : mesh.mCharacters)
            if (character.mMaxHeightClassID == height)
                names += (names.empty() ? "" : ", ") + toStd(character.mName);
        text += (height == 0 ? "" : ", ") + shortest(mesh.mHeight[height]) + (names.empty() ? "" : " (" + names + ")");
    }
    return text;
}

std::string surfaceLines(const MeshFigures& figures)
{
    std::string text;
    for (const auto& [id, surface] : figures.mSurfaces)
    {
        const std::string name = surface.mName.empty() ? "(no name)" : surface.mName;
        text += entry(text.empty() ? "surfaces" : "", name + " = " + std::to_string(id) + ": " +
                                                          counted(surface.mNodes, "node") + ", area " +
                                                          groupedDecimal(surface.mArea, 1));
    }
    return text;
}

std::string stageText(const NavMesh::NavMeshBuilder::Statistics& statistics)
{
    // the last stage is the whole run
    constexpr uint32 total = NavMesh::NavMeshBuilder::Statistics::NUM_STAGES - 1;
    const char* const names[total] = {"voxels and outlines", "convex pieces", "links", "heights"};
    std::string text;
    for (uint32 stage = 0; stage < total; ++stage)
        text += (text.empty() ? "" : ", ") + std::string(names[stage]) + " " +
                decimal(statistics.mStages[stage].mSeconds, 2);
    return decimal(statistics.mStages[total].mSeconds, 2) + " s (" + text + ")";
}

JsonValue linkJson(const LinkCounts& links)
{
    return {{"level", links.mLevel}, {"up", links.mUp}, {"down", links.mDown}};
}

JsonValue charactersJson(const Mesh& mesh)
{
    JsonValue list = JsonValue::array();
    for (const NavMesh::CharacterInfo& character : mesh.mCharacters)
        list.push_back({{"name", toStd(character.mName)},
                        {"userId", character.mUserID},
                        {"height", asDouble(character.mPhysicalHeight)},
                        {"jumpHeight", asDouble(character.mJumpHeight)},
                        {"fallHeight", asDouble(character.mFallHeight)},
                        {"heightClass", character.mMaxHeightClassID}});
    return list;
}

JsonValue surfacesJson(const MeshFigures& figures)
{
    JsonValue list = JsonValue::array();
    for (const auto& [id, surface] : figures.mSurfaces)
        list.push_back({{"name", surface.mName}, {"id", id}, {"nodes", surface.mNodes}, {"area", surface.mArea}});
    return list;
}
} // namespace

const char* const BUILD_JSON_HELP =
    "--json prints one object: vertices, triangles (of the scenes), voxels (occupied),\n"
    "walkableVoxels (those in a surface), surfaces, nodes, links {level, up, down},\n"
    "heightClasses, walkableArea, rescues (outlines that had to be cut in a second way),\n"
    "stages {name: seconds}, generateSeconds, peakMemoryBytes, version.\n";

const char* const INFO_JSON_HELP =
    "--json prints one object: file, vertices, nodes, sides, mostSides, nodesWithoutArea,\n"
    "links {level, up, down}, heightClasses, heights, walkableArea, cubeSize, up, minimum, maximum,\n"
    "characters [{name, userId, height, jumpHeight, fallHeight, heightClass}],\n"
    "surfaceTypes [{name, id, nodes, area}], memoryBytes, valid, violations, version.\n";

std::string buildText(const BuildSummary& summary, const Mesh& mesh)
{
    const MeshFigures& figures = summary.mMesh;
    const auto& statistics = summary.mStatistics;
    std::string scenes;
    for (const std::string& scene : summary.mScenes)
        scenes += (scenes.empty() ? "" : ", ") + scene;
    std::string text = scenes + "\n";
    text += entry("scene", grouped(summary.mSceneVertices) + " vertices" + ", " +
                               counted(summary.mSceneTriangles, "triangle") + ", " +
                               grouped(summary.mWalkableTriangles) + " of them walkable");
    text += entry("voxels", grouped(statistics.mNumVoxels) + " occupied, " + grouped(statistics.mNumWalkableVoxels) +
                                " walkable in " + counted(statistics.mNumSurfaces, "surface") + ", cube " +
                                shortest(mesh.mCubeSize));
    text += entry("mesh", counted(figures.mNodes, "node") + ", area " + groupedDecimal(figures.mArea, 1));
    text += entry("links", linkText(figures.mLinks));
    text += entry("heights", heightText(mesh));
    text += surfaceLines(figures);
    const uint64 rescues = uint64{statistics.mNumInsetRescues} + statistics.mNumTriangleRescues;
    if (rescues > 0)
        text += entry("rescues", counted(rescues, "outline") + " cut in a second way");
    text += entry("time", stageText(statistics));
    text += entry("memory", decimal(static_cast<double>(summary.mPeakMemoryBytes) / MEBIBYTE, 1) + " MiB at most");
    text += entry("written", summary.mOutput);
    if (!summary.mPicture.empty())
        text += entry("picture", summary.mPicture);
    return text;
}

std::string buildJson(const BuildSummary& summary, const Mesh& mesh)
{
    const auto& statistics = summary.mStatistics;
    constexpr uint32 total = NavMesh::NavMeshBuilder::Statistics::NUM_STAGES - 1;
    JsonValue stages = JsonValue::object();
    for (uint32 stage = 0; stage < total; ++stage)
        if (statistics.mStages[stage].mName != nullptr)
            stages[statistics.mStages[stage].mName] = statistics.mStages[stage].mSeconds;
    return dump({{"vertices", summary.mSceneVertices},
                 {"triangles", summary.mSceneTriangles},
                 {"voxels", statistics.mNumVoxels},
                 {"walkableVoxels", statistics.mNumWalkableVoxels},
                 {"surfaces", statistics.mNumSurfaces},
                 {"nodes", summary.mMesh.mNodes},
                 {"links", linkJson(summary.mMesh.mLinks)},
                 {"heightClasses", mesh.mHeight.size()},
                 {"walkableArea", summary.mMesh.mArea},
                 {"rescues", uint64{statistics.mNumInsetRescues} + statistics.mNumTriangleRescues},
                 {"stages", stages},
                 {"generateSeconds", statistics.mStages[total].mSeconds},
                 {"peakMemoryBytes", summary.mPeakMemoryBytes},
                 {"version", KORVNAV_VERSION}});
}

std::string infoText(const std::string& fileName, const MeshFigures& figures, const Mesh& mesh,
                     const std::vector<std::string>& violations)
{
    std::string text = fileName + "\n";
    text += entry("mesh", counted(figures.mNodes, "node") + ", " + counted(figures.mSides, "side") + ", area " +
                              groupedDecimal(figures.mArea, 1));
    if (figures.mWithoutArea > 0)
        text += entry("", counted(figures.mWithoutArea, "node") + " of them without area");
    text += entry("vertices", grouped(figures.mVertices));
    text += entry("links", linkText(figures.mLinks));
    text += entry("up", shortest(mesh.mNormal.mX) + " " + shortest(mesh.mNormal.mY) + " " + shortest(mesh.mNormal.mZ));
    text += entry("cube", shortest(mesh.mCubeSize));
    text += entry("box", shortest(figures.mMinimum.mX) + " " + shortest(figures.mMinimum.mY) + " " +
                             shortest(figures.mMinimum.mZ) + " to " + shortest(figures.mMaximum.mX) + " " +
                             shortest(figures.mMaximum.mY) + " " + shortest(figures.mMaximum.mZ));
    text += entry("heights", heightText(mesh));
    for (std::size_t index = 0; index < mesh.mCharacters.size(); ++index)
    {
        const NavMesh::CharacterInfo& character = mesh.mCharacters[index];
        text += entry(index == 0 ? "characters" : "",
                      toStd(character.mName) + ": height " + shortest(character.mPhysicalHeight) + ", jump " +
                          shortest(character.mJumpHeight) + ", fall " + shortest(character.mFallHeight) + ", user id " +
                          std::to_string(character.mUserID));
    }
    text += surfaceLines(figures);
    text += entry("memory", decimal(static_cast<double>(mesh.getMemoryUsage()) / MEBIBYTE, 2) + " MiB");
    text += entry("invariants", violations.empty() ? "hold" : "broken, " + counted(violations.size(), "violation"));
    return text;
}

std::string infoJson(const std::string& fileName, const MeshFigures& figures, const Mesh& mesh,
                     const std::vector<std::string>& violations)
{
    JsonValue heights = JsonValue::array();
    for (const float height : mesh.mHeight)
        heights.push_back(asDouble(height));
    return dump({{"file", fileName},
                 {"vertices", figures.mVertices},
                 {"nodes", figures.mNodes},
                 {"sides", figures.mSides},
                 {"mostSides", figures.mMostSides},
                 {"nodesWithoutArea", figures.mWithoutArea},
                 {"links", linkJson(figures.mLinks)},
                 {"heightClasses", mesh.mHeight.size()},
                 {"heights", heights},
                 {"walkableArea", figures.mArea},
                 {"cubeSize", asDouble(mesh.mCubeSize)},
                 {"up", vectorJson(mesh.mNormal)},
                 {"minimum", vectorJson(figures.mMinimum)},
                 {"maximum", vectorJson(figures.mMaximum)},
                 {"characters", charactersJson(mesh)},
                 {"surfaceTypes", surfacesJson(figures)},
                 {"memoryBytes", mesh.getMemoryUsage()},
                 {"valid", violations.empty()},
                 {"violations", violations},
                 {"version", KORVNAV_VERSION}});
}

uint64 peakMemoryBytes()
{
    rusage usage = {};
    if (getrusage(RUSAGE_SELF, &usage) != 0)
        return 0;
    return static_cast<uint64>(usage.ru_maxrss) * 1024; // given in KiB
}

void print(const std::string& text)
{
    std::cout << text << std::flush;
    if (!std::cout)
        throw Failure(ExitCode::BadInput, "standard output does not take the summary; is the disk full?");
}
} // namespace KORV::Tool
