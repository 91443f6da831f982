#include "Agent/Communication/Windows/BlobHandlers.h"

#include "Agent/Exception/Windows/ExceptionHandler.h"
#include "Agent/HotReload/Windows/EntryPoint.h"
#include "Agent/HotReload/Windows/Hooks.h"
#include "Agent/HotReload/Windows/HotReload.h"
#include "Agent/HotReload/Windows/PatchLoading.h"
#include "Agent/HotRestart/Windows/HotRestart.h"
#include "Agent/Protocol/BlobBuilder.h"
#include "Agent/Transport/Windows/Receiver.h"
#include "Agent/Transport/Windows/Sender.h"
#include "Shared/Foundation/Logger.h"

#include <string.h>
#include <utility>
#include <windows.h>

namespace Torvane
{
namespace
{
template<typename Record>
const Record& Read(const Allocation* payload)
{
    return *static_cast<const Record*>(payload->pointer);
}

template<typename Pointer = void*>
Pointer ToPointer(AddressSlot address)
{
    return reinterpret_cast<Pointer>(static_cast<uintptr_t>(address));
}

bool OnLogNarrow(Allocation* payload)
{
    LogDebug(TVN_HERE, "Processing Blob::LogNarrow");
    OutputDebugStringA(Follow<char>(Read<LogBlob>(payload).text));
    return true;
}

bool OnLogWide(Allocation* payload)
{
    LogDebug(TVN_HERE, "Processing Blob::LogWide");
    OutputDebugStringW(Follow<wchar_t>(Read<LogBlob>(payload).text));
    return true;
}

bool OnLoadPatchWindows(Allocation* payload)
{
    LogDebug(TVN_HERE, "Processing Blob::LoadPatchWindows");
    LoadPatch(Read<LoadPatchWindowsBlob>(payload));
    return true;
}

bool OnUnloadPatch(Allocation* payload)
{
    LogDebug(TVN_HERE, "Processing Blob::UnloadPatch");
    FreeLibrary(ToPointer<HMODULE>(Read<UnloadPatchBlob>(payload).base));
    return true;
}

bool OnCallHooks(Allocation* payload)
{
    LogDebug(TVN_HERE, "Processing Blob::CallHooks");
    CallHooks(Read<CallHooksBlob>(payload));
    return true;
}

bool OnReadMemory(Allocation* payload)
{
    LogDebug(TVN_HERE, "Processing Blob::ReadMemory");
    const ReadMemoryBlob& request = Read<ReadMemoryBlob>(payload);
    const uint64_t totalSize = request.elementSize * request.elementCount;
    RecordBuilder<ReadMemoryResultBlob> builder(static_cast<uint32_t>(totalSize));
    ReadMemoryResultBlob& reply = builder.Fixed();
    reply.totalSize = totalSize;
    reply.token = request.token;
    uint8_t* position =
        static_cast<uint8_t*>(builder.Append(reply.data, nullptr, static_cast<uint32_t>(totalSize)));
    const AddressSlot* addresses = Follow<AddressSlot>(request.addresses);
    const uint32_t elementSize = static_cast<uint32_t>(request.elementSize);
    for (uint64_t i = 0; i < request.elementCount; ++i)
    {
        if (ToPointer(addresses[i]) != nullptr)
        {
            memcpy(position, ToPointer(addresses[i]), elementSize);
        }
        position += elementSize;
    }
    PushBlob(builder.Finish());
    return true;
}

bool OnWriteMemory(Allocation* payload)
{
    LogDebug(TVN_HERE, "Processing Blob::WriteMemory");
    const WriteMemoryBlob& order = Read<WriteMemoryBlob>(payload);
    const AddressSlot* addresses = Follow<AddressSlot>(order.addresses);
    const uint8_t* position = Follow<uint8_t>(order.data);
    const uint32_t elementSize = static_cast<uint32_t>(order.elementSize);
    for (uint64_t i = 0; i < order.elementCount; ++i)
    {
        memcpy(ToPointer(addresses[i]), position, elementSize);
        position += elementSize;
    }
    return true;
}

bool OnCopyMemory(Allocation* payload)
{
    LogDebug(TVN_HERE, "Processing Blob::CopyMemory");
    const CopyMemoryBlob& order = Read<CopyMemoryBlob>(payload);
    const AddressSlot* sources = Follow<AddressSlot>(order.sources);
    const AddressSlot* destinations = Follow<AddressSlot>(order.destinations);
    for (uint64_t i = 0; i < order.elementCount; ++i)
    {
        memcpy(ToPointer(destinations[i]), ToPointer(sources[i]), order.elementSize);
    }
    return true;
}

bool OnSetPageProtectionWindows(Allocation* payload)
{
    LogDebug(TVN_HERE, "Processing Blob::SetPageProtectionWindows");
    const RelativeArray& ranges = Read<SetPageProtectionWindowsBlob>(payload).ranges;
    for (uint32_t i = 0; i < ranges.count; ++i)
    {
        const WirePageRange& range = Follow<WirePageRange>(ranges)[i];
        if (range.protection == 0)
        {
            continue;
        }
        DWORD oldProtection = 0;
        const uint32_t size = static_cast<uint32_t>(range.size);
        if (!VirtualProtect(ToPointer(range.base), size, range.protection, &oldProtection))
        {
            LogDebug(TVN_HERE, "VirtualProtect() failed: address 0x%p, size 0x%X, protection 0x%X",
                     ToPointer(range.base), size, range.protection);
        }
    }
    return true;
}

bool OnCallEntryPoint(Allocation* payload)
{
    LogDebug(TVN_HERE, "Processing Blob::CallEntryPoint");
    CallEntryPoint(Read<CallEntryPointBlob>(payload));
    return true;
}

bool OnFlushInstructionCache(Allocation*)
{
    LogDebug(TVN_HERE, "Processing Blob::FlushInstructionCache");
    FlushInstructionCache(GetCurrentProcess(), nullptr, 0);
    return true;
}

bool OnFinishAfterHotReload(Allocation*)
{
    LogDebug(TVN_HERE, "Processing Blob::FinishAfterHotReload");
    FinishReload();
    return true;
}

bool OnRequestReload(Allocation*)
{
    RequestReload();
    return true;
}

bool OnInstallExceptionHandler(Allocation* payload)
{
    LogDebug(TVN_HERE, "Processing Blob::InstallExceptionHandler");
    InstallExceptionHandler(Read<InstallExceptionHandlerBlob>(payload).order);
    return true;
}

/// The addresses lie in the frame of a thread that waits for the event, so the event comes last.
bool OnHandleExceptionWindowsResult(Allocation* payload)
{
    LogDebug(TVN_HERE, "Processing Blob::HandleExceptionWindowsResult");
    const HandleExceptionWindowsResultBlob& result = Read<HandleExceptionWindowsResultBlob>(payload);
    *ToPointer<uint32_t*>(result.actionAddress) = result.action;
    *ToPointer<ResumeRecord*>(result.resumeRecordAddress) = result.resumeRecord;
    SetEvent(ToPointer(result.event));
    return true;
}

bool OnDecrementLatch(Allocation* payload)
{
    LogDebug(TVN_HERE, "Processing Blob::DecrementLatch");
    latchRegistry.DecrementByAddress(ToPointer(Read<DecrementLatchBlob>(payload).latch));
    return true;
}

bool OnEchoRequest(Allocation* payload)
{
    RecordBuilder<EchoReplyBlob> builder;
    builder.Fixed().token = Read<EchoRequestBlob>(payload).token;
    PushBlob(builder.Finish());
    return true;
}

bool OnSynchronize(Allocation*)
{
    LogDebug(TVN_HERE, "Processing Blob::Synchronize");
    return true;
}

bool OnRequestRestart(Allocation*)
{
    RequestRestart();
    return true;
}

bool OnExitProcessForHotRestart(Allocation* payload)
{
    LogDebug(TVN_HERE, "Processing Blob::ExitProcessForHotRestart");
    AllowRestart(ToPointer<HANDLE>(Read<ExitProcessForHotRestartBlob>(payload).event));
    return true;
}

template<uint32_t Number>
bool RefuseBlob(Allocation*)
{
    LogError(TVN_HERE, "Unknown blob type %u", Number);
    return false;
}

struct HandlerRow
{
    BlobType type;
    BlobHandler handler;
};

constexpr HandlerRow handlerRows[] = {
    {BlobType::LogNarrow, OnLogNarrow},
    {BlobType::LogWide, OnLogWide},
    {BlobType::LoadPatchWindows, OnLoadPatchWindows},
    {BlobType::UnloadPatch, OnUnloadPatch},
    {BlobType::CallHooks, OnCallHooks},
    {BlobType::ReadMemory, OnReadMemory},
    {BlobType::WriteMemory, OnWriteMemory},
    {CopyMemoryBlob::type, OnCopyMemory},
    {BlobType::SetPageProtectionWindows, OnSetPageProtectionWindows},
    {BlobType::CallEntryPoint, OnCallEntryPoint},
    {BlobType::FlushInstructionCache, OnFlushInstructionCache},
    {BlobType::FinishAfterHotReload, OnFinishAfterHotReload},
    {BlobType::RequestReload, OnRequestReload},
    {BlobType::RequestRestart, OnRequestRestart},
    {ExitProcessForHotRestartBlob::type, OnExitProcessForHotRestart},
    {BlobType::InstallExceptionHandler, OnInstallExceptionHandler},
    {BlobType::HandleExceptionWindowsResult, OnHandleExceptionWindowsResult},
    {BlobType::DecrementLatch, OnDecrementLatch},
    {BlobType::EchoRequest, OnEchoRequest},
    {BlobType::Synchronize, OnSynchronize},
};

template<uint32_t Number>
constexpr BlobHandler SelectHandler()
{
    for (const HandlerRow& row : handlerRows)
    {
        if (static_cast<uint32_t>(row.type) == Number)
        {
            return row.handler;
        }
    }
    return RefuseBlob<Number>;
}

struct HandlerTable
{
    BlobHandler slots[blobTypeCount];
};

template<uint32_t... Numbers>
constexpr HandlerTable MakeHandlerTable(std::integer_sequence<uint32_t, Numbers...>)
{
    return {{SelectHandler<Numbers>()...}};
}

constexpr HandlerTable handlerTable = MakeHandlerTable(std::make_integer_sequence<uint32_t, blobTypeCount>());
} // namespace

BlobHandler GetBlobHandler(BlobType type)
{
    return handlerTable.slots[static_cast<uint32_t>(type)];
}
} // namespace Torvane
