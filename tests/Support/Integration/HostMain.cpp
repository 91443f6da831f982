#include "tests/Support/Integration/AgentLog.h"

#include "gtest/gtest.h"

#include <stdio.h>

#include <windows.h>

namespace
{
constexpr UINT crashExitCode = 87;

/// No debugger is asked for, which would keep the process until somebody comes.
LONG WINAPI EndCrashed(EXCEPTION_POINTERS* exception)
{
    char text[160];
    const int size =
        snprintf(text, sizeof(text), "\nThe host has crashed: exception 0x%08lX at 0x%p.\n",
                 exception->ExceptionRecord->ExceptionCode, exception->ExceptionRecord->ExceptionAddress);
    DWORD count = 0;
    WriteFile(GetStdHandle(STD_ERROR_HANDLE), text, static_cast<DWORD>(size), &count, nullptr);
    const std::string log = Torvane::Testing::ReadAgentLogText(GetCurrentProcessId());
    WriteFile(GetStdHandle(STD_ERROR_HANDLE), log.data(), static_cast<DWORD>(log.size()), &count, nullptr);
    TerminateProcess(GetCurrentProcess(), crashExitCode);
    return EXCEPTION_EXECUTE_HANDLER;
}
} // namespace

/// The host of every integration test; the arguments are those of GoogleTest.
int main(int argc, char** argv)
{
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
    SetUnhandledExceptionFilter(&EndCrashed);
    testing::InitGoogleTest(&argc, argv);
    const int result = RUN_ALL_TESTS();
    if (result == 0)
    {
        DeleteFileW(Torvane::Testing::AgentLogPath(GetCurrentProcessId()).c_str());
    }
    return result;
}
