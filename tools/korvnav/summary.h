#pragma once

#include "figures.h"

#include "korv/navmesh/navmeshbuilder.h"
#include "korv/navmesh/navmeshcontainer.h"

#include <string>
#include <vector>

/// What the program says at the end, for a person and for a program.
namespace KORV::Tool
{
/// All there is to say about a build.
struct BuildSummary
{
    std::vector<std::string> mScenes;
    std::string mOutput;
    std::string mPicture; ///< empty for none
    uint64 mSceneVertices = 0;
    uint64 mSceneTriangles = 0;
    uint64 mWalkableTriangles = 0;
    MeshFigures mMesh;
    NavMesh::NavMeshBuilder::Statistics mStatistics;
    uint64 mPeakMemoryBytes = 0;
};

/// Each ends with a line feed.
std::string buildText(const BuildSummary& summary, const NavMesh::NavMeshContainer& mesh);
std::string buildJson(const BuildSummary& summary, const NavMesh::NavMeshContainer& mesh);

/// @param violations  what is broken in the mesh, a line each; empty when it holds.
std::string infoText(const std::string& fileName, const MeshFigures& figures, const NavMesh::NavMeshContainer& mesh,
                     const std::vector<std::string>& violations);
std::string infoJson(const std::string& fileName, const MeshFigures& figures, const NavMesh::NavMeshContainer& mesh,
                     const std::vector<std::string>& violations);

/// The largest amount of memory that the process has used. [bytes]
uint64 peakMemoryBytes();

/// The keys of the two JSON objects, for the help texts.
extern const char* const BUILD_JSON_HELP;
extern const char* const INFO_JSON_HELP;

/// Writes to standard output. Throws Failure (BadInput) when that does not take it.
void print(const std::string& text);
} // namespace KORV::Tool
