#include "tools/blobs/ReloadSpans.h"

namespace Torvane::Blobs
{
namespace
{
std::string FileName(const std::string& path)
{
    return path.substr(path.find_last_of("/\\") + 1);
}

bool IsErrorOfAgent(const HostSpans& host)
{
    return host.Blob().direction == Direction::FromAgent &&
           host.Number("level") == static_cast<uint64_t>(BlobLogLevel::Error);
}
} // namespace

void ReloadSpans::Begin(HostSpans& host)
{
    if (reload == none)
    {
        reload = host.Open(host.Named(track, "reload"), "reload " + std::to_string(++count));
    }
}

void ReloadSpans::NextPhase(HostSpans& host, const std::string& name, const std::string& endOfLast)
{
    host.Close(phase, endOfLast);
    phase = host.Open(host.Named(track, "reload"), name);
}

void ReloadSpans::Take(HostSpans& host)
{
    switch (host.Blob().Type())
    {
    case BlobType::ScheduleReload:
        Begin(host);
        NextPhase(host, "requested by the host");
        break;
    case BlobType::RequestReload:
        Begin(host);
        NextPhase(host, "consent");
        break;
    case BlobType::Reload:
        Begin(host);
        NextPhase(host, "compile");
        break;
    case BlobType::LoadPatchWindows:
        NextPhase(host, "load " + FileName(host.PlainText("patchPath")));
        isLoading = true;
        break;
    case BlobType::PatchLoaded:
        NextPhase(host, "install", "loaded at " + host.Text("base"));
        isLoading = false;
        break;
    case BlobType::LogNarrow:
        if (isLoading && IsErrorOfAgent(host))
        {
            NextPhase(host, "refused", "failed");
            isLoading = false;
        }
        break;
    case BlobType::FinishAfterHotReload:
        host.Close(phase, "");
        host.Close(reload, "");
        isLoading = false;
        break;
    default:
        break;
    }
}

void RestartSpans::NextPhase(HostSpans& host, const char* name)
{
    host.Close(phase, "");
    if (restart == none)
    {
        restart = host.Open(host.Named(track, "restart"), "restart");
    }
    phase = host.Open(track, name);
}

void RestartSpans::Take(HostSpans& host)
{
    switch (host.Blob().Type())
    {
    case BlobType::ScheduleRestart:
        NextPhase(host, "requested by the host");
        break;
    case BlobType::RequestRestart:
        NextPhase(host, "consent");
        break;
    case BlobType::Restart:
        NextPhase(host, "new process");
        break;
    case BlobType::ExitProcessForHotRestart:
        host.Close(phase, "");
        host.Close(restart, "");
        break;
    default:
        break;
    }
}
} // namespace Torvane::Blobs
