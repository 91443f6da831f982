#pragma once

/// \file
/// Benchmark 3, as both sides know it: bursts of messages, as many as the Agent's queue holds.

#include <stdint.h>

#include <string>

#include <windows.h>

namespace Torvane::Benchmarks
{
constexpr uint32_t burstSize = 4096;
constexpr wchar_t baselinePipeName[] = L"\\\\.\\pipe\\TVN_BenchmarkLog";

/// Set by the Bridge when it has received a burst.
inline HANDLE OpenDrained(const wchar_t* side, uint32_t hostProcessId)
{
    const std::wstring name = L"TVN_BenchmarkDrained" + std::wstring(side) + std::to_wstring(hostProcessId);
    return CreateEventW(nullptr, FALSE, FALSE, name.c_str());
}
} // namespace Torvane::Benchmarks
