#include "tools/blobs/Roads.h"

#include "bridge/Recording/BlobDecoder.h"
#include "bridge/Recording/FieldText.h"
#include "tools/blobs/Lanes.h"

#include <algorithm>
#include <deque>
#include <map>
#include <utility>

namespace Torvane::Blobs
{
namespace
{
constexpr size_t none = SIZE_MAX;

std::string FileName(const std::string& path)
{
    return path.substr(path.find_last_of("/\\") + 1);
}

/// The roads of one host.
class HostRoads
{
public:
    HostRoads(Roads& allRoads, uint32_t id)
        : roads(allRoads)
        , hostProcessId(id)
        , fromAgent(AddTrack("from the Agent"))
        , toAgent(AddTrack("to the Agent"))
    {
    }

    void Take(const RecordedBlob& taken)
    {
        blob = &taken;
        fields = Bridge::DecodePayload(blob->Type(), blob->Payload(), blob->PayloadSize());
        roads.blobTracks.push_back(blob->direction == Direction::FromAgent ? fromAgent : toAgent);
        switch (blob->Type())
        {
        case BlobType::RegisterProcess:
            NameThreads();
            break;
        case BlobType::EnableModules:
            OpenLatch();
            break;
        case BlobType::DecrementLatch:
            CountLatch();
            break;
        case BlobType::ReadMemory:
            OpenRequest("read memory");
            break;
        case BlobType::EchoRequest:
            OpenRequest("echo");
            break;
        case BlobType::ReadMemoryResult:
            CloseRequest("read memory");
            break;
        case BlobType::EchoReply:
            CloseRequest("echo");
            break;
        case BlobType::HandleExceptionWindows:
            OpenException();
            break;
        case BlobType::HandleExceptionWindowsResult:
            CloseOne(exceptions, Number("event"), Text("action"));
            break;
        case BlobType::ResumeHeldThreads:
            OpenOne(letGo, 0, Named(watchdog, "watchdog"), "held threads let go");
            break;
        case BlobType::SuspendHeldThreads:
            CloseOne(letGo, 0, "");
            break;
        default:
            TakeReload();
            TakeRestart();
            break;
        }
    }

private:
    size_t AddTrack(const std::string& name, uint32_t threadId = 0)
    {
        Track track;
        track.hostProcessId = hostProcessId;
        track.name = name;
        track.threadId = threadId;
        roads.tracks.push_back(track);
        return roads.tracks.size() - 1;
    }

    size_t& Named(size_t& track, const char* name)
    {
        if (track == none)
        {
            track = AddTrack(name);
        }
        return track;
    }

    uint64_t Number(const char* name) const
    {
        const Bridge::DecodedField* field = Bridge::FindField(fields, name);
        return field != nullptr ? field->number : 0;
    }

    std::string Text(const char* name) const
    {
        const Bridge::DecodedField* field = Bridge::FindField(fields, name);
        return field == nullptr ? "" : Bridge::FieldText(*field, blob->Payload());
    }

    std::string PlainText(const char* name) const
    {
        const Bridge::DecodedField* field = Bridge::FindField(fields, name);
        return field == nullptr ? "" : field->text;
    }

    void NameThreads()
    {
        const auto name = [this](size_t track, const char* member, const char* thread) {
            const auto id = static_cast<uint32_t>(Number(member));
            roads.tracks[track].threadId = id;
            roads.tracks[track].name += std::string(" (") + thread + " thread)";
        };
        if (roads.tracks[fromAgent].threadId == 0)
        {
            name(fromAgent, "senderThreadId", "sender");
            name(toAgent, "receiverThreadId", "receiver");
            watchdog = AddTrack("watchdog", static_cast<uint32_t>(Number("watchdogThreadId")));
        }
    }

    // ---- spans ----

    size_t Open(size_t track, const std::string& name)
    {
        Span span;
        span.track = track;
        span.name = name;
        span.begin = blob->time;
        span.firstBlob = blob->number;
        roads.spans.push_back(span);
        return roads.spans.size() - 1;
    }

    void Close(size_t& span, const std::string& detail)
    {
        if (span != none)
        {
            Span& closed = roads.spans[span];
            closed.end = std::max(blob->time, closed.begin);
            closed.lastBlob = blob->number;
            closed.detail = detail;
            span = none;
        }
    }

    using Waiting = std::map<std::pair<std::string, uint64_t>, std::deque<size_t>>;

    void OpenOne(Waiting& waiting, uint64_t key, size_t track, const std::string& name,
                 const std::string& kind = "")
    {
        waiting[{kind, key}].push_back(Open(track, name));
    }

    void CloseOne(Waiting& waiting, uint64_t key, const std::string& detail, const std::string& kind = "")
    {
        std::deque<size_t>& spans = waiting[{kind, key}];
        if (!spans.empty())
        {
            Close(spans.front(), detail);
            spans.pop_front();
        }
    }

    // ---- what has an answer ----

    void OpenRequest(const char* kind)
    {
        OpenOne(requests, Number("token"), Named(requestTrack, "requests"),
                std::string(kind) + " " + Text("token"), kind);
    }

    void CloseRequest(const char* kind)
    {
        CloseOne(requests, Number("token"), "", kind);
    }

    void OpenException()
    {
        const auto threadId = static_cast<uint32_t>(Number("threadId"));
        const auto known = faultingThreads.find(threadId);
        const size_t track = known != faultingThreads.end()
                                 ? known->second
                                 : AddTrack("exceptions of thread " + std::to_string(threadId), threadId);
        faultingThreads[threadId] = track;
        std::string name = "exception";
        const Bridge::DecodedField* record = Bridge::FindField(fields, "record");
        const Bridge::DecodedField* code =
            record == nullptr ? nullptr : Bridge::FindField(record->children, "code");
        if (code != nullptr)
        {
            name += " " + Bridge::FieldText(*code, blob->Payload());
        }
        OpenOne(exceptions, Number("event"), track, name);
    }

    struct Latch
    {
        size_t span = none;
        uint64_t count = 0;
        uint64_t modules = 0;
    };

    void OpenLatch()
    {
        const Bridge::DecodedField* modules = Bridge::FindField(fields, "modules");
        const size_t count = modules == nullptr ? 0 : modules->children.size();
        Latch& latch = latches[Number("latch")];
        if (latch.span == none)
        {
            latch = Latch();
            latch.span = Open(Named(latchTrack, "latches"), "latch " + Text("latch"));
        }
        latch.count += count;
        latch.modules += count;
        if (latch.count == 0)
        {
            Close(latch.span, "no modules");
        }
    }

    void CountLatch()
    {
        const auto found = latches.find(Number("latch"));
        if (found != latches.end() && found->second.span != none && --found->second.count == 0)
        {
            Close(found->second.span, std::to_string(found->second.modules) + " modules enabled");
        }
    }

    // ---- reloads and restarts ----

    void OpenReload()
    {
        if (reload == none)
        {
            reload = Open(Named(reloadTrack, "reload"), "reload " + std::to_string(++reloadCount));
        }
    }

    void NextPhase(const std::string& name, const std::string& endOfLast = "")
    {
        Close(phase, endOfLast);
        phase = Open(Named(reloadTrack, "reload"), name);
    }

    void TakeReload()
    {
        switch (blob->Type())
        {
        case BlobType::ScheduleReload:
            OpenReload();
            NextPhase("asked for by the host");
            break;
        case BlobType::RequestReload:
            OpenReload();
            NextPhase("consent");
            break;
        case BlobType::Reload:
            OpenReload();
            NextPhase("compile");
            break;
        case BlobType::LoadPatchWindows:
            NextPhase("load " + FileName(PlainText("patchPath")));
            isLoading = true;
            break;
        case BlobType::PatchLoaded:
            NextPhase("install", "loaded at " + Text("base"));
            isLoading = false;
            break;
        case BlobType::LogNarrow:
            if (isLoading && blob->direction == Direction::FromAgent &&
                Number("level") == static_cast<uint64_t>(BlobLogLevel::Error))
            {
                NextPhase("refused", "failed");
                isLoading = false;
            }
            break;
        case BlobType::FinishAfterHotReload:
            Close(phase, "");
            Close(reload, "");
            isLoading = false;
            break;
        default:
            break;
        }
    }

    void TakeRestart()
    {
        switch (blob->Type())
        {
        case BlobType::ScheduleRestart:
        case BlobType::RequestRestart:
        case BlobType::Restart:
            Close(restartPhase, "");
            if (restart == none)
            {
                restart = Open(Named(restartTrack, "restart"), "restart");
            }
            restartPhase =
                Open(restartTrack, blob->Type() == BlobType::ScheduleRestart  ? "asked for by the host"
                                   : blob->Type() == BlobType::RequestRestart ? "consent"
                                                                              : "new process");
            break;
        case BlobType::ExitProcessForHotRestart:
            Close(restartPhase, "");
            Close(restart, "");
            break;
        default:
            break;
        }
    }

    Roads& roads;
    uint32_t hostProcessId;
    size_t fromAgent;
    size_t toAgent;
    size_t watchdog = none;
    size_t requestTrack = none;
    size_t latchTrack = none;
    size_t reloadTrack = none;
    size_t restartTrack = none;
    std::map<uint32_t, size_t> faultingThreads;

    Waiting requests;
    Waiting exceptions;
    Waiting letGo;
    std::map<uint64_t, Latch> latches;
    size_t reload = none;
    size_t phase = none;
    size_t restart = none;
    size_t restartPhase = none;
    uint32_t reloadCount = 0;
    bool isLoading = false;

    const RecordedBlob* blob = nullptr;
    std::vector<Bridge::DecodedField> fields;
};
} // namespace

Roads FindRoads(const Recording& recording)
{
    Roads roads;
    std::map<uint32_t, HostRoads> hosts;
    for (const RecordedBlob& blob : recording.blobs)
    {
        hosts.try_emplace(blob.hostProcessId, roads, blob.hostProcessId).first->second.Take(blob);
    }
    const double last = LastTime(recording);
    for (Span& span : roads.spans)
    {
        if (span.lastBlob == 0)
        {
            span.end = last;
            span.detail = "no end recorded";
        }
    }
    AssignLanes(roads.spans);
    return roads;
}
} // namespace Torvane::Blobs
