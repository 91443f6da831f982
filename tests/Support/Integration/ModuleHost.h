#pragma once

/// \file
/// Host halves that enable and disable modules; for the thread that runs the test.

#include "tests/Support/Integration/HostTest.h"
#include "tests/Support/Modules.h"
#include "tests/Support/TestLibraries.h"
#include "tests/Support/TestThread.h"

#include <functional>

namespace Torvane::Testing
{
/// \param text of ASCII characters.
inline std::string Narrow(const std::wstring& text)
{
    return std::string(text.begin(), text.end());
}

/// The path by which the OS knows an open file.
inline std::wstring FinalPath(const std::wstring& path)
{
    const HANDLE file = CreateFileW(path.c_str(), FILE_READ_ATTRIBUTES, FILE_SHARE_READ, nullptr,
                                    OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    wchar_t text[1024] = {};
    GetFinalPathNameByHandleW(file, text, 1024, 0);
    CloseHandle(file);
    return std::wstring(text).substr(4);
}

/// Base of host halves that enable and disable libraries of their own.
class ModuleHost : public HostTest
{
protected:
    /// Three libraries of different sizes that import nothing.
    void LoadThree()
    {
        EXPECT_TRUE(libraries.Write("TvnSmall.dll", {}, 0x3000));
        EXPECT_TRUE(libraries.Write("TvnLarge.dll", {}, 0x9000));
        EXPECT_TRUE(libraries.Write("TvnMiddle.dll", {}, 0x5000));
        for (const char* name : {"TvnSmall.dll", "TvnLarge.dll", "TvnMiddle.dll"})
        {
            EXPECT_NE(nullptr, libraries.Load(name));
        }
    }

    /// Calls on a thread of its own, which has to wait until the Bridge has said "last", and no longer.
    void ExpectToWaitForLast(const std::function<void()>& call)
    {
        const TestThread caller(call);
        EXPECT_TRUE(Await("nearly"));
        EXPECT_FALSE(caller.WaitForEnd(quietPeriod));
        Signal("waits");
        EXPECT_TRUE(caller.WaitForEnd(testTimeout));
    }

    const wchar_t* three[3] = {L"TvnSmall.dll", L"TvnLarge.dll", L"TvnMiddle.dll"};
    TestLibraries libraries;
};
} // namespace Torvane::Testing
