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

const RecordedBlob* FindBlob(const Recording& recording, uint64_t number)
{
    const auto found =
        std::lower_bound(recording.blobs.begin(), recording.blobs.end(), number,
                         [](const RecordedBlob& blob, uint64_t wanted) { return blob.number < wanted; });
    return found != recording.blobs.end() && found->number == number ? &*found : nullptr;
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
} // namespace

bool IsSpanChosen(const Recording& recording, const Filter& filter, const Span& span)
{
    for (const uint64_t number : {span.firstBlob, span.lastBlob})
    {
        const RecordedBlob* blob = FindBlob(recording, number);
        if (blob != nullptr && filter.Passes(*blob))
        {
            return true;
        }
    }
    return false;
}

std::string MakeTrace(const Recording& recording, const Filter& filter)
{
    const Operations operations = FindOperations(recording);
    ordered_json events = ordered_json::array();
    TraceThreads threads(operations, events);
    std::set<uint32_t> hosts;
    for (const Track& track : operations.tracks)
    {
        if (hosts.insert(track.hostProcessId).second)
        {
            threads.Describe("process_name", track.hostProcessId, 0,
                             {{"name", "host " + std::to_string(track.hostProcessId)}});
        }
    }
    for (size_t i = 0; i < recording.blobs.size(); ++i)
    {
        const RecordedBlob& blob = recording.blobs[i];
        if (filter.Passes(blob))
        {
            events.push_back({
                {"name", NameOf(blob)},
                {"cat", "blob"},
                {"ph", "i"},
                {"s", "t"},
                {"ts", Microseconds(blob.time)},
                {"pid", blob.hostProcessId},
                {"tid", threads.IdOf(operations.blobTracks[i], 0)},
                {"args", {{"blob", blob.number}, {"bytes", blob.PayloadSize()}, {"fields", SummaryOf(blob)}}},
            });
        }
    }
    for (const Span& span : operations.spans)
    {
        if (IsSpanChosen(recording, filter, span))
        {
            ordered_json arguments = {{"firstBlob", span.firstBlob}};
            arguments["lastBlob"] = span.lastBlob == 0 ? ordered_json(nullptr) : ordered_json(span.lastBlob);
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
    std::stable_sort(events.begin(), events.end(), IsBefore);
    const ordered_json trace = {
        {"traceEvents", events},
        {"displayTimeUnit", "ms"},
        {"otherData",
         {{"startedAt", recording.header.startedAt}, {"bridge", recording.header.bridgeProcessId}}},
    };
    return trace.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}
} // namespace Torvane::Blobs
