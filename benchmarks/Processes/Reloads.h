#pragma once

/// \file
/// Benchmark 13, as host and Bridge know it: whole reloads, and the same calls of the OS between two bare programs.

#include "../Support/Board.h"
#include "Relay.h"

#include <stdint.h>

#include <string>

namespace Torvane::Benchmarks
{
// The functions that are routed, in a block of the host's memory: `mov eax, number` and `ret` each.
constexpr uint32_t mostFunctions = 1000;
constexpr uint32_t functionDistance = 256; ///< bytes; the size of a usual function
constexpr uint32_t functionsSize = mostFunctions * functionDistance;

// A patch: an image with a section of code, a quarter of its size, and one of data.
constexpr uint32_t entryPointRva = 0x1180;
constexpr uint32_t targetsRva = 0x1200;
constexpr uint32_t targetDistance = 16; ///< bytes
constexpr uint32_t reloadPatchSizes[] = {16 << 10, 256 << 10, 4 << 20, 16 << 20};

/// What is varied, one number at a time from here.
struct ReloadCase
{
    uint32_t threads = 8; ///< of the host, its main thread included; neither the Agent's nor the relay's
    uint32_t functions = 10;
    uint32_t patchSize = 256 << 10; ///< bytes
};

constexpr uint32_t stateSizes[] = {1, 100}; ///< of a host that is restarted, in MB

inline std::wstring ReloadPatchPath(const Board& board, uint32_t size)
{
    return std::wstring(board->folder) + L"\\reload" + std::to_wstring(size) + L".dll";
}

inline std::wstring StatePath(const Board& board, uint32_t megabytes)
{
    return std::wstring(board->folder) + L"\\state" + std::to_wstring(megabytes);
}

/// Set by a restarted host that is where it was. \param bridgeProcessId of the Bridge that has started it.
inline HANDLE OpenRestarted(uint32_t bridgeProcessId)
{
    return CreateEventW(nullptr, FALSE, FALSE,
                        (L"TVN_BenchmarkRestarted" + std::to_wstring(bridgeProcessId)).c_str());
}
} // namespace Torvane::Benchmarks
