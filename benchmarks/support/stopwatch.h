#pragma once

#include <algorithm>
#include <chrono>
#include <ctime>
#include <vector>

namespace KORV::Benchmarks
{
/// Time on the wall, for what uses several threads.
class Stopwatch
{
public:
    double getSeconds() const { return std::chrono::duration<double>(Clock::now() - mStart).count(); }

private:
    using Clock = std::chrono::steady_clock;
    Clock::time_point mStart = Clock::now();
};

/// Time that the calling thread computes, for what uses that thread alone: what else the machine does counts less.
class ThreadStopwatch
{
public:
    double getSeconds() const { return now() - mStart; }

private:
    static double now()
    {
        timespec time{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
    }

    double mStart = now();
};

/// Time that all threads of the process have computed since then.
inline double cpuSecondsSince(std::clock_t start)
{
    return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

/// The middle one; of an even number the mean of the two in the middle. 0 for none.
inline double median(std::vector<double> values)
{
    if (values.empty())
        return 0.0;
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2.0;
}
} // namespace KORV::Benchmarks
