#pragma once

#include "korv/navmesh/navmeshbuilder.h"

namespace KORV::NavMesh
{
/// Thrown (as a pointer to this static object, never deleted) through the driver's stages when the host stops a run.
/// It carries nothing and allocates nothing.
struct RunCancelled
{
    static RunCancelled sInstance;
};

/// Tells the host how far a stage is. Lives on the driver's thread; stages get it by reference and report now and then,
/// between pieces of work that may be abandoned.
class RunControl
{
public:
    RunControl(ProgressReceiver* receiver, NavMeshBuilder::Statistics& statistics)
        : mReceiver(receiver), mStatistics(statistics)
    {
    }

    /// Reports the fraction of a stage, in [0, 1]. Throws RunCancelled* when the host wants to stop.
    void report(const char* stage, float fraction) const
    {
        if (mReceiver != nullptr && !mReceiver->onProgress(stage, fraction))
            throw &RunCancelled::sInstance;
    }

    NavMeshBuilder::Statistics& getStatistics() const { return mStatistics; }

private:
    ProgressReceiver* mReceiver;
    NavMeshBuilder::Statistics& mStatistics;
};
} // namespace KORV::NavMesh
