#include "tools/blobs/Exchanges.h"

#include "bridge/Recording/BlobDecoder.h"

#include <algorithm>

namespace Torvane::Blobs
{
namespace
{
struct ExchangeTypes
{
    BlobType question;
    BlobType answer;
};

/// What ends as a span with the second type was answered.
constexpr ExchangeTypes exchangeTypes[] = {
    {BlobType::EnableModules, BlobType::DecrementLatch},
    {BlobType::LoadPatchWindows, BlobType::PatchLoaded},
    {BlobType::LoadPatchWindows, BlobType::LogNarrow}, // the reason why it wasn't loaded
    {BlobType::ReadMemory, BlobType::ReadMemoryResult},
    {BlobType::RequestReload, BlobType::Reload},
    {BlobType::RequestRestart, BlobType::Restart},
    {BlobType::HandleExceptionWindows, BlobType::HandleExceptionWindowsResult},
    {BlobType::EchoRequest, BlobType::EchoReply},
};

bool IsExchange(BlobType question, BlobType answer)
{
    return std::any_of(std::begin(exchangeTypes), std::end(exchangeTypes), [&](const ExchangeTypes& types) {
        return types.question == question && types.answer == answer;
    });
}

bool HasProblem(const std::vector<Bridge::DecodedField>& fields)
{
    return std::any_of(fields.begin(), fields.end(), [](const Bridge::DecodedField& field) {
        return !field.problem.empty() || HasProblem(field.children);
    });
}
} // namespace

std::vector<Exchange> FindExchanges(const Recording& recording, const Operations& operations)
{
    std::vector<Exchange> exchanges;
    std::vector<bool> isTaken(recording.blobs.size());
    for (const Span& span : operations.spans)
    {
        const size_t first = IndexOfBlob(recording, span.firstBlob);
        const size_t last = IndexOfBlob(recording, span.lastBlob);
        if (last != SIZE_MAX && first < last && !isTaken[first] && !isTaken[last] &&
            IsExchange(recording.blobs[first].Type(), recording.blobs[last].Type()))
        {
            isTaken[first] = isTaken[last] = true;
            exchanges.push_back({first, last});
        }
    }
    std::sort(exchanges.begin(), exchanges.end(),
              [](const Exchange& left, const Exchange& right) { return left.question < right.question; });
    return exchanges;
}

Failure FailureOf(const RecordedBlob& blob)
{
    const auto fields = Bridge::DecodePayload(blob.Type(), blob.Payload(), blob.PayloadSize());
    const bool isLog = blob.Type() == BlobType::LogNarrow || blob.Type() == BlobType::LogWide;
    const Bridge::DecodedField* level = isLog ? Bridge::FindField(fields, "level") : nullptr;
    if (HasProblem(fields))
    {
        return Failure::InvalidPayload;
    }
    if (level != nullptr && level->number >= static_cast<uint64_t>(BlobLogLevel::Error))
    {
        return Failure::LoggedError;
    }
    return blob.Type() == BlobType::HandleExceptionWindows ? Failure::Exception : Failure::None;
}
} // namespace Torvane::Blobs
