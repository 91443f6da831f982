/// \file
/// The command torvane-doctor: checks whether a host can connect, and says what is in its way.

#include "Agent/Protocol/Names.h"
#include "Torvane/Agent.h"
#include "bridge/Text.h"
#include "tools/doctor/AgentLog.h"
#include "tools/doctor/Folders.h"
#include "tools/doctor/Image.h"
#include "tools/doctor/Imports.h"
#include "tools/doctor/Preferences.h"
#include "tools/doctor/Report.h"
#include "tools/doctor/Trial.h"

#include <vector>
#include <windows.h>

#include <shellapi.h>

namespace Torvane::Doctor
{
namespace
{
using Bridge::Utf8;

constexpr char usage[] =
    R"(torvane-doctor HOST [--try] [--make-log-folder]

Checks whether the program HOST can connect to its Bridge. Prints a line for each thing that it
looks at, with what to do: what is as it should be (ok), what doesn't prevent a connection but
will be missed (warning), and what prevents one (problem).

--try               connects to the Bridge as HOST would, in a process of its own that loads
                    the Agent's library. That process, the Bridge and whatever these have
                    started are ended afterwards
--make-log-folder   makes the folder of the Agent's logs, which the Agent doesn't do
--help, --version   print this help, or the version

The preferences are those of the Broker's default folder, ../../Broker seen from the library.
What HOST does by itself isn't looked at: which library it loads and when, and another folder
that it names for the Broker.

Exit status: 0  with --try: the trial has connected, and there is no problem besides. Without:
                there is no problem in the files; only a trial shows that the Bridge connects
             1  there is a problem
             2  wrong usage
)";

enum ExitStatus
{
    NoProblem = 0,
    ProblemFound = 1,
    WrongUsage = 2,
};

struct Request
{
    std::wstring host;
    bool tries = false;
    bool makesLogFolder = false;
    std::string fault; ///< empty for a valid request
};

/// \return the path of the library that HOST loads; empty if it can't be loaded.
std::wstring CheckLibrary(const std::wstring& hostFolder, Report& report)
{
    std::wstring ofOtherSize;
    std::wstring path = hostFolder + L"\\TVN_Agent_x86.dll";
    if (!IsThere(path))
    {
        path = LibrarySearch(hostFolder, false).Find(L"TVN_Agent_x86.dll", ofOtherSize);
        if (path.empty())
        {
            report.Add(Finding::LibraryMissing, {Utf8(hostFolder)});
            return L"";
        }
        report.Add(Finding::LibraryElsewhere, {Utf8(path)});
    }
    const Image image = ReadImage(path);
    if (!image.Is32Bit() || !image.isLibrary)
    {
        report.Add(Finding::LibraryNot32Bit, {Utf8(path), Describe(image)});
        return L"";
    }
    report.Add(Finding::LibraryOk, {Utf8(path)});
    return path;
}

/// \return the Bridge's path; empty if it can't be started.
std::wstring CheckBridge(const std::wstring& libraryFolder, Report& report)
{
    std::wstring path = libraryFolder + bridgePathSuffix;
    if (!IsThere(path))
    {
        report.Add(Finding::BridgeMissing, {Utf8(libraryFolder)});
        return L"";
    }
    const Image image = ReadImage(path);
    if (!image.Is64Bit() || image.isLibrary)
    {
        report.Add(Finding::BridgeNot64Bit, {Utf8(path), Describe(image)});
        return L"";
    }
    report.Add(Finding::BridgeOk, {Utf8(path)});
    return path;
}

void CompareVersions(const std::wstring& library, const std::wstring& bridge, Report& report)
{
    const std::string ofLibrary = ReadTorvaneVersion(library);
    const std::string ofBridge = ReadTorvaneVersion(bridge);
    if (ofLibrary.empty() || ofBridge.empty())
    {
        report.Add(Finding::VersionUnknown, {Utf8(ofLibrary.empty() ? library : bridge)});
    }
    else if (ofLibrary == ofBridge)
    {
        report.Add(Finding::VersionsEqual, {ofLibrary});
    }
    else
    {
        report.Add(Finding::VersionsDiffer, {ofLibrary, ofBridge});
    }
}

bool CheckHost(const std::wstring& host, Report& report)
{
    const Image image = ReadImage(host);
    if (image.error != 0)
    {
        report.Add(Finding::HostNotOpened, {Utf8(host), ErrorText(image.error)});
    }
    else if (!image.isExecutable)
    {
        report.Add(Finding::HostNoProgram, {Utf8(host)});
    }
    else if (image.isLibrary)
    {
        report.Add(Finding::HostIsLibrary, {Utf8(host)});
    }
    else
    {
        report.Add(image.Is32Bit() ? Finding::HostOk : Finding::HostNot32Bit, {Utf8(host), Describe(image)});
        return true;
    }
    return false;
}

ExitStatus Examine(const Request& request)
{
    Report report;
    const std::wstring host = FullPath(request.host);
    const std::wstring hostFolder = FolderOf(host);
    if (!CheckHost(host, report))
    {
        return ProblemFound;
    }
    const std::wstring library = CheckLibrary(hostFolder, report);
    const std::wstring libraryFolder = library.empty() ? hostFolder : FolderOf(library);
    const std::wstring bridge = CheckBridge(libraryFolder, report);
    if (!library.empty() && !bridge.empty())
    {
        CompareVersions(library, bridge, report);
    }
    CheckImports(host, hostFolder, report);
    if (!library.empty())
    {
        CheckImports(library, hostFolder, report);
    }
    if (!bridge.empty())
    {
        CheckImports(bridge, libraryFolder, report);
    }
    const std::wstring logFolder = CheckLogFolder(request.makesLogFolder, report);
    const uint32_t timeout = CheckPreferences(libraryFolder, report);
    ReportLog(FindNewestLog(logFolder), report);
    if (request.tries && library.empty())
    {
        report.Add(Finding::TrialNotPossible);
    }
    else if (request.tries)
    {
        const std::wstring log = FindLogOf(logFolder, TryConnection(library, timeout, report));
        if (!log.empty())
        {
            ReportLog(log, report);
        }
    }
    return report.HasProblem() ? ProblemFound : NoProblem;
}

Request ParseArguments(const std::vector<std::wstring>& arguments)
{
    Request request;
    for (const std::wstring& argument : arguments)
    {
        if (argument == L"--try")
        {
            request.tries = true;
        }
        else if (argument == L"--make-log-folder")
        {
            request.makesLogFolder = true;
        }
        else if (argument.empty() || argument[0] == L'-')
        {
            request.fault = "There is no option \"" + Utf8(argument) + "\".";
            return request;
        }
        else if (!request.host.empty())
        {
            request.fault = "Give one program only; the second one is \"" + Utf8(argument) + "\".";
            return request;
        }
        else
        {
            request.host = argument;
        }
    }
    request.fault = request.host.empty() ? "Give the path of the program to check." : "";
    return request;
}

ExitStatus Run(const std::vector<std::wstring>& arguments)
{
    if (arguments.size() == 2 && arguments[0] == trialArgument)
    {
        RunTrial(arguments[1]);
    }
    if (arguments.size() == 1 && (arguments[0] == L"--help" || arguments[0] == L"--version"))
    {
        Print(arguments[0] == L"--help" ? usage : "torvane-doctor " TVN_VERSION "\n");
        return NoProblem;
    }
    const Request request = ParseArguments(arguments);
    if (!request.fault.empty())
    {
        Print("torvane-doctor: " + request.fault + " See torvane-doctor --help.\n", true);
        return WrongUsage;
    }
    return Examine(request);
}
} // namespace
} // namespace Torvane::Doctor

int main()
{
    SetConsoleOutputCP(CP_UTF8);
    int count = 0;
    wchar_t** arguments = CommandLineToArgvW(GetCommandLineW(), &count);
    return Torvane::Doctor::Run(std::vector<std::wstring>(arguments + 1, arguments + count));
}
