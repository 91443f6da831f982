#pragma once

/// \file
/// Child processes of tests; one thread.

#include "tests/Support/Modules.h"
#include "tests/Support/Wait.h"

#include <string.h>

#include <gtest/gtest.h>

namespace Torvane::Testing
{
/// Starts this program once more. \param arguments follow the program on the command line; \param flags as for
/// `CreateProcessW`; \param folder the current folder, this process's own if it is empty.
/// \return the child's handles, which are the caller's; null with a failure of the test if it couldn't be started.
inline PROCESS_INFORMATION StartChild(const std::wstring& arguments = L"", DWORD flags = 0,
                                      const std::wstring& folder = L"")
{
    const std::wstring program = ProgramPath();
    std::wstring commandLine = L"\"" + program + L"\" " + arguments;
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION child = {};
    EXPECT_TRUE(CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, TRUE, flags, nullptr,
                               folder.empty() ? nullptr : folder.c_str(), &startup, &child))
        << "error " << GetLastError();
    return child;
}

/// Waits for a child's end, ends it if it doesn't end in time, and closes its handles. \return its exit code.
inline DWORD WaitForChild(const PROCESS_INFORMATION& child, uint32_t milliseconds = testTimeout)
{
    const bool ended = WaitForSingleObject(child.hProcess, milliseconds) == WAIT_OBJECT_0;
    EXPECT_TRUE(ended) << "the child doesn't end";
    if (!ended)
    {
        TerminateProcess(child.hProcess, 1);
        WaitForSingleObject(child.hProcess, testTimeout);
    }
    DWORD code = 0;
    GetExitCodeProcess(child.hProcess, &code);
    CloseHandle(child.hThread);
    CloseHandle(child.hProcess);
    return code;
}

/// A role that a child of a unit test can have. Defined once, as a static object; a child runs its role instead of the
/// tests. The role uses the OS alone: no memory system, no log.
class ChildRole
{
public:
    using Body = void (*)(const wchar_t* argument);

    ChildRole(const wchar_t* roleName, Body body)
        : name(roleName)
    {
        wchar_t wanted[maximumLength];
        wchar_t argument[maximumLength];
        if (GetEnvironmentVariableW(roleVariable, wanted, maximumLength) != 0 && wcscmp(wanted, name) == 0)
        {
            GetEnvironmentVariableW(argumentVariable, argument, maximumLength);
            body(argument);
            ExitProcess(0);
        }
    }

    /// Starts a child in this role, as `StartChild` does. \param argument isn't empty.
    PROCESS_INFORMATION Start(const wchar_t* argument, DWORD flags = 0) const
    {
        Announce(argument);
        const PROCESS_INFORMATION child = StartChild(L"", flags);
        Withdraw();
        return child;
    }

    /// Runs a child in this role until it ends, whatever its exit code. \param argument isn't empty.
    void Run(const wchar_t* argument) const
    {
        const PROCESS_INFORMATION child = Start(argument);
        if (child.hProcess != nullptr)
        {
            WaitForChild(child);
        }
    }

    /// From now on, a child that is started from this program runs in this role. \param argument isn't empty.
    void Announce(const wchar_t* argument) const
    {
        SetEnvironmentVariableW(roleVariable, name);
        SetEnvironmentVariableW(argumentVariable, argument);
    }

    static void Withdraw()
    {
        SetEnvironmentVariableW(roleVariable, nullptr);
        SetEnvironmentVariableW(argumentVariable, nullptr);
    }

private:
    static constexpr const wchar_t* roleVariable = L"TORVANE_TEST_CHILD_ROLE";
    static constexpr const wchar_t* argumentVariable = L"TORVANE_TEST_CHILD_ARGUMENT";
    static constexpr DWORD maximumLength = 256;

    const wchar_t* name;
};
} // namespace Torvane::Testing
