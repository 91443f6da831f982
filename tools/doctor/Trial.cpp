#include "tools/doctor/Trial.h"

#include "Torvane/Load.h"
#include "bridge/Text.h"

#include <algorithm>
#include <stdio.h>
#include <string>
#include <windows.h>

namespace Torvane::Doctor
{
namespace
{
/// What a trial may take beyond the time-outs of both pipes, in milliseconds: the starts of two processes.
constexpr uint32_t additionalTime = 5000;

constexpr uint32_t longestTimeout = 600000; ///< that a trial waits for

std::wstring GetOwnPath()
{
    wchar_t path[1024] = {};
    GetModuleFileNameW(nullptr, path, 1024);
    return path;
}

/// A job whose processes end with it.
HANDLE MakeJob()
{
    const HANDLE job = CreateJobObjectW(nullptr, nullptr);
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    SetInformationJobObject(job, JobObjectExtendedLimitInformation, &limits, sizeof(limits));
    return job;
}

void ReportEnd(HANDLE process, uint32_t limit, Report& report)
{
    if (WaitForSingleObject(process, limit) != WAIT_OBJECT_0)
    {
        report.Add(Finding::TrialNoAnswer, {std::to_string(limit)});
        return;
    }
    DWORD exitCode = 0;
    GetExitCodeProcess(process, &exitCode);
    if (exitCode == 1)
    {
        report.AddPrintedProblem();
    }
    else if (exitCode != 0)
    {
        char number[16] = {};
        snprintf(number, sizeof(number), "%08lX", exitCode);
        report.Add(Finding::TrialEnded, {number});
    }
}

/// Ends the process without a dialog or a debugger.
LONG WINAPI EndByException(EXCEPTION_POINTERS* exception)
{
    TerminateProcess(GetCurrentProcess(), exception->ExceptionRecord->ExceptionCode);
    return EXCEPTION_EXECUTE_HANDLER;
}

Finding FindingOf(LONG status)
{
    switch (status)
    {
    case ConnectionSucceeded:
        return Finding::TrialSucceeded;
    case UnexpectedVersionBlob:
        return Finding::TrialFirstMessage;
    case VersionMismatch:
        return Finding::TrialVersion;
    default:
        return Finding::TrialFailed;
    }
}
} // namespace

uint32_t TryConnection(const std::wstring& library, uint32_t timeout, Report& report)
{
    std::wstring command = L"torvane-doctor " + std::wstring(trialArgument) + L" \"" + library + L"\"";
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process = {};
    if (!CreateProcessW(GetOwnPath().c_str(), command.data(), nullptr, nullptr, TRUE, CREATE_SUSPENDED,
                        nullptr, nullptr, &startup, &process))
    {
        report.Add(Finding::TrialNotStarted, {ErrorText(GetLastError())});
        return 0;
    }
    const HANDLE job = MakeJob();
    AssignProcessToJobObject(job, process.hProcess);
    ResumeThread(process.hThread);
    ReportEnd(process.hProcess, 2 * std::min(timeout, longestTimeout) + additionalTime, report);
    TerminateJobObject(job, 1);
    TerminateProcess(process.hProcess, 1); // it isn't in the job if the doctor is in one that allows no other
    WaitForSingleObject(process.hProcess, INFINITE);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    CloseHandle(job);
    return process.dwProcessId;
}

void RunTrial(const std::wstring& library)
{
    static TvnHost host; // exists as long as the Agent
    Report report;
    SetUnhandledExceptionFilter(EndByException);
    if (!TvnHostLoad(&host, library.c_str()))
    {
        report.Add(Finding::TrialNotLoaded, {Bridge::Utf8(host.reason)});
    }
    else
    {
        const uint64_t start = GetTickCount64();
        TvnHostStartDefaultAgent(&host, nullptr, nullptr, nullptr);
        TvnHostWaitForConnection(&host, INFINITE); // the doctor ends a trial that takes too long
        report.Add(FindingOf(host.status), {std::to_string(GetTickCount64() - start)});
    }
    // No shutdown: it would wait for a Bridge that doesn't read, after the result has been printed.
    TerminateProcess(GetCurrentProcess(), report.HasProblem() ? 1 : 0);
    __builtin_unreachable();
}
} // namespace Torvane::Doctor
