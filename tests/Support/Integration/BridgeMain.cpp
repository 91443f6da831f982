#include "bridge/Bridge.h"
#include "tests/Support/Integration/Channel.h"

#include "gtest/gtest.h"

#include <windows.h>

#include <process.h>
#include <stdio.h>
#include <string.h>

namespace
{
using namespace Torvane::Testing;

constexpr DWORD graceAfterHost = 5000; // milliseconds
constexpr UINT orphanExitCode = 88;

/// Sends every failed assertion to the host half.
class FailureReporter : public testing::EmptyTestEventListener
{
public:
    explicit FailureReporter(Channel& reportChannel)
        : channel(reportChannel)
    {
    }

    void OnTestPartResult(const testing::TestPartResult& result) override
    {
        if (result.failed())
        {
            const std::string file = result.file_name() == nullptr ? "" : result.file_name();
            channel.AddFailure(file + "(" + std::to_string(result.line_number()) + "): " + result.message());
        }
    }

private:
    Channel& channel;
};

/// No process is left running: this one ends soon after its host, whatever it waits for. A host whose own time limit
/// doesn't end it, since its threads are suspended, is ended from here.
unsigned __stdcall EndWithHost(void* host)
{
    uint64_t limit = 60; // for a host that doesn't start its Agent by the functions of `HostTest`
    std::vector<uint8_t> data;
    Channel channel(Torvane::Bridge::HostProcessIdFromCommandLine());
    if (channel.Find(timeLimitName, data) && data.size() == sizeof(limit))
    {
        memcpy(&limit, data.data(), sizeof(limit));
    }
    if (WaitForSingleObject(host, static_cast<DWORD>(limit * 1000) + graceAfterHost) == WAIT_TIMEOUT)
    {
        fprintf(stderr,
                "\n%s hangs: its host hasn't ended within its %u seconds and is ended by its Bridge.\n",
                Torvane::Bridge::ChosenScenario().c_str(), static_cast<unsigned>(limit));
        fflush(stderr);
        TerminateProcess(host, orphanExitCode);
    }
    Sleep(graceAfterHost);
    TerminateProcess(GetCurrentProcess(), orphanExitCode);
    return 0;
}

int RunBridgeHalf(const std::string& name, Channel& channel)
{
    int argumentCount = 1;
    char program[] = "Bridge";
    char* arguments[] = {program, nullptr};
    testing::InitGoogleTest(&argumentCount, arguments);
    GTEST_FLAG_SET(filter, name);
    testing::TestEventListeners& listeners = testing::UnitTest::GetInstance()->listeners();
    delete listeners.Release(listeners.default_result_printer());
    listeners.Append(new FailureReporter(channel));
    (void)RUN_ALL_TESTS(); // what fails has been reported
    if (testing::UnitTest::GetInstance()->test_to_run_count() != 1)
    {
        channel.AddFailure("There is no Bridge half named " + name);
    }
    return 0;
}
} // namespace

/// The Bridge of every integration test.
int main()
{
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
    const uint32_t hostProcessId = Torvane::Bridge::HostProcessIdFromCommandLine();
    const HANDLE host = OpenProcess(SYNCHRONIZE | PROCESS_TERMINATE, FALSE, hostProcessId);
    _beginthreadex(nullptr, 0, &EndWithHost, host, 0, nullptr);

    Channel channel(hostProcessId);
    channel.EnterBridge(GetCurrentProcessId());
    const std::string name = Torvane::Bridge::ChosenScenario();
    if (!Torvane::Bridge::RecordEveryLinkIfRequested())
    {
        channel.AddFailure("The recording that is asked for can't be made.");
    }
    int result;
    if (name == "DefaultBridge")
    {
        channel.SetState(BridgeState::Staying);
        result = Torvane::Bridge::RunDefaultBridge(hostProcessId);
    }
    else
    {
        result = RunBridgeHalf(name, channel);
    }
    channel.SetState(BridgeState::Finished);
    return result;
}
