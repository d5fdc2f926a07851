#include "recastbuild.h"

#include "recaststeps.h"
#include "support/heap.h"
#include "support/stopwatch.h"

namespace KORV::Benchmarks::Peer
{
namespace
{
struct Step
{
    const char* mName;
    bool (*mRun)(RecastSteps& steps, const Triangles& triangles);
};

constexpr Step STEPS[] = {
    {"rasterise", [](RecastSteps& steps, const Triangles& triangles) { return steps.rasterise(triangles.mIndices); }},
    {"filter", [](RecastSteps& steps, const Triangles&) { return steps.filter(); }},
    {"compact", [](RecastSteps& steps, const Triangles&) { return steps.compact(); }},
    {"distances", [](RecastSteps& steps, const Triangles&) { return steps.distances(); }},
    {"regions", [](RecastSteps& steps, const Triangles&) { return steps.regions(); }},
    {"contours", [](RecastSteps& steps, const Triangles&) { return steps.contours(); }},
    {"polygons", [](RecastSteps& steps, const Triangles&) { return steps.polygons(); }},
};

bool runSteps(RecastSteps& steps, const Triangles& triangles, BuildFigures& figures)
{
    for (const Step& step : STEPS)
    {
        const Stopwatch watch;
        const bool done = step.mRun(steps, triangles);
        figures.mStages.push_back({step.mName, watch.getSeconds()});
        if (!done)
            return false;
    }
    return true;
}
} // namespace

bool isAvailable()
{
    return true;
}

BuildFigures buildSolo(const Scenes::Scene& scene, float cube)
{
    useCountingHeap();
    const Triangles triangles(scene);
    BuildFigures figures;
    Heap::resetPeak();
    const std::clock_t cpuStart = std::clock();
    const Stopwatch watch;
    const rcConfig config = configFor(triangles, cube);
    RecastSteps steps(triangles, config);
    figures.mDone = runSteps(steps, triangles, figures);
    figures.mSeconds = watch.getSeconds();
    figures.mCpuSeconds = cpuSecondsSince(cpuStart);
    figures.mPeak = Heap::getPeak();
    if (!figures.mDone)
        return figures;
    figures.mNumVoxels = steps.getNumSpans();
    figures.mNumSurfaces = steps.getNumContours();
    figures.mNumPolygons = static_cast<std::size_t>(steps.getMesh().npolys);
    return figures;
}
} // namespace KORV::Benchmarks::Peer
