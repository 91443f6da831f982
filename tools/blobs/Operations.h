#pragma once

/// \file
/// What belongs together in a recording: the operations of reloads and restarts, exceptions, latches and requests as spans
/// of time over threads; for the command's only thread.

#include "tools/blobs/Recording.h"

#include <string>
#include <vector>

namespace Torvane::Blobs
{
/// A row of the picture: a thread of the host, or what has no thread that we know.
struct Track
{
    uint32_t hostProcessId = 0;
    std::string name;
    uint32_t threadId = 0; ///< of the host; 0 if it isn't known
};

struct Span
{
    size_t track = 0;   ///< index into `Operations::tracks`
    std::string name;   ///< "load p.dll"
    std::string detail; ///< how it ended, in a few words; may be empty
    double begin = 0;   ///< seconds
    double end = 0;     ///< seconds
    uint64_t firstBlob = 0;
    uint64_t lastBlob = 0; ///< 0: nothing has ended it, so that `end` is the recording's
    size_t lane = 0;       ///< spans of one lane and track nest
    size_t depth = 0;      ///< how many of the lane's spans are around it
};

struct Operations
{
    std::vector<Track> tracks;
    std::vector<Span> spans;        ///< by track, lane and begin; the outer before the inner
    std::vector<size_t> blobTracks; ///< for each Blob of the recording its track
};

Operations FindOperations(const Recording& recording);
} // namespace Torvane::Blobs
