#include "Agent/Transport/Windows/Receiver.h"

#include "Agent/Protocol/Names.h"
#include "Agent/Transport/Windows/BlobPipe.h"
#include "Agent/Transport/Windows/ConnectionState.h"
#include "Shared/Foundation/Logger.h"
#include "Shared/Memory/OwnedAllocation.h"
#include "Shared/Process/Windows/PipeClient.h"

#include <optional>
#include <string.h>

namespace Torvane::Receiver
{
namespace
{
/// What the thread ends with.
enum ReceiverResult : uint32_t
{
    BlobRefused = 0,
    HeaderNotRead = 8,
    PayloadNotRead = 9,
    FirstBlobNoVersion = 18,
    VersionDiffers = 19,
};

HANDLE bridgePipe = INVALID_HANDLE_VALUE;
LatchRegistry latches;

bool ReadHeader(BlobHeader& header)
{
    const Result<uint32_t> read = ReadExact(bridgePipe, &header, sizeof(header));
    if (read.error != nullptr && !IsOrdinaryEndOfLink(read.code))
    {
        LogError(TVN_HERE, "Failed to receive blob header from bridge");
    }
    return read.error == nullptr;
}

bool ReadPayload(const Allocation& payload)
{
    const Result<uint32_t> read = ReadExact(bridgePipe, payload.pointer, payload.size);
    if (read.error != nullptr && !IsOrdinaryEndOfLink(read.code))
    {
        LogError(TVN_HERE, "Failed to receive blob from bridge");
    }
    return read.error == nullptr;
}

/// \return what the thread is to end with, or nothing if the versions match.
std::optional<ReceiverResult> ReceiveVersion()
{
    BlobHeader header = {};
    if (!ReadHeader(header))
    {
        ReportConnectionStatus(ConnectionFailed);
        return HeaderNotRead;
    }
    const OwnedAllocation payload(Allocate(header.size));
    if (!ReadPayload(payload.Get()))
    {
        ReportConnectionStatus(ConnectionFailed);
        return PayloadNotRead;
    }
    if (header.type != BlobType::Version)
    {
        LogError(TVN_HERE, "Received unexpected Version blob type");
        ReportConnectionStatus(UnexpectedVersionBlob);
        return FirstBlobNoVersion;
    }
    const char* received = Follow<char>(static_cast<const VersionBlob*>(payload.Get().pointer)->version);
    if (strcmp(received, apiVersion) != 0)
    {
        LogError(TVN_HERE,
                 "Version mismatch detected: Broker running API version %hs, expected API version %hs",
                 received, apiVersion);
        ReportConnectionStatus(VersionMismatch);
        return VersionDiffers;
    }
    return std::nullopt;
}

ReceiverResult HandleBlobs(BlobHandler handle)
{
    for (;;)
    {
        BlobHeader header = {};
        if (!ReadHeader(header))
        {
            return HeaderNotRead;
        }
        const OwnedAllocation payload(Allocate(header.size));
        if (!ReadPayload(payload.Get()))
        {
            return PayloadNotRead;
        }
        if (!handle(header.type, payload.Get()))
        {
            return BlobRefused;
        }
    }
}

ReceiverResult ReceiveEverything(BlobHandler handle)
{
    const std::optional<ReceiverResult> failure = ReceiveVersion();
    if (failure)
    {
        return *failure;
    }
    ReportConnectionStatus(ConnectionSucceeded);
    const ReceiverResult result = HandleBlobs(handle);
    if (result == BlobRefused)
    {
        LogDebug(TVN_HERE, "Exiting receiver thread");
    }
    return result;
}
} // namespace

LatchRegistry& GetLatches()
{
    return latches;
}

bool CreatePipe(const FixedWideString& identifier)
{
    const Result<HANDLE> pipe = CreateBlobPipe(bridgePipePrefix, identifier);
    if (pipe.error != nullptr)
    {
        LogError(TVN_HERE, "Failed to create bridge pipe");
        return false;
    }
    bridgePipe = pipe.payload;
    return true;
}

void DisconnectPipe()
{
    FlushAndDisconnect(bridgePipe);
}

void ClosePipe()
{
    Torvane::ClosePipe(bridgePipe);
}

Result<bool> WaitForBridge(uint32_t milliseconds)
{
    return WaitForPipeClient(bridgePipe, milliseconds);
}

uint32_t Run(BlobHandler handle)
{
    LogDebug(TVN_HERE, "Running receiver thread");
    const ReceiverResult result = ReceiveEverything(handle);
    latches.ReleaseAll();
    return result;
}
} // namespace Torvane::Receiver
