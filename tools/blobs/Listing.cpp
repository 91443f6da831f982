#include "tools/blobs/Listing.h"

#include "bridge/Recording/Encoding.h"
#include "bridge/Recording/FieldText.h"
#include "tools/blobs/Summary.h"

#include <set>
#include <stdio.h>

namespace Torvane::Blobs
{
namespace
{
using Bridge::DecodedField;
using Bridge::FieldKind;

constexpr size_t summaryWidth = 90;
constexpr size_t pathWidth = 60;
constexpr size_t bytesInLine = 16;
constexpr size_t shownBytes = 64;
constexpr int nameWidth = 28;

template<typename... Arguments>
std::string Format(const char* format, Arguments... arguments)
{
    std::string text(static_cast<size_t>(snprintf(nullptr, 0, format, arguments...)), '\0');
    snprintf(text.data(), text.size() + 1, format, arguments...);
    return text;
}

bool HasSeveralHosts(const Recording& recording)
{
    for (const RecordedBlob& blob : recording.blobs)
    {
        if (blob.hostProcessId != recording.blobs.front().hostProcessId)
        {
            return true;
        }
    }
    return false;
}

/// Bytes in lines of 16, the first with a description beside it. If not all are shown, the number of the others.
void AppendBytes(std::string& text, const uint8_t* payload, size_t offset, size_t size, bool isWhole,
                 const std::string& beside)
{
    const size_t shown = isWhole || size <= shownBytes + bytesInLine ? size : shownBytes;
    size_t position = 0;
    do
    {
        const size_t count = shown - position < bytesInLine ? shown - position : bytesInLine;
        std::string bytes;
        for (size_t i = 0; i < count; ++i)
        {
            bytes += Format("%02x ", payload[offset + position + i]);
        }
        std::string line =
            Format("%06zx  %-48s %s", offset + position, bytes.c_str(), position == 0 ? beside.c_str() : "");
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + "\n";
        position += count;
    }
    while (position < shown);
    if (shown < size)
    {
        text += Format("        ... %zu more bytes\n", size - shown);
    }
}

bool HasChildren(const DecodedField& field)
{
    return field.kind == FieldKind::Record || !field.children.empty();
}

void AppendField(std::string& text, const DecodedField& field, const uint8_t* payload, bool isWhole,
                 size_t depth)
{
    const std::string name = std::string(depth * 2, ' ') + field.name;
    const std::string kind = field.kind == FieldKind::Padding ? "" : Bridge::KindName(field.kind);
    const bool isItem = field.itemOffset != field.offset;
    const std::string arrow = isItem ? Format(" at %06zx", field.itemOffset) : "";
    const std::string value =
        field.kind == FieldKind::Padding ? "padding" : Bridge::FieldText(field, payload);
    const std::string head = Format("%-*s ", nameWidth, name.c_str());
    if (field.kind == FieldKind::Record && field.problem.empty())
    {
        text += Format("%-57s", "") + head + kind + "\n";
    }
    else
    {
        const bool isInline = field.kind == FieldKind::InlineText || field.kind == FieldKind::InlineWideText;
        const bool isValueInBytes = field.kind == FieldKind::Bytes && field.problem.empty();
        const bool isShownBelow = isItem && HasChildren(field) && field.kind == FieldKind::Data;
        std::string beside = head;
        if (kind.empty() || isValueInBytes || isShownBelow)
        {
            beside += kind.empty() ? value : kind + arrow;
        }
        else
        {
            beside += Format("%-20s ", (kind + arrow).c_str()) + value;
        }
        // Of an inline string, only the first bytes are shown: most of its buffer is unused.
        AppendBytes(text, payload, field.offset, field.size, isWhole && !isInline, beside);
    }
    if (isItem && !HasChildren(field) && field.itemSize != 0)
    {
        AppendBytes(text, payload, field.itemOffset, field.itemSize, isWhole, name);
    }
    for (const DecodedField& child : field.children)
    {
        AppendField(text, child, payload, isWhole, depth + 1);
    }
}

void AppendLayout(std::string& text, const Bridge::RecordLayout& layout,
                  std::set<const Bridge::RecordLayout*>* mentioned)
{
    for (const Bridge::FieldLayout& field : layout)
    {
        text += Format("  0x%04X %5u  %-20s %s", field.offset, field.size, Bridge::KindName(field.kind),
                       field.name);
        if (field.elements != nullptr)
        {
            text += Format(" of %s", field.elements->name);
            mentioned->insert(field.elements);
        }
        text += "\n";
    }
}
} // namespace

std::string Shortened(const std::string& text, size_t length)
{
    if (text.size() <= length)
    {
        return text;
    }
    size_t end = length - 3;
    while (end > 0 && (static_cast<uint8_t>(text[end]) & 0xC0) == 0x80)
    {
        --end;
    }
    return text.substr(0, end) + "...";
}

std::string ListBlobs(const Recording& recording, const Filter& filter, bool isWhole)
{
    const bool hasHosts = HasSeveralHosts(recording);
    std::string text = Format("%6s  %12s  %s   %-28s  %8s  %s\n", "blob", "seconds",
                              hasHosts ? "  host  way" : "way", "type", "bytes", "fields");
    for (const RecordedBlob* blob : filter.Choose(recording))
    {
        const std::string host = hasHosts ? Format("%6u  ", blob->hostProcessId) : "";
        const std::string summary =
            isWhole ? SummaryOf(*blob) : Shortened(SummaryOf(*blob, pathWidth), summaryWidth);
        std::string line =
            Format("%6llu  %12.6f  %s%s    %-28s  %8zu  %s", static_cast<unsigned long long>(blob->number),
                   blob->time, host.c_str(), blob->direction == Direction::FromAgent ? "<-" : "->",
                   NameOf(*blob).c_str(), blob->PayloadSize(), summary.c_str());
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + "\n";
    }
    return text;
}

std::string ShowBlob(const RecordedBlob& blob, bool isWhole)
{
    std::string text = Format("Blob %llu: %s (%u), %s of process %u, at %.6f s, %zu payload bytes\n",
                              static_cast<unsigned long long>(blob.number), NameOf(blob).c_str(),
                              static_cast<uint32_t>(blob.Type()), DirectionText(blob.direction),
                              blob.hostProcessId, blob.time, blob.PayloadSize());
    for (const DecodedField& field : Bridge::DecodePayload(blob.Type(), blob.Payload(), blob.PayloadSize()))
    {
        AppendField(text, field, blob.Payload(), isWhole, 0);
    }
    return text;
}

std::string ListLayouts(const Bridge::BlobLayout* layout)
{
    std::string text;
    std::set<const Bridge::RecordLayout*> mentioned;
    for (const Bridge::BlobLayout& candidate : Bridge::AllBlobLayouts())
    {
        if (layout != nullptr && candidate.type != layout->type)
        {
            continue;
        }
        text += Format("%s (%u), %s, %u bytes\n", candidate.name, static_cast<uint32_t>(candidate.type),
                       candidate.sender == Bridge::BlobSender::Both    ? "both ways"
                       : candidate.sender == Bridge::BlobSender::Agent ? "from the Agent"
                                                                       : "to the Agent",
                       candidate.fixed == nullptr ? 0 : candidate.fixed->size);
        if (candidate.fixed != nullptr)
        {
            AppendLayout(text, *candidate.fixed, &mentioned);
        }
    }
    std::set<const Bridge::RecordLayout*> nested;
    for (const Bridge::RecordLayout* record : mentioned)
    {
        text += Format("%s, %u bytes\n", record->name, record->size);
        AppendLayout(text, *record, &nested);
    }
    return text;
}
} // namespace Torvane::Blobs
