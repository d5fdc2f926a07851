#include "measure.h"

#include <benchmark/benchmark.h>

namespace KORV::Benchmarks
{
namespace
{
constexpr const char* COUNTER = "s/item";

/// Keeps the medians and prints nothing.
class MedianCollector : public benchmark::BenchmarkReporter
{
public:
    bool ReportContext(const Context&) override { return true; }

    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs)
            if (run.repetitions < 2 || run.aggregate_name == "median")
                mMedians[run.run_name.function_name] = run.counters.at(COUNTER);
    }

    SecondsPerItem mMedians;
};

void runContestant(benchmark::State& state, const std::function<Batch()>& contestant)
{
    Batch sum;
    for ([[maybe_unused]] auto _ : state)
    {
        const Batch batch = contestant();
        state.SetIterationTime(batch.mSeconds);
        sum.mItems += batch.mItems;
        sum.mSeconds += batch.mSeconds;
    }
    state.counters[COUNTER] = sum.mSeconds / static_cast<double>(sum.mItems);
}

void startGoogleBenchmark()
{
    static bool isStarted = false;
    if (isStarted)
        return;
    isStarted = true;
    std::string arguments[] = {"benchmark", "--benchmark_enable_random_interleaving=true"};
    char* argv[] = {arguments[0].data(), arguments[1].data(), nullptr};
    int argc = 2;
    benchmark::Initialize(&argc, argv);
}
} // namespace

SecondsPerItem compare(const Contestants& contestants, unsigned repetitions, double seconds)
{
    startGoogleBenchmark();
    for (const auto& entry : contestants)
        benchmark::RegisterBenchmark(entry.first.c_str(),
                                     [&entry](benchmark::State& state) { runContestant(state, entry.second); })
            ->UseManualTime()
            ->MinTime(seconds)
            ->Repetitions(static_cast<int>(repetitions));
    MedianCollector collector;
    benchmark::RunSpecifiedBenchmarks(&collector);
    benchmark::ClearRegisteredBenchmarks();
    return collector.mMedians;
}
} // namespace KORV::Benchmarks
