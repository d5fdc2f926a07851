#include "recaststeps.h"

#include "support/build.h"
#include "support/heap.h"

#include <RecastAlloc.h>

#include <algorithm>
#include <cmath>

namespace KORV::Benchmarks::Peer
{
void useCountingHeap()
{
    rcAllocSetCustom([](std::size_t size, rcAllocHint) { return Heap::allocate(size); }, Heap::release);
}

Triangles::Triangles(const Scenes::Scene& scene)
{
    for (const Scenes::Vertex& vertex : scene.mVertices)
        mVertices.insert(mVertices.end(), {vertex.mX, vertex.mY, vertex.mZ});
    for (const Scenes::Triangle& triangle : scene.mTriangles)
        for (const std::uint32_t id : triangle.mVertices)
            mIndices.push_back(static_cast<int>(id));
}

rcConfig configFor(const Triangles& triangles, float cube)
{
    rcConfig config{};
    config.cs = cube;
    config.ch = cube;
    config.walkableSlopeAngle = MAX_SLOPE;
    config.walkableHeight = std::max(3, static_cast<int>(std::ceil(BODY_HEIGHT / cube)));
    config.walkableClimb = static_cast<int>(std::floor(JUMP_HEIGHT / cube));
    config.maxEdgeLen = static_cast<int>(12.0f / cube);
    config.maxSimplificationError = 1.3f;
    config.minRegionArea = 0;
    config.mergeRegionArea = 20;
    config.maxVertsPerPoly = 6;
    rcCalcBounds(triangles.mVertices.data(), triangles.numVertices(), config.bmin, config.bmax);
    rcCalcGridSize(config.bmin, config.bmax, cube, &config.width, &config.height);
    return config;
}

RecastSteps::RecastSteps(const Triangles& triangles, const rcConfig& config)
    : mTriangles(triangles), mConfig(config), mContext(false)
{
}

bool RecastSteps::rasterise(const std::vector<int>& indices)
{
    mField.reset(rcAllocHeightfield());
    if (mField == nullptr || !rcCreateHeightfield(&mContext, *mField, mConfig.width, mConfig.height, mConfig.bmin,
                                                  mConfig.bmax, mConfig.cs, mConfig.ch))
        return false;
    const int numTriangles = static_cast<int>(indices.size() / 3);
    std::vector<unsigned char> areas(indices.size() / 3, 0);
    rcMarkWalkableTriangles(&mContext, mConfig.walkableSlopeAngle, mTriangles.mVertices.data(),
                            mTriangles.numVertices(), indices.data(), numTriangles, areas.data());
    return rcRasterizeTriangles(&mContext, mTriangles.mVertices.data(), mTriangles.numVertices(), indices.data(),
                                areas.data(), numTriangles, *mField, mConfig.walkableClimb);
}

bool RecastSteps::filter()
{
    rcFilterLowHangingWalkableObstacles(&mContext, mConfig.walkableClimb, *mField);
    rcFilterLedgeSpans(&mContext, mConfig.walkableHeight, mConfig.walkableClimb, *mField);
    rcFilterWalkableLowHeightSpans(&mContext, mConfig.walkableHeight, *mField);
    return true;
}

bool RecastSteps::compact()
{
    mCompact.reset(rcAllocCompactHeightfield());
    if (mCompact == nullptr ||
        !rcBuildCompactHeightfield(&mContext, mConfig.walkableHeight, mConfig.walkableClimb, *mField, *mCompact))
        return false;
    mNumSpans = static_cast<std::size_t>(mCompact->spanCount);
    mField.reset();
    return true;
}

bool RecastSteps::distances()
{
    return rcBuildDistanceField(&mContext, *mCompact);
}

bool RecastSteps::regions()
{
    return rcBuildRegions(&mContext, *mCompact, mConfig.borderSize, mConfig.minRegionArea, mConfig.mergeRegionArea);
}

bool RecastSteps::contours()
{
    mContours.reset(rcAllocContourSet());
    if (mContours == nullptr ||
        !rcBuildContours(&mContext, *mCompact, mConfig.maxSimplificationError, mConfig.maxEdgeLen, *mContours))
        return false;
    mNumContours = static_cast<std::size_t>(mContours->nconts);
    return true;
}

bool RecastSteps::polygons()
{
    mMesh.reset(rcAllocPolyMesh());
    const bool done = mMesh != nullptr && rcBuildPolyMesh(&mContext, *mContours, mConfig.maxVertsPerPoly, *mMesh);
    mContours.reset();
    mCompact.reset();
    return done;
}
} // namespace KORV::Benchmarks::Peer
