#include "Agent/Transport/Windows/Sender.h"

#include "Agent/Protocol/Names.h"
#include "Agent/Transport/Windows/BlobPipe.h"
#include "Shared/Concurrency/Windows/Event.h"
#include "Shared/Container/FixedSizeQueue.h"
#include "Shared/Foundation/Logger.h"
#include "Shared/Process/Windows/PipeClient.h"
#include "Shared/Process/Windows/Thread.h"

#include <utility>

namespace Torvane
{
namespace
{
/// What the thread ends with.
enum SenderResult : uint32_t
{
    QueueEnded = 0, ///< by the stop mark, or by a failure of the queue
    NotConnected = 2,
    VersionNotSent = 3,
    ProjectPreferencesNotSent = 4,
    AgentNotSent = 5,
    ProcessNotSent = 6,
    QueuedBlobNotSent = 7,
};

/// An `Allocation` with a null pointer is the mark that ends the sender thread.
using BlobQueue = FixedSizeQueue<Allocation, 4096>;

BlobQueue* queue = nullptr;
HANDLE agentPipe = INVALID_HANDLE_VALUE;
HANDLE thread = INVALID_HANDLE_VALUE;

/// Its signal hands the registration Blobs over to the sender thread, which frees them at its end.
Event connected = {INVALID_HANDLE_VALUE};
Allocation projectPreferencesBlob = {};
Allocation agentBlob = {};
Allocation processBlob = {};

bool SendBlob(const Allocation& blob)
{
    const BlobHeader* header = static_cast<const BlobHeader*>(blob.pointer);
    const Result<uint32_t> written =
        WriteExact(agentPipe, header, header->size + static_cast<uint32_t>(sizeof(BlobHeader)));
    if (written.error == nullptr)
    {
        return true;
    }
    if (!IsOrdinaryEndOfLink(written.code))
    {
        LogError(TVN_HERE, "Failed to send blob to bridge");
    }
    return false;
}

bool SendVersion()
{
    RecordBuilder<VersionBlob> builder(sizeof(apiVersion));
    builder.AppendText(builder.Fixed().version, apiVersion);
    const OwnedBlob version = builder.Finish();
    const bool sent = SendBlob(version.Get());
    if (!sent)
    {
        LogError(TVN_HERE, "Failed to send Version blob");
    }
    return sent;
}

SenderResult DrainQueue()
{
    LogInfo(0, TVN_HERE, "Sender thread ready");
    for (;;)
    {
        Allocation popped = {};
        if (!queue->Pop(popped) || popped.pointer == nullptr)
        {
            LogDebug(TVN_HERE, "Exiting sender thread");
            return QueueEnded;
        }
        const OwnedBlob blob(popped);
        if (!SendBlob(blob.Get()))
        {
            return QueuedBlobNotSent;
        }
    }
}

SenderResult SendEverything()
{
    if (!SendVersion())
    {
        return VersionNotSent;
    }
    if (!SendBlob(projectPreferencesBlob))
    {
        LogError(TVN_HERE, "Failed to send RegisterProjectPreferences blob");
        return ProjectPreferencesNotSent;
    }
    if (!SendBlob(agentBlob))
    {
        LogError(TVN_HERE, "Failed to send RegisterAgent blob");
        return AgentNotSent;
    }
    if (!SendBlob(processBlob))
    {
        LogError(TVN_HERE, "Failed to send RegisterProcess blob");
        return ProcessNotSent;
    }
    return DrainQueue();
}

void FreeRegistrationBlob(Allocation& blob)
{
    const OwnedBlob freed(blob);
    blob = {};
}

uint32_t RunSender()
{
    LogDebug(TVN_HERE, "Running sender thread");
    if (!connected.Wait())
    {
        LogError(TVN_HERE, "Failed to wait for sender connection event");
        return NotConnected;
    }
    const SenderResult result = SendEverything();
    FreeRegistrationBlob(projectPreferencesBlob);
    FreeRegistrationBlob(agentBlob);
    FreeRegistrationBlob(processBlob);
    return result;
}

struct SenderBlock
{
    const char* name;
    uint32_t (*body)();
};
static_assert(sizeof(SenderBlock) == 8);

uint32_t RunBody(SenderBlock& block)
{
    return block.body();
}
} // namespace

void PushBlob(OwnedBlob blob)
{
    Allocation block = blob.Release();
    queue->Push(block);
    const OwnedBlob refused(block);
}

namespace Sender
{
void CreateQueue()
{
    queue = BlobQueue::Create();
}

void DestroyQueue()
{
    BlobQueue::Destroy(queue);
}

bool CreatePipe(const FixedWideString& identifier)
{
    const Result<HANDLE> pipe = CreateBlobPipe(agentPipePrefix, identifier);
    if (pipe.error != nullptr)
    {
        LogError(TVN_HERE, "Failed to create agent pipe");
        return false;
    }
    agentPipe = pipe.payload;
    return true;
}

void DisconnectPipe()
{
    FlushAndDisconnect(agentPipe);
}

void ClosePipe()
{
    Torvane::ClosePipe(agentPipe);
}

void CreateConnectedEvent()
{
    connected.handle = Expect(Event::Create("Sender connected"), "Cannot create event for connected sender");
}

void StartThread()
{
    thread =
        Torvane::StartThread<SenderBlock, RunBody>(senderThread.stackSize, {senderThread.name, RunSender});
}

void CancelThreadIO()
{
    CancelSynchronousIo(thread);
}

void EndThread()
{
    connected.Signal();
    PushBlob({});
    WaitForThread(thread);
    connected.Destroy();
}

uint32_t GetThreadId()
{
    return ::GetThreadId(thread);
}

Result<bool> WaitForBridge(uint32_t milliseconds)
{
    return WaitForPipeClient(agentPipe, milliseconds);
}

void SetProjectPreferences(OwnedBlob blob)
{
    projectPreferencesBlob = blob.Release();
}

const BlobHeader& GetProjectPreferences()
{
    return *static_cast<const BlobHeader*>(projectPreferencesBlob.pointer);
}

void SetAgent(OwnedBlob blob)
{
    agentBlob = blob.Release();
}

void Connect(OwnedBlob process)
{
    processBlob = process.Release();
    connected.Signal();
}
} // namespace Sender
} // namespace Torvane
