#include "tests/Support/Integration/TimeLimit.h"

#include "tests/Support/Integration/AgentLog.h"
#include "tests/Support/Integration/Channel.h"
#include "tests/Support/Wait.h"

#include <windows.h>

#include <process.h>

namespace Torvane::Testing
{
namespace
{
struct Limit
{
    std::string testName;
    uint32_t seconds;
    HANDLE stop;
    HANDLE thread;
};

Limit* current;

/// Past the runtime library, whose locks a hanging test may hold.
void Write(const std::string& text)
{
    DWORD count = 0;
    WriteFile(GetStdHandle(STD_ERROR_HANDLE), text.data(), static_cast<DWORD>(text.size()), &count, nullptr);
}

unsigned __stdcall Watch(void* context)
{
    const Limit& limit = *static_cast<const Limit*>(context);
    if (WaitForSingleObject(limit.stop, limit.seconds * 1000) == WAIT_OBJECT_0)
    {
        return 0;
    }
    Write("\n" + limit.testName + " hangs: it has taken more than " + std::to_string(limit.seconds) +
          " seconds and is ended.\n");
    Channel channel(GetCurrentProcessId());
    for (const std::string& failure : channel.Failures())
    {
        Write("In the Bridge half: " + failure + "\n");
    }
    Write("The Agent's log:" + ReadAgentLogText(GetCurrentProcessId()) + "\n");
    TerminateProcess(GetCurrentProcess(), timeLimitExitCode);
    return 0;
}
} // namespace

void StartTimeLimit(uint32_t seconds, const std::string& testName)
{
    StopTimeLimit();
    current = new Limit{testName, seconds, CreateEventW(nullptr, TRUE, FALSE, nullptr), nullptr};
    current->thread = reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, &Watch, current, 0, nullptr));
}

void StopTimeLimit()
{
    if (current == nullptr)
    {
        return;
    }
    SetEvent(current->stop);
    WaitForSingleObject(current->thread, testTimeout);
    CloseHandle(current->thread);
    CloseHandle(current->stop);
    delete current;
    current = nullptr;
}
} // namespace Torvane::Testing
