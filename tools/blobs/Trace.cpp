#include "tools/blobs/Exchanges.h"
#include "tools/blobs/Exports.h"
#include "tools/blobs/Summary.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <map>
#include <math.h>
#include <set>
#include <utility>

namespace Torvane::Blobs
{
namespace
{
using nlohmann::ordered_json;

/// First thread id for tracks without a thread; far above those of the OS.
constexpr uint64_t firstFreeThreadId = 1000000000;

uint64_t Microseconds(double seconds)
{
    return static_cast<uint64_t>(llround(seconds * 1e6));
}

/// Metadata first, then by time, and enclosing spans before those that they contain.
bool IsBefore(const ordered_json& left, const ordered_json& right)
{
    const auto number = [](const ordered_json& event, const char* name) {
        return event.contains(name) ? event[name].get<uint64_t>() : 0;
    };
    const bool isLeftTimed = left.contains("ts");
    if (isLeftTimed != right.contains("ts"))
    {
        return !isLeftTimed;
    }
    const uint64_t leftTime = number(left, "ts");
    const uint64_t rightTime = number(right, "ts");
    return leftTime != rightTime ? leftTime < rightTime : number(left, "dur") > number(right, "dur");
}

class TraceThreads
{
public:
    TraceThreads(const Operations& allOperations, ordered_json& allEvents)
        : operations(allOperations)
        , events(allEvents)
    {
    }

    /// The thread id of a track's lane in the trace: the thread's own for a track's first lane, unless another track has it.
    uint64_t IdOf(size_t track, size_t lane)
    {
        const auto known = ids.find({track, lane});
        if (known != ids.end())
        {
            return known->second;
        }
        const Track& described = operations.tracks[track];
        const bool isOwn = lane == 0 && described.threadId != 0 && described.threadId < firstFreeThreadId &&
                           taken.emplace(described.hostProcessId, described.threadId).second;
        const uint64_t id = isOwn ? described.threadId : firstFreeThreadId + ids.size();
        ids[{track, lane}] = id;
        const std::string name = described.name + (lane == 0 ? "" : " " + std::to_string(lane + 1));
        Describe("thread_name", described.hostProcessId, id, {{"name", name}});
        Describe("thread_sort_index", described.hostProcessId, id, {{"sort_index", track}});
        return id;
    }

    void Describe(const char* what, uint32_t process, uint64_t thread, const ordered_json& arguments)
    {
        events.push_back(
            {{"name", what}, {"ph", "M"}, {"pid", process}, {"tid", thread}, {"args", arguments}});
    }

private:
    const Operations& operations;
    ordered_json& events;
    std::map<std::pair<size_t, size_t>, uint64_t> ids;
    std::set<std::pair<uint32_t, uint32_t>> taken;
};

class TraceEvents
{
public:
    TraceEvents(const Recording& traced, const Filter& traceFilter)
        : recording(traced)
        , filter(traceFilter)
        , operations(FindOperations(traced))
        , threads(operations, events)
    {
    }

    ordered_json Make()
    {
        std::set<uint32_t> hosts;
        for (const Track& track : operations.tracks)
        {
            if (hosts.insert(track.hostProcessId).second)
            {
                threads.Describe("process_name", track.hostProcessId, 0,
                                 {{"name", "host " + std::to_string(track.hostProcessId)}});
            }
        }
        AddBlobs();
        AddSpans();
        AddExchanges();
        std::stable_sort(events.begin(), events.end(), IsBefore);
        return std::move(events);
    }

private:
    /// The members that all events of a Blob have.
    ordered_json EventAt(size_t blob, const std::string& name, const char* category, const char* phase)
    {
        return {
            {"name", name},
            {"cat", category},
            {"ph", phase},
            {"ts", Microseconds(recording.blobs[blob].time)},
            {"pid", recording.blobs[blob].hostProcessId},
            {"tid", threads.IdOf(operations.blobTracks[blob], 0)},
        };
    }

    void AddBlobs()
    {
        for (size_t i = 0; i < recording.blobs.size(); ++i)
        {
            const RecordedBlob& blob = recording.blobs[i];
            if (filter.Passes(blob))
            {
                ordered_json event = EventAt(i, NameOf(blob), "blob", "i");
                event["s"] = "t";
                event["args"] = {
                    {"blob", blob.number}, {"bytes", blob.PayloadSize()}, {"fields", SummaryOf(blob)}};
                events.push_back(event);
            }
        }
    }

    void AddSpans()
    {
        for (const Span& span : operations.spans)
        {
            if (IsSpanChosen(recording, filter, span))
            {
                ordered_json arguments = {{"firstBlob", span.firstBlob}};
                arguments["lastBlob"] =
                    span.lastBlob == 0 ? ordered_json(nullptr) : ordered_json(span.lastBlob);
                arguments["outcome"] = span.detail;
                events.push_back({
                    {"name", span.name},
                    {"cat", "operation"},
                    {"ph", "X"},
                    {"ts", Microseconds(span.begin)},
                    {"dur", Microseconds(span.end) - Microseconds(span.begin)},
                    {"pid", operations.tracks[span.track].hostProcessId},
                    {"tid", threads.IdOf(span.track, span.lane)},
                    {"args", arguments},
                });
            }
        }
    }

    /// Arrows from questions to answers. Viewers attach them to slices and not to instants, so that each end has one.
    void AddExchanges()
    {
        for (const Exchange& exchange : FindExchanges(recording, operations))
        {
            const RecordedBlob& question = recording.blobs[exchange.question];
            const RecordedBlob& answer = recording.blobs[exchange.answer];
            if (!filter.Passes(question) || !filter.Passes(answer) || answer.time < question.time)
            {
                continue;
            }
            for (const size_t blob : {exchange.question, exchange.answer})
            {
                ordered_json slice = EventAt(blob, NameOf(recording.blobs[blob]), "exchange", "X");
                slice["dur"] = 1;
                events.push_back(slice);
            }
            ordered_json start = EventAt(exchange.question, "answer", "exchange", "s");
            start["id"] = question.number;
            events.push_back(start);
            ordered_json finish = EventAt(exchange.answer, "answer", "exchange", "f");
            finish["id"] = question.number;
            finish["bp"] = "e";
            events.push_back(finish);
        }
    }

    const Recording& recording;
    const Filter& filter;
    const Operations operations;
    ordered_json events = ordered_json::array();
    TraceThreads threads;
};
} // namespace

bool IsSpanChosen(const Recording& recording, const Filter& filter, const Span& span)
{
    for (const uint64_t number : {span.firstBlob, span.lastBlob})
    {
        const size_t index = IndexOfBlob(recording, number);
        if (index != SIZE_MAX && filter.Passes(recording.blobs[index]))
        {
            return true;
        }
    }
    return false;
}

std::string MakeTrace(const Recording& recording, const Filter& filter)
{
    const ordered_json trace = {
        {"traceEvents", TraceEvents(recording, filter).Make()},
        {"displayTimeUnit", "ms"},
        {"otherData",
         {{"startedAt", recording.header.startedAt}, {"bridge", recording.header.bridgeProcessId}}},
    };
    return trace.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}
} // namespace Torvane::Blobs
