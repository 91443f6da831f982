/// \file
/// The Bridge of the live-reload sample: routes `FormatLine` of the host to that of each patch. It does what a
/// Broker and its Bridge do together, for one function instead of all changed ones.

#include "bridge/Bridge.h"

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
constexpr char changedFunction[] = "FormatLine";

template<typename Bytes>
std::string Hexadecimal(const Bytes& bytes)
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
        return "at " + AddressText(message.As<PatchLoadedBlob>()->base) + ", " +
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
        , session(link)
    {
        link.Observe([this](const Message& message) { ReportBlob(message); });
    }

    int Run();
    void Report(const std::string& text) const;

private:
    void ReportBlob(const Message& message) const;
    Result<> FindModule();
    bool WaitForFile(uint32_t number, const wchar_t* extension);
    Result<> Reload(uint32_t number);
    Result<> Install(const LoadedPatch& patch, uint32_t number);
    bool CallTable(uint32_t kind, const char* name, uint32_t number);

    ReloadFiles files;
    Link link;
    Session session;

    /// The host's executable.
    EnabledModule enabled;
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

/// Waits until the host has enabled its modules.
Result<> Reloader::FindModule()
{
    const double end = link.Now() + limit / 1000.0;
    while (session.Modules().empty() && link.Now() < end && !link.WaitUntilClosed(pollInterval))
    {
    }
    const EnabledModule* found = session.FindExecutable();
    if (found == nullptr)
    {
        return Failure{"the host hasn't enabled its executable"};
    }
    enabled = *found;
    module = std::make_unique<PatchImage>(enabled.path);
    Report(".. " + Utf8(enabled.path) + " at " + AddressText(enabled.base) + ", " +
           std::to_string(enabled.imageSize) + " bytes in " + std::to_string(enabled.pages.size()) +
           " ranges of pages");
    if (!module->Error().empty())
    {
        return Failure{"the host's executable can't be used: " + module->Error()};
    }
    return module->FindExport(changedFunction) != 0
               ? Result<>()
               : Failure{std::string(changedFunction) + " isn't exported by the host's executable"};
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
    if (!files)
    {
        return 1;
    }
    session.ServeModules();
    Result<> ready = session.Connect(limit);
    if (ready)
    {
        ready = FindModule();
    }
    if (!ready)
    {
        Report("!! " + ready.Reason());
        return 1;
    }
    for (uint32_t number = 1; WaitForFile(number, L"wanted"); ++number)
    {
        const Result<> reloaded = Reload(number);
        if (!reloaded)
        {
            Report("!! " + reloaded.Reason());
        }
        files.Write(number, L"done", reloaded ? "ok" : "failed");
    }
    return 0;
}

Result<> Reloader::Reload(uint32_t number)
{
    const auto build = [&]() -> Result<std::wstring> {
        files.Write(number, L"granted", "");
        return WaitForFile(number, L"compiled") ? Result<std::wstring>(files.Path(number, L"dll"))
                                                : Failure{"the host has ended"};
    };
    const auto install = [&](const LoadedPatch& patch) {
        return Install(patch, number);
    };
    Result<> reloaded = RunReload(session, {build, install}, limit);
    Report(".. threads resumed");
    return reloaded;
}

Result<> Reloader::Install(const LoadedPatch& patch, uint32_t number)
{
    Report(".. " + std::to_string(session.Threads().Count()) + " threads suspended");
    CallTable(beforeReloadKind, beforeReloadHooksName, number);
    const Result<RoutedFunction> routed = Route(session, enabled.base + module->FindExport(changedFunction),
                                                patch.FindExport(changedFunction), limit);
    if (!routed)
    {
        return routed.Why();
    }
    Report(".. the old code was " + Hexadecimal(routed->oldCode));
    return SendCallEntryPoint(session, patch) && CallTable(afterReloadKind, afterReloadHooksName, number)
               ? Result<>()
               : ClosedPipe();
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
    const RemoteAddress first = enabled.base + offset;
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
