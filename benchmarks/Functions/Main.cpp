// One round of the benchmarks of functions: --benchmark=N [--quick] and the options of Google Benchmark.
#include "Functions.h"

#include "Shared/Foundation/Logger.h"
#include "Shared/Memory/Windows/MemoryDefaultAllocators.h"

#include <stdio.h>
#include <string.h>

namespace Torvane
{
namespace
{
struct FunctionBenchmark
{
    const char* argument;
    void (*add)(double scale);
    void (*remove)();
};

constexpr FunctionBenchmark functionBenchmarks[] = {
    {"--benchmark=4", AddLogRecord, RemoveLogRecord},
    {"--benchmark=5", AddPools, nullptr},
    {"--benchmark=6", AddJson, nullptr},
    {"--benchmark=7", AddModulePaths, nullptr},
};

NullLogger nullLogger;

int RunBenchmarks(int count, char** arguments)
{
    SetCurrentLogger(&nullLogger);
    StartupMemorySystem();
    double scale = 1;
    const FunctionBenchmark* chosen = nullptr;
    int kept = 1;
    for (int i = 1; i < count; ++i)
    {
        bool taken = false;
        for (const FunctionBenchmark& entry : functionBenchmarks)
        {
            if (strcmp(arguments[i], entry.argument) == 0)
            {
                chosen = &entry;
                taken = true;
            }
        }
        if (strcmp(arguments[i], "--quick") == 0)
        {
            scale = 0.1;
            taken = true;
        }
        if (!taken)
        {
            arguments[kept++] = arguments[i];
        }
    }
    benchmark::Initialize(&kept, arguments);
    if (chosen == nullptr || benchmark::ReportUnrecognizedArguments(kept, arguments))
    {
        fputs("usage: FunctionBenchmarks --benchmark=N [--quick] [options of Google Benchmark]\n", stderr);
        return 2;
    }
    chosen->add(scale);
    benchmark::RunSpecifiedBenchmarks();
    if (chosen->remove != nullptr)
    {
        chosen->remove();
    }
    ShutdownMemorySystem();
    return 0;
}
} // namespace
} // namespace Torvane

int main(int count, char** arguments)
{
    return Torvane::RunBenchmarks(count, arguments);
}
