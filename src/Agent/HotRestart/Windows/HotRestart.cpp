#include "Agent/HotRestart/Windows/HotRestart.h"

#include "Agent/Protocol/BlobBuilder.h"
#include "Agent/Protocol/HostAddress.h"
#include "Agent/Transport/Windows/Sender.h"
#include "Shared/Concurrency/Windows/Event.h"
#include "Shared/Filesystem/Windows/Filesystem.h"
#include "Shared/Foundation/Logger.h"
#include "Shared/Process/Windows/ProcessMemory.h"
#include "Shared/Process/Windows/Thread.h"
#include "Torvane/Agent.h"

#include <stdlib.h>
#include <string.h>

namespace Torvane
{
namespace
{
Event hotRestart = {INVALID_HANDLE_VALUE};
uint32_t hotRestartAgentType = DefaultAgent;

struct RestartBlock
{
    const char* name;
    uint32_t unused; ///< a thread's block is at least 8 bytes
};
static_assert(sizeof(RestartBlock) == 8);

uint32_t RunRestart(RestartBlock&)
{
    TvnRestart(TvnRestartTerminateProcess, 0);
    return 0;
}

FixedWideString GetCurrentFolder()
{
    FixedWideString folder = {};
    constexpr DWORD capacity = sizeof(folder.text) / sizeof(folder.text[0]);
    const DWORD length = GetCurrentDirectoryW(capacity, folder.text);
    folder.length = length < capacity ? length : 0; // the OS returns the length that it would have needed
    return folder;
}

void Copy(InlineWideText& to, const FixedWideString& from)
{
    static_assert(sizeof(to) == sizeof(from));
    memcpy(&to, &from, sizeof(to));
}

OwnedBlob BuildRestart(HANDLE event)
{
    // Never freed: the process is about to end.
    const Allocation environment = ReadEnvironmentBlock(GetCurrentProcess()).Release();
    const FixedWideString folder = GetCurrentFolder();
    const wchar_t* commandLine = GetCommandLineW();

    RecordBuilder<RestartBlob> builder(MeasureText(commandLine) + environment.size);
    RestartBlob& fixed = builder.Fixed();
    fixed.event = ToSlot(event);
    fixed.processId = GetCurrentProcessId();
    Copy(fixed.executablePath, GetExecutablePath());
    Copy(fixed.currentDirectory, folder);
    builder.AppendText(fixed.commandLine, commandLine);
    fixed.environmentSize = environment.size;
    builder.Append(fixed.environment, environment.pointer, environment.size);
    return builder.Finish();
}

void EndProcess(TvnRestartBehaviour behaviour, int32_t exitCode)
{
    switch (behaviour)
    {
    case TvnRestartExitProcess:
        ExitProcess(static_cast<UINT>(exitCode));
    case TvnRestartExitWithCleanup:
        exit(exitCode);
    case TvnRestartExitWithoutCleanup:
        _exit(exitCode);
    case TvnRestartTerminateProcess:
        TerminateProcess(GetCurrentProcess(), static_cast<UINT>(exitCode));
        break;
    default:
        break;
    }
}
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

void RequestRestart()
{
    if (hotRestartAgentType == SynchronizedAgent)
    {
        hotRestart.Signal();
        return;
    }
    const HANDLE thread =
        StartThread<RestartBlock, RunRestart>(restartThread.stackSize, {restartThread.name, 0});
    if (thread != nullptr)
    {
        CloseHandle(thread);
    }
}

void AllowRestart(const ExitProcessForHotRestartBlob& blob)
{
    SetEvent(ToPointer(blob.event));
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

extern "C" void TVN_CALL TvnRestart(TvnRestartBehaviour behaviour, int32_t exitCode)
{
    LogDebug(TVN_HERE, "API TvnRestart");
    Event answer = {Expect(Event::Create("HotRestart"), "Cannot create event for restart")};
    PushBlob(BuildRestart(answer.handle));
    if (!answer.Wait())
    {
        LogError(TVN_HERE, "Could not wait for event during hot-restart");
    }
    answer.Destroy();
    EndProcess(behaviour, exitCode);
}
