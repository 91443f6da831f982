#include "Agent/Communication/Windows/BlobHandlers.h"

#include "Agent/Exception/Windows/ExceptionHandler.h"
#include "Agent/HostCalls/Windows/BrokerLog.h"
#include "Agent/HotReload/Windows/EntryPoint.h"
#include "Agent/HotReload/Windows/Hooks.h"
#include "Agent/HotReload/Windows/HotReload.h"
#include "Agent/HotReload/Windows/PatchLoading.h"
#include "Agent/HotRestart/Windows/HotRestart.h"
#include "Agent/MemoryAccess/Windows/MemoryAccess.h"
#include "Agent/Transport/Windows/LinkRequests.h"
#include "Shared/Foundation/Logger.h"

namespace Torvane
{
namespace
{
/// Calls a function that takes a record, or nothing, with the payload.
template<auto Function>
struct Call;

template<typename Record, void (*Function)(const Record&)>
struct Call<Function>
{
    static void WithPayload(const void* payload)
    {
        Function(*static_cast<const Record*>(payload));
    }
};

template<void (*Function)()>
struct Call<Function>
{
    static void WithPayload(const void*)
    {
        Function();
    }
};

template<auto Function>
constexpr auto call = &Call<Function>::WithPayload;

struct Slot
{
    BlobType type;
    const char* logLine; ///< null: nothing is logged
    void (*handler)(const void* payload);
};

constexpr Slot acceptedBlobs[] = {
    {BlobType::LogNarrow, "Processing Blob::LogNarrow", call<ShowNarrowLog>},
    {BlobType::LogWide, "Processing Blob::LogWide", call<ShowWideLog>},
    {BlobType::LoadPatchWindows, "Processing Blob::LoadPatchWindows", call<LoadPatch>},
    {BlobType::UnloadPatch, "Processing Blob::UnloadPatch", call<UnloadPatch>},
    {BlobType::CallHooks, "Processing Blob::CallHooks", call<CallHooks>},
    {BlobType::ReadMemory, "Processing Blob::ReadMemory", call<ReadMemory>},
    {BlobType::WriteMemory, "Processing Blob::WriteMemory", call<WriteMemory>},
    {CopyMemoryBlob::type, "Processing Blob::CopyMemory", call<CopyMemoryElements>},
    {BlobType::SetPageProtectionWindows, "Processing Blob::SetPageProtectionWindows",
     call<SetPageProtection>},
    {BlobType::CallEntryPoint, "Processing Blob::CallEntryPoint", call<CallEntryPoint>},
    {BlobType::FlushInstructionCache, "Processing Blob::FlushInstructionCache",
     call<FlushProcessInstructionCache>},
    {BlobType::FinishAfterHotReload, "Processing Blob::FinishAfterHotReload", call<FinishReload>},
    {BlobType::RequestReload, nullptr, call<RequestReload>},
    {BlobType::RequestRestart, nullptr, call<RequestRestart>},
    {ExitProcessForHotRestartBlob::type, "Processing Blob::ExitProcessForHotRestart", call<AllowRestart>},
    {BlobType::InstallExceptionHandler, "Processing Blob::InstallExceptionHandler",
     call<InstallExceptionHandler>},
    {BlobType::HandleExceptionWindowsResult, "Processing Blob::HandleExceptionWindowsResult",
     call<PassOnDecision>},
    {BlobType::DecrementLatch, "Processing Blob::DecrementLatch", call<DecrementLatch>},
    {BlobType::EchoRequest, nullptr, call<AnswerEcho>},
    {BlobType::Synchronize, "Processing Blob::Synchronize", call<Synchronize>},
};

struct SlotTable
{
    Slot slots[blobTypeCount]; ///< by number; a null handler refuses
};

constexpr SlotTable MakeSlotTable()
{
    SlotTable table = {};
    for (const Slot& accepted : acceptedBlobs)
    {
        table.slots[static_cast<uint32_t>(accepted.type)] = accepted;
    }
    return table;
}

constexpr SlotTable slotTable = MakeSlotTable();
} // namespace

bool HandleBlob(BlobType type, const Allocation& payload)
{
    const uint32_t number = static_cast<uint32_t>(type);
    const Slot& slot = slotTable.slots[number];
    if (slot.handler == nullptr)
    {
        LogError(TVN_HERE, "Unknown blob type %u", number);
        return false;
    }
    if (slot.logLine != nullptr)
    {
        LogDebug(TVN_HERE, "%hs", slot.logLine);
    }
    slot.handler(payload.pointer);
    return true;
}
} // namespace Torvane
