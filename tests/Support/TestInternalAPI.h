#pragma once

/// \file
/// Write access to the table of OS functions. Tests only, while no other thread calls through the table.

#include "Shared/OS/Windows/WindowsInternalAPI.h"

namespace Torvane::Testing
{
/// Restores the table's entries at the end of its life.
class TestInternalAPI
{
public:
    TestInternalAPI()
        : before(Get())
    {
    }

    ~TestInternalAPI()
    {
        Get() = before;
    }

    TestInternalAPI(const TestInternalAPI&) = delete;
    TestInternalAPI& operator=(const TestInternalAPI&) = delete;

    static WindowsInternalAPI& Get()
    {
        return const_cast<WindowsInternalAPI&>(GetWindowsInternalAPI());
    }

private:
    WindowsInternalAPI before;
};
} // namespace Torvane::Testing
