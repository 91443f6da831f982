#include "bridge/SuspendedWaits.h"

#include "bridge/Commands.h"

#include <algorithm>

#include <windows.h>

namespace Torvane::Bridge
{
namespace
{
/// Milliseconds without a Blob after which the threads are resumed: longer than the watchdog's 500, so that it acts first.
constexpr uint32_t quietTime = 1000;
constexpr uint32_t runTime = 20; // milliseconds
constexpr uint64_t token = 0x48454C4450415453;

void RunBriefly(ThreadSuspender& threads)
{
    if (threads.Count() == 0)
    {
        return; // they run already, on the watchdog's request
    }
    threads.Resume();
    Sleep(runTime);
    threads.Suspend();
}
} // namespace

Message ReceiveWhileSuspended(Link& link, ThreadSuspender& threads, std::vector<BlobType> types,
                              uint32_t milliseconds)
{
    // In one call, so that they are executed in the order in which they were sent.
    types.push_back(BlobType::ResumeHeldThreads);
    types.push_back(BlobType::SuspendHeldThreads);
    const double end = link.Now() + milliseconds / 1000.0;
    while (link.Now() < end)
    {
        Message message = link.WaitForOneOf(types, std::min(quietTime, milliseconds));
        if (!message)
        {
            RunBriefly(threads);
        }
        else if (message.Type() == BlobType::ResumeHeldThreads)
        {
            threads.ResumeForLoad();
        }
        else if (message.Type() == BlobType::SuspendHeldThreads)
        {
            threads.SuspendAfterLoad();
        }
        else
        {
            return message;
        }
    }
    return {};
}

bool FenceWhileSuspended(Link& link, ThreadSuspender& threads, uint32_t milliseconds)
{
    if (!SendEchoRequest(link, token))
    {
        return false;
    }
    const double end = link.Now() + milliseconds / 1000.0;
    while (link.Now() < end)
    {
        const Received<EchoReplyBlob> reply(
            ReceiveWhileSuspended(link, threads, {BlobType::EchoReply}, milliseconds));
        if (reply && reply->token == token)
        {
            return true;
        }
    }
    return false;
}
} // namespace Torvane::Bridge
