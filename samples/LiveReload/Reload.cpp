/// \file
/// The Bridge of the live-reload sample: routes `FormatLine` of the host to that of each patch. It does what a
/// Broker and its Bridge do together, for one function instead of all changed ones.

#include "bridge/Bridge.h"

#include "samples/Common/Route.h"
#include "samples/LiveReload/Hooks.h"
#include "samples/LiveReload/ReloadFiles.h"

#include <stdio.h>

#include <windows.h>

using namespace Torvane;
using namespace Torvane::Bridge;

namespace Torvane::Sample
{
namespace
{
constexpr uint32_t limit = 20000;     // milliseconds
constexpr uint32_t pollInterval = 20; // milliseconds
constexpr uint32_t tokenOfOldCode = 1;
constexpr char changedFunction[] = "FormatLine";

std::string Hexadecimal(const std::vector<uint8_t>& bytes)
{
    std::string text;
    for (const uint8_t byte : bytes)
    {
        char digits[4];
        snprintf(digits, sizeof(digits), "%02X ", byte);
        text += digits;
    }
    return text;
}

std::string Address(RemoteAddress address)
{
    char text[20];
    snprintf(text, sizeof(text), "0x%08X", static_cast<uint32_t>(address));
    return text;
}

/// The content of a Blob, in a few words.
std::string Details(const Message& message)
{
    switch (message.Type())
    {
    case BlobType::Version:
        return message.AnsiString(message.As<VersionBlob>()->version);
    case BlobType::EnableModules:
        return std::to_string(message.As<EnableModulesBlob>()->modules.count) + " modules";
    case BlobType::LoadPatchWindows:
        return Utf8(message.Utf16String(message.As<LoadPatchWindowsBlob>()->patchPath));
    case BlobType::PatchLoaded:
        return "at " + Address(message.As<PatchLoadedBlob>()->base) + ", " +
               std::to_string(message.As<PatchLoadedBlob>()->imageSize) + " bytes";
    case BlobType::LogNarrow:
        return message.AnsiString(message.As<LogBlob>()->text);
    case BlobType::ReadMemoryResult:
        return Hexadecimal(message.Data(message.As<ReadMemoryResultBlob>()->data,
                                        message.As<ReadMemoryResultBlob>()->totalSize));
    case BlobType::WriteMemory:
        return Hexadecimal(message.Data(message.As<WriteMemoryBlob>()->data, jumpSize));
    case BlobType::CallHooks:
        return "kind " + std::to_string(message.As<CallHooksBlob>()->kind);
    default:
        return {};
    }
}

class Reloader
{
public:
    explicit Reloader(uint32_t hostProcessId)
        : link(hostProcessId)
        , host(hostProcessId)
    {
        link.Observe([this](const Message& message) { ReportBlob(message); });
    }

    int Run();
    void Report(const std::string& text) const;

private:
    void ReportBlob(const Message& message) const;
    bool ReceiveModules();
    bool FindModule();
    bool WaitForFile(uint32_t number, const wchar_t* extension);
    bool Reload(uint32_t number);
    bool LoadAndInstall(uint32_t number, ThreadSuspender& threads);
    Received<PatchLoadedBlob> Load(const PatchCommand& command, ThreadSuspender& threads);
    bool Route(RemoteAddress from, RemoteAddress to, ThreadSuspender& threads);
    bool CallTable(uint32_t kind, const char* name, uint32_t number);

    ReloadFiles files;
    Link link;
    HostProcess host;
    Received<RegisterAgentBlob> agent;
    Received<RegisterProcessBlob> process;

    /// The host's executable, as the host has announced it, and its exports.
    EnabledModule announced;
    std::unique_ptr<PatchImage> module;
};

void Reloader::ReportBlob(const Message& message) const
{
    char time[16];
    snprintf(time, sizeof(time), "%9.1f", message.Time() * 1000);
    Report(std::string(message.From() == Direction::FromAgent ? "<- " : "-> ") + time + " ms  " +
           BlobName(message.Type()) + "  " + Details(message));
}

void Reloader::Report(const std::string& text) const
{
    files.Report(text);
}

/// Waits until the host has announced its modules, and acknowledges them.
bool Reloader::ReceiveModules()
{
    const auto blob = link.WaitFor<EnableModulesBlob>(limit);
    if (!blob)
    {
        Report("!! the host hasn't announced its modules");
        return false;
    }
    const std::wstring executable = FileNameOf(process.Utf16String(process->executablePath));
    for (const EnabledModule& candidate : ModulesOf(blob))
    {
        if (_wcsicmp(FileNameOf(candidate.path).c_str(), executable.c_str()) == 0)
        {
            announced = candidate;
        }
    }
    Report(".. " + Utf8(announced.path) + " at " + Address(announced.base) + ", " +
           std::to_string(announced.imageSize) + " bytes in " + std::to_string(announced.pages.size()) +
           " ranges of pages");
    return SendDecrementLatch(link, blob->latch, blob->modules.count);
}

bool Reloader::FindModule()
{
    module = std::make_unique<PatchImage>(announced.path);
    const std::string reason = announced.base == 0        ? "where it is loaded isn't known"
                               : !module->Error().empty() ? module->Error()
                               : module->FindExport(changedFunction) == 0
                                   ? std::string(changedFunction) + " isn't exported"
                                   : std::string();
    if (!reason.empty())
    {
        Report("!! the host's executable can't be used: " + reason);
        return false;
    }
    return true;
}

/// \return false if the host has ended.
bool Reloader::WaitForFile(uint32_t number, const wchar_t* extension)
{
    while (!files.Exists(number, extension))
    {
        if (link.WaitUntilClosed(pollInterval))
        {
            return false;
        }
    }
    return true;
}

int Reloader::Run()
{
    if (!files || !link.Connect(limit) || !link.ExchangeVersion(limit))
    {
        return 1;
    }
    agent = link.WaitFor<RegisterAgentBlob>(limit);
    process = link.WaitFor<RegisterProcessBlob>(limit);
    if (!agent || !process || !ReceiveModules() || !FindModule())
    {
        return 1;
    }
    for (uint32_t number = 1; WaitForFile(number, L"wanted"); ++number)
    {
        files.Write(number, L"done", Reload(number) ? "ok" : "failed");
    }
    return 0;
}

bool Reloader::Reload(uint32_t number)
{
    SendRequestReload(link);
    if (!link.WaitFor<ReloadBlob>(limit))
    {
        Report("!! the host hasn't agreed to a reload");
        return false;
    }
    files.Write(number, L"granted", "");
    if (!WaitForFile(number, L"compiled"))
    {
        return false;
    }

    ThreadSuspender threads(host.Id(), AgentThreads(*process));
    const bool success = LoadAndInstall(number, threads);
    threads.Resume();
    Report(".. threads resumed");
    SendFinishAfterHotReload(link);
    return success && Fence(link, limit);
}

bool Reloader::LoadAndInstall(uint32_t number, ThreadSuspender& threads)
{
    PatchCommand command;
    command.path = files.Path(number, L"dll");
    PatchImage patch(command.path);
    const bool isImage = patch.Error().empty(); // if it isn't one, the host's loader reports that
    const EntryPointCode entryCode = isImage ? patch.EntryCode() : EntryPointCode();
    if (isImage && !(patch.MakeEntryPointIdle() && patch.Save(command.path)))
    {
        Report("!! " + patch.Error());
        return false;
    }

    // A synchronized host takes part in the load: its thread can't be suspended before.
    command.watchdog = agent->agentType == 0;
    if (command.watchdog)
    {
        threads.Suspend();
        Report(".. " + std::to_string(threads.Count()) + " threads suspended");
    }
    const Received<PatchLoadedBlob> loaded = Load(command, threads);
    if (!loaded)
    {
        return false;
    }
    threads.Suspend(); // those of a synchronized host, and those that the watchdog has had resumed
    if (!command.watchdog)
    {
        Report(".. " + std::to_string(threads.Count()) + " threads suspended");
    }

    const RemoteAddress from = announced.base + module->FindExport(changedFunction);
    const RemoteAddress to = loaded->base + patch.FindExport(changedFunction);
    return CallTable(beforeReloadKind, beforeReloadHooksName, number) && Route(from, to, threads) &&
           SendCallEntryPoint(link, loaded->base, patch.EntryPoint(), entryCode, idleEntryPoint) &&
           CallTable(afterReloadKind, afterReloadHooksName, number) &&
           FenceWhileSuspended(link, threads, limit);
}

/// Requests the load and waits for its result.
Received<PatchLoadedBlob> Reloader::Load(const PatchCommand& command, ThreadSuspender& threads)
{
    SendLoadPatch(link, command);
    const Message reply =
        ReceiveWhileSuspended(link, threads, {BlobType::PatchLoaded, BlobType::LogNarrow}, limit);
    if (!reply || reply.Type() != BlobType::PatchLoaded)
    {
        Report("!! the patch was not loaded");
        return {};
    }
    return Received<PatchLoadedBlob>(reply);
}

/// Shows the old code, and routes it to the new one.
bool Reloader::Route(RemoteAddress from, RemoteAddress to, ThreadSuspender& threads)
{
    SendReadMemory(link, jumpSize, {from}, tokenOfOldCode);
    const auto oldCode = link.WaitFor<ReadMemoryResultBlob>(limit);
    if (!oldCode)
    {
        Report("!! the old code can't be read");
        return false;
    }
    return RouteFunction(link, threads, announced, from, to);
}

/// Calls one of the host's tables of hooks.
bool Reloader::CallTable(uint32_t kind, const char* name, uint32_t number)
{
    const uint32_t offset = module->FindExport(name);
    if (offset == 0)
    {
        return true;
    }
    HookArguments arguments;
    arguments.firstText = "FormatLine in Line.cpp";
    arguments.number = number;
    const RemoteAddress first = announced.base + offset;
    return SendCallHooks(link, kind, first, first + hookCount * sizeof(uint32_t), arguments);
}

int RunLiveReload(uint32_t hostProcessId)
{
    Reloader reloader(hostProcessId);
    const int result = reloader.Run();
    reloader.Report(result == 0 ? ".. the Bridge ends" : "xx the Bridge has failed");
    return result;
}

const RegisteredScenario liveReload("LiveReload", &RunLiveReload);
} // namespace
} // namespace Torvane::Sample
