#pragma once

/// \file
/// A recording in memory; for the command's only thread.

#include "bridge/Recording/RecordingLines.h"

#include <string>
#include <vector>

namespace Torvane::Blobs
{
using Bridge::Direction;
using Bridge::RecordedBlob;

struct Recording
{
    Bridge::RecordingHeader header;
    std::vector<RecordedBlob> blobs; ///< in the order of the lines; their times may go back a little

    /// Whether the last line is incomplete and was left out: a Bridge still writes it, or has crashed.
    bool isCut = false;
};

/// Parses the text of a recording. Blobs are decoded from their bytes; the decoded fields of a line are ignored.
/// \return false with a reason if it isn't a recording or a line of it is invalid: "line 3: ...".
bool ParseRecording(const std::string& text, Recording& recording, std::string& reason);

/// "PatchLoaded"; the latest time of a Blob in seconds, 0 without any.
std::string NameOf(const RecordedBlob& blob);
double LastTime(const Recording& recording);

/// The index of the Blob of this number; SIZE_MAX if there is none.
size_t IndexOfBlob(const Recording& recording, uint64_t number);

/// "from the Agent", "to the Agent".
const char* DirectionText(Direction direction);
} // namespace Torvane::Blobs
