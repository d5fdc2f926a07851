#pragma once

#include "korv/navmesh/navmeshbuilder.h"

#include <chrono>
#include <string>

namespace KORV::Tool
{
/// A line on the terminal that tells how far a run is, and the way a signal stops it. Writes to standard error, and
/// only where that is a terminal.
class Progress : public NavMesh::ProgressReceiver
{
public:
    /// @param wanted  whether to show anything.
    explicit Progress(bool wanted);
    ~Progress() override;

    /// Shows what is done now, without a fraction.
    void step(const std::string& text);
    bool onProgress(const char* stage, float fraction) override;
    /// Wipes the line, so that something else can be printed.
    void clear();

private:
    using Clock = std::chrono::steady_clock;

    void show(const std::string& text);

    bool mShown;
    bool mLineInUse = false;
    std::string mStage;
    Clock::time_point mLast{};
};
} // namespace KORV::Tool
