#pragma once

#include "korv/navmesh/navmeshbuilder.h"

#include "scenes.h"

#include <cstddef>
#include <string>
#include <vector>

namespace KORV::Benchmarks
{
/// Figures of one build, ours or the peer's.
struct BuildFigures
{
    struct Stage
    {
        std::string mName;
        double mSeconds = 0.0;
    };

    bool mDone = false;           ///< false: nothing came out, the rest says nothing
    double mSeconds = 0.0;        ///< of the whole call
    double mCpuSeconds = 0.0;     ///< that all threads of the process computed meanwhile
    std::vector<Stage> mStages;   ///< in the order they ran
    std::size_t mPeak = 0;        ///< [bytes] beyond what was in use before, the result included
    std::size_t mNumPolygons = 0; ///< of the result
    std::size_t mNumVoxels = 0;   ///< occupied ones; the peer counts spans
    std::size_t mNumSurfaces = 0;
};

/// What the characters of a build can do. [metres]
constexpr float BODY_HEIGHT = 1.8f;
constexpr float JUMP_HEIGHT = 0.5f;
constexpr float FALL_HEIGHT = 1.0f;
constexpr float SMALL_BODY_HEIGHT = 0.4f;
/// Steepest ground that counts as walkable. [degrees]
constexpr float MAX_SLOPE = 45.0f;

struct BuildOptions
{
    float mCube = 0.1f; ///< [metres]
    unsigned mWorkers = 1;
    bool mRefined = false;
    int mSplitDepth = -2;
    bool mTwoCharacters = false; ///< whether something of SMALL_BODY_HEIGHT walks there too
};

/// Keeps the library initialised on the counting heap, and silent.
class Library
{
public:
    Library();
    ~Library();
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
};

/// Builds a mesh. Throws std::runtime_error with the text of the library's exception.
/// @param figures  receives how that went, unless null.
NavMesh::SharedPtr<NavMesh::NavMeshContainer> buildMesh(const Scenes::Scene& scene, const BuildOptions& options,
                                                        BuildFigures* figures = nullptr);
} // namespace KORV::Benchmarks
