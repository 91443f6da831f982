#include "Agent/Transport/Windows/Receiver.h"

#include "Agent/Communication/Windows/BlobHandlers.h"
#include "Agent/HostCalls/Windows/HostCalls.h"
#include "Agent/Protocol/Blob.h"
#include "Agent/Transport/Windows/LinkEnd.h"
#include "Shared/Foundation/Logger.h"
#include "Shared/Foundation/Windows/ResultOS.h"
#include "Shared/Memory/MemorySystem.h"

#include <string.h>

namespace Torvane
{
LatchRegistry latchRegistry;
HANDLE bridgePipe = INVALID_HANDLE_VALUE;

namespace
{
enum ReceiverResult : uint32_t
{
    ReceiverStopped = 0,
    HeaderNotRead = 8,
    PayloadNotRead = 9,
    FirstBlobNoVersion = 18,
    VersionDiffers = 19,
};

/// A read of less than a whole message fails with `ERROR_MORE_DATA`; that is how the header is read apart from
/// its payload.
Result<uint32_t> ReadExact(HANDLE pipe, void* buffer, uint32_t size)
{
    uint32_t read = 0;
    while (read < size)
    {
        DWORD count = 0;
        if (!ReadFile(pipe, static_cast<uint8_t*>(buffer) + read, size - read, &count, nullptr) &&
            GetLastError() != ERROR_MORE_DATA)
        {
            return MakeOSError("ReadFile() failed.");
        }
        read += count;
    }
    return Success(read);
}

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

uint32_t CheckVersion(BlobType type, const Allocation& payload)
{
    if (type != BlobType::Version)
    {
        LogError(TVN_HERE, "Received unexpected Version blob type");
        ReportConnectionStatus(UnexpectedVersionBlob);
        return FirstBlobNoVersion;
    }
    const char* received = Follow<char>(static_cast<const VersionBlob*>(payload.pointer)->version);
    if (strcmp(received, apiVersion) != 0)
    {
        LogError(TVN_HERE,
                 "Version mismatch detected: Broker running API version %hs, expected API version %hs",
                 received, apiVersion);
        ReportConnectionStatus(VersionMismatch);
        return VersionDiffers;
    }
    return ReceiverStopped;
}

uint32_t ReceiveVersion()
{
    BlobHeader header = {};
    if (!ReadHeader(header))
    {
        ReportConnectionStatus(ConnectionFailed);
        return HeaderNotRead;
    }
    Allocation payload = Allocate(header.size);
    if (!ReadPayload(payload))
    {
        ReportConnectionStatus(ConnectionFailed);
        Free(payload);
        return PayloadNotRead;
    }
    const uint32_t result = CheckVersion(header.type, payload);
    Free(payload);
    return result;
}

uint32_t ObeyBlobs()
{
    for (;;)
    {
        BlobHeader header = {};
        if (!ReadHeader(header))
        {
            return HeaderNotRead;
        }
        Allocation payload = Allocate(header.size);
        if (!ReadPayload(payload))
        {
            Free(payload);
            return PayloadNotRead;
        }
        const bool goOn = GetBlobHandler(header.type)(&payload);
        Free(payload);
        if (!goOn)
        {
            LogDebug(TVN_HERE, "Exiting receiver thread");
            return ReceiverStopped;
        }
    }
}
} // namespace

uint32_t RunReceiver()
{
    LogDebug(TVN_HERE, "Running receiver thread");
    uint32_t result = ReceiveVersion();
    if (result == ReceiverStopped)
    {
        ReportConnectionStatus(ConnectionSucceeded);
        result = ObeyBlobs();
    }
    latchRegistry.ReleaseAll();
    return result;
}
} // namespace Torvane
