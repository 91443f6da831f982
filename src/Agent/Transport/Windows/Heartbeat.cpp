#include "Agent/Transport/Windows/Heartbeat.h"

#include "Agent/Protocol/Names.h"
#include "Shared/Concurrency/Windows/Event.h"
#include "Shared/Concurrency/Windows/InterprocessMutex.h"
#include "Shared/Filesystem/Windows/NamedSharedMemory.h"
#include "Shared/Foundation/Logger.h"
#include "Shared/Process/Windows/Thread.h"

#include <string.h>
#include <windows.h>

namespace Torvane::Heartbeat
{
namespace
{
constexpr DWORD beatMilliseconds = 10;

Event exitEvent = {INVALID_HANDLE_VALUE};
HANDLE thread = INVALID_HANDLE_VALUE;

void Beat(const NamedSharedMemory& memory, InterprocessMutex& mutex)
{
    FILETIME time = {};
    GetSystemTimeAsFileTime(&time);
    const ScopedInterprocessLock lock(mutex);
    memcpy(memory.view, &time, sizeof(time));
}

void Run(const FixedWideString& identifier)
{
    LogDebug(TVN_HERE, "Running heart beat thread");
    FixedWideString name = {};
    name.Assign(heartbeatSectionPrefix);
    name.Append(identifier.text);
    NamedSharedMemory memory =
        ExpectOr({}, CreateNamedSharedMemory(name.text, heartbeatSectionSize),
                 "Cannot create heart beat named shared memory for process %ls", identifier.text);
    name.Assign(heartbeatMutexPrefix);
    name.Append(identifier.text);
    InterprocessMutex mutex = {ExpectOr(INVALID_HANDLE_VALUE, InterprocessMutex::Create(name.text),
                                        "Cannot create heart beat mutex for process %ls", identifier.text)};
    const bool usable = memory.view != nullptr && mutex.Exists();
    while (usable && !exitEvent.Wait(0))
    {
        Beat(memory, mutex);
        Sleep(beatMilliseconds);
    }
    LogDebug(TVN_HERE, "Exiting heart beat thread");
    mutex.Destroy();
    CloseNamedSharedMemory(memory);
}

struct HeartbeatBlock
{
    const char* name;
    FixedWideString identifier;
};
static_assert(sizeof(HeartbeatBlock) == 2056);

uint32_t RunBody(HeartbeatBlock& block)
{
    Run(block.identifier);
    return 0;
}
} // namespace

void CreateExitEvent()
{
    exitEvent.handle =
        Expect(Event::Create("Heartbeat thread exit"), "Cannot create event for heart beat exit");
}

void StartThread(const FixedWideString& identifier)
{
    thread = Torvane::StartThread<HeartbeatBlock, RunBody>(heartbeatThread.stackSize,
                                                           {heartbeatThread.name, identifier});
}

void EndThread()
{
    exitEvent.Signal();
    WaitForThread(thread);
    exitEvent.Destroy();
}

uint32_t GetThreadId()
{
    return ::GetThreadId(thread);
}
} // namespace Torvane::Heartbeat
