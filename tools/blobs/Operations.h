#pragma once

/// \file
/// Finds the operations in a recording (reloads, restarts, exceptions, latches, requests) as spans of time on tracks; for
/// the command's only thread.

#include "tools/blobs/Recording.h"

#include <string>
#include <vector>

namespace Torvane::Blobs
{
/// A row of the timeline: a thread of the host, or operations whose thread isn't known.
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
    std::string detail; ///< the result, in a few words; may be empty
    double begin = 0;   ///< seconds
    double end = 0;     ///< seconds
    uint64_t firstBlob = 0;
    uint64_t lastBlob = 0; ///< 0 if no Blob has ended it; `end` is the recording's then
    size_t lane = 0;       ///< spans of one lane and track nest
    size_t depth = 0;      ///< how many of the lane's spans enclose it
};

struct Operations
{
    std::vector<Track> tracks;
    std::vector<Span> spans;        ///< by track, lane and begin; enclosing ones first
    std::vector<size_t> blobTracks; ///< the track of each Blob of the recording
};

Operations FindOperations(const Recording& recording);
} // namespace Torvane::Blobs
