// Benchmark 11, the host's part: faults, and round trips without one.
#include "HostBenchmarks.h"
#include "Relay.h"

#include "../Support/Stopwatch.h"

namespace Torvane::Benchmarks
{
void MeasureExceptions(Board& board, TvnDefaultAgent&)
{
    AwaitRelay(); // the handler is installed
    for (uint32_t round = 0; round < board->rounds; ++round)
    {
        board.Add("skipped instruction", "ours", Measure([] {
                      asm volatile("ud2"); // two bytes, which the Bridge has skipped
                  }));
        board.Add("skipped instruction", "two bare round trips", Measure([] {
                      AskRelay();
                      AskRelay();
                  }));
    }
}
} // namespace Torvane::Benchmarks
