#include "tools/blobs/Recording.h"

#include "bridge/Recording/Encoding.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <string.h>

namespace Torvane::Blobs
{
namespace
{
using nlohmann::json;

constexpr double longestTime = 1e9; // seconds

json Parse(const std::string& line)
{
    return json::parse(line, nullptr, false);
}

const json* Find(const json& object, const char* name)
{
    const auto found = object.find(name);
    return found == object.end() ? nullptr : &*found;
}

bool ReadNumber(const json& object, const char* name, uint64_t limit, uint64_t& number)
{
    const json* member = Find(object, name);
    if (member == nullptr || !member->is_number_unsigned() || member->get<uint64_t>() > limit)
    {
        return false;
    }
    number = member->get<uint64_t>();
    return true;
}

bool ReadText(const json& object, const char* name, std::string& text)
{
    const json* member = Find(object, name);
    if (member == nullptr || !member->is_string())
    {
        return false;
    }
    text = member->get<std::string>();
    return true;
}

bool ReadHeader(const std::string& line, Bridge::RecordingHeader& header, std::string& reason)
{
    const json object = Parse(line);
    std::string mark;
    if (!object.is_object() || !ReadText(object, "recording", mark) || mark != Bridge::recordingMark)
    {
        reason = "it isn't a recording of Blobs";
        return false;
    }
    uint64_t format = 0;
    if (!ReadNumber(object, "format", UINT32_MAX, format) || format != Bridge::recordingFormat)
    {
        reason = "it is a recording of another format than " + std::to_string(Bridge::recordingFormat);
        return false;
    }
    uint64_t bridge = 0;
    ReadNumber(object, "bridge", UINT32_MAX, bridge);
    header.bridgeProcessId = static_cast<uint32_t>(bridge);
    ReadText(object, "startedAt", header.startedAt);
    return true;
}

/// The error in a line; null if there is none.
const char* ReadBlob(const std::string& line, RecordedBlob& blob)
{
    const json object = Parse(line);
    if (!object.is_object())
    {
        return "it isn't a JSON object";
    }
    uint64_t host = 0;
    std::string text;
    if (!ReadNumber(object, "blob", UINT64_MAX, blob.number))
    {
        return "it has no number \"blob\"";
    }
    const json* time = Find(object, "time");
    if (time == nullptr || !time->is_number() || !(time->get<double>() >= 0) ||
        !(time->get<double>() <= longestTime))
    {
        return "it has no \"time\" in seconds";
    }
    blob.time = time->get<double>();
    if (!ReadNumber(object, "host", UINT32_MAX, host))
    {
        return "it has no process id \"host\"";
    }
    blob.hostProcessId = static_cast<uint32_t>(host);
    if (!ReadText(object, "direction", text) ||
        (text != Bridge::fromAgentName && text != Bridge::toAgentName))
    {
        return "its \"direction\" is neither \"fromAgent\" nor \"toAgent\"";
    }
    blob.direction = text == Bridge::fromAgentName ? Direction::FromAgent : Direction::ToAgent;
    if (!ReadText(object, "bytes", text) || !Bridge::BytesFromHex(text, blob.bytes))
    {
        return "it has no \"bytes\" in hexadecimal digits";
    }
    BlobHeader header = {};
    if (blob.bytes.size() < sizeof(header))
    {
        return "its bytes are too few for a Blob";
    }
    memcpy(&header, blob.bytes.data(), sizeof(header));
    return header.size == blob.PayloadSize() ? nullptr
                                             : "its bytes are of another size than their header says";
}
} // namespace

bool ParseRecording(const std::string& text, Recording& recording, std::string& reason)
{
    recording = {};
    size_t lineNumber = 0;
    uint64_t lastNumber = 0;
    for (size_t begin = 0; begin < text.size();)
    {
        size_t end = text.find('\n', begin);
        recording.isCut = end == std::string::npos;
        ++lineNumber;
        if (recording.isCut && lineNumber > 1)
        {
            return true;
        }
        end = recording.isCut ? text.size() : end;
        const std::string line = text.substr(begin, end - begin);
        begin = end + 1;
        if (lineNumber == 1)
        {
            if (!ReadHeader(line, recording.header, reason))
            {
                return false;
            }
            continue;
        }
        RecordedBlob blob;
        const char* fault = ReadBlob(line, blob);
        if (fault == nullptr && blob.number <= lastNumber)
        {
            fault = "its number \"blob\" isn't above that of the line before";
        }
        if (fault != nullptr)
        {
            reason = "line " + std::to_string(lineNumber) + ": " + fault;
            return false;
        }
        lastNumber = blob.number;
        recording.blobs.push_back(std::move(blob));
    }
    if (lineNumber == 0)
    {
        reason = "it is empty";
    }
    return lineNumber != 0;
}

std::string NameOf(const RecordedBlob& blob)
{
    return Bridge::BlobName(blob.Type());
}

double LastTime(const Recording& recording)
{
    double last = 0;
    for (const RecordedBlob& blob : recording.blobs)
    {
        last = blob.time > last ? blob.time : last;
    }
    return last;
}

size_t IndexOfBlob(const Recording& recording, uint64_t number)
{
    const auto found =
        std::lower_bound(recording.blobs.begin(), recording.blobs.end(), number,
                         [](const RecordedBlob& blob, uint64_t wanted) { return blob.number < wanted; });
    return found != recording.blobs.end() && found->number == number
               ? static_cast<size_t>(found - recording.blobs.begin())
               : SIZE_MAX;
}

const char* DirectionText(Direction direction)
{
    return direction == Direction::FromAgent ? "from the Agent" : "to the Agent";
}
} // namespace Torvane::Blobs
