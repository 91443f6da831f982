#pragma once

/// \file
/// Blocks an Agent of this process before it spawns its Bridge; for the thread that runs the test.

#include "Agent/Protocol/Names.h"

#include <string>

#include <windows.h>

namespace Torvane::Testing
{
/// Owns the mutex of the shared memory into which the receiver thread first puts the project preferences. To be made
/// before the Agent is started.
class StartupGate
{
public:
    StartupGate()
        : mutex(CreateMutexW(
              nullptr, TRUE,
              (std::wstring(agentBridgeMutexPrefix) + std::to_wstring(GetCurrentProcessId())).c_str()))
    {
    }

    /// Lets the Agent continue if it doesn't yet.
    ~StartupGate()
    {
        Open();
    }
    StartupGate(const StartupGate&) = delete;
    StartupGate& operator=(const StartupGate&) = delete;

    /// Lets the Agent continue.
    void Open()
    {
        if (mutex != nullptr)
        {
            ReleaseMutex(mutex);
            CloseHandle(mutex);
            mutex = nullptr;
        }
    }

private:
    HANDLE mutex;
};
} // namespace Torvane::Testing
