// One round of the benchmarks of functions: --figure=N [--quick] and the options of Google Benchmark.
#include "Functions.h"

#include "Shared/Foundation/Logger.h"
#include "Shared/Memory/Windows/MemoryDefaultAllocators.h"

#include <stdio.h>
#include <string.h>

namespace Torvane
{
std::string CountThreads(int threads)
{
    return std::to_string(threads) + (threads == 1 ? " thread" : " threads");
}

namespace
{
struct Figure
{
    const char* argument;
    void (*add)(double scale);
};

constexpr Figure figures[] = {
    {"--figure=5", AddPools},
    {"--figure=6", AddJson},
    {"--figure=7", AddModulePaths},
};

NullLogger nullLogger;

int RunFigures(int count, char** arguments)
{
    SetCurrentLogger(&nullLogger);
    StartupMemorySystem();
    double scale = 1;
    void (*add)(double) = nullptr;
    int kept = 1;
    for (int i = 1; i < count; ++i)
    {
        bool taken = false;
        for (const Figure& figure : figures)
        {
            if (strcmp(arguments[i], figure.argument) == 0)
            {
                add = figure.add;
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
    if (add == nullptr || benchmark::ReportUnrecognizedArguments(kept, arguments))
    {
        fputs("usage: FunctionBenchmarks --figure=N [--quick] [options of Google Benchmark]\n", stderr);
        return 2;
    }
    add(scale);
    benchmark::RunSpecifiedBenchmarks();
    ShutdownMemorySystem();
    return 0;
}
} // namespace
} // namespace Torvane

int main(int count, char** arguments)
{
    return Torvane::RunFigures(count, arguments);
}
