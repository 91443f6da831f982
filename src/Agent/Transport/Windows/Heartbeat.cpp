#include "Agent/Transport/Windows/Heartbeat.h"

#include "Shared/Concurrency/Windows/InterprocessMutex.h"
#include "Shared/Filesystem/Windows/NamedSharedMemory.h"
#include "Shared/Foundation/Logger.h"

#include <string.h>
#include <windows.h>

namespace Torvane
{
Event heartbeatExit = {INVALID_HANDLE_VALUE};

namespace
{
constexpr uint32_t heartbeatMemorySize = 4096;
constexpr DWORD beatMilliseconds = 10;

void Beat(const NamedSharedMemory& memory, InterprocessMutex& mutex)
{
    FILETIME time = {};
    GetSystemTimeAsFileTime(&time);
    const ScopedInterprocessLock lock(mutex);
    memcpy(memory.view, &time, sizeof(time));
}
} // namespace

void RunHeartbeat(const FixedWideString& identifier)
{
    LogDebug(TVN_HERE, "Running heart beat thread");
    FixedWideString name = {};
    name.Assign(L"TVN_Memory_");
    name.Append(identifier.text);
    NamedSharedMemory memory =
        Expect(CreateNamedSharedMemory(name.text, heartbeatMemorySize),
               "Cannot create heart beat named shared memory for process %ls", identifier.text);
    name.Assign(L"TVN_Mutex_");
    name.Append(identifier.text);
    InterprocessMutex mutex = {Expect(InterprocessMutex::Create(name.text),
                                      "Cannot create heart beat mutex for process %ls", identifier.text)};
    while (!heartbeatExit.Wait(0))
    {
        Beat(memory, mutex);
        Sleep(beatMilliseconds);
    }
    LogDebug(TVN_HERE, "Exiting heart beat thread");
    mutex.Destroy();
    CloseNamedSharedMemory(memory);
}
} // namespace Torvane
