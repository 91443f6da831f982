#pragma once

/// \file
/// A thread of a test; each object belongs to one thread.

#include "tests/Support/Wait.h"

#include <functional>
#include <utility>

#include <gtest/gtest.h>
#include <process.h>

namespace Torvane::Testing
{
/// Runs a function on a thread of its own, which the destructor waits for. A thread that doesn't end by then ends the
/// process, since what it uses is about to be destroyed.
class TestThread
{
public:
    explicit TestThread(std::function<void()> threadBody)
        : body(std::move(threadBody))
    {
        handle = reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, &Run, this, 0, &id));
    }

    ~TestThread()
    {
        if (handle == nullptr)
        {
            return;
        }
        if (!WaitForEnd())
        {
            GTEST_LOG_(FATAL) << "a test's thread doesn't end";
        }
        CloseHandle(handle);
    }

    TestThread(const TestThread&) = delete;
    TestThread& operator=(const TestThread&) = delete;

    /// Waits for the end of the function, at most this long. \return whether it has ended.
    bool WaitForEnd(uint32_t milliseconds = testTimeout) const
    {
        return WaitForSingleObject(handle, milliseconds) == WAIT_OBJECT_0;
    }

    bool HasEnded() const
    {
        return WaitForEnd(0);
    }

    DWORD Id() const
    {
        return id;
    }

    HANDLE Handle() const
    {
        return handle;
    }

    /// For a thread that never ends: this object must then live as long as the process.
    void Abandon()
    {
        handle = nullptr;
    }

private:
    static unsigned __stdcall Run(void* thread)
    {
        static_cast<TestThread*>(thread)->body();
        return 0;
    }

    std::function<void()> body;
    HANDLE handle = nullptr;
    unsigned id = 0;
};
} // namespace Torvane::Testing
