#pragma once

/// \file
/// The host half of a test of a restart, which ends processes: the test's own process starts another one of the same
/// test, with a command line, folder and environment of its own, and sees how that ends. For the thread that runs the
/// test.

#include "tests/Support/ChildProcess.h"
#include "tests/Support/Integration/HostTest.h"

#include <stdint.h>
#include <string>

#include <windows.h>

namespace Torvane::Testing
{
/// What the second process gets.
struct Rerun
{
    std::wstring arguments;     ///< further arguments, as on the command line
    std::wstring currentFolder; ///< empty for this process's own
};

class RestartHost : public HostTest
{
protected:
    /// Whether this is the process that the test's first one has started.
    static bool IsRerun()
    {
        return GetEnvironmentVariableW(L"TORVANE_TEST_RERUN", nullptr, 0) != 0;
    }

    /// Runs this test once more in a process of its own, with this process's environment, and waits for its end.
    /// \return its exit code. A failure of the test if it can't be started or doesn't end.
    DWORD RunAgain(const Rerun& rerun = {})
    {
        ExpectNoBridge();
        const testing::TestInfo& test = *testing::UnitTest::GetInstance()->current_test_info();
        const std::string name = std::string(test.test_suite_name()) + "." + test.name();
        std::wstring arguments = L"--gtest_filter=" + std::wstring(name.begin(), name.end());
        if (!rerun.arguments.empty())
        {
            arguments += L" " + rerun.arguments;
        }
        SetEnvironmentVariableW(L"TORVANE_TEST_RERUN", L"1"); // inherited
        const PROCESS_INFORMATION child = StartChild(arguments, 0, rerun.currentFolder);
        if (child.hProcess == nullptr)
        {
            return STILL_ACTIVE;
        }
        rerunProcessId = child.dwProcessId;
        return WaitForChild(child, 2 * testTimeout);
    }

    /// The log of the process that `RunAgain` has run.
    std::vector<LogRecord> ReadLogOfRerun() const
    {
        return ParseAgentLog(ReadAgentLogText(rerunProcessId));
    }

    DWORD rerunProcessId = 0;
};
} // namespace Torvane::Testing
