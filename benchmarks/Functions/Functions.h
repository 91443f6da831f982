#pragma once

/// \file
/// What the benchmarks of functions have in common. One benchmark is one source file. Main thread, but for what the
/// benchmarks themselves run.

#include "../Support/Count.h"

#include <benchmark/benchmark.h>

#include <stdint.h>

#include <string>

namespace Torvane
{
using Benchmarks::Count;

/// Adds one side of a case. Cases run in the order in which they are added, so ours and its baselines follow each other;
/// a whole run of the program is one round.
/// \param name the benchmark's number, the case and the side: "5|64 B, 1 thread|ours".
/// \param iterations of each thread, the same in every round: nothing is spent on finding a number.
template<typename Function>
void AddBenchmark(const std::string& name, int threads, int64_t iterations, Function function)
{
    benchmark::RegisterBenchmark(name.c_str(), function)
        ->Threads(threads)
        ->Iterations(iterations < 1 ? 1 : iterations)
        ->UseRealTime();
}

/// \param scale 1 for a full round, less for a quick one; the iterations are multiplied by it.
void AddPools(double scale);
void AddJson(double scale);
void AddModulePaths(double scale);
void AddLogRecord(double scale);

/// Removes the files that `AddLogRecord` made.
void RemoveLogRecord();
} // namespace Torvane
