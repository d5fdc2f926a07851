#pragma once

#include "stopwatch.h"

#include <cstddef>
#include <functional>
#include <map>
#include <string>

namespace KORV::Benchmarks
{
/// What one run of something took.
struct Batch
{
    std::size_t mItems = 0; ///< how much was done: calls, nodes, bytes
    double mSeconds = 0.0;
};

/// Things to compare, by name.
using Contestants = std::map<std::string, std::function<Batch()>>;
/// Seconds an item, by name; medians over the repetitions.
using SecondsPerItem = std::map<std::string, double>;

/// Runs all of them with Google Benchmark in one go, repetitions interleaved at random.
/// @param repetitions  of each.
/// @param seconds  that each repetition runs at least.
SecondsPerItem compare(const Contestants& contestants, unsigned repetitions, double seconds);

/// Times one call, on the calling thread.
/// @param operation  returns the number of items it has done.
template <class Operation>
Batch timed(Operation&& operation)
{
    const ThreadStopwatch watch;
    const std::size_t items = operation();
    return {items, watch.getSeconds()};
}
} // namespace KORV::Benchmarks
