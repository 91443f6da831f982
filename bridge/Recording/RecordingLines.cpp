#include "bridge/Recording/RecordingLines.h"

#include "Agent/Protocol/Names.h"
#include "bridge/Recording/Encoding.h"
#include "bridge/Recording/FieldText.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <math.h>
#include <string.h>

namespace Torvane::Bridge
{
namespace
{
/// "1.234567", with a digit after the point at least.
void AppendSeconds(std::string& text, double seconds)
{
    constexpr uint64_t unit = 1000000;
    const auto microseconds = static_cast<uint64_t>(llround(seconds * unit));
    text += std::to_string(microseconds / unit) + '.';
    std::string fraction = std::to_string(unit + microseconds % unit).substr(1);
    fraction.erase(std::max<size_t>(fraction.find_last_not_of('0') + 1, 1));
    text += fraction;
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
    const nlohmann::ordered_json object = {
        {"recording", recordingMark},       {"format", recordingFormat},     {"apiVersion", apiVersion},
        {"bridge", header.bridgeProcessId}, {"startedAt", header.startedAt},
    };
    return object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

std::string RecordedBlobLine(const RecordedBlob& blob)
{
    const BlobType type = blob.Type();
    std::string line;
    line.reserve(256 + blob.bytes.size() * 5);
    line += "{\"blob\":" + std::to_string(blob.number) + ",\"time\":";
    AppendSeconds(line, blob.time);
    line += ",\"host\":" + std::to_string(blob.hostProcessId) + R"(,"direction":")";
    line += blob.direction == Direction::FromAgent ? fromAgentName : toAgentName;
    line += R"(","type":)" + std::to_string(static_cast<uint32_t>(type)) + R"(,"name":")" + BlobName(type);
    line += R"(","size":)" + std::to_string(blob.PayloadSize()) + R"(,"fields":)";
    AppendFieldsAsJson(line, DecodePayload(type, blob.Payload(), blob.PayloadSize()), blob.Payload());
    line += R"(,"bytes":")";
    AppendHex(line, blob.bytes.data(), blob.bytes.size());
    return line += "\"}\n";
}
} // namespace Torvane::Bridge
