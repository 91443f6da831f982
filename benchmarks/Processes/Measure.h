#pragma once

/// \file
/// What host and Bridge of these benchmarks have in common: a clock, the file of results, and a bare pipe between the
/// two, which is what the Agent's link is measured against. Each object belongs to one thread.

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <vector>

#include <windows.h>

namespace Torvane::Benchmarks
{
/// Microseconds since an arbitrary point in time, the same one for both processes.
inline double Now()
{
    LARGE_INTEGER counter;
    LARGE_INTEGER frequency;
    QueryPerformanceCounter(&counter);
    QueryPerformanceFrequency(&frequency);
    return static_cast<double>(counter.QuadPart) * 1e6 / static_cast<double>(frequency.QuadPart);
}

inline std::wstring Variable(const wchar_t* name)
{
    wchar_t text[MAX_PATH] = {};
    GetEnvironmentVariableW(name, text, MAX_PATH);
    return text;
}

/// Where host and Bridge put what they measured, for the host to print at its end.
inline std::wstring ResultsPath()
{
    return Variable(L"TORVANE_BENCHMARK_FOLDER") + L"\\results";
}

/// Adds a line of JSON for each value. Values are in microseconds and come out in seconds, as the reader has them.
inline void Report(const std::string& name, const std::string& side, const std::vector<double>& values)
{
    std::string lines;
    for (const double value : values)
    {
        char number[40];
        snprintf(number, sizeof(number), "%.10f", value * 1e-6);
        lines += "{\"case\": \"" + name + "\", \"side\": \"" + side + "\", \"value\": " + number + "}\n";
    }
    const HANDLE file = CreateFileW(ResultsPath().c_str(), FILE_APPEND_DATA,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS, 0, nullptr);
    DWORD written = 0;
    WriteFile(file, lines.data(), static_cast<DWORD>(lines.size()), &written, nullptr);
    CloseHandle(file);
}

/// A pipe without a protocol, made as the Agent makes its own, and read and written like them.
class BarePipe
{
public:
    struct Header
    {
        uint32_t size; ///< bytes that follow
        uint32_t kind;
    };

    BarePipe() = default;
    ~BarePipe()
    {
        CloseHandle(pipe);
    }
    BarePipe(const BarePipe&) = delete;
    BarePipe& operator=(const BarePipe&) = delete;

    /// The host's side.
    bool Create()
    {
        pipe =
            CreateNamedPipeW(Name(GetCurrentProcessId()).c_str(), PIPE_ACCESS_DUPLEX,
                             PIPE_TYPE_MESSAGE | PIPE_READMODE_BYTE | PIPE_WAIT, 1, 65536, 65536, 0, nullptr);
        return pipe != INVALID_HANDLE_VALUE;
    }

    bool WaitForClient()
    {
        return ConnectNamedPipe(pipe, nullptr) || GetLastError() == ERROR_PIPE_CONNECTED;
    }

    /// The Bridge's side.
    bool Open(uint32_t hostProcessId)
    {
        pipe = CreateFileW(Name(hostProcessId).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                           OPEN_EXISTING, 0, nullptr);
        return pipe != INVALID_HANDLE_VALUE;
    }

    bool Send(uint32_t kind, const void* bytes = nullptr, uint32_t size = 0)
    {
        std::vector<uint8_t> message(sizeof(Header) + size);
        const Header header = {size, kind};
        memcpy(message.data(), &header, sizeof(header));
        if (size != 0)
        {
            memcpy(message.data() + sizeof(header), bytes, size);
        }
        DWORD written = 0;
        return WriteFile(pipe, message.data(), static_cast<DWORD>(message.size()), &written, nullptr) &&
               written == message.size();
    }

    /// \return false at the pipe's end.
    bool Receive(uint32_t& kind, std::vector<uint8_t>& payload)
    {
        Header header;
        if (!Read(&header, sizeof(header)))
        {
            return false;
        }
        kind = header.kind;
        payload.resize(header.size);
        return header.size == 0 || Read(payload.data(), header.size);
    }

private:
    static std::wstring Name(uint32_t processId)
    {
        return L"\\\\.\\pipe\\TorvaneBare" + std::to_wstring(processId);
    }

    bool Read(void* buffer, uint32_t size)
    {
        auto* next = static_cast<uint8_t*>(buffer);
        while (size != 0)
        {
            DWORD count = 0;
            if (!ReadFile(pipe, next, size, &count, nullptr) && GetLastError() != ERROR_MORE_DATA)
            {
                return false;
            }
            next += count;
            size -= count;
        }
        return true;
    }

    HANDLE pipe = INVALID_HANDLE_VALUE;
};

/// Kinds of bare messages.
enum BareKind : uint32_t
{
    BareLoad = 1,  ///< payload: a path, wide, terminated; answered with the module
    BareFree = 2,  ///< payload: the module; answered with nothing
    BareEcho = 3,  ///< answered with nothing
    BareReady = 4, ///< from the host: what the Bridge needs is there
};

/// Images of figure 9.
inline const std::vector<uint32_t> imageSizes = {16 << 10, 128 << 10, 1 << 20, 4 << 20, 16 << 20}; // bytes

inline std::wstring ImagePath(uint32_t size)
{
    return Variable(L"TORVANE_BENCHMARK_FOLDER") + L"\\image" + std::to_wstring(size) + L".dll";
}

inline std::string SizeText(uint32_t bytes)
{
    return bytes < (1 << 20) ? std::to_string(bytes >> 10) + " KB" : std::to_string(bytes >> 20) + " MB";
}

/// How many values are to be measured of each case and side.
inline uint32_t Rounds()
{
    return static_cast<uint32_t>(_wtoi(Variable(L"TORVANE_BENCHMARK_ROUNDS").c_str()));
}
} // namespace Torvane::Benchmarks
