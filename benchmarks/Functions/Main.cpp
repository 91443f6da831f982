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
    void (*remove)();
};

constexpr Figure figures[] = {
    {"--figure=4", AddLogRecord, RemoveLogRecord},
    {"--figure=5", AddPools, nullptr},
    {"--figure=6", AddJson, nullptr},
    {"--figure=7", AddModulePaths, nullptr},
};

NullLogger nullLogger;

int RunFigures(int count, char** arguments)
{
    SetCurrentLogger(&nullLogger);
    StartupMemorySystem();
    double scale = 1;
    const Figure* chosen = nullptr;
    int kept = 1;
    for (int i = 1; i < count; ++i)
    {
        bool taken = false;
        for (const Figure& figure : figures)
        {
            if (strcmp(arguments[i], figure.argument) == 0)
            {
                chosen = &figure;
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
        fputs("usage: FunctionBenchmarks --figure=N [--quick] [options of Google Benchmark]\n", stderr);
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
    return Torvane::RunFigures(count, arguments);
}
