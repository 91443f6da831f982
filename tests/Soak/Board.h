#pragma once

/// \file
/// What a host of the soak and its Bridge share: memory named by the host's process id, mapped from a file, so that the
/// driver can read what a hanging process was doing. Any thread.

#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <string>

#include <windows.h>

namespace Torvane::Soak
{
constexpr uint32_t workerCount = 8;  ///< most threads that a campaign has
constexpr uint32_t mainThread = 8;   ///< row of `phases`
constexpr uint32_t bridgeThread = 9; ///< row of `phases`
constexpr uint32_t dataSize = 0x10000;

/// When a synchronized host lets a reload in.
enum class AgentKind : uint32_t
{
    Default,
    Compile,
    Load,
    None, ///< the control: the host's work alone
};

/// What a Bridge does.
enum class BridgeWork : uint32_t
{
    Serve, ///< checks and answers what comes
    AnswerExceptions,
    Reload,
};

/// The file begins with the texts, which the driver reads.
struct BoardMemory
{
    char phases[bridgeThread + 1][48];
    char fault[464]; ///< the first fault that either side has found
    volatile LONG faults;
    uint32_t seed;
    AgentKind kind;
    BridgeWork work;
    uint32_t lifeTime;   ///< milliseconds after which the Bridge's process is ended, 0 for never
    uint32_t data;       ///< in the host: `dataSize` bytes, as `DataAt` gives them
    uint32_t value;      ///< in the host: the function that patches replace
    wchar_t folder[260]; ///< for patches
    wchar_t patch[260];  ///< path of the image that they are made of
    volatile LONG bridgeProcessId;
    volatile LONG received[workerCount]; ///< the next sequence number of each thread
    volatile LONG loaded;                ///< number of the patch that is loaded and in use
    volatile LONG checked;               ///< the last one that the host has called
    volatile LONG finished;              ///< the last one that was unloaded
    volatile LONG reported;              ///< the last one that the host has taken a sample after
    volatile LONG stop;                  ///< set by the host: no further reload
    volatile LONG stopped;               ///< set by the Bridge, in return
    volatile LONG ready;                 ///< set by the Bridge: the exception handler is installed
    volatile LONG blobs;                 ///< received by the Bridge
    volatile LONG kept[2];               ///< modules that stay loaded: enabled, disabled
    volatile LONG passing[2];            ///< modules that come and go: enabled, disabled
    volatile LONG exceptions;
    volatile LONG watchdog; ///< times that the Agent has asked to resume suspended threads
};

class Board
{
public:
    /// \param file path, or empty for whoever comes second.
    explicit Board(uint32_t hostProcessId, const std::string& file = {})
    {
        const std::wstring name = L"TVN_Soak" + std::to_wstring(hostProcessId);
        HANDLE backing = INVALID_HANDLE_VALUE;
        if (!file.empty())
        {
            backing = CreateFileA(file.c_str(), GENERIC_READ | GENERIC_WRITE,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, CREATE_ALWAYS, 0, nullptr);
        }
        mapping = CreateFileMappingW(backing, nullptr, PAGE_READWRITE, 0, sizeof(BoardMemory), name.c_str());
        memory = static_cast<BoardMemory*>(MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, 0));
        if (memory == nullptr)
        {
            fprintf(stderr, "no memory for a board\n");
            _exit(3);
        }
        if (backing != INVALID_HANDLE_VALUE)
        {
            CloseHandle(backing);
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

    /// Notes what a thread begins to do.
    void Enter(uint32_t thread, const char* phase) const
    {
        strncpy(memory->phases[thread], phase, sizeof(memory->phases[thread]) - 1);
    }

    /// Reports a fault; the first one's words are kept. \return false.
    __attribute__((format(printf, 2, 3))) bool Fail(const char* format, ...) const
    {
        if (InterlockedIncrement(&memory->faults) == 1)
        {
            va_list arguments;
            va_start(arguments, format);
            vsnprintf(memory->fault, sizeof(memory->fault), format, arguments);
            va_end(arguments);
        }
        return false;
    }

private:
    HANDLE mapping;
    BoardMemory* memory;
};
} // namespace Torvane::Soak
