#include "bridge/DefaultBridge.h"

#include "bridge/Commands.h"

namespace Torvane::Bridge
{
namespace
{
constexpr uint32_t connectLimit = 10000; // milliseconds
constexpr uint32_t noLimit = 0xFFFFFFFF;

void Acknowledge(Link& link, const Message& message)
{
    if (const auto* modules = message.As<EnableModulesBlob>())
    {
        SendDecrementLatch(link, modules->latch, modules->modules.count);
    }
}

void GrantRestart(Link& link, const Message& message)
{
    if (const auto* restart = message.As<RestartBlob>())
    {
        SendExitProcessForHotRestart(link, restart->event);
    }
}

void Execute(Link& link, const Message& message)
{
    switch (message.Type())
    {
    case BlobType::EnableModules:
        Acknowledge(link, message);
        break;
    case BlobType::ScheduleReload:
        SendRequestReload(link);
        break;
    case BlobType::Reload:
        SendFinishAfterHotReload(link);
        break;
    case BlobType::ScheduleRestart:
        SendRequestRestart(link);
        break;
    case BlobType::Restart:
        GrantRestart(link, message);
        break;
    default:
        break;
    }
}
} // namespace

int RunDefaultBridge(uint32_t hostProcessId)
{
    Link link(hostProcessId);
    if (!link.Connect(connectLimit))
    {
        return 1;
    }
    if (!link.ExchangeVersion(connectLimit))
    {
        return 2;
    }
    while (const Message message = link.Receive(noLimit))
    {
        Execute(link, message);
    }
    return 0;
}
} // namespace Torvane::Bridge
