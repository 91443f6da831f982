#include "bridge/Commands.h"

#include "bridge/BlobWriter.h"

namespace Torvane::Bridge
{
namespace
{
bool SendEmpty(Link& link, BlobType type)
{
    return link.Send(MakeBlob(type, nullptr, 0));
}

template<typename String>
bool SendLog(Link& link, BlobType type, const String& text, BlobLogLevel level)
{
    BlobWriter<LogBlob> blob;
    blob.fixed.level = level;
    blob.String(&LogBlob::text, text);
    return link.Send(blob.Finish(type));
}

/// A list of offsets, each relative to itself, followed by the strings that they refer to.
std::vector<uint8_t> MakeStringList(const std::vector<std::string>& strings)
{
    std::vector<uint8_t> list(strings.size() * sizeof(RelativeOffset));
    for (size_t i = 0; i < strings.size(); ++i)
    {
        const size_t field = i * sizeof(RelativeOffset);
        const RelativeOffset offset = {static_cast<uint32_t>(list.size() - field)};
        memcpy(list.data() + field, &offset, sizeof(offset));
        const uint8_t* string = reinterpret_cast<const uint8_t*>(strings[i].c_str());
        list.insert(list.end(), string, string + strings[i].size() + 1);
    }
    return list;
}
} // namespace

bool SendVersion(Link& link, const std::string& version)
{
    BlobWriter<VersionBlob> blob;
    blob.String(&VersionBlob::version, version);
    return link.Send(blob.Finish());
}

bool SendLogNarrow(Link& link, const std::string& text, BlobLogLevel level)
{
    return SendLog(link, BlobType::LogNarrow, text, level);
}

bool SendLogWide(Link& link, const std::wstring& text, BlobLogLevel level)
{
    return SendLog(link, BlobType::LogWide, text, level);
}

bool SendLoadPatch(Link& link, const PatchCommand& patch)
{
    BlobWriter<LoadPatchWindowsBlob> blob;
    blob.String(&LoadPatchWindowsBlob::patchPath, patch.path);
    blob.String(&LoadPatchWindowsBlob::secondText, patch.cookieText);
    blob.fixed.echo38 = patch.cookie38;
    blob.List(&LoadPatchWindowsBlob::reservations, patch.reservations);
    blob.fixed.echo50 = patch.cookie50;
    blob.fixed.echo58 = patch.cookie58;
    blob.fixed.echo60 = patch.cookie60;
    blob.fixed.echo68 = patch.cookie68;
    blob.fixed.watchdog = patch.watchdog ? 1 : 0;
    return link.Send(blob.Finish());
}

bool SendUnloadPatch(Link& link, RemoteAddress base)
{
    BlobWriter<UnloadPatchBlob> blob;
    blob.fixed.base = base;
    return link.Send(blob.Finish());
}

bool SendCallHooks(Link& link, uint32_t kind, RemoteAddress first, RemoteAddress end,
                   const HookArguments& arguments)
{
    BlobWriter<CallHooksBlob> blob;
    blob.fixed.kind = kind;
    blob.fixed.first = first;
    blob.fixed.end = end;
    blob.String(&CallHooksBlob::firstText, arguments.firstText);
    blob.fixed.number = arguments.number;
    blob.String(&CallHooksBlob::secondText, arguments.secondText);
    blob.String(&CallHooksBlob::thirdText, arguments.thirdText);
    blob.String(&CallHooksBlob::kind7Text, arguments.kind7Text);
    blob.Data(&CallHooksBlob::textList, MakeStringList(arguments.textList),
              static_cast<uint32_t>(arguments.textList.size()));
    return link.Send(blob.Finish());
}

bool SendReadMemory(Link& link, uint64_t elementSize, const std::vector<RemoteAddress>& addresses,
                    uint64_t cookie)
{
    BlobWriter<ReadMemoryBlob> blob;
    blob.fixed.elementSize = elementSize;
    blob.fixed.elementCount = addresses.size();
    blob.List(&ReadMemoryBlob::addresses, addresses);
    blob.fixed.token = cookie;
    return link.Send(blob.Finish());
}

bool SendWriteMemory(Link& link, const std::vector<RemoteAddress>& addresses,
                     const std::vector<uint8_t>& data)
{
    if (addresses.empty() ? !data.empty() : data.size() % addresses.size() != 0)
    {
        return false;
    }
    BlobWriter<WriteMemoryBlob> blob;
    blob.fixed.elementSize = addresses.empty() ? 0 : data.size() / addresses.size();
    blob.fixed.elementCount = addresses.size();
    blob.List(&WriteMemoryBlob::addresses, addresses);
    blob.List(&WriteMemoryBlob::data, data);
    return link.Send(blob.Finish());
}

bool SendCopyMemory(Link& link, uint32_t elementSize, const std::vector<RemoteAddress>& sources,
                    const std::vector<RemoteAddress>& destinations)
{
    if (sources.size() != destinations.size())
    {
        return false;
    }
    BlobWriter<CopyMemoryBlob> blob;
    blob.fixed.elementSize = elementSize;
    blob.fixed.elementCount = sources.size();
    blob.List(&CopyMemoryBlob::sources, sources);
    blob.List(&CopyMemoryBlob::destinations, destinations);
    return link.Send(blob.Finish());
}

bool SendSetPageProtection(Link& link, const std::vector<WirePageRange>& ranges)
{
    BlobWriter<SetPageProtectionWindowsBlob> blob;
    blob.List(&SetPageProtectionWindowsBlob::ranges, ranges);
    return link.Send(blob.Finish());
}

bool SendFlushInstructionCache(Link& link)
{
    return SendEmpty(link, BlobType::FlushInstructionCache);
}

bool SendCallEntryPoint(Link& link, RemoteAddress base, uint64_t entryPoint, const EntryPointCode& before,
                        const EntryPointCode& after)
{
    BlobWriter<CallEntryPointBlob> blob;
    blob.fixed.base = base;
    blob.fixed.entryPoint = entryPoint;
    memcpy(blob.fixed.codeAfter, after.bytes, sizeof(after.bytes));
    memcpy(blob.fixed.codeBefore, before.bytes, sizeof(before.bytes));
    return link.Send(blob.Finish());
}

bool SendRequestReload(Link& link)
{
    return SendEmpty(link, BlobType::RequestReload);
}

bool SendFinishAfterHotReload(Link& link)
{
    return SendEmpty(link, BlobType::FinishAfterHotReload);
}

bool SendRequestRestart(Link& link)
{
    return SendEmpty(link, BlobType::RequestRestart);
}

bool SendExitProcessForHotRestart(Link& link, RemoteAddress event)
{
    BlobWriter<ExitProcessForHotRestartBlob> blob;
    blob.fixed.event = event;
    return link.Send(blob.Finish());
}

bool SendInstallExceptionHandler(Link& link, uint32_t order)
{
    BlobWriter<InstallExceptionHandlerBlob> blob;
    blob.fixed.order = order;
    return link.Send(blob.Finish());
}

bool SendHandleExceptionResult(Link& link, const HandleExceptionWindowsBlob& exception, uint32_t action,
                               const ResumeRecord& resumeRecord)
{
    BlobWriter<HandleExceptionWindowsResultBlob> blob;
    blob.fixed.event = exception.event;
    blob.fixed.actionAddress = exception.action;
    blob.fixed.action = action;
    blob.fixed.resumeRecordAddress = exception.resumeRecord;
    blob.fixed.resumeRecord = resumeRecord;
    return link.Send(blob.Finish());
}

bool SendDecrementLatch(Link& link, RemoteAddress latch, uint32_t times)
{
    BlobWriter<DecrementLatchBlob> blob;
    blob.fixed.latch = latch;
    for (uint32_t i = 0; i < times; ++i)
    {
        if (!link.Send(blob.Finish()))
        {
            return false;
        }
    }
    return true;
}

bool SendEchoRequest(Link& link, uint64_t cookie)
{
    BlobWriter<EchoRequestBlob> blob;
    blob.fixed.token = cookie;
    return link.Send(blob.Finish());
}

bool SendSynchronize(Link& link)
{
    return SendEmpty(link, BlobType::Synchronize);
}
} // namespace Torvane::Bridge
