#include "Agent/Communication/Windows/CommunicationThreads.h"

#include "Agent/Communication/Windows/ReceiverInitialization.h"
#include "Agent/HotReload/Windows/Watchdog.h"
#include "Agent/Transport/Windows/Heartbeat.h"
#include "Agent/Transport/Windows/Sender.h"
#include "Shared/Process/Windows/Thread.h"

namespace Torvane
{
namespace
{
struct HeartbeatBlock
{
    const char* name;
    FixedWideString identifier;
};
static_assert(sizeof(HeartbeatBlock) == 2056);

struct WatchdogBlock
{
    const char* name;
    uint32_t word;
};
static_assert(sizeof(WatchdogBlock) == 8);

struct SenderBlock
{
    const char* name;
    uint32_t (*body)();
};
static_assert(sizeof(SenderBlock) == 8);

struct ReceiverBlock
{
    const char* name;
    FixedWideString identifier;
    uint32_t agentType;
};
static_assert(sizeof(ReceiverBlock) == 2060);

uint32_t HeartbeatBody(HeartbeatBlock& block)
{
    RunHeartbeat(block.identifier);
    return 0;
}

uint32_t WatchdogBody(WatchdogBlock&)
{
    return RunWatchdog();
}

uint32_t SenderBody(SenderBlock& block)
{
    return block.body();
}

uint32_t ReceiverBody(ReceiverBlock& block)
{
    return InitializeAndReceive(block.identifier, block.agentType);
}
} // namespace

HANDLE StartHeartbeatThread(const FixedWideString& identifier)
{
    const HeartbeatBlock block = {heartbeatThread.name, identifier};
    return StartThread<HeartbeatBlock, HeartbeatBody>(heartbeatThread.stackSize, block);
}

HANDLE StartWatchdogThread()
{
    const WatchdogBlock block = {watchdogThread.name, 0};
    return StartThread<WatchdogBlock, WatchdogBody>(watchdogThread.stackSize, block);
}

HANDLE StartSenderThread()
{
    const SenderBlock block = {senderThread.name, RunSender};
    return StartThread<SenderBlock, SenderBody>(senderThread.stackSize, block);
}

HANDLE StartReceiverThread(const FixedWideString& identifier, uint32_t agentType)
{
    const ReceiverBlock block = {receiverThread.name, identifier, agentType};
    return StartThread<ReceiverBlock, ReceiverBody>(receiverThread.stackSize, block);
}
} // namespace Torvane
