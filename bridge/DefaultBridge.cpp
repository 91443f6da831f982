#include "bridge/DefaultBridge.h"

#include "bridge/Commands.h"
#include "bridge/Session.h"
#include "bridge/Watch.h"

#include <stdio.h>

namespace Torvane::Bridge
{
namespace
{
constexpr uint32_t connectLimit = 10000; // milliseconds

/// Nobody sees it unless the Bridge was started by hand: an Agent starts it without standard handles.
int Fail(const Failure& failure, int exitCode)
{
    fprintf(stderr, "TVN_Agent_Bridge_x64: %s\n", failure.reason.c_str());
    return exitCode;
}
} // namespace

int RunDefaultBridge(uint32_t hostProcessId)
{
    Link link(hostProcessId);
    if (Result<> connected = link.Connect(connectLimit); !connected)
    {
        return Fail(connected.Why(), 1);
    }
    if (Result<> exchanged = link.ExchangeVersion(connectLimit); !exchanged)
    {
        return Fail(exchanged.Why(), 2);
    }
    Session session(link);
    session.ServeModules();
    // A reload of a watched folder's patch isn't mixed with one that the host has scheduled.
    link.ServeInRun(BlobType::ScheduleReload, [&link](const Message&) { SendRequestReload(link); });
    link.ServeInRun(BlobType::Reload, [&link](const Message&) { SendFinishAfterHotReload(link); });
    link.Serve(BlobType::ScheduleRestart, [&link](const Message&) { SendRequestRestart(link); });
    link.Serve<RestartBlob>([&link](const Received<RestartBlob>& restart) {
        SendExitProcessForHotRestart(link, restart->event);
    });
    const std::wstring folder = FolderToWatch();
    if (folder.empty())
    {
        link.Run();
        return 0;
    }
    if (Result<> registered = session.ReceiveRegistration(connectLimit); !registered)
    {
        return Fail(registered.Why(), 1);
    }
    WatchFolder(session, folder);
    return 0;
}
} // namespace Torvane::Bridge
