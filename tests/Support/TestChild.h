#pragma once

/// \file
/// Children of unit tests: the test program itself, in another part. Tests only.

#include <stdint.h>
#include <string.h>

#include <gtest/gtest.h>
#include <windows.h>

namespace Torvane
{
/// A part that a child can have. Defined once, as a static object; a child runs its part instead of the tests. The part
/// stands on the OS alone: no memory system, no log.
class TestChildPart
{
public:
    using Body = void (*)(const wchar_t* argument);

    TestChildPart(const wchar_t* partName, Body body)
        : name(partName)
    {
        wchar_t wanted[maximumLength];
        wchar_t argument[maximumLength];
        if (GetEnvironmentVariableW(partVariable, wanted, maximumLength) != 0 && wcscmp(wanted, name) == 0)
        {
            GetEnvironmentVariableW(argumentVariable, argument, maximumLength);
            body(argument);
            ExitProcess(0);
        }
    }

    /// Starts a child in this part. \param argument isn't empty; \param flags as for `CreateProcessW`.
    /// \return its handles, which are the caller's; null if it couldn't be started.
    PROCESS_INFORMATION Start(const wchar_t* argument, DWORD flags = 0) const
    {
        wchar_t program[MAX_PATH];
        GetModuleFileNameW(nullptr, program, MAX_PATH);
        Announce(argument);
        STARTUPINFOW startup = {};
        startup.cb = sizeof(startup);
        PROCESS_INFORMATION child = {};
        EXPECT_TRUE(CreateProcessW(program, nullptr, nullptr, nullptr, FALSE, flags, nullptr, nullptr,
                                   &startup, &child));
        Withdraw();
        return child;
    }

    /// Waits for a child's end, ends it if that doesn't come, and closes its handles. \return its exit code.
    static DWORD WaitForEnd(const PROCESS_INFORMATION& child)
    {
        const bool ended = WaitForSingleObject(child.hProcess, patience) == WAIT_OBJECT_0;
        EXPECT_TRUE(ended) << "the child doesn't end";
        if (!ended)
        {
            TerminateProcess(child.hProcess, 1);
        }
        DWORD code = 0;
        GetExitCodeProcess(child.hProcess, &code);
        CloseHandle(child.hThread);
        CloseHandle(child.hProcess);
        return code;
    }

    /// Runs a child in this part until it ends, however that may be. \param argument isn't empty.
    void Run(const wchar_t* argument) const
    {
        const PROCESS_INFORMATION child = Start(argument);
        if (child.hProcess != nullptr)
        {
            WaitForEnd(child);
        }
    }

    /// From now on, a child that is started from this program runs in this part. \param argument isn't empty.
    void Announce(const wchar_t* argument) const
    {
        SetEnvironmentVariableW(partVariable, name);
        SetEnvironmentVariableW(argumentVariable, argument);
    }

    static void Withdraw()
    {
        SetEnvironmentVariableW(partVariable, nullptr);
        SetEnvironmentVariableW(argumentVariable, nullptr);
    }

private:
    static constexpr const wchar_t* partVariable = L"TORVANE_TEST_CHILD_PART";
    static constexpr const wchar_t* argumentVariable = L"TORVANE_TEST_CHILD_ARGUMENT";
    static constexpr DWORD maximumLength = 256;
    static constexpr DWORD patience = 60000; ///< milliseconds

    const wchar_t* name;
};
} // namespace Torvane
