// Benchmark 2: how many bytes a second the Bridge reads out of the host and writes into it.
#include "AgentLink.h"

#include "../Support/Stopwatch.h"

#include <functional>

namespace Torvane::Benchmarks
{
namespace
{
/// From about this size on, a heap's blocks have pages of their own, which are requested from the OS and returned to it.
/// What that costs is measured too; for smaller blocks it is negligible.
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

struct Side
{
    const char* name;
    std::function<void()> run;
};

/// The sides take turns. Adds the median of each, in bytes per second.
/// \param sides the last one only measures blocks with pages of their own.
void Compare(Board& board, const std::string& caseName, uint32_t size, std::vector<Side> sides)
{
    if (size < ownPagesFrom)
    {
        sides.pop_back();
    }
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
    const std::vector<uint8_t> request = MakeRead(size, session.board->data);
    const auto ours = [&] {
        session.agent.Send(request);
        session.agent.ReceiveUntil(BlobType::ReadMemoryResult);
    };
    const auto relay = [&](RelayCommand command) {
        return [&session, &size, command] {
            session.relay.Request(command, &size, sizeof(size));
        };
    };
    Compare(session.board, NameOf(size) + " read", size,
            {{"ours", ours},
             {"bare pipe", relay(RelayCommand::Give)},
             {"bare pipe and a block", relay(RelayCommand::GiveFresh)}});
}

/// No side answers the writing itself: the echo that follows it is answered.
void MeasureWriting(Session& session, uint32_t size)
{
    const std::vector<uint8_t> echo = Bridge::BlobWriter<EchoRequestBlob>().Finish();
    const uint8_t token[echoRequestSize] = {};
    const std::vector<uint8_t> request = MakeWrite(size, session.board->data);
    const std::vector<uint8_t> bytes(size, 0x5A);
    const auto ours = [&] {
        session.agent.Send(request);
        session.agent.Send(echo);
        session.agent.ReceiveUntil(BlobType::EchoReply);
    };
    const auto relay = [&](RelayCommand command) {
        return [&, command] {
            session.relay.Send(command, bytes.data(), size);
            session.relay.Request(RelayCommand::Echo, token, sizeof(token));
        };
    };
    Compare(session.board, NameOf(size) + " written", size,
            {{"ours", ours},
             {"bare pipe", relay(RelayCommand::Take)},
             {"bare pipe and a block", relay(RelayCommand::TakeFresh)}});
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
