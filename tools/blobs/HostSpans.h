#pragma once

/// \file
/// What all operations of one host share: its tracks, its spans, and the Blob at hand; for the command's only thread.

#include "bridge/Recording/BlobDecoder.h"
#include "tools/blobs/Operations.h"

#include <stdint.h>
#include <string>
#include <vector>

namespace Torvane::Blobs
{
/// In place of the index of a track or a span that isn't there.
constexpr size_t none = SIZE_MAX;

class HostSpans
{
public:
    HostSpans(Operations& allOperations, uint32_t hostProcessId);

    /// Decodes the Blob that all that follows is about.
    void Take(const RecordedBlob& taken);
    const RecordedBlob& Blob() const;

    /// A field of the Blob at hand; null if it has none of that name.
    const Bridge::DecodedField* Field(const char* name) const;

    /// Its value, 0 or empty without it. `Text` is as in listings, `PlainText` what a text consists of.
    uint64_t Number(const char* name) const;
    std::string Text(const char* name) const;
    std::string PlainText(const char* name) const;

    size_t AddTrack(const std::string& name, uint32_t threadId = 0);

    /// The track itself; if it is `none`, a new one first.
    size_t Named(size_t& track, const char* name);

    /// A span from the Blob at hand on.
    size_t Open(size_t track, const std::string& name);

    /// Ends a span, unless it is `none`, with the Blob at hand, and makes it `none`.
    void Close(size_t& span, const std::string& detail);

private:
    Operations& operations;
    uint32_t hostProcessId;
    const RecordedBlob* blob = nullptr;
    std::vector<Bridge::DecodedField> fields;
};
} // namespace Torvane::Blobs
