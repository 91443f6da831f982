#include "bridge/Watch.h"

#include "bridge/Commands.h"
#include "bridge/PatchTargets.h"
#include "bridge/Reload.h"
#include "bridge/Route.h"
#include "bridge/Text.h"
#include "bridge/WatchReport.h"
#include "bridge/WatchedFolder.h"

#include <map>
#include <math.h>

#include <windows.h>

namespace Torvane::Bridge
{
namespace
{
constexpr uint32_t pollInterval = 50;  // milliseconds
constexpr uint32_t limit = 20000;      // milliseconds, for each wait of a reload
constexpr uint32_t writingTime = 2000; // milliseconds, then an incomplete file isn't being written any more
/// Milliseconds from a synchronized host's consent to the load. Its thread sends the consent first and makes the handover
/// of the patch ready after that: a patch that is there at once could be loaded without it, between any two instructions.
constexpr uint32_t handoverTime = 100;
constexpr uint32_t longestPath = 32768; // characters
constexpr size_t mostNames = 8;         // in one line

constexpr uint32_t beforeReloadKind = 0;
constexpr uint32_t afterReloadKind = 1;

/// The folder for copies, with what an earlier host has left there removed, as far as no other one has it loaded.
std::wstring PrepareCopies(const std::wstring& folder)
{
    std::wstring copies = folder + L"\\loaded";
    CreateDirectoryW(folder.c_str(), nullptr);
    CreateDirectoryW(copies.c_str(), nullptr);
    WIN32_FIND_DATAW found = {};
    const HANDLE search = FindFirstFileW((copies + L"\\*.dll").c_str(), &found);
    while (search != INVALID_HANDLE_VALUE)
    {
        DeleteFileW((copies + L"\\" + found.cFileName).c_str());
        if (!FindNextFileW(search, &found))
        {
            FindClose(search);
            break;
        }
    }
    return copies;
}

bool WriteCopy(const std::wstring& path, const std::vector<uint8_t>& bytes)
{
    const HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    DWORD count = 0;
    WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr);
    return CloseHandle(file) && count == bytes.size();
}

std::string JoinNames(const std::vector<MatchedFunction>& functions)
{
    std::string names;
    for (size_t i = 0; i < functions.size() && i < mostNames; ++i)
    {
        names += (i == 0 ? "" : ", ") + functions[i].name;
    }
    return functions.size() <= mostNames
               ? names
               : names + " and " + std::to_string(functions.size() - mostNames) + " more";
}

class Watch
{
public:
    Watch(Session& itsSession, const std::wstring& folderPath)
        : session(itsSession)
        , copies(PrepareCopies(folderPath))
        , folder(folderPath)
        , report(folderPath, itsSession.link.HostProcessId())
        , targets(itsSession)
    {
    }

    void Run();

private:
    enum class Outcome
    {
        Done,
        TryAgain,
    };

    void ReportStart() const;
    Outcome Load(const WatchedFolder::Library& library);
    Outcome Refuse(const WatchedFolder::Library& library, const std::string& reason) const;
    Outcome Reload(const WatchedFolder::Library& library, const std::vector<MatchedFunction>& matches);
    Result<> Install(const LoadedPatch& patch, const std::vector<MatchedFunction>& routed);
    bool CallHooks(uint32_t kind, const char* name, const std::vector<MatchedFunction>& routed);
    void ReportFunctions(const std::wstring& library, const std::vector<MatchedFunction>& matches);
    void ReportOnce(const std::string& line);

    Session& session;
    std::wstring copies;
    WatchedFolder folder;
    WatchReport report;
    PatchTargets targets;
    std::string lastNotice;
    uint32_t loads = 0;   ///< tried so far
    uint32_t reloads = 0; ///< that have succeeded
    std::map<std::wstring, std::map<std::string, uint32_t>>
        routedBy; ///< number of the reload by library and function
};

void Watch::ReportStart() const
{
    report.Line("watching " + Utf8(folder.Path()) + " for " +
                Utf8(FileNameOf(session.host.ExecutablePath())) + ", process " +
                std::to_string(session.host.Id()));
    for (const std::wstring& name : folder.Names())
    {
        report.Line(Utf8(name) +
                    " was there before the program has started: it is loaded once it is built again");
    }
}

void Watch::Run()
{
    ReportStart();
    while (!session.link.RunFor(pollInterval))
    {
        const std::optional<WatchedFolder::Library> library = folder.FindChanged();
        if (library && Load(*library) == Outcome::Done)
        {
            folder.Done(*library);
            lastNotice.clear();
        }
    }
}

/// For what stays as it is until the library has been loaded.
void Watch::ReportOnce(const std::string& line)
{
    if (line != lastNotice)
    {
        report.Line(line);
        lastNotice = line;
    }
}

Watch::Outcome Watch::Refuse(const WatchedFolder::Library& library, const std::string& reason) const
{
    report.Line("refused " + Utf8(library.name) + ": " + reason);
    return Outcome::Done;
}

Watch::Outcome Watch::Load(const WatchedFolder::Library& library)
{
    const ImageSymbols image(library.bytes);
    if (image.IsIncomplete() && library.quietTime < writingTime)
    {
        return Outcome::TryAgain;
    }
    if (!image.Error().empty())
    {
        return Refuse(library, image.Error());
    }
    if (!image.IsLibrary())
    {
        return Refuse(library, "it is a program and not a library");
    }
    if (session.Modules().empty())
    {
        ReportOnce(Utf8(library.name) + " waits until the program has enabled a module");
        return Outcome::TryAgain;
    }
    for (const std::string& fault : targets.Update())
    {
        report.Line(fault);
    }
    const std::vector<MatchedFunction> matches = MatchFunctions(image.Exports(), targets.Modules());
    if (matches.empty())
    {
        return Refuse(
            library,
            "it exports no function: link it with -Wl,--export-all-symbols, or declare what is to be "
            "replaced as exported");
    }
    return Reload(library, matches);
}

Watch::Outcome Watch::Reload(const WatchedFolder::Library& library,
                             const std::vector<MatchedFunction>& matches)
{
    std::vector<MatchedFunction> routed;
    std::string obstacles;
    for (const MatchedFunction& match : matches)
    {
        if (match.from != 0)
        {
            routed.push_back(match);
        }
        else if (!match.obstacle.empty())
        {
            obstacles += "; " + match.name + ": " + match.obstacle;
        }
    }
    if (routed.empty())
    {
        return Refuse(library, "no function of it can replace one of an enabled module" + obstacles);
    }
    // ".patch_" keeps the Agent's automatic handling of modules from enabling it.
    const std::wstring stem = library.name.substr(0, library.name.find_last_of(L'.'));
    const std::wstring path = copies + L"\\" + stem + L".patch_" + std::to_wstring(session.host.Id()) + L"_" +
                              std::to_wstring(++loads) + L".dll";
    if (!WriteCopy(path, library.bytes))
    {
        return Refuse(library, "it can't be copied to " + Utf8(path));
    }
    bool hasAgreed = false;
    double start = session.link.Now();
    ReloadSteps steps;
    steps.build = [&]() -> Result<std::wstring> {
        hasAgreed = true;
        start = session.link.Now();
        if (session.IsSynchronized())
        {
            session.link.WaitUntilClosed(handoverTime);
        }
        return path;
    };
    steps.install = [&](const LoadedPatch& patch) {
        return Install(patch, routed);
    };
    steps.relocatedEntryPoint = RelocatedEntryPoint::RunsInLoader;
    const Result<> reloaded = RunReload(session, steps, limit);
    if (!hasAgreed && !session.link.IsClosed())
    {
        ReportOnce(Utf8(library.name) + " waits until the program agrees to a reload");
        return Outcome::TryAgain;
    }
    if (!reloaded)
    {
        return Refuse(library, reloaded.Reason());
    }
    ++reloads;
    report.Line("reload " + std::to_string(reloads) + ": " + JoinNames(routed) + " " +
                std::to_string(lround((session.link.Now() - start) * 1000)) + " ms");
    ReportFunctions(library.name, matches);
    return Outcome::Done;
}

Result<> Watch::Install(const LoadedPatch& patch, const std::vector<MatchedFunction>& routed)
{
    std::vector<Redirection> redirections;
    redirections.reserve(routed.size());
    for (const MatchedFunction& function : routed)
    {
        redirections.push_back({function.from, patch.Base() + function.to});
    }
    CallHooks(beforeReloadKind, beforeReloadHooksName, routed);
    const Result<std::vector<RoutedFunction>> result = Route(session, redirections, limit);
    if (!result)
    {
        return result.Why();
    }
    return SendCallEntryPoint(session, patch) && CallHooks(afterReloadKind, afterReloadHooksName, routed)
               ? Result<>()
               : ClosedPipe();
}

bool Watch::CallHooks(uint32_t kind, const char* name, const std::vector<MatchedFunction>& routed)
{
    HookArguments arguments;
    arguments.firstText = JoinNames(routed);
    arguments.number = reloads + 1;
    bool isSent = true;
    for (const auto& [first, end] : targets.HookTables(name))
    {
        isSent = SendCallHooks(session.link, kind, first, end, arguments) && isSent;
    }
    return isSent;
}

void Watch::ReportFunctions(const std::wstring& library, const std::vector<MatchedFunction>& matches)
{
    std::map<std::string, uint32_t>& numbers = routedBy[library];
    for (const MatchedFunction& match : matches)
    {
        if (match.from != 0)
        {
            report.Line("  " + match.name + ": routed, in " + match.module + " at " +
                        AddressText(match.from));
            numbers[match.name] = reloads;
        }
        else if (!match.obstacle.empty())
        {
            report.Line("  " + match.name + ": not routed, " + match.obstacle);
        }
        else
        {
            report.Line("  " + match.name + ": new, no enabled module has it");
        }
    }
    for (const auto& [name, number] : numbers)
    {
        if (number != reloads)
        {
            report.Line("  " + name + ": not in this build of " + Utf8(library) + ", that of reload " +
                        std::to_string(number) + " stays");
        }
    }
}
} // namespace

std::wstring FolderToWatch()
{
    std::wstring value(longestPath, L'\0');
    value.resize(GetEnvironmentVariableW(L"TORVANE_BRIDGE_WATCH", value.data(), longestPath));
    std::wstring path(longestPath, L'\0');
    path.resize(value.empty() ? 0 : GetFullPathNameW(value.c_str(), longestPath, path.data(), nullptr));
    while (!path.empty() && path.back() == L'\\')
    {
        path.pop_back();
    }
    return path;
}

const char* WatchHelp()
{
    return R"(A watching Bridge loads each *.dll that appears or changes in the folder, and has the host call the functions
that it exports in place of those of the same name in enabled modules, which it finds by exports, the COFF symbol
table, or a PDB. It reports in FOLDER/bridge.log and on the host's console. It doesn't update inlined functions,
static functions that the host keeps a pointer to, and the layout of objects that exist. Variables that a patch
defines start anew with each patch.
)";
}

void WatchFolder(Session& session, const std::wstring& folder)
{
    Watch(session, folder).Run();
}
} // namespace Torvane::Bridge
