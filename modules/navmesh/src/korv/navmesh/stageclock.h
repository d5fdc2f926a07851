#pragma once

#include <chrono>

namespace KORV::NavMesh
{
/// Measures what a stage takes.
class StageClock
{
public:
    void restart() { mStart = Clock::now(); }
    double getSeconds() const { return std::chrono::duration<double>(Clock::now() - mStart).count(); }
    /// For the log: whole milliseconds, as seconds.
    float getLogSeconds() const
    {
        const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - mStart);
        return static_cast<float>(static_cast<double>(elapsed.count()) / 1000.0);
    }

private:
    using Clock = std::chrono::steady_clock;

    Clock::time_point mStart = Clock::now();
};
} // namespace KORV::NavMesh
