#pragma once

/// \file
/// The memory system for the length of a test, on the target and natively.

#ifdef _WIN32
#include "Shared/Foundation/Logger.h"
#include "Shared/Memory/Windows/MemoryDefaultAllocators.h"
#endif

namespace Torvane::Testing
{
/// Natively there is nothing to start: blocks come from the runtime's heap, which the sanitizers watch. On the target
/// the log goes nowhere meanwhile.
class TestMemorySystem
{
public:
#ifdef _WIN32
    TestMemorySystem()
        : earlierLogger(GetCurrentLogger())
    {
        SetCurrentLogger(&nullLogger);
        StartupMemorySystem();
    }

    ~TestMemorySystem()
    {
        ShutdownMemorySystem();
        SetCurrentLogger(earlierLogger);
    }
#else
    TestMemorySystem() = default;

    ~TestMemorySystem()
    {
    }
#endif

    TestMemorySystem(const TestMemorySystem&) = delete;
    TestMemorySystem& operator=(const TestMemorySystem&) = delete;

private:
#ifdef _WIN32
    NullLogger nullLogger;
    Logger* earlierLogger;
#endif
};
} // namespace Torvane::Testing
