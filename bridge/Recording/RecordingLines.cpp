#include "bridge/Recording/RecordingLines.h"

#include "Agent/Protocol/Names.h"
#include "bridge/Recording/Encoding.h"
#include "bridge/Recording/FieldText.h"

#include <nlohmann/json.hpp>

#include <math.h>
#include <string.h>

namespace Torvane::Bridge
{
namespace
{
std::string Line(const nlohmann::ordered_json& object)
{
    return object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}
} // namespace

BlobType RecordedBlob::Type() const
{
    BlobHeader header;
    memcpy(&header, bytes.data(), sizeof(header));
    return header.type;
}

const uint8_t* RecordedBlob::Payload() const
{
    return bytes.data() + sizeof(BlobHeader);
}

size_t RecordedBlob::PayloadSize() const
{
    return bytes.size() - sizeof(BlobHeader);
}

std::string RecordingHeaderLine(const RecordingHeader& header)
{
    return Line({
        {"recording", recordingMark},
        {"format", recordingFormat},
        {"apiVersion", apiVersion},
        {"bridge", header.bridgeProcessId},
        {"startedAt", header.startedAt},
    });
}

std::string RecordedBlobLine(const RecordedBlob& blob)
{
    constexpr double microseconds = 1e6;
    const BlobType type = blob.Type();
    return Line({
        {"blob", blob.number},
        {"time", round(blob.time * microseconds) / microseconds},
        {"host", blob.hostProcessId},
        {"direction", blob.direction == Direction::FromAgent ? fromAgentName : toAgentName},
        {"type", static_cast<uint32_t>(type)},
        {"name", BlobName(type)},
        {"size", blob.PayloadSize()},
        {"fields", FieldsAsJson(DecodePayload(type, blob.Payload(), blob.PayloadSize()), blob.Payload())},
        {"bytes", HexFromBytes(blob.bytes.data(), blob.bytes.size())},
    });
}
} // namespace Torvane::Bridge
