#pragma once

/// \file
/// A named pipe of the kind that Agent and Bridge use, with bare calls of the OS; each object belongs to one thread at
/// a time. A failure ends the process.

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include <windows.h>

namespace Torvane::Benchmarks
{
[[noreturn]] inline void Fail(const char* what)
{
    fprintf(stderr, "%s (error %lu)\n", what, GetLastError());
    fflush(stderr);
    _exit(3);
}

class Pipe
{
public:
    Pipe() = default;
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    ~Pipe()
    {
        CloseHandle(handle);
    }

    static std::wstring NameOf(const wchar_t* prefix, uint32_t hostProcessId)
    {
        return prefix + std::to_wstring(hostProcessId);
    }

    /// The server's end, as the Agent makes its own.
    void Create(const wchar_t* prefix, uint32_t hostProcessId)
    {
        handle = CreateNamedPipeW(NameOf(prefix, hostProcessId).c_str(), PIPE_ACCESS_DUPLEX,
                                  PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT,
                                  PIPE_UNLIMITED_INSTANCES, bufferSize, bufferSize, 0, nullptr);
        if (handle == INVALID_HANDLE_VALUE)
        {
            Fail("A pipe can't be created");
        }
    }

    /// Waits for the other end.
    void Accept()
    {
        if (!ConnectNamedPipe(handle, nullptr) && GetLastError() != ERROR_PIPE_CONNECTED)
        {
            Fail("Nobody comes to a pipe");
        }
    }

    /// The client's end, tried for as long as it takes.
    void Open(const wchar_t* prefix, uint32_t hostProcessId)
    {
        const std::wstring name = NameOf(prefix, hostProcessId);
        for (int tries = 0; tries < 6000; ++tries)
        {
            handle = CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0,
                                 nullptr);
            if (handle != INVALID_HANDLE_VALUE)
            {
                DWORD mode = PIPE_READMODE_MESSAGE | PIPE_WAIT;
                SetNamedPipeHandleState(handle, &mode, nullptr, nullptr);
                return;
            }
            Sleep(5);
        }
        Fail("A pipe can't be opened");
    }

    /// \return false if the pipe has ended.
    bool Read(void* buffer, uint32_t size)
    {
        uint32_t done = 0;
        while (done < size)
        {
            DWORD count = 0;
            if (!ReadFile(handle, static_cast<char*>(buffer) + done, size - done, &count, nullptr) &&
                GetLastError() != ERROR_MORE_DATA)
            {
                return false;
            }
            done += count;
        }
        return true;
    }

    /// One message of at most `size` bytes. \return false if the pipe has ended.
    bool ReadMessage(void* buffer, uint32_t size)
    {
        DWORD count = 0;
        return ReadFile(handle, buffer, size, &count, nullptr);
    }

    void Write(const void* bytes, uint32_t size)
    {
        uint32_t done = 0;
        while (done < size)
        {
            DWORD count = 0;
            if (!WriteFile(handle, static_cast<const char*>(bytes) + done, size - done, &count, nullptr))
            {
                Fail("A pipe can't be written");
            }
            done += count;
        }
    }

private:
    static constexpr DWORD bufferSize = 0x20000; ///< the Agent's
    HANDLE handle = INVALID_HANDLE_VALUE;
};
} // namespace Torvane::Benchmarks
