#include "Agent/Transport/Windows/Sender.h"

#include "Agent/Protocol/BlobBuilder.h"
#include "Agent/Transport/Windows/LinkEnd.h"
#include "Shared/Foundation/Logger.h"
#include "Shared/Foundation/Windows/ResultOS.h"
#include "Shared/Memory/MemorySystem.h"

namespace Torvane
{
SenderState senderState;

namespace
{
enum SenderResult : uint32_t
{
    SenderStopped = 0,
    SenderNotConnected = 2,
    VersionNotSent = 3,
    ProjectPreferencesNotSent = 4,
    AgentNotSent = 5,
    ProcessNotSent = 6,
    QueuedBlobNotSent = 7,
};

Result<uint32_t> WriteExact(HANDLE pipe, const void* bytes, uint32_t size)
{
    uint32_t written = 0;
    while (written < size)
    {
        DWORD count = 0;
        if (!WriteFile(pipe, static_cast<const uint8_t*>(bytes) + written, size - written, &count, nullptr))
        {
            return MakeOSError("WriteFile() failed.");
        }
        written += count;
    }
    return Success(written);
}

bool SendBlob(const Allocation& blob)
{
    const BlobHeader* header = static_cast<const BlobHeader*>(blob.pointer);
    const Result<uint32_t> written =
        WriteExact(senderState.agentPipe, header, header->size + static_cast<uint32_t>(sizeof(BlobHeader)));
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
    Allocation version = builder.Finish();
    const bool sent = SendBlob(version);
    if (!sent)
    {
        LogError(TVN_HERE, "Failed to send Version blob");
    }
    Free(version);
    return sent;
}

uint32_t SendHandshake()
{
    if (!SendVersion())
    {
        return VersionNotSent;
    }
    if (!SendBlob(senderState.registration.projectPreferences))
    {
        LogError(TVN_HERE, "Failed to send RegisterProjectPreferences blob");
        return ProjectPreferencesNotSent;
    }
    if (!SendBlob(senderState.registration.agent))
    {
        LogError(TVN_HERE, "Failed to send RegisterAgent blob");
        return AgentNotSent;
    }
    if (!SendBlob(senderState.registration.process))
    {
        LogError(TVN_HERE, "Failed to send RegisterProcess blob");
        return ProcessNotSent;
    }
    return SenderStopped;
}

uint32_t DrainQueue()
{
    LogInfo(0, TVN_HERE, "Sender thread ready");
    for (;;)
    {
        Allocation blob = {};
        if (!senderState.queue->Pop(blob) || blob.pointer == nullptr)
        {
            LogDebug(TVN_HERE, "Exiting sender thread");
            return SenderStopped;
        }
        const bool sent = SendBlob(blob);
        Free(blob);
        if (!sent)
        {
            return QueuedBlobNotSent;
        }
    }
}

void FreeStaticBlob(Allocation& blob)
{
    Allocation block = blob;
    blob = Allocation{};
    if (block.pointer != nullptr)
    {
        Free(block);
    }
}
} // namespace

void PushBlob(Allocation& blob)
{
    senderState.queue->Push(blob);
}

void PushBlob(Allocation&& blob)
{
    PushBlob(blob);
}

uint32_t RunSender()
{
    LogDebug(TVN_HERE, "Running sender thread");
    if (!senderState.connected.Wait())
    {
        LogError(TVN_HERE, "Failed to wait for sender connection event");
        return SenderNotConnected;
    }
    uint32_t result = SendHandshake();
    if (result == SenderStopped)
    {
        result = DrainQueue();
    }
    FreeStaticBlob(senderState.registration.projectPreferences);
    FreeStaticBlob(senderState.registration.agent);
    FreeStaticBlob(senderState.registration.process);
    return result;
}
} // namespace Torvane
