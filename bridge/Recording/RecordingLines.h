#pragma once

/// \file
/// The lines of a recording, each a JSON object: one about the recording, then one for each Blob; any thread, any
/// platform.

#include "bridge/Recording/BlobLayout.h"

#include <stddef.h>
#include <stdint.h>
#include <string>
#include <vector>

namespace Torvane::Bridge
{
/// Identifies a recording, as the first member of its first line: {"recording":"Torvane Blobs",...
constexpr char recordingMark[] = "Torvane Blobs";
constexpr uint32_t recordingFormat = 1;

constexpr char fromAgentName[] = "fromAgent";
constexpr char toAgentName[] = "toAgent";

struct RecordingHeader
{
    uint32_t bridgeProcessId = 0;
    std::string startedAt; ///< "2024-02-29T12:34:56.789Z"
};

/// A Blob as it is recorded.
struct RecordedBlob
{
    uint64_t number = 0; ///< from 1, in the order of the lines
    double time = 0;     ///< seconds since the recording began
    uint32_t hostProcessId = 0;
    Direction direction = Direction::FromAgent;
    std::vector<uint8_t> bytes; ///< a whole header at least

    BlobType Type() const;
    const uint8_t* Payload() const;
    size_t PayloadSize() const;
};

/// Each with a line feed at its end.
std::string RecordingHeaderLine(const RecordingHeader& header);
std::string RecordedBlobLine(const RecordedBlob& blob);
} // namespace Torvane::Bridge
