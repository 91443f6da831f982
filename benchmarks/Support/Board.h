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
        memory->linesSize += static_cast<uint32_t>(snprintf(
            memory->lines + memory->linesSize, sizeof(memory->lines) - memory->linesSize,
            "{\"case\": \"%s\", \"side\": \"%s\", \"value\": %.9g}\n", caseName.c_str(), side, value));
    }

private:
    HANDLE mapping;
    BoardMemory* memory;
};
} // namespace Torvane::Benchmarks
