// Benchmark 12: what a recording adds to traffic that does nothing else. Each run is recorded or not, as its environment
// requests.
#include "AgentLink.h"

#include "bridge/Recording/Recorder.h"

#include "../Support/Stopwatch.h"

namespace Torvane::Benchmarks
{
namespace
{
constexpr uint32_t limit = 60000; // milliseconds
constexpr uint32_t elementSize = 16;

/// Reads the host's memory so many times, always with `pending` requests on their way.
void ReadRepeatedly(Bridge::Link& link, const std::vector<uint8_t>& request, uint32_t count, uint32_t pending)
{
    uint32_t sent = 0;
    for (uint32_t received = 0; received < count; ++received)
    {
        for (; sent < count && sent < received + pending; ++sent)
        {
            link.Send(request);
        }
        if (!link.Receive(limit))
        {
            Fail("The Agent has gone");
        }
    }
}
} // namespace

void MeasureRecording(Board& board)
{
    const char* const side =
        GetEnvironmentVariableW(L"TORVANE_BRIDGE_RECORDING", nullptr, 0) != 0 ? "ours" : "no recording";
    if (!Bridge::RecordEveryLinkIfRequested())
    {
        Fail("The recording can't be made");
    }
    Bridge::Link link(Bridge::HostProcessIdFromCommandLine());
    if (!link.Connect(limit) || !link.ExchangeVersion(limit) || !link.WaitFor<RegisterProcessBlob>(limit))
    {
        Fail("There is no connection");
    }
    while (link.Receive(500)) // what the Agent sends at its start
    {
    }
    Bridge::BlobWriter<ReadMemoryBlob> writer;
    writer.fixed.elementSize = elementSize;
    writer.fixed.elementCount = 1;
    writer.List(&ReadMemoryBlob::addresses, std::vector<AddressSlot>({board->data}));
    const std::vector<uint8_t> request = writer.Finish();
    const uint32_t count = board.IsQuick() ? 500 : 5000;
    for (uint32_t round = 0; round < board->rounds; ++round)
    {
        for (const auto& [name, pending] :
             {std::pair("1 request at a time", 1u), std::pair("64 requests at a time", 64u)})
        {
            board.Add(name, side, Measure([&, pending = pending] {
                                      ReadRepeatedly(link, request, count, pending);
                                  }) / count);
        }
    }
    InterlockedExchange(&board->bridgeDone, 1);
    link.WaitUntilClosed(limit);
}
} // namespace Torvane::Benchmarks
