#pragma once

/// \file
/// What a host and its Bridge share: memory that both map, named by the host's process id.

#include <stdint.h>

#include <string>

#include <windows.h>

namespace Torvane::Faults
{
constexpr uint32_t countedTypes = 80; ///< more than there are numbers of Blobs

/// Filled by the host before it starts its Agent; the counters are the Bridge's.
struct BoardMemory
{
    char bridge[64]; ///< how the Bridge behaves, see `BridgeMain.cpp`
    wchar_t patches[2]
                   [MAX_PATH]; ///< libraries of which the first is loaded, called and kept, the second freed
    uint32_t hooks;            ///< address of a table of two functions
    uint32_t memory;           ///< address of four bytes that a reload doubles
    uint32_t reservation;      ///< address space that the host reserves for a patch
    volatile LONG leave;       ///< set by the host: the Bridge's process ends
    volatile LONG left;        ///< set by the Bridge at its end
    volatile LONG entered;     ///< set by the Bridge when it is connected
    volatile LONG reloads;     ///< finished with a loaded patch
    volatile LONG received[countedTypes];
};

class Board
{
public:
    explicit Board(uint32_t hostProcessId)
    {
        const std::wstring name = L"TVN_Faults" + std::to_wstring(hostProcessId);
        mapping = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(BoardMemory),
                                     name.c_str());
        memory = static_cast<BoardMemory*>(MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, 0));
    }

    ~Board()
    {
        UnmapViewOfFile(memory);
        CloseHandle(mapping);
    }

    Board(const Board&) = delete;
    Board& operator=(const Board&) = delete;

    BoardMemory* operator->() const
    {
        return memory;
    }

private:
    HANDLE mapping;
    BoardMemory* memory;
};
} // namespace Torvane::Faults
