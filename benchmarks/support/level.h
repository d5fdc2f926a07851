#pragma once

#include "peer/detourmesh.h"

#include "korv/navmesh/navmeshcontainer.h"
#include "korv/navmesh/navmeshnodeindex.h"

#include "scenes.h"

#include <memory>
#include <string>
#include <vector>

/// Meshes to find places and ways on, ours and the peer's of the same scene.
namespace KORV::Benchmarks
{
struct LevelPlan
{
    std::string mName;
    Scenes::Scene (*mScene)(float size);
    float mSize = 0.0f; ///< what mScene takes
    float mCube = 0.1f; ///< [metres]
};

/// Levels of growing size; the quick ones are the smaller half.
std::vector<LevelPlan> levelPlans(bool quick);

/// A place on the ground of a level.
struct Place
{
    NavMesh::Vec3<float> mPosition;
    int mNode = -1;

    Peer::Point toPeer() const { return {{mPosition[0], mPosition[1], mPosition[2]}}; }
};

struct Level
{
    /// Throws std::runtime_error when nothing could be built.
    explicit Level(const LevelPlan& plan);

    std::string mName;
    NavMesh::SharedPtr<NavMesh::NavMeshContainer> mMesh;
    std::unique_ptr<Peer::DetourMesh> mPeer; ///< null without one
    NavMesh::SharedPtr<NavMesh::NavMeshNodeIndex> mIndex;
    double mIndexSeconds = 0.0; ///< time to build the index

    /// Places spread at random over the nodes, with the nodes that the index finds there.
    std::vector<Place> randomPlaces(std::size_t count, unsigned seed) const;
};
} // namespace KORV::Benchmarks
