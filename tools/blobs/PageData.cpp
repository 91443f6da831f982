#include "tools/blobs/PageData.h"

#include "bridge/Recording/BlobLayout.h"
#include "tools/blobs/Exchanges.h"
#include "tools/blobs/Exports.h"
#include "tools/blobs/Operations.h"
#include "tools/blobs/Summary.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <map>
#include <math.h>
#include <tuple>

namespace Torvane::Blobs
{
namespace
{
using nlohmann::ordered_json;

/// Lanes of a track that are drawn span by span; whatever else overlaps is one more.
constexpr size_t mostLanes = 6;

/// Numbers each string once.
class StringTable
{
public:
    uint32_t NumberOf(const std::string& text)
    {
        const auto [found, isNew] = numbers.emplace(text, static_cast<uint32_t>(numbers.size()));
        if (isNew)
        {
            strings.push_back(text);
        }
        return found->second;
    }

    const ordered_json& Strings() const
    {
        return strings;
    }

private:
    std::map<std::string, uint32_t> numbers;
    ordered_json strings = ordered_json::array();
};

void Align(std::string& bytes)
{
    bytes.resize((bytes.size() + 7) / 8 * 8, ' ');
}

template<typename Number>
void AppendColumn(std::string& bytes, const std::vector<Number>& column)
{
    bytes.append(reinterpret_cast<const char*>(column.data()), column.size() * sizeof(Number));
    Align(bytes);
}

double Microseconds(double seconds)
{
    return static_cast<double>(llround(seconds * 1e6));
}

/// The same numbers as differences, which are small and take less space once they are deflated.
std::vector<double> Differences(std::vector<double> numbers)
{
    for (size_t i = numbers.size(); i-- > 1;)
    {
        numbers[i] -= numbers[i - 1];
    }
    return numbers;
}

/// The tables of fields, by which the page decodes payloads itself.
class LayoutTables
{
public:
    LayoutTables()
    {
        for (const Bridge::BlobLayout& layout : Bridge::AllBlobLayouts())
        {
            ordered_json keys = ordered_json::array();
            for (const char* const* path = KeyFieldsOf(layout.type).paths; *path != nullptr; ++path)
            {
                keys.push_back(*path);
            }
            types.push_back({{"type", static_cast<uint32_t>(layout.type)},
                             {"name", layout.name},
                             {"record", Record(layout.fixed)},
                             {"keys", keys}});
        }
    }

    ordered_json types = ordered_json::array();
    ordered_json records = ordered_json::array();

private:
    /// The index of a record among `records`; null for none.
    ordered_json Record(const Bridge::RecordLayout* layout)
    {
        if (layout == nullptr)
        {
            return nullptr;
        }
        const auto known = indices.find(layout);
        if (known != indices.end())
        {
            return known->second;
        }
        ordered_json fields = ordered_json::array();
        for (const Bridge::FieldLayout& field : *layout)
        {
            ordered_json described = {{"name", field.name},
                                      {"offset", field.offset},
                                      {"size", field.size},
                                      {"kind", Bridge::KindName(field.kind)},
                                      {"elements", Record(field.elements)},
                                      {"constant", field.count.constant},
                                      {"factors", ordered_json::array()},
                                      {"values", ordered_json::object()}};
            for (const Bridge::ItemCount::Factor& factor : field.count.factors)
            {
                if (factor.size != 0)
                {
                    described["factors"].push_back({{"offset", factor.offset}, {"size", factor.size}});
                }
            }
            for (const Bridge::NamedValue* value = field.values; value != nullptr && value->name != nullptr;
                 ++value)
            {
                described["values"][std::to_string(value->value)] = value->name;
            }
            fields.push_back(described);
        }
        records.push_back({{"size", layout->size}, {"fields", fields}});
        return indices[layout] = records.size() - 1;
    }

    std::map<const Bridge::RecordLayout*, size_t> indices;
};

/// The columns of the Blobs that pass a filter.
class BlobColumns
{
public:
    BlobColumns(const Recording& recording, const Filter& filter, const Operations& operations)
        : places(recording.blobs.size())
    {
        for (size_t i = 0; i < recording.blobs.size(); ++i)
        {
            const RecordedBlob& blob = recording.blobs[i];
            if (filter.Passes(blob))
            {
                numbers.push_back(static_cast<double>(blob.number));
                times.push_back(Microseconds(blob.time));
                types.push_back(static_cast<uint32_t>(blob.Type()));
                sizes.push_back(static_cast<uint32_t>(blob.PayloadSize()));
                tracks.push_back(static_cast<uint32_t>(operations.blobTracks[i]));
                directions.push_back(blob.direction == Direction::FromAgent ? 1 : 0);
                failures.push_back(static_cast<uint8_t>(FailureOf(blob)));
                payloads.append(reinterpret_cast<const char*>(blob.Payload()), blob.PayloadSize());
                places[i] = static_cast<uint32_t>(numbers.size());
            }
        }
        latencies.assign(numbers.size(), -1);
        partners.assign(numbers.size(), 0);
        for (const Exchange& exchange : FindExchanges(recording, operations))
        {
            const double latency = std::max(0.0, Microseconds(recording.blobs[exchange.answer].time) -
                                                     Microseconds(recording.blobs[exchange.question].time));
            SetPartner(exchange.question, exchange.answer, latency);
            SetPartner(exchange.answer, exchange.question, latency);
        }
    }

    void Append(std::string& bytes) const
    {
        AppendColumn(bytes, Differences(numbers));
        AppendColumn(bytes, Differences(times));
        AppendColumn(bytes, latencies);
        AppendColumn(bytes, types);
        AppendColumn(bytes, sizes);
        AppendColumn(bytes, tracks);
        AppendColumn(bytes, partners);
        AppendColumn(bytes, directions);
        AppendColumn(bytes, failures);
    }

    size_t Count() const
    {
        return numbers.size();
    }

    const std::string& Payloads() const
    {
        return payloads;
    }

    /// The place of a Blob of the recording in the columns, from 1; 0 if it isn't in them.
    uint32_t PlaceOf(size_t index) const
    {
        return index == SIZE_MAX ? 0 : places[index];
    }

private:
    void SetPartner(size_t index, size_t partner, double latency)
    {
        if (PlaceOf(index) != 0)
        {
            latencies[PlaceOf(index) - 1] = latency;
            partners[PlaceOf(index) - 1] = PlaceOf(partner);
        }
    }

    std::vector<double> numbers;
    std::vector<double> times;     ///< microseconds
    std::vector<double> latencies; ///< microseconds; -1 for none
    std::vector<uint32_t> types;
    std::vector<uint32_t> sizes; ///< of payloads
    std::vector<uint32_t> tracks;
    std::vector<uint32_t> partners;  ///< as `PlaceOf`: a Blob's question or answer
    std::vector<uint8_t> directions; ///< 1 from the Agent
    std::vector<uint8_t> failures;
    std::string payloads;
    std::vector<uint32_t> places;
};

/// The columns of spans, and the rows of the timeline that they are in, one after the other.
class SpanColumns
{
public:
    SpanColumns(const Recording& recording, const Filter& filter, const Operations& operations,
                const BlobColumns& blobs)
    {
        std::vector<const Span*> chosen;
        for (const Span& span : operations.spans)
        {
            if (IsSpanChosen(recording, filter, span))
            {
                chosen.push_back(&span);
            }
        }
        std::stable_sort(chosen.begin(), chosen.end(), [](const Span* left, const Span* right) {
            return std::make_tuple(left->track, LaneOf(*left), DepthOf(*left), left->begin) <
                   std::make_tuple(right->track, LaneOf(*right), DepthOf(*right), right->begin);
        });
        for (const Span* span : chosen)
        {
            AddToRow(*span);
            begins.push_back(Microseconds(span->begin));
            durations.push_back(Microseconds(span->end) - Microseconds(span->begin));
            firsts.push_back(blobs.PlaceOf(IndexOfBlob(recording, span->firstBlob)));
            lasts.push_back(blobs.PlaceOf(IndexOfBlob(recording, span->lastBlob)));
            names.push_back(strings.NumberOf(span->name));
            details.push_back(strings.NumberOf(span->detail));
            openEnds.push_back(span->lastBlob == 0 ? 1 : 0);
        }
    }

    void Append(std::string& bytes) const
    {
        AppendColumn(bytes, Differences(begins));
        AppendColumn(bytes, durations);
        AppendColumn(bytes, firsts);
        AppendColumn(bytes, lasts);
        AppendColumn(bytes, names);
        AppendColumn(bytes, details);
        AppendColumn(bytes, openEnds);
    }

    size_t Count() const
    {
        return begins.size();
    }

    const ordered_json& Rows() const
    {
        return rows;
    }

    const ordered_json& Strings() const
    {
        return strings.Strings();
    }

private:
    static size_t LaneOf(const Span& span)
    {
        return std::min(span.lane, mostLanes);
    }

    static size_t DepthOf(const Span& span)
    {
        return span.lane < mostLanes ? span.depth : 0;
    }

    void AddToRow(const Span& span)
    {
        const auto place = std::make_tuple(span.track, LaneOf(span), DepthOf(span));
        if (rows.empty() || place != lastPlace)
        {
            lastPlace = place;
            rows.push_back({{"track", span.track},
                            {"lane", LaneOf(span)},
                            {"depth", DepthOf(span)},
                            {"isMixed", span.lane >= mostLanes},
                            {"first", begins.size()},
                            {"count", 0}});
        }
        rows.back()["count"] = begins.size() + 1 - rows.back()["first"].get<size_t>();
    }

    std::vector<double> begins;    ///< microseconds
    std::vector<double> durations; ///< microseconds
    std::vector<uint32_t> firsts;  ///< as `BlobColumns::PlaceOf`
    std::vector<uint32_t> lasts;
    std::vector<uint32_t> names; ///< strings
    std::vector<uint32_t> details;
    std::vector<uint8_t> openEnds; ///< 1 if no Blob has ended it
    StringTable strings;
    ordered_json rows = ordered_json::array();
    std::tuple<size_t, size_t, size_t> lastPlace;
};
} // namespace

std::string MakePageData(const Recording& recording, const Filter& filter, const std::string& title)
{
    const Operations operations = FindOperations(recording);
    const BlobColumns blobs(recording, filter, operations);
    const SpanColumns spans(recording, filter, operations, blobs);
    const LayoutTables layouts;
    ordered_json tracks = ordered_json::array();
    for (const Track& track : operations.tracks)
    {
        tracks.push_back({{"host", track.hostProcessId}, {"name", track.name}, {"thread", track.threadId}});
    }
    const ordered_json description = {
        {"title", title},
        {"startedAt", recording.header.startedAt},
        {"bridge", recording.header.bridgeProcessId},
        {"isCut", recording.isCut},
        {"blobCount", blobs.Count()},
        {"spanCount", spans.Count()},
        {"payloadSize", blobs.Payloads().size()},
        {"tracks", tracks},
        {"rows", spans.Rows()},
        {"strings", spans.Strings()},
        {"failures", failureNames},
        {"types", layouts.types},
        {"records", layouts.records},
    };
    const std::string text = description.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    const auto size = static_cast<uint32_t>(text.size());
    std::string bytes(reinterpret_cast<const char*>(&size), sizeof(size));
    bytes += text;
    Align(bytes);
    blobs.Append(bytes);
    spans.Append(bytes);
    return bytes + blobs.Payloads();
}
} // namespace Torvane::Blobs
