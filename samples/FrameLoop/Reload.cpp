/// \file
/// The Bridge of the frame loop: one reload of a patch that was built before. Its fake compiler waits for a number of the
/// host's frames.

#include "bridge/Bridge.h"

#include "samples/Common/OwnFolder.h"
#include "samples/Common/Route.h"

#include <windows.h>

using namespace Torvane::Bridge;

namespace Torvane::Sample
{
namespace
{
constexpr uint32_t limit = 30000;        // milliseconds
constexpr uint32_t noLimit = 0xFFFFFFFF; // until the host ends
constexpr uint32_t pollInterval = 10;    // milliseconds
constexpr uint32_t framesToCompile = 30;
constexpr char changedFunction[] = "Advance";
constexpr char frameCounter[] = "frameNumber";

uint32_t ReadFrame(const HostProcess& host, RemoteAddress address)
{
    const std::vector<uint8_t> bytes = host.Read(address, sizeof(uint32_t));
    uint32_t frame = 0;
    if (bytes.size() == sizeof(frame))
    {
        memcpy(&frame, bytes.data(), sizeof(frame));
    }
    return frame;
}

/// \return the path of the patch; empty if there is none.
std::wstring Compile(Link& link, RemoteAddress frameAddress, PatchImage& patch)
{
    const HostProcess host(link.HostProcessId());
    const uint32_t first = ReadFrame(host, frameAddress);
    while (ReadFrame(host, frameAddress) - first < framesToCompile)
    {
        if (link.WaitUntilClosed(pollInterval))
        {
            return {};
        }
    }
    const std::wstring path = OwnFolder() + L"Motion.patch_1.dll";
    return patch.MakeEntryPointIdle() && patch.Save(path) ? path : std::wstring();
}

bool Reload(Link& link, const RegisterProcessBlob& process, const EnabledModule& module)
{
    const PatchImage executable(module.path);
    PatchImage patch(OwnFolder() + L"Motion.dll");
    if (!executable.Error().empty() || !patch.Error().empty())
    {
        return false;
    }
    SendRequestReload(link);
    if (!link.WaitFor<ReloadBlob>(limit)) // the host has polled, and continues with its frames
    {
        return false;
    }
    const EntryPointCode entryCode = patch.EntryCode();
    PatchCommand command;
    command.path = Compile(link, module.base + executable.FindExport(frameCounter), patch);
    SendLoadPatch(link, command);
    const auto loaded = link.WaitFor<PatchLoadedBlob>(limit); // the host has called TvnReload
    if (!loaded)
    {
        return false;
    }
    ThreadSuspender threads(link.HostProcessId(), AgentThreads(process));
    threads.Suspend();
    const bool success =
        RouteFunction(link, threads, module, module.base + executable.FindExport(changedFunction),
                      loaded->base + patch.FindExport(changedFunction)) &&
        SendCallEntryPoint(link, loaded->base, patch.EntryPoint(), entryCode, idleEntryPoint) &&
        FenceWhileSuspended(link, threads, limit);
    threads.Resume();
    return success;
}

int RunFrameLoop(uint32_t hostProcessId)
{
    Link link(hostProcessId);
    if (!link.Connect(limit) || !link.ExchangeVersion(limit))
    {
        return 1;
    }
    const auto process = link.WaitFor<RegisterProcessBlob>(limit);
    const auto enabled = link.WaitFor<EnableModulesBlob>(limit);
    if (!process || !enabled || ModulesOf(enabled).size() != 1)
    {
        return 1;
    }
    SendDecrementLatch(link, enabled->latch);
    while (const Message message = link.Receive(noLimit))
    {
        if (message.Type() == BlobType::ScheduleReload)
        {
            const bool success = Reload(link, *process, ModulesOf(enabled)[0]);
            SendFinishAfterHotReload(link); // the host waits for this, after a failure too
            if (!success)
            {
                return 1;
            }
        }
    }
    return 0;
}
} // namespace
} // namespace Torvane::Sample

int main()
{
    return Torvane::Sample::RunFrameLoop(HostProcessIdFromCommandLine());
}
