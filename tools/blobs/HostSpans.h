#pragma once

/// \file
/// Tracks and spans of one host, and its current Blob; for the command's only thread.

#include "bridge/Recording/BlobDecoder.h"
#include "tools/blobs/Operations.h"

#include <stdint.h>
#include <string>
#include <vector>

namespace Torvane::Blobs
{
/// The index of no track or span.
constexpr size_t none = SIZE_MAX;

class HostSpans
{
public:
    HostSpans(Operations& allOperations, uint32_t hostProcessId);

    /// Decodes a Blob, which is the current one from then on.
    void Take(const RecordedBlob& taken);
    const RecordedBlob& Blob() const;

    /// A field of the current Blob; null if it has none of that name.
    const Bridge::DecodedField* Field(const char* name) const;

    /// The field's value; 0 or empty without the field. `Text` is formatted as in listings, `PlainText` is the content of a
    /// string.
    uint64_t Number(const char* name) const;
    std::string Text(const char* name) const;
    std::string PlainText(const char* name) const;

    size_t AddTrack(const std::string& name, uint32_t threadId = 0);

    /// Adds the track if it is `none`. \return the track.
    size_t Named(size_t& track, const char* name);

    /// A span that begins with the current Blob.
    size_t Open(size_t track, const std::string& name);

    /// Ends a span, unless it is `none`, with the current Blob, and sets it to `none`.
    void Close(size_t& span, const std::string& detail);

private:
    Operations& operations;
    uint32_t hostProcessId;
    const RecordedBlob* blob = nullptr;
    std::vector<Bridge::DecodedField> fields;
};
} // namespace Torvane::Blobs
