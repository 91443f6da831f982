#pragma once

/// \file
/// A thread of a test; each object belongs to one thread.

#include <functional>
#include <utility>

#include <windows.h>

namespace Torvane::Testing
{
/// Runs a function on a thread of its own.
class TestThread
{
public:
    explicit TestThread(std::function<void()> body)
        : function(std::move(body))
    {
        handle = CreateThread(nullptr, 0, &Run, this, 0, &id);
    }

    /// Waits for the thread, unless it was abandoned.
    ~TestThread()
    {
        if (handle != nullptr)
        {
            WaitForSingleObject(handle, INFINITE);
            CloseHandle(handle);
        }
    }
    TestThread(const TestThread&) = delete;
    TestThread& operator=(const TestThread&) = delete;

    /// Whether the function has returned within the limit, in milliseconds.
    bool HasEnded(DWORD milliseconds = 0) const
    {
        return WaitForSingleObject(handle, milliseconds) == WAIT_OBJECT_0;
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
    static DWORD WINAPI Run(void* thread)
    {
        static_cast<TestThread*>(thread)->function();
        return 0;
    }

    std::function<void()> function;
    HANDLE handle = nullptr;
    DWORD id = 0;
};
} // namespace Torvane::Testing
