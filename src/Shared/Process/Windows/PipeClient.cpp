#include "Shared/Process/Windows/PipeClient.h"

#include "Shared/Concurrency/Windows/Event.h"
#include "Shared/Foundation/Windows/ResultOS.h"
#include "Shared/Process/Windows/Thread.h"

namespace Torvane
{
namespace
{
struct ConnectBlock
{
    const char* name;
    DWORD waitingThreadId;
    HANDLE finished;
    uint32_t milliseconds;
};
static_assert(sizeof(ConnectBlock) == 16);

uint32_t CancelAfterTimeout(ConnectBlock& block)
{
    Event finished = {block.finished};
    if (finished.Wait(block.milliseconds))
    {
        return 0;
    }
    HANDLE thread = OpenThread(THREAD_ALL_ACCESS, FALSE, block.waitingThreadId);
    if (thread == nullptr)
    {
        LogLastError(TVN_HERE, "Failed to open thread %u", block.waitingThreadId);
        thread = INVALID_HANDLE_VALUE;
    }
    CancelSynchronousIo(thread);
    CloseHandle(thread);
    return 0;
}

Result<bool> Connect(HANDLE pipe, Event& finished)
{
    const BOOL connected = ConnectNamedPipe(pipe, nullptr);
    const DWORD error = GetLastError();
    finished.Signal();
    if (connected || error == ERROR_PIPE_CONNECTED)
    {
        return Success(true);
    }
    SetLastError(error);
    return MakeOSError("ConnectNamedPipe failed.");
}
} // namespace

Result<bool> WaitForPipeClient(HANDLE pipe, uint32_t milliseconds)
{
    Event finished = {
        Expect(Event::Create("ConnectNamedPipe finished"), "Cannot create event for connecting named pipe")};
    const ConnectBlock block = {connectThread.name, GetCurrentThreadId(), finished.handle, milliseconds};
    HANDLE watcher = StartThread<ConnectBlock, CancelAfterTimeout>(connectThread.stackSize, block);
    const Result<bool> result = Connect(pipe, finished);
    WaitForThread(watcher);
    finished.Destroy();
    return result;
}
} // namespace Torvane
