#include "tools/blobs/HostSpans.h"

#include "bridge/Recording/FieldText.h"

#include <algorithm>

namespace Torvane::Blobs
{
HostSpans::HostSpans(Operations& allOperations, uint32_t id)
    : operations(allOperations)
    , hostProcessId(id)
{
}

void HostSpans::Take(const RecordedBlob& taken)
{
    blob = &taken;
    fields = Bridge::DecodePayload(blob->Type(), blob->Payload(), blob->PayloadSize());
}

const RecordedBlob& HostSpans::Blob() const
{
    return *blob;
}

const Bridge::DecodedField* HostSpans::Field(const char* name) const
{
    return Bridge::FindField(fields, name);
}

uint64_t HostSpans::Number(const char* name) const
{
    const Bridge::DecodedField* field = Field(name);
    return field != nullptr ? field->number : 0;
}

std::string HostSpans::Text(const char* name) const
{
    const Bridge::DecodedField* field = Field(name);
    return field == nullptr ? "" : Bridge::FieldText(*field, blob->Payload());
}

std::string HostSpans::PlainText(const char* name) const
{
    const Bridge::DecodedField* field = Field(name);
    return field == nullptr ? "" : field->text;
}

size_t HostSpans::AddTrack(const std::string& name, uint32_t threadId)
{
    Track track;
    track.hostProcessId = hostProcessId;
    track.name = name;
    track.threadId = threadId;
    operations.tracks.push_back(track);
    return operations.tracks.size() - 1;
}

size_t HostSpans::Named(size_t& track, const char* name)
{
    if (track == none)
    {
        track = AddTrack(name);
    }
    return track;
}

size_t HostSpans::Open(size_t track, const std::string& name)
{
    Span span;
    span.track = track;
    span.name = name;
    span.begin = blob->time;
    span.firstBlob = blob->number;
    operations.spans.push_back(span);
    return operations.spans.size() - 1;
}

void HostSpans::Close(size_t& span, const std::string& detail)
{
    if (span != none)
    {
        Span& closed = operations.spans[span];
        closed.end = std::max(blob->time, closed.begin);
        closed.lastBlob = blob->number;
        closed.detail = detail;
        span = none;
    }
}
} // namespace Torvane::Blobs
