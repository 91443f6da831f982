#include "tools/blobs/Exports.h"

#include "bridge/Recording/BlobDecoder.h"
#include "bridge/Recording/Encoding.h"
#include "bridge/Recording/FieldText.h"
#include "tools/blobs/Listing.h"
#include "tools/blobs/PageParts.h"
#include "tools/blobs/Summary.h"

#include <nlohmann/json.hpp>

namespace Torvane::Blobs
{
namespace
{
using Bridge::DecodedField;
using Bridge::FieldKind;
using nlohmann::ordered_json;

// Limits of a page for long Blobs; the command shows the rest.
constexpr size_t mostBytes = 16384;
constexpr size_t mostElements = 64;
constexpr size_t longestText = 2000;

/// One row for each field, followed by its nested ones: depth, name, kind, the field's offset and size, those of the data
/// that it refers to, and its value.
void AppendFields(ordered_json& rows, const std::vector<DecodedField>& fields, const uint8_t* payload,
                  size_t depth)
{
    size_t count = 0;
    for (const DecodedField& field : fields)
    {
        if (field.kind == FieldKind::Padding)
        {
            continue;
        }
        if (++count > mostElements && depth > 0)
        {
            rows.push_back(
                {depth, "...", "", 0, 0, 0, 0, std::to_string(fields.size() - mostElements) + " more"});
            return;
        }
        const bool isRecord = field.kind == FieldKind::Record && field.problem.empty();
        rows.push_back({depth, field.name, Bridge::KindName(field.kind), field.offset, field.size,
                        field.itemOffset, field.itemSize,
                        isRecord ? "" : Shortened(Bridge::FieldText(field, payload), longestText)});
        AppendFields(rows, field.children, payload, depth + 1);
    }
}

ordered_json BlobAsData(const RecordedBlob& blob, size_t track)
{
    const uint8_t* payload = blob.Payload();
    ordered_json fields = ordered_json::array();
    AppendFields(fields, Bridge::DecodePayload(blob.Type(), payload, blob.PayloadSize()), payload, 0);
    const size_t shown = blob.PayloadSize() < mostBytes ? blob.PayloadSize() : mostBytes;
    return {
        {"number", blob.number},
        {"time", blob.time},
        {"host", blob.hostProcessId},
        {"fromAgent", blob.direction == Direction::FromAgent},
        {"type", static_cast<uint32_t>(blob.Type())},
        {"name", NameOf(blob)},
        {"size", blob.PayloadSize()},
        {"track", track},
        {"summary", Shortened(SummaryOf(blob), longestText)},
        {"fields", fields},
        {"bytes", Bridge::HexFromBytes(payload, shown)},
    };
}

/// JSON for a script element: escaped so that nothing in it ends the element.
std::string AsScriptData(const ordered_json& data)
{
    std::string text;
    for (const char character : data.dump(-1, ' ', true, nlohmann::json::error_handler_t::replace))
    {
        if (character == '<')
        {
            text += "\\u003c";
        }
        else
        {
            text.push_back(character);
        }
    }
    return text;
}

std::string AsHtml(const std::string& text)
{
    std::string html;
    for (const char character : text)
    {
        switch (character)
        {
        case '<':
            html += "&lt;";
            break;
        case '&':
            html += "&amp;";
            break;
        default:
            html.push_back(character);
            break;
        }
    }
    return html;
}

/// Replaces the next mark from `position` by a string, and moves `position` past it.
void Replace(std::string& page, size_t& position, const std::string& mark, const std::string& text)
{
    position = page.find(mark, position);
    page.replace(position, mark.size(), text);
    position += text.size();
}
} // namespace

std::string MakePage(const Recording& recording, const Filter& filter, const std::string& title)
{
    const Operations operations = FindOperations(recording);
    ordered_json data = {
        {"title", title},
        {"startedAt", recording.header.startedAt},
        {"bridge", recording.header.bridgeProcessId},
        {"isCut", recording.isCut},
        {"tracks", ordered_json::array()},
        {"spans", ordered_json::array()},
        {"blobs", ordered_json::array()},
    };
    for (const Track& track : operations.tracks)
    {
        data["tracks"].push_back(
            {{"host", track.hostProcessId}, {"name", track.name}, {"thread", track.threadId}});
    }
    for (const Span& span : operations.spans)
    {
        if (IsSpanChosen(recording, filter, span))
        {
            data["spans"].push_back({{"track", span.track},
                                     {"lane", span.lane},
                                     {"depth", span.depth},
                                     {"name", span.name},
                                     {"detail", span.detail},
                                     {"begin", span.begin},
                                     {"end", span.end},
                                     {"first", span.firstBlob},
                                     {"last", span.lastBlob}});
        }
    }
    for (size_t i = 0; i < recording.blobs.size(); ++i)
    {
        if (filter.Passes(recording.blobs[i]))
        {
            data["blobs"].push_back(BlobAsData(recording.blobs[i], operations.blobTracks[i]));
        }
    }
    std::string page = pageMarkup;
    size_t position = 0;
    Replace(page, position, "@TITLE@", AsHtml(title));
    Replace(page, position, "@STYLE@", pageStyle);
    Replace(page, position, "@DATA@", AsScriptData(data));
    Replace(page, position, "@SCRIPT@", pageScript);
    return page;
}
} // namespace Torvane::Blobs
