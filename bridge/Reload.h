#pragma once

/// \file
/// Loads patches and runs reloads; for the thread that waits on the session's link. Limits are in milliseconds and hold for
/// each wait.
///
/// The two kinds of agents need their steps in different orders, which these functions keep:
///
/// - default agent: `RequestReload`, `Reload`, suspend the threads, `LoadPatchWindows`, `PatchLoaded`, the changes, resume;
/// - synchronized agent: `RequestReload`, `Reload`, `LoadPatchWindows`, `PatchLoaded`, suspend the threads, the changes,
///   resume. A thread of the host lets the patch in: suspended before that, it never does.

#include "bridge/Commands.h"
#include "bridge/PatchImage.h"
#include "bridge/Session.h"

#include <functional>
#include <string>

namespace Torvane::Bridge
{
/// Sends `RequestReload` and waits for the host's consent. A default agent gives it at once, a synchronized one when its
/// host polls, which is refused while its threads are suspended.
Result<> RequestReload(Session& session, uint32_t milliseconds);

/// Has a patch loaded as it is in its file. Returns as soon as the Agent has loaded it, or has reported that it can't.
///
/// The flag `watchdog` is set as the state of the threads requires. Threads that were suspended are again on return.
/// Refused for the first patch of a synchronized host's reload while its threads are suspended.
Result<Received<PatchLoadedBlob>> LoadPatch(Session& session, const PatchCommand& command,
                                            uint32_t milliseconds);

/// A patch in the host. Its entry point hasn't run, unless it couldn't be made idle.
struct LoadedPatch
{
    PatchImage image; ///< with an idle entry point, as in the file
    EntryPointCode entryCode;
    bool isEntryPointIdle; ///< whether `SendCallEntryPoint` is to call it
    Received<PatchLoadedBlob> reply;

    RemoteAddress Base() const
    {
        return reply->base;
    }

    /// Where an export is in the host; 0 if there is none of that name.
    RemoteAddress FindExport(const std::string& name) const
    {
        const uint32_t offset = image.FindExport(name);
        return offset == 0 ? 0 : Base() + offset;
    }
};

/// What happens to a patch whose entry point can't be made idle, since the loader relocates its first bytes.
enum class RelocatedEntryPoint
{
    IsRefused,
    RunsInLoader, ///< as that of any other library, with the threads suspended or not
};

/// Makes the entry point idle in the file (see `PatchImage.h`) and has it loaded.
Result<LoadedPatch> LoadPatch(Session& session, const std::wstring& path, uint32_t milliseconds,
                              RelocatedEntryPoint relocated = RelocatedEntryPoint::IsRefused);

/// Sends `CallEntryPoint` for a patch whose entry point is idle. \return what `Link::Send` returns.
bool SendCallEntryPoint(Session& session, const LoadedPatch& patch);

/// What happens in a reload.
struct ReloadSteps
{
    /// The host has agreed: builds the patch, or waits until it is built. \return the path of its file.
    std::function<Result<std::wstring>()> build;

    /// The patch is loaded and the host's threads are suspended: routes functions, calls entry point and hooks.
    std::function<Result<>(const LoadedPatch& patch)> install;

    RelocatedEntryPoint relocatedEntryPoint = RelocatedEntryPoint::IsRefused;
};

/// Runs a whole reload in the order that the host's agent requires. Once the host has agreed, and however the reload ends,
/// its threads are resumed and `FinishAfterHotReload` is sent, which a synchronized host can be waiting for.
/// \return the reason of the first step that has failed.
Result<> RunReload(Session& session, const ReloadSteps& steps, uint32_t milliseconds);
} // namespace Torvane::Bridge
