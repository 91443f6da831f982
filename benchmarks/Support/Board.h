#pragma once

/// \file
/// What a benchmark's host and its Bridge share: memory that both map, named by the host's process id.

#include "Pipe.h"

#include <stdarg.h>
#include <stdint.h>

#include <string>

namespace Torvane::Benchmarks
{
/// Filled by the host before it starts its Agent; results are added by either side.
struct BoardMemory
{
    uint32_t benchmark;
    uint32_t rounds;
    uint32_t quick;
    uint32_t dataSize;        ///< bytes of the host's memory that benchmarks read and write
    uint64_t data;            ///< where that is in the host
    uint32_t bursts;          ///< of benchmark 3, in all
    wchar_t folder[MAX_PATH]; ///< of benchmark 9's images
    uint32_t bare;            ///< whether benchmark 10 starts the Bridge itself
    uint32_t synchronized;    ///< whether benchmark 13's host has a synchronized agent
    uint64_t functions;       ///< what benchmark 13 routes
    uint32_t relayThreads[4]; ///< ids of its own threads, in benchmark 13's host without an Agent

    // Benchmark 13's threads: a request is executed when the two counts are equal.
    volatile LONG threads;      ///< how many there are to be
    volatile LONG atWork;       ///< whether they work
    volatile LONG keepsAddress; ///< whether the main thread's stack holds an address in the Agent
    volatile LONG addsCalls;    ///< whether the calls of the OS since the last request are added
    volatile LONG requested;
    volatile LONG executed;

    volatile LONG bridgeProcessId;
    volatile LONG bridgeDone;
    uint32_t linesSize;
    char lines[1 << 20]; ///< a line of JSON for each value
};

class Board
{
public:
    explicit Board(uint32_t hostProcessId)
    {
        const std::wstring name = L"TVN_Benchmark" + std::to_wstring(hostProcessId);
        mapping = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(BoardMemory),
                                     name.c_str());
        memory = static_cast<BoardMemory*>(MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, 0));
        if (memory == nullptr)
        {
            Fail("No memory for results");
        }
    }

    Board(const Board&) = delete;
    Board& operator=(const Board&) = delete;

    ~Board()
    {
        UnmapViewOfFile(memory);
        CloseHandle(mapping);
    }

    BoardMemory* operator->() const
    {
        return memory;
    }

    bool IsQuick() const
    {
        return memory->quick != 0;
    }

    /// \param value of one round: seconds, bytes per second or whatever the benchmark has for that case.
    void Add(const std::string& caseName, const char* side, double value)
    {
        AddLine("{\"case\": \"%s\", \"side\": \"%s\", \"value\": %.9g}\n", caseName.c_str(), side, value);
    }

    /// \param place the program that has made the calls: "host" or "Bridge".
    void AddCalls(const char* place, const char* side, const std::string& function, uint32_t count)
    {
        AddLine("{\"call\": \"%s\", \"place\": \"%s\", \"side\": \"%s\", \"count\": %u}\n", function.c_str(),
                place, side, count);
    }

    __attribute__((format(__MINGW_PRINTF_FORMAT, 2, 3))) void AddLine(const char* format, ...)
    {
        va_list arguments;
        va_start(arguments, format);
        memory->linesSize += static_cast<uint32_t>(vsnprintf(
            memory->lines + memory->linesSize, sizeof(memory->lines) - memory->linesSize, format, arguments));
        va_end(arguments);
    }

private:
    HANDLE mapping;
    BoardMemory* memory;
};
} // namespace Torvane::Benchmarks
