#include "bridge/Reload.h"

#include "bridge/Requests.h"
#include "bridge/Text.h"

#include <windows.h>

namespace Torvane::Bridge
{
namespace
{
/// Whether this is the Agent's report that it couldn't load the patch: a line of its own, which is cut if it is too long.
bool IsFailedLoad(const Message& message, const std::wstring& path)
{
    const auto* log = message.As<LogBlob>();
    if (message.Type() != BlobType::LogNarrow || log == nullptr || log->level != BlobLogLevel::Error)
    {
        return false;
    }
    const std::string prefix = "Failed to load patch from ";
    const std::string text = message.AnsiString(log->text);
    const std::string whole = prefix + Utf8(path);
    return text.size() >= prefix.size() && whole.compare(0, text.size(), text) == 0;
}

bool IsLoaded(const Message& message, const std::wstring& path)
{
    const auto* loaded = message.As<PatchLoadedBlob>();
    return message.Type() == BlobType::PatchLoaded && loaded != nullptr &&
           message.Utf16String(loaded->patchPath) == path;
}

/// Whether a 32-bit host finds a library of that name, as far as the Bridge can see.
bool IsFound(const std::string& name, const std::wstring& hostFolder)
{
    const std::wstring file(name.begin(), name.end());
    wchar_t system[MAX_PATH] = {};
    GetSystemWow64DirectoryW(system, MAX_PATH);
    const bool isAPISet = name.compare(0, 7, "api-ms-") == 0;
    return isAPISet || SearchPathW(hostFolder.c_str(), file.c_str(), nullptr, 0, nullptr, nullptr) != 0 ||
           SearchPathW(system, file.c_str(), nullptr, 0, nullptr, nullptr) != 0 ||
           SearchPathW(nullptr, file.c_str(), nullptr, 0, nullptr, nullptr) != 0;
}

/// What the Agent doesn't report, as far as it can be seen in the file.
std::string ExplainFailedLoad(const HostProcess& host, const std::wstring& path)
{
    const PatchImage image(path);
    if (!image.Error().empty())
    {
        return image.Error();
    }
    const std::wstring executable = host.ExecutablePath();
    const std::wstring hostFolder = executable.substr(0, executable.find_last_of(L'\\'));
    std::string missing;
    for (const std::string& name : image.Imports())
    {
        missing += IsFound(name, hostFolder) ? "" : (missing.empty() ? "" : ", ") + name;
    }
    return missing.empty() ? "all that it imports is there, but its entry point may have refused"
                           : "it imports " + missing +
                                 ", which the host doesn't find: copy it beside the host, "
                                 "or link the patch statically";
}

Result<> LoadAndInstall(Session& session, const ReloadSteps& steps, uint32_t milliseconds)
{
    const Result<std::wstring> path = steps.build();
    if (!path)
    {
        return path.Why();
    }
    if (!session.IsSynchronized())
    {
        Result<> suspended = session.SuspendThreads();
        if (!suspended)
        {
            return suspended;
        }
    }
    const Result<LoadedPatch> patch = LoadPatch(session, *path, milliseconds, steps.relocatedEntryPoint);
    if (!patch)
    {
        return patch.Why();
    }
    Result<> result = session.AreThreadsSuspended() ? Result<>() : session.SuspendThreads();
    if (result)
    {
        result = steps.install(*patch);
    }
    return result ? Fence(session.link, milliseconds) : result;
}
} // namespace

Result<> RequestReload(Session& session, uint32_t milliseconds)
{
    if (session.IsSynchronized() && session.AreThreadsSuspended())
    {
        return Failure{"the host's threads are suspended, one of which has to agree to a reload"};
    }
    while (session.link.WaitFor<ReloadBlob>(0))
    {
        // an earlier reload's, which nobody has taken
    }
    if (!SendRequestReload(session.link))
    {
        return ClosedPipe();
    }
    const auto reload = session.link.WaitFor<ReloadBlob>(milliseconds);
    if (!reload)
    {
        return Failure{"the host hasn't agreed to a reload: " + reload.Reason()};
    }
    session.NoteReload();
    return {};
}

Result<Received<PatchLoadedBlob>> LoadPatch(Session& session, const PatchCommand& command,
                                            uint32_t milliseconds)
{
    const bool areSuspended = session.AreThreadsSuspended();
    if (areSuspended && session.DoesHostLetPatchIn())
    {
        return Failure{
            "the host's threads are suspended, one of which has to let the patch in: a synchronized "
            "host's threads are suspended after the load"};
    }
    PatchCommand guarded = command;
    guarded.watchdog = areSuspended;
    if (!SendLoadPatch(session.link, guarded))
    {
        return ClosedPipe();
    }
    const Message reply = session.link.WaitForMatch(
        [&command](const Message& message) {
            return IsLoaded(message, command.path) || IsFailedLoad(message, command.path);
        },
        milliseconds);
    if (!reply)
    {
        return Failure{
            "the patch hasn't been loaded" +
            std::string(session.DoesHostLetPatchIn() ? ", or the host hasn't called TvnReload: " : ": ") +
            reply.Reason()};
    }
    session.NoteLoad();
    if (areSuspended) // the watchdog may have had them resumed, and its next request can be late
    {
        Result<> suspended = session.SuspendThreads();
        if (!suspended)
        {
            return suspended.Why();
        }
    }
    if (reply.Type() == BlobType::LogNarrow)
    {
        return Failure{reply.AnsiString(reply.As<LogBlob>()->text) + ": " +
                       ExplainFailedLoad(session.host, command.path)};
    }
    return Received<PatchLoadedBlob>(reply);
}

Result<LoadedPatch> LoadPatch(Session& session, const std::wstring& path, uint32_t milliseconds,
                              RelocatedEntryPoint relocated)
{
    LoadedPatch patch = {PatchImage(path), {}, false, {}};
    const bool isImage = patch.image.Error().empty(); // if it isn't one, the host's loader reports that
    if (isImage && patch.image.EntryPoint() != 0 &&
        (relocated == RelocatedEntryPoint::IsRefused || !patch.image.IsEntryPointRelocated()))
    {
        patch.entryCode = patch.image.EntryCode();
        if (!patch.image.MakeEntryPointIdle() || !patch.image.Save(path))
        {
            return Failure{"the patch " + Utf8(path) + " can't be used: " + patch.image.Error()};
        }
        patch.isEntryPointIdle = true;
    }
    PatchCommand command;
    command.path = path;
    Result<Received<PatchLoadedBlob>> loaded = LoadPatch(session, command, milliseconds);
    if (!loaded)
    {
        return loaded.Why();
    }
    patch.reply = *loaded;
    return patch;
}

bool SendCallEntryPoint(Session& session, const LoadedPatch& patch)
{
    return !patch.isEntryPointIdle || SendCallEntryPoint(session.link, patch.Base(), patch.image.EntryPoint(),
                                                         patch.entryCode, idleEntryPoint);
}

Result<> RunReload(Session& session, const ReloadSteps& steps, uint32_t milliseconds)
{
    Result<> requested = RequestReload(session, milliseconds);
    if (!requested)
    {
        return requested;
    }
    Result<> result = LoadAndInstall(session, steps, milliseconds);
    session.ResumeThreads();
    SendFinishAfterHotReload(session.link);
    return result ? Fence(session.link, milliseconds) : result;
}
} // namespace Torvane::Bridge
