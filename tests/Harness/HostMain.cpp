#include "tests/Harness/AgentLog.h"

#include "gtest/gtest.h"

#include <windows.h>

/// The host of every integration test; the arguments are those of GoogleTest.
int main(int argc, char** argv)
{
    // A crash ends the process without asking anybody.
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
    testing::InitGoogleTest(&argc, argv);
    const int result = RUN_ALL_TESTS();
    if (result == 0)
    {
        DeleteFileW(Torvane::Testing::AgentLogPath(GetCurrentProcessId()).c_str());
    }
    return result;
}
