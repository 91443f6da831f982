// Benchmark 2: how many bytes a second the Bridge reads out of the host and writes into it.
#include "AgentLink.h"

#include "../Support/Stopwatch.h"

#include <functional>

namespace Torvane::Benchmarks
{
namespace
{
/// A heap's blocks from about this size on have pages of their own, which come from the OS and go back to it; it's worth
/// a look at what they cost. Smaller ones cost nothing to speak of.
constexpr uint32_t ownPagesFrom = 1 << 20;

std::string NameOf(uint32_t size)
{
    if (size >= 1 << 20)
    {
        return std::to_string(size >> 20) + " MiB";
    }
    return size >= 1 << 10 ? std::to_string(size >> 10) + " KiB" : std::to_string(size) + " B";
}

std::vector<uint8_t> MakeRead(uint32_t size, AddressSlot address)
{
    Bridge::BlobWriter<ReadMemoryBlob> blob;
    blob.fixed.elementSize = size;
    blob.fixed.elementCount = 1;
    blob.List(&ReadMemoryBlob::addresses, std::vector<AddressSlot>{address});
    return blob.Finish();
}

std::vector<uint8_t> MakeWrite(uint32_t size, AddressSlot address)
{
    Bridge::BlobWriter<WriteMemoryBlob> blob;
    blob.fixed.elementSize = size;
    blob.fixed.elementCount = 1;
    blob.List(&WriteMemoryBlob::addresses, std::vector<AddressSlot>{address});
    blob.List(&WriteMemoryBlob::data, std::vector<uint8_t>(size, 0x5A));
    return blob.Finish();
}

/// The sides take turns. Adds the median of each, in bytes per second.
struct Side
{
    const char* name;
    std::function<void()> run;
};

void Compare(Board& board, const std::string& caseName, uint32_t size, const std::vector<Side>& sides)
{
    const uint32_t budget = board.IsQuick() ? 8 << 20 : 64 << 20;
    const uint32_t count = std::clamp<uint32_t>(budget / size, 1, board.IsQuick() ? 10 : 100);
    std::vector<std::vector<double>> times(sides.size());
    for (uint32_t i = 0; i < count; ++i)
    {
        for (size_t side = 0; side < sides.size(); ++side)
        {
            times[side].push_back(Measure(sides[side].run));
        }
    }
    for (size_t side = 0; side < sides.size(); ++side)
    {
        board.Add(caseName, sides[side].name, size / Quantile(times[side], 0.5));
    }
}

void MeasureReading(Session& session, uint32_t size)
{
    const std::vector<uint8_t> order = MakeRead(size, session.board->data);
    const auto ours = [&] {
        session.agent.Send(order);
        session.agent.ReceiveUntil(BlobType::ReadMemoryResult);
    };
    const auto relay = [&](RelayCommand kind) {
        session.relay.Request(kind, &size, sizeof(size));
    };
    std::vector<Side> sides = {{"ours", ours}, {"bare pipe", [&] {
                                                    relay(RelayCommand::Give);
                                                }}};
    if (size >= ownPagesFrom)
    {
        sides.push_back({"bare pipe and a block", [&] {
                             relay(RelayCommand::GiveFresh);
                         }});
    }
    Compare(session.board, NameOf(size) + " read", size, sides);
}

/// The order itself isn't answered, on any side: the echo behind it is.
void MeasureWriting(Session& session, uint32_t size)
{
    const std::vector<uint8_t> echo = Bridge::BlobWriter<EchoRequestBlob>().Finish();
    const uint8_t token[echoRequestSize] = {};
    const std::vector<uint8_t> order = MakeWrite(size, session.board->data);
    const std::vector<uint8_t> bytes(size, 0x5A);
    const auto ours = [&] {
        session.agent.Send(order);
        session.agent.Send(echo);
        session.agent.ReceiveUntil(BlobType::EchoReply);
    };
    const auto relay = [&](RelayCommand kind) {
        session.relay.Send(kind, bytes.data(), size);
        session.relay.Request(RelayCommand::Echo, token, sizeof(token));
    };
    std::vector<Side> sides = {{"ours", ours}, {"bare pipe", [&] {
                                                    relay(RelayCommand::Take);
                                                }}};
    if (size >= ownPagesFrom)
    {
        sides.push_back({"bare pipe and a block", [&] {
                             relay(RelayCommand::TakeFresh);
                         }});
    }
    Compare(session.board, NameOf(size) + " written", size, sides);
}
} // namespace

void MeasureMemory(Session& session)
{
    for (uint32_t round = 0; round < session.board->rounds; ++round)
    {
        for (uint32_t size = 64; size <= session.board->dataSize; size *= 4)
        {
            MeasureReading(session, size);
            MeasureWriting(session, size);
        }
    }
}
} // namespace Torvane::Benchmarks
