/// \file
/// The Bridge of the frame loop: one reload of a patch that was built before. Its fake compiler waits for a number of the
/// host's frames.

#include "bridge/Bridge.h"

#include "samples/Common/OwnFolder.h"

#include <stdio.h>

#include <windows.h>

using namespace Torvane::Bridge;

namespace Torvane::Sample
{
namespace
{
constexpr uint32_t limit = 30000;     // milliseconds
constexpr uint32_t pollInterval = 10; // milliseconds
constexpr uint32_t framesToCompile = 30;
constexpr char changedFunction[] = "Advance";
constexpr char frameCounter[] = "frameNumber";
constexpr char failureText[] = "reloadFailure";
constexpr size_t failureSize = 256;

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

/// Takes as long as the host needs for some frames.
Result<std::wstring> Compile(const Session& session, RemoteAddress frameAddress)
{
    const uint32_t first = ReadFrame(session.host, frameAddress);
    while (ReadFrame(session.host, frameAddress) - first < framesToCompile)
    {
        if (session.link.WaitUntilClosed(pollInterval))
        {
            return Failure{"the host has ended"};
        }
    }
    const std::wstring patch = OwnFolder() + L"Motion.patch_1.dll"; // `LoadPatch` changes the file
    return CopyFileW((OwnFolder() + L"Motion.dll").c_str(), patch.c_str(), FALSE)
               ? Result<std::wstring>(patch)
               : OSFailure("Motion.dll can't be copied");
}

Result<> Reload(Session& session)
{
    if (session.Modules().size() != 1)
    {
        return Failure{"the host hasn't enabled its executable alone"};
    }
    const EnabledModule& module = session.Modules()[0];
    const PatchImage executable(module.path);
    if (!executable.Error().empty())
    {
        return Failure{executable.Error()};
    }
    // The host polls and agrees, continues with its frames, and calls TvnReload when the patch is ready.
    const auto compile = [&] {
        return Compile(session, module.base + executable.FindExport(frameCounter));
    };
    const auto install = [&](const LoadedPatch& patch) -> Result<> {
        const Result<RoutedFunction> routed =
            Route(session, module.base + executable.FindExport(changedFunction),
                  patch.FindExport(changedFunction), limit);
        if (!routed)
        {
            return routed.Why();
        }
        return SendCallEntryPoint(session, patch) ? Result<>() : ClosedPipe();
    };
    return RunReload(session, {compile, install}, limit);
}

/// The host shows why there was no reload, and ends.
void ReportFailure(Session& session, const std::string& reason)
{
    const PatchImage executable(session.host.ExecutablePath());
    const RemoteAddress text = session.Modules().empty() || !executable.Error().empty()
                                   ? 0
                                   : session.Modules()[0].base + executable.FindExport(failureText);
    if (text != 0)
    {
        std::vector<uint8_t> bytes(reason.begin(), reason.end());
        bytes.resize(failureSize - 1);
        SendWriteMemory(session.link, {text + 1}, {bytes.begin() + 1, bytes.end()});
        SendWriteMemory(session.link, {text}, {bytes[0]});
    }
}

int RunFrameLoop(uint32_t hostProcessId)
{
    Link link(hostProcessId);
    Session session(link);
    session.ServeModules();
    Result<> result = session.Connect(limit);
    if (result)
    {
        const auto reload = [&](const Message&) {
            result = Reload(session);
            if (!result)
            {
                ReportFailure(session, result.Reason());
            }
        };
        link.ServeInRun(BlobType::ScheduleReload, reload);
        link.Run();
    }
    if (!result)
    {
        fprintf(stderr, "FrameLoop's Bridge: %s\n", result.Reason().c_str());
    }
    return result ? 0 : 1;
}
} // namespace
} // namespace Torvane::Sample

int main()
{
    return Torvane::Sample::RunFrameLoop(HostProcessIdFromCommandLine());
}
