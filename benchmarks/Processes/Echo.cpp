// Benchmark 1: from an EchoRequest to its EchoReply, as the Bridge sees it.
#include "AgentLink.h"

#include "../Support/Stopwatch.h"

namespace Torvane::Benchmarks
{
static_assert(sizeof(EchoRequestBlob) == echoRequestSize && sizeof(EchoReplyBlob) == echoReplySize);

void MeasureEcho(Session& session)
{
    Bridge::BlobWriter<EchoRequestBlob> writer;
    writer.fixed.token = 1;
    const std::vector<uint8_t> request = writer.Finish();
    const uint8_t payload[echoRequestSize] = {};
    const uint32_t count = session.board.IsQuick() ? 300 : 2000;
    for (uint32_t round = 0; round < session.board->rounds; ++round)
    {
        std::vector<double> ours;
        std::vector<double> relay;
        std::vector<double> pingPong;
        for (uint32_t i = 0; i < count; ++i)
        {
            ours.push_back(Measure([&] {
                session.agent.Send(request);
                session.agent.ReceiveUntil(BlobType::EchoReply);
            }));
            relay.push_back(
                Measure([&] { session.relay.Request(RelayCommand::Echo, payload, sizeof(payload)); }));
            pingPong.push_back(Measure([&] { session.relay.PingPong(); }));
        }
        for (const auto& [name, share] : {std::pair("median", 0.5), std::pair("99th percentile", 0.99)})
        {
            session.board.Add(name, "ours", Quantile(ours, share));
            session.board.Add(name, "relay", Quantile(relay, share));
            session.board.Add(name, "ping-pong", Quantile(pingPong, share));
        }
    }
}
} // namespace Torvane::Benchmarks
