#include "bridge/Bridge.h"

#include "Agent/Protocol/Names.h"

#include <stdio.h>
#include <string>
#include <vector>
#include <wchar.h>

#include <windows.h>

using namespace Torvane;
using namespace Torvane::Bridge;

namespace
{
// The exit codes of BSD's sysexits.h for these mistakes.
constexpr int wrongUsage = 64;
constexpr int cannotCreate = 73;

constexpr char help[] =
    R"(TVN_Agent_Bridge_x64 PROCESS-ID                  the Bridge of the host with this process id
TVN_Agent_Bridge_x64 --watch FOLDER PROCESS-ID   the same, with TORVANE_BRIDGE_WATCH=FOLDER
TVN_Agent_Bridge_x64 --help                      this help
TVN_Agent_Bridge_x64 --version                   the version, which has to be the Agent's

A host's Agent starts this program by itself, with the process id as the whole command line. These environment variables,
set for the host, are passed on to it:

TORVANE_BRIDGE_WATCH=FOLDER     loads each patch library that appears in FOLDER and routes the host's functions to it
TORVANE_BRIDGE_RECORDING=FILE   records every Blob in a new file, which the command blobs reads
TORVANE_BRIDGE_SCENARIO=NAME    runs a scenario that was compiled into this program, instead of the default Bridge

Exit status: 0 success, 1 the Agent can't be reached, 2 the Agent has another version, 64 wrong usage, 73 the recording
can't be created; a scenario has its own.
)";

/// Nobody sees it unless the Bridge was started by hand: an Agent starts it without standard handles.
int Fail(const std::string& sentence, int exitCode)
{
    fprintf(stderr, "TVN_Agent_Bridge_x64: %s\n", sentence.c_str());
    return exitCode;
}

/// The words of the command line; a quoted part may contain blanks. With a process id as the whole command line, as an
/// Agent starts it, there is no program name.
std::vector<std::wstring> CommandLineWords()
{
    std::vector<std::wstring> words;
    bool isQuoted = false;
    bool isInWord = false;
    for (const wchar_t* next = GetCommandLineW(); *next != L'\0'; ++next)
    {
        if ((*next == L' ' || *next == L'\t') && !isQuoted)
        {
            isInWord = false;
            continue;
        }
        if (!isInWord)
        {
            words.emplace_back();
            isInWord = true;
        }
        if (*next == L'"')
        {
            isQuoted = !isQuoted;
        }
        else
        {
            words.back() += *next;
        }
    }
    return words;
}

/// 0 for what isn't a process id.
uint32_t ParseProcessId(const std::wstring& word)
{
    constexpr size_t mostDigits = 10;
    if (word.empty() || word.size() > mostDigits ||
        word.find_first_not_of(L"0123456789") != std::wstring::npos)
    {
        return 0;
    }
    const unsigned long long id = wcstoull(word.c_str(), nullptr, 10);
    return id <= UINT32_MAX ? static_cast<uint32_t>(id) : 0;
}

struct Arguments
{
    std::wstring watchedFolder;
    uint32_t hostProcessId = 0;
    std::string fault; ///< a sentence; empty for valid arguments
};

Arguments ReadArguments(const std::vector<std::wstring>& words)
{
    Arguments arguments;
    for (size_t i = words.size() > 1 ? 1 : 0; i < words.size(); ++i)
    {
        if (words[i] == L"--watch")
        {
            if (++i == words.size() || words[i].empty())
            {
                arguments.fault = "The option --watch needs a folder.";
                return arguments;
            }
            arguments.watchedFolder = words[i];
        }
        else if (words[i].substr(0, 1) == L"-")
        {
            arguments.fault = "There is no option " + Utf8(words[i]) + "; --help lists what there is.";
            return arguments;
        }
        else if (arguments.hostProcessId != 0)
        {
            arguments.fault = "The argument \"" + Utf8(words[i]) + "\" is one too many.";
            return arguments;
        }
        else if ((arguments.hostProcessId = ParseProcessId(words[i])) == 0 && words.size() > 1)
        {
            arguments.fault = "\"" + Utf8(words[i]) + "\" isn't a process id.";
            return arguments;
        }
    }
    if (arguments.hostProcessId == 0)
    {
        arguments.fault =
            "The process id of a host is missing. An Agent starts its Bridge by itself; --help says more.";
    }
    return arguments;
}

std::string EnvironmentVariable(const wchar_t* name)
{
    std::wstring value(32768, L'\0');
    value.resize(GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size())));
    return Utf8(value);
}
} // namespace

int main()
{
    const std::vector<std::wstring> words = CommandLineWords();
    if (words.size() == 2 && (words[1] == L"--help" || words[1] == L"--version"))
    {
        const std::string text = words[1] == L"--help"
                                     ? std::string(help) + "\n" + WatchHelp()
                                     : std::string("TVN_Agent_Bridge_x64 ") + apiVersion + "\n";
        fputs(text.c_str(), stdout);
        return 0;
    }
    const std::string scenario = ChosenScenario();
    const ScenarioFunction run = FindScenario(scenario);
    if (run == nullptr)
    {
        return Fail("This Bridge has no scenario \"" + scenario +
                        "\", which TORVANE_BRIDGE_SCENARIO names; " + ScenarioNames(),
                    wrongUsage);
    }
    const Arguments arguments = ReadArguments(words);
    if (!arguments.fault.empty())
    {
        return Fail(arguments.fault, wrongUsage);
    }
    if (!arguments.watchedFolder.empty())
    {
        SetEnvironmentVariableW(L"TORVANE_BRIDGE_WATCH", arguments.watchedFolder.c_str());
    }
    if (!RecordEveryLinkIfRequested())
    {
        return Fail("The recording " + EnvironmentVariable(L"TORVANE_BRIDGE_RECORDING") +
                        ", which TORVANE_BRIDGE_RECORDING names, can't be created: check its name, and that "
                        "its folder "
                        "exists and can be written.",
                    cannotCreate);
    }
    return run(arguments.hostProcessId);
}
