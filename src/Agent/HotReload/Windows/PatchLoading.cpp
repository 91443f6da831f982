#include "Agent/HotReload/Windows/PatchLoading.h"

#include "Agent/HotReload/Windows/HotReload.h"
#include "Agent/HotReload/Windows/HotReloadOS.h"
#include "Agent/HotReload/Windows/Watchdog.h"
#include "Agent/Protocol/BlobBuilder.h"
#include "Agent/Protocol/HostAddress.h"
#include "Agent/Transport/Windows/Sender.h"
#include "Shared/Container/OwnedString.h"
#include "Shared/Foundation/FixedString.h"
#include "Shared/Foundation/Logger.h"
#include "Shared/Foundation/Windows/ResultOS.h"
#include "Shared/Process/Windows/ProcessMemory.h"
#include "Shared/Process/Windows/VirtualMemory.h"

#include <windows.h>

#include <psapi.h>

namespace Torvane
{
namespace
{
static_assert(sizeof(PageRange) == sizeof(WirePageRange), "page ranges go into Blobs as they are");

void ReleaseReservations(const RelativeArray& ranges)
{
    for (uint32_t i = 0; i < ranges.count; ++i)
    {
        const WirePageRange& range = Follow<WirePageRange>(ranges)[i];
        if (ToPointer(range.base) != nullptr)
        {
            VirtualMemory::Release(ToPointer(range.base));
        }
    }
}

void ReserveAgain(const RelativeArray& ranges)
{
    for (uint32_t i = 0; i < ranges.count; ++i)
    {
        const WirePageRange& range = Follow<WirePageRange>(ranges)[i];
        if (range.size != 0)
        {
            VirtualMemory::ReserveAt(ToPointer(range.base), static_cast<size_t>(range.size));
        }
    }
}

HMODULE LoadImageFile(const wchar_t* path)
{
    const HMODULE module = LoadLibraryW(path);
    if (module == nullptr)
    {
        LogLastError(TVN_HERE, "LoadLibraryW(%ls) failed.", path);
    }
    return module;
}

void ReportFailedLoad(const wchar_t* path)
{
    LogError(TVN_HERE, "Failed to load patch from %ls", path);
    FixedString report = {};
    report.Format("Failed to load patch from %ls", path);
    PushBlob(BuildLogBlob(BlobLogLevel::Error, report.text));
}

void ReportLoadedPatch(const LoadPatchWindowsBlob& blob, const wchar_t* path, HMODULE module,
                       uint32_t imageSize, const PageRangeList& ranges)
{
    const OwnedWideString secondText = CopyWide(FollowWideString(blob.secondText));
    const uint32_t rangesSize = ranges.count * static_cast<uint32_t>(sizeof(PageRange));
    RecordBuilder<PatchLoadedBlob> builder(MeasureText(path) + MeasureText(secondText.pointer) + rangesSize);
    PatchLoadedBlob& reply = builder.Fixed();
    reply.echo38 = static_cast<uint32_t>(blob.echo38);
    reply.base = ToSlot(module);
    reply.imageSize = imageSize;
    reply.echo50 = blob.echo50;
    reply.echo58 = blob.echo58;
    reply.echo60 = blob.echo60;
    reply.echo68 = blob.echo68;
    builder.AppendText(reply.patchPath, path);
    builder.AppendText(reply.secondText, secondText.pointer);
    builder.AppendArray(reply.pageRanges, ranges.pointer, ranges.count, sizeof(PageRange));
    builder.AppendArray(reply.secondPageRanges, nullptr, 0, sizeof(PageRange));
    PushBlob(builder.Finish());
}
} // namespace

void LoadPatch(const LoadPatchWindowsBlob& blob)
{
    const OwnedWideString copiedPath = CopyWide(FollowWideString(blob.patchPath));
    const wchar_t* path = copiedPath.pointer;
    const bool guarded = blob.watchdog != 0;
    ReleaseReservations(blob.reservations);
    HMODULE module = nullptr;
    {
        const Watchdog::ScopedWatch watch(guarded);
        LogDebug(TVN_HERE, "Loading patch from %ls", path);
        if (!guarded) // otherwise the host's threads are suspended, and none could let the patch in
        {
            WaitForHostToAcceptPatch();
        }
        module = LoadImageFile(path);
    }
    if (module == nullptr)
    {
        ReportFailedLoad(path);
        ReserveAgain(blob.reservations);
        return;
    }
    MODULEINFO information = {};
    K32GetModuleInformation(GetCurrentProcess(), module, &information, sizeof(information));
    PrepareSectionsForPatching(path, module);
    const PageRangeList ranges = GatherPageRanges(module, information.SizeOfImage);
    ReportLoadedPatch(blob, path, module, information.SizeOfImage, ranges);
}

void UnloadPatch(const UnloadPatchBlob& blob)
{
    FreeLibrary(ToPointer<HMODULE>(blob.base));
}
} // namespace Torvane
