#include "level.h"

#include "build.h"
#include "stopwatch.h"

#include "korv/common/interface.h"

#include <algorithm>
#include <random>
#include <stdexcept>

namespace KORV::Benchmarks
{
namespace
{
Scenes::Scene hallOf(float pillars)
{
    return Scenes::hall(static_cast<std::uint32_t>(pillars), 1);
}

Scenes::Scene hillsOf(float size)
{
    return Scenes::hills(size, std::max(8u, static_cast<std::uint32_t>(size)), 1);
}

/// A point of a node: its corners, weighted at random.
NavMesh::Vec3<float> randomPoint(const NavMesh::NavMeshContainer& mesh, const NavMesh::NavMeshContainer::NavNode& node,
                                 std::mt19937& random)
{
    std::exponential_distribution<float> weights;
    NavMesh::Vec3<float> sum;
    float total = 0.0f;
    for (const uint32 corner : node.mPolygon)
    {
        const float weight = weights(random);
        sum = sum + mesh.mVertices[corner] * weight;
        total += weight;
    }
    return sum * (1.0f / total);
}
} // namespace

std::vector<LevelPlan> levelPlans(bool quick)
{
    std::vector<LevelPlan> plans{{"hall, 64 pillars", hallOf, 64, 0.2f},
                                 {"hall, 625 pillars", hallOf, 625, 0.2f},
                                 {"hills, 18 m", hillsOf, 18, 0.1f},
                                 {"hills, 58 m", hillsOf, 58, 0.1f}};
    if (!quick)
        plans.insert(plans.end(), {{"hall, 6400 pillars", hallOf, 6400, 0.2f}, {"hills, 180 m", hillsOf, 180, 0.1f}});
    return plans;
}

Level::Level(const LevelPlan& plan) : mName(plan.mName)
{
    const Scenes::Scene scene = plan.mScene(plan.mSize);
    BuildOptions options;
    options.mCube = plan.mCube;
    options.mWorkers = 0;
    mMesh = buildMesh(scene, options);
    if (mMesh == nullptr)
        throw std::runtime_error("nothing to walk on: " + mName);
    mPeer = Peer::DetourMesh::build(scene, plan.mCube);
    const Stopwatch watch;
    mIndex = new (Common::Interface::getSharedAllocator()) NavMesh::NavMeshNodeIndex(mMesh);
    mIndexSeconds = watch.getSeconds();
}

std::vector<Place> Level::randomPlaces(std::size_t count, unsigned seed) const
{
    std::mt19937 random(seed);
    std::uniform_int_distribution<std::size_t> nodes(0, mMesh->mNodes.size() - 1);
    std::vector<Place> places;
    while (places.size() < count)
    {
        Place place;
        place.mPosition = randomPoint(*mMesh, mMesh->mNodes[nodes(random)], random);
        place.mNode = mIndex->searchNode(place.mPosition);
        places.push_back(place);
    }
    return places;
}
} // namespace KORV::Benchmarks
