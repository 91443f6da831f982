/// \file
/// A complete Bridge: it reloads a function when the host requests that, lets the host continue after a crash, and restarts
/// it.
///
/// In place of a compiler and of somebody who decides, there is a patch that was built before, and one rule for exceptions.

#include "bridge/Bridge.h"

#include "samples/Common/OwnFolder.h"
#include "samples/Complete/Log.h"

using namespace Torvane;
using namespace Torvane::Bridge;
using Torvane::Sample::OwnFolder;

namespace
{
constexpr uint32_t limit = 30000; // milliseconds, of each wait
constexpr char changedFunction[] = "Value";

// [reload]
/// In place of a compiler. `LoadPatch` changes the file.
Result<std::wstring> BuildPatch()
{
    const std::wstring patch = OwnFolder() + L"ValueEdited.patch_1.dll";
    return CopyFileW((OwnFolder() + L"ValueEdited.dll").c_str(), patch.c_str(), FALSE)
               ? Result<std::wstring>(patch)
               : OSFailure("ValueEdited.dll can't be copied");
}

/// Called while the patch is loaded and the host's threads are suspended.
Result<> InstallPatch(Session& session, const LoadedPatch& patch)
{
    const EnabledModule* module = session.FindExecutable();
    if (module == nullptr)
    {
        return Failure{"the host hasn't enabled its executable"};
    }
    const PatchImage executable(module->path);
    if (!executable.Error().empty())
    {
        return Failure{executable.Error()};
    }
    const Result<RoutedFunction> routed =
        Route(session, module->base + executable.FindExport(changedFunction),
              patch.FindExport(changedFunction), limit);
    if (!routed)
    {
        return routed.Why();
    }
    return SendCallEntryPoint(session, patch) ? Result<>() : ClosedPipe();
}

void Reload(Session& session)
{
    Log("bridge  the host requests a reload");
    const auto install = [&session](const LoadedPatch& patch) {
        return InstallPatch(session, patch);
    };
    const Result<> reloaded = RunReload(session, {&BuildPatch, install}, limit);
    if (!reloaded)
    {
        Log("!! not reloaded: %s", reloaded.Reason().c_str());
    }
}
// [end]

// [exceptions]
ExceptionDecision Decide(const ReportedException& exception)
{
    constexpr uint32_t accessViolation = 0xC0000005;
    const bool isAccess = exception.code == accessViolation;
    Log("bridge  exception %s at %s: %s", AddressText(exception.code).c_str(),
        AddressText(exception.address).c_str(), isAccess ? "the instruction is skipped" : "left to others");
    return {isAccess ? ActionSkipInstruction : ActionContinueSearch};
}
// [end]

// [restart]
void Restart(Session& session)
{
    Log("bridge  the host requests a restart");
    const auto restart = RequestRestart(session, limit);
    if (!restart)
    {
        Log("!! %s", restart.Reason().c_str());
        return;
    }
    const Result<uint32_t> processId = CompleteRestart(session, *restart, limit);
    if (processId)
    {
        Log("bridge  process %u is started", *processId);
    }
    else
    {
        Log("!! %s", processId.Reason().c_str());
    }
}
// [end]
} // namespace

// [the whole]
int main()
{
    Link link(HostProcessIdFromCommandLine());
    Session session(link);
    session.ServeModules();
    Result<> ready = session.Connect(limit);
    if (ready)
    {
        ready = ServeExceptions(session, HandlerPlace::First, &Decide, limit);
    }
    if (!ready)
    {
        const bool hasEnded = link.WaitUntilClosed(0); // a restarted host ends soon: it needs nothing
        if (!hasEnded)
        {
            Log("!! %s", ready.Reason().c_str());
        }
        return hasEnded ? 0 : 1;
    }
    link.ServeInRun(BlobType::ScheduleReload, [&](const Message&) { Reload(session); });
    link.ServeInRun(BlobType::ScheduleRestart, [&](const Message&) { Restart(session); });
    link.Run();
    return 0;
}
// [end]
