#pragma once

/// \file
/// Threads of tests, and the limits of their waits. Tests only.

#include <functional>
#include <stdint.h>
#include <utility>

#include <gtest/gtest.h>
#include <process.h>
#include <windows.h>

namespace Torvane
{
/// Milliseconds until a test gives up on what has to come.
constexpr DWORD testPatience = 60000;

/// Milliseconds that a test grants to what must not come.
constexpr DWORD testGrace = 50;

/// Waits for a condition that another thread brings about. \return whether it came in time.
template<typename Condition>
bool WaitUntil(Condition condition)
{
    const DWORD start = GetTickCount();
    while (!condition())
    {
        if (GetTickCount() - start > testPatience)
        {
            return false;
        }
        Sleep(1);
    }
    return true;
}

/// Runs a function, and is waited for when its life ends. A thread that doesn't end by then ends the program, since
/// what it uses is about to go.
class TestThread
{
public:
    explicit TestThread(std::function<void()> threadBody)
        : body(std::move(threadBody))
        , handle(reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, &Run, this, 0, nullptr)))
    {
    }

    ~TestThread()
    {
        if (!HasEnded(testPatience))
        {
            GTEST_LOG_(FATAL) << "a test's thread doesn't end";
        }
        CloseHandle(handle);
    }

    TestThread(const TestThread&) = delete;
    TestThread& operator=(const TestThread&) = delete;

    /// Waits for the thread's end, at most this long. \return whether it has ended.
    bool HasEnded(DWORD milliseconds = testPatience) const
    {
        return WaitForSingleObject(handle, milliseconds) == WAIT_OBJECT_0;
    }

private:
    static unsigned __stdcall Run(void* thread)
    {
        static_cast<TestThread*>(thread)->body();
        return 0;
    }

    std::function<void()> body;
    HANDLE handle;
};
} // namespace Torvane
