/// \file
/// Feeds payloads to what decodes Blobs and finds operations among them. An input is a sequence of Blobs, each:
///     u8  1 from the Agent, 2 of another host, the other bits a time in microseconds since the Blob before
///     u8  the type; 255 for 0xFFFFFFFF
///     u16 how many bytes follow; cut at the input's end

#include "tests/Fuzz/RecordingChecks.h"

#include <string.h>

namespace Torvane::Testing
{
namespace
{
Blobs::Recording RecordingFrom(const uint8_t* data, size_t size)
{
    constexpr size_t prefix = 4;
    Blobs::Recording recording;
    recording.header.startedAt = "2024-02-29T12:34:56.789Z";
    double time = 0;
    for (size_t position = 0; size - position >= prefix;)
    {
        const uint8_t* start = data + position;
        const size_t wanted = size_t(start[2] | start[3] << 8);
        position += prefix;
        const size_t payloadSize = wanted < size - position ? wanted : size - position;
        position += payloadSize;

        BlobHeader header = {};
        header.size = static_cast<uint32_t>(payloadSize);
        header.type = static_cast<BlobType>(start[1] == 0xFF ? UINT32_MAX : start[1]);
        Blobs::RecordedBlob blob;
        blob.number = recording.blobs.size() + 1;
        blob.time = time += (start[0] >> 2) * 1e-6;
        blob.hostProcessId = (start[0] & 2) == 0 ? 260 : 300;
        blob.direction = (start[0] & 1) != 0 ? Blobs::Direction::FromAgent : Blobs::Direction::ToAgent;
        blob.bytes.resize(sizeof(header));
        memcpy(blob.bytes.data(), &header, sizeof(header));
        blob.bytes.insert(blob.bytes.end(), start + prefix, start + prefix + payloadSize);
        recording.blobs.push_back(blob);
    }
    return recording;
}
} // namespace
} // namespace Torvane::Testing

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Torvane::Testing::CheckRecording(Torvane::Testing::RecordingFrom(data, size));
    return 0;
}
