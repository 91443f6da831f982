#include "tools/blobs/Operations.h"

#include "bridge/Recording/FieldText.h"
#include "tools/blobs/Lanes.h"
#include "tools/blobs/ReloadSpans.h"

#include <deque>
#include <map>
#include <utility>

namespace Torvane::Blobs
{
namespace
{
/// The operations of one host.
class HostOperations
{
public:
    HostOperations(Operations& allOperations, uint32_t id)
        : operations(allOperations)
        , host(allOperations, id)
        , fromAgent(host.AddTrack("from the Agent"))
        , toAgent(host.AddTrack("to the Agent"))
    {
    }

    void Take(const RecordedBlob& taken)
    {
        host.Take(taken);
        operations.blobTracks.push_back(taken.direction == Direction::FromAgent ? fromAgent : toAgent);
        reload.Take(host);
        restart.Take(host);
        switch (taken.Type())
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
            CloseOne(exceptions, host.Number("event"), host.Text("action"));
            break;
        case BlobType::ResumeHeldThreads:
            OpenOne(resumed, 0, host.Named(watchdog, "watchdog"), "suspended threads resumed");
            break;
        case BlobType::SuspendHeldThreads:
            CloseOne(resumed, 0, "");
            break;
        default:
            break;
        }
    }

private:
    void NameThreads()
    {
        const auto name = [this](size_t track, const char* member, const char* thread) {
            const auto id = static_cast<uint32_t>(host.Number(member));
            operations.tracks[track].threadId = id;
            operations.tracks[track].name += std::string(" (") + thread + " thread)";
        };
        if (operations.tracks[fromAgent].threadId == 0)
        {
            name(fromAgent, "senderThreadId", "sender");
            name(toAgent, "receiverThreadId", "receiver");
            watchdog = host.AddTrack("watchdog", static_cast<uint32_t>(host.Number("watchdogThreadId")));
        }
    }

    using Waiting = std::map<std::pair<std::string, uint64_t>, std::deque<size_t>>;

    void OpenOne(Waiting& waiting, uint64_t key, size_t track, const std::string& name,
                 const std::string& kind = "")
    {
        waiting[{kind, key}].push_back(host.Open(track, name));
    }

    void CloseOne(Waiting& waiting, uint64_t key, const std::string& detail, const std::string& kind = "")
    {
        std::deque<size_t>& spans = waiting[{kind, key}];
        if (!spans.empty())
        {
            host.Close(spans.front(), detail);
            spans.pop_front();
        }
    }

    // ---- requests and their replies ----

    void OpenRequest(const char* kind)
    {
        OpenOne(requests, host.Number("token"), host.Named(requestTrack, "requests"),
                std::string(kind) + " " + host.Text("token"), kind);
    }

    void CloseRequest(const char* kind)
    {
        CloseOne(requests, host.Number("token"), "", kind);
    }

    void OpenException()
    {
        const auto threadId = static_cast<uint32_t>(host.Number("threadId"));
        const auto known = faultingThreads.find(threadId);
        const size_t track =
            known != faultingThreads.end()
                ? known->second
                : host.AddTrack("exceptions of thread " + std::to_string(threadId), threadId);
        faultingThreads[threadId] = track;
        std::string name = "exception";
        const Bridge::DecodedField* record = host.Field("record");
        const Bridge::DecodedField* code =
            record == nullptr ? nullptr : Bridge::FindField(record->children, "code");
        if (code != nullptr)
        {
            name += " " + Bridge::FieldText(*code, host.Blob().Payload());
        }
        OpenOne(exceptions, host.Number("event"), track, name);
    }

    struct Latch
    {
        size_t span = none;
        uint64_t count = 0;
        uint64_t modules = 0;
    };

    void OpenLatch()
    {
        const Bridge::DecodedField* modules = host.Field("modules");
        const size_t count = modules == nullptr ? 0 : modules->children.size();
        Latch& latch = latches[host.Number("latch")];
        if (latch.span == none)
        {
            latch = Latch();
            latch.span = host.Open(host.Named(latchTrack, "latches"), "latch " + host.Text("latch"));
        }
        latch.count += count;
        latch.modules += count;
        if (latch.count == 0)
        {
            host.Close(latch.span, "no modules");
        }
    }

    void CountLatch()
    {
        const auto found = latches.find(host.Number("latch"));
        if (found != latches.end() && found->second.span != none && --found->second.count == 0)
        {
            host.Close(found->second.span, std::to_string(found->second.modules) + " modules enabled");
        }
    }

    Operations& operations;
    HostSpans host;
    size_t fromAgent;
    size_t toAgent;
    size_t watchdog = none;
    size_t requestTrack = none;
    size_t latchTrack = none;
    std::map<uint32_t, size_t> faultingThreads;

    ReloadSpans reload;
    RestartSpans restart;
    Waiting requests;
    Waiting exceptions;
    Waiting resumed;
    std::map<uint64_t, Latch> latches;
};
} // namespace

Operations FindOperations(const Recording& recording)
{
    Operations operations;
    std::map<uint32_t, HostOperations> hosts;
    for (const RecordedBlob& blob : recording.blobs)
    {
        hosts.try_emplace(blob.hostProcessId, operations, blob.hostProcessId).first->second.Take(blob);
    }
    const double last = LastTime(recording);
    for (Span& span : operations.spans)
    {
        if (span.lastBlob == 0)
        {
            span.end = last;
            span.detail = "no end recorded";
        }
    }
    AssignLanes(operations.spans);
    return operations;
}
} // namespace Torvane::Blobs
