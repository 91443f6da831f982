#pragma once

/// \file
/// Builds Blobs of any type, with the data that their fields refer to, for tests; any thread, any platform.

#include "Agent/Protocol/Names.h"
#include "bridge/BlobWriter.h"
#include "bridge/Recording/BlobLayout.h"

#include <algorithm>
#include <stdint.h>
#include <string.h>
#include <string>
#include <vector>

namespace Torvane::Testing
{
/// The string and its terminator, as UTF-16 units.
inline std::vector<uint16_t> Utf16Units(const std::u16string& text)
{
    std::vector<uint16_t> units(text.begin(), text.end());
    units.push_back(0);
    return units;
}

inline std::vector<uint8_t> MakeVersion(const std::string& version = apiVersion)
{
    Bridge::BlobWriter<VersionBlob> blob;
    blob.String(&VersionBlob::version, version);
    return blob.Finish();
}

inline std::vector<uint8_t> MakeRegisterProcess(uint32_t processId)
{
    Bridge::BlobWriter<RegisterProcessBlob> blob;
    blob.fixed.processId = processId;
    blob.fixed.senderThreadId = 11;
    blob.fixed.receiverThreadId = 12;
    blob.fixed.heartbeatThreadId = 13;
    blob.fixed.watchdogThreadId = 14;
    blob.List(&RegisterProcessBlob::executablePath, Utf16Units(u"C:\\Host\\Host.exe"));
    blob.List(&RegisterProcessBlob::commandLine, Utf16Units(u"Host.exe -x"));
    return blob.Finish();
}

inline std::vector<uint8_t> MakeLog(BlobLogLevel level, const std::string& text)
{
    Bridge::BlobWriter<LogBlob> blob;
    blob.fixed.level = level;
    blob.String(&LogBlob::text, text);
    return blob.Finish(BlobType::LogNarrow);
}

inline std::vector<uint8_t> MakeEnableModules(uint32_t moduleCount, AddressSlot latch)
{
    Bridge::BlobWriter<EnableModulesBlob> blob;
    std::vector<WireModuleIdentity> modules(moduleCount);
    for (uint32_t i = 0; i < moduleCount; ++i)
    {
        modules[i].path.length = 5;
        const std::u16string name = u"A.dll";
        std::copy(name.begin(), name.end(), modules[i].path.text);
        modules[i].base = 0x10000000 + i * 0x10000;
        modules[i].imageSize = 0x3000;
    }
    blob.List(&EnableModulesBlob::modules, modules);
    blob.List(&EnableModulesBlob::executables, std::vector<ExecutableIdentity>(moduleCount));
    blob.List(&EnableModulesBlob::pageRangeCounts, std::vector<uint64_t>(moduleCount, 1));
    blob.List(&EnableModulesBlob::pageRanges,
              std::vector<WirePageRange>(moduleCount, WirePageRange{0x10000000, 0x1000, 0x20, 0}));
    blob.List(&EnableModulesBlob::zeros, std::vector<uint64_t>(moduleCount));
    blob.List(&EnableModulesBlob::secondPageRanges, std::vector<WirePageRange>());
    blob.fixed.latch = latch;
    return blob.Finish();
}

inline std::vector<uint8_t> MakeLoadPatch(const std::u16string& path)
{
    Bridge::BlobWriter<LoadPatchWindowsBlob> blob;
    blob.fixed.echo50 = 0x123456789ABCDEF0;
    blob.fixed.watchdog = 1;
    blob.List(&LoadPatchWindowsBlob::patchPath, Utf16Units(path));
    blob.List(&LoadPatchWindowsBlob::secondText, Utf16Units(u""));
    blob.List(&LoadPatchWindowsBlob::reservations, std::vector<WirePageRange>());
    return blob.Finish();
}

inline std::vector<uint8_t> MakePatchLoaded(const std::u16string& path)
{
    Bridge::BlobWriter<PatchLoadedBlob> blob;
    blob.fixed.base = 0x72340000;
    blob.fixed.imageSize = 0x5000;
    blob.List(&PatchLoadedBlob::patchPath, Utf16Units(path));
    blob.List(&PatchLoadedBlob::secondText, Utf16Units(u""));
    blob.List(&PatchLoadedBlob::pageRanges,
              std::vector<WirePageRange>{{0x72340000, 0x1000, 0x02, 0}, {0x72341000, 0x4000, 0x40, 0}});
    blob.List(&PatchLoadedBlob::secondPageRanges, std::vector<WirePageRange>());
    return blob.Finish();
}

/// Two strings for a hook of kind 8.
inline std::vector<uint8_t> MakeCallHooks(const std::string& first, const std::string& second)
{
    Bridge::BlobWriter<CallHooksBlob> blob;
    blob.fixed.kind = 8;
    blob.fixed.first = 0x401000;
    blob.fixed.end = 0x401008;
    const auto firstSize = static_cast<uint32_t>(first.size() + 1);
    const uint32_t entries[2] = {8, 4 + firstSize};
    std::vector<uint8_t> data(sizeof(entries));
    memcpy(data.data(), entries, sizeof(entries));
    data.insert(data.end(), first.c_str(), first.c_str() + firstSize);
    data.insert(data.end(), second.c_str(), second.c_str() + second.size() + 1);
    blob.Data(&CallHooksBlob::textList, data, 2);
    return blob.Finish();
}

inline std::vector<uint8_t> MakeReadMemory(const std::vector<AddressSlot>& addresses, uint64_t token)
{
    Bridge::BlobWriter<ReadMemoryBlob> blob;
    blob.fixed.elementSize = 4;
    blob.fixed.elementCount = addresses.size();
    blob.fixed.token = token;
    blob.List(&ReadMemoryBlob::addresses, addresses);
    return blob.Finish();
}

inline std::vector<uint8_t> MakeReadMemoryResult(const std::vector<uint8_t>& data, uint64_t token)
{
    Bridge::BlobWriter<ReadMemoryResultBlob> blob;
    blob.fixed.totalSize = data.size();
    blob.fixed.token = token;
    blob.List(&ReadMemoryResultBlob::data, data);
    return blob.Finish();
}

inline std::vector<uint8_t> MakeWriteMemory(const std::vector<AddressSlot>& addresses,
                                            const std::vector<uint8_t>& data)
{
    Bridge::BlobWriter<WriteMemoryBlob> blob;
    blob.fixed.elementSize = data.size() / addresses.size();
    blob.fixed.elementCount = addresses.size();
    blob.List(&WriteMemoryBlob::addresses, addresses);
    blob.List(&WriteMemoryBlob::data, data);
    return blob.Finish();
}

/// An access violation in a thread, at 0x00401234.
inline std::vector<uint8_t> MakeException(uint32_t threadId, AddressSlot event)
{
    Bridge::BlobWriter<HandleExceptionWindowsBlob> blob;
    blob.fixed.event = event;
    blob.fixed.action = 0x60000;
    blob.fixed.resumeRecord = 0x60010;
    blob.fixed.processId = 1234;
    blob.fixed.threadId = threadId;
    std::vector<uint8_t> context(716);
    const uint32_t instructionPointer = 0x401234;
    memcpy(context.data() + 0xB8, &instructionPointer, 4);
    std::vector<uint8_t> record(80);
    const uint32_t code = 0xC0000005;
    memcpy(record.data(), &code, 4);
    memcpy(record.data() + 12, &instructionPointer, 4);
    blob.List(&HandleExceptionWindowsBlob::context, context);
    blob.List(&HandleExceptionWindowsBlob::record, record);
    return blob.Finish();
}

inline std::vector<uint8_t> MakeExceptionResult(AddressSlot event, uint32_t action)
{
    Bridge::BlobWriter<HandleExceptionWindowsResultBlob> blob;
    blob.fixed.event = event;
    blob.fixed.actionAddress = 0x60000;
    blob.fixed.action = action;
    blob.fixed.resumeRecordAddress = 0x60010;
    return blob.Finish();
}

/// A Blob whose fixed part is one 64-bit value: `DecrementLatch`, `EchoReply`, `UnloadPatch`.
inline std::vector<uint8_t> MakeNumberBlob(BlobType type, uint64_t number)
{
    return Bridge::MakeBlob(type, &number, sizeof(number));
}

inline std::vector<uint8_t> MakeEchoRequest(uint64_t token)
{
    Bridge::BlobWriter<EchoRequestBlob> blob;
    blob.fixed.token = token;
    return blob.Finish();
}

/// `Reload` and `ScheduleRestart`.
inline std::vector<uint8_t> MakeProcessBlob(BlobType type, uint32_t processId)
{
    return Bridge::MakeBlob(type, &processId, sizeof(processId));
}

inline std::vector<uint8_t> MakeUnwritten(BlobType type)
{
    return Bridge::MakeBlob(type, "\xCC\xCC\xCC\xCC", 4);
}

inline std::vector<uint8_t> MakeEmpty(BlobType type)
{
    return Bridge::MakeBlob(type, nullptr, 0);
}
} // namespace Torvane::Testing
