#pragma once

/// \file
/// The host's part of benchmarks, called by the main thread.

#include "Torvane/Agent.h"

#include "../Support/Board.h"

namespace Torvane::Benchmarks
{
using HostBenchmark = void (*)(Board& board, TvnDefaultAgent& agent);

/// Benchmark 3.
void PrepareBursts(Board& board, TvnDefaultAgent& agent);
void SendBursts(Board& board, TvnDefaultAgent& agent);

/// Benchmark 8.
void MeasureModules(Board& board, TvnDefaultAgent& agent);

/// Benchmark 9.
void WritePatches(Board& board, TvnDefaultAgent& agent);
void DeletePatches(Board& board, TvnDefaultAgent& agent);

/// Benchmark 10, with Agents of its own.
void MeasureStartup(Board& board);

/// Benchmark 11.
void MeasureExceptions(Board& board, TvnDefaultAgent& agent);

/// Benchmark 13, with an Agent of its own, and its other hosts, which its Bridge starts.
void HostReloads(Board& board);
void HostBareReloads(Board& board, uint32_t bridgeProcessId);
void HostRestarted(Board& board, uint32_t megabytes);
} // namespace Torvane::Benchmarks
