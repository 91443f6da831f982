#include "Agent/HotRestart/Windows/HotRestart.h"

#include "Agent/Communication/BlobBuilder.h"
#include "Agent/Communication/Windows/Sender.h"
#include "Shared/Concurrency/Windows/Event.h"
#include "Shared/Foundation/Logger.h"
#include "Torvane/Agent.h"

#include <windows.h>

namespace Torvane
{
namespace
{
Event hotRestart = {INVALID_HANDLE_VALUE};
uint32_t hotRestartAgentType = 0;
} // namespace

void StartupHotRestart(uint32_t agentType)
{
    LogDebug(TVN_HERE, "Initializing hot-restart system");
    hotRestart.handle = Expect(Event::Create("HotRestart"), "Cannot create event");
    hotRestartAgentType = agentType;
}

void ShutdownHotRestart()
{
    LogDebug(TVN_HERE, "Shutting down hot-restart system");
    hotRestart.Destroy();
}
} // namespace Torvane

using namespace Torvane;

extern "C" void TVN_CALL TvnScheduleRestart(TvnRestartScope scope)
{
    LogDebug(TVN_HERE, "API TvnScheduleRestart");
    RecordBuilder<ScheduleRestartBlob> builder;
    builder.Fixed().processId = scope == ThisProcessOnly ? GetCurrentProcessId() : 0;
    PushBlob(builder.Finish());
}

extern "C" bool TVN_CALL TvnWantsRestart(void)
{
    if (!hotRestart.TryWait())
    {
        return false;
    }
    hotRestart.Reset();
    return true;
}

extern "C" void TVN_CALL TvnRestart(TvnRestartBehaviour, int32_t)
{
    LogDebug(TVN_HERE, "API TvnRestart");
}
