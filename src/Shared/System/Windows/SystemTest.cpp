#include "Shared/System/Windows/System.h"

#include "tests/Support/FakeImport.h"
#include "tests/Support/RecordedLog.h"
#include "tests/Support/TestInternalAPI.h"
#include "tests/Support/TestMemorySystem.h"

#include <string.h>
#include <string>
#include <vector>

namespace Torvane::Testing
{
namespace
{
using Lines = std::vector<std::string>;

class SystemTest : public testing::Test
{
protected:
    SystemTest()
    {
        StartupWindowsInternalAPI();
        version.dwOSVersionInfoSize = 276;
    }

    TestMemorySystem memory;
    TestInternalAPI internalAPI;
    OSVERSIONINFOW version = {};
    RecordedLog log;
};

/// Keeps what the topology is asked with, and how often the fallback is used.
struct FakeTopology
{
    struct Ask
    {
        FakeTopology& fake;

        BOOL operator()(decltype(&GetLogicalProcessorInformationEx), LOGICAL_PROCESSOR_RELATIONSHIP relation,
                        PSYSTEM_LOGICAL_PROCESSOR_INFORMATION_EX answer, PDWORD size) const
        {
            EXPECT_EQ(relation, RelationAll);
            fake.calls.push_back(answer == nullptr ? "size" : "answer");
            if (answer == nullptr)
            {
                *size = 600;
                SetLastError(fake.errorOfSize);
                return FALSE;
            }
            EXPECT_EQ(*size, 600u);
            memset(answer, 0xEE, *size); // there is room for all of it
            fake.buffers.push_back(answer);
            return fake.answers;
        }
    };

    struct Fallback
    {
        FakeTopology& fake;

        void operator()(decltype(&GetSystemInfo) real, LPSYSTEM_INFO information) const
        {
            fake.calls.push_back("fallback");
            real(information);
        }
    };

    Lines calls;
    std::vector<void*> buffers; ///< for the answers
    DWORD errorOfSize = ERROR_INSUFFICIENT_BUFFER;
    BOOL answers = TRUE;
    FakeImport<Ask> ask{"GetLogicalProcessorInformationEx", Ask{*this}};
    FakeImport<Fallback> fallback{"GetSystemInfo", Fallback{*this}};
};

NTSTATUS NTAPI FailToTellTheVersion(OSVERSIONINFOW* version)
{
    EXPECT_EQ(version->dwOSVersionInfoSize, 276u);
    return static_cast<NTSTATUS>(0xC0000005);
}

const Lines* callsSoFar = nullptr;
Lines callsBeforeTheVersion;

NTSTATUS NTAPI TellVersion4711(OSVERSIONINFOW* version)
{
    callsBeforeTheVersion = *callsSoFar;
    version->dwMajorVersion = 4711;
    return 0;
}
} // namespace

TEST_F(SystemTest, StartsWithTheProcessorsAndThenTheVersion)
{
    FakeTopology topology;
    callsSoFar = &topology.calls;
    TestInternalAPI::Get().RtlGetVersion.pointer = TellVersion4711;
    StartupSystem();
    EXPECT_EQ(callsBeforeTheVersion, Lines({"size", "answer"}));
    EXPECT_EQ(GetOSVersion().dwMajorVersion, 4711u);
    StartupWindowsInternalAPI();
    StartupSystem();
}

TEST_F(SystemTest, AsksForTheProcessorsOnceForTheSizeAndOnceForTheAnswer)
{
    FakeTopology topology;
    QueryProcessorTopology();
    EXPECT_EQ(topology.calls, Lines({"size", "answer"}));
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(SystemTest, FallsBackOnTheOlderQueryWithoutASizeOrAnAnswer)
{
    FakeTopology topology;
    topology.answers = FALSE;
    QueryProcessorTopology();
    EXPECT_EQ(topology.calls, Lines({"size", "answer", "fallback"}));

    topology.calls.clear();
    topology.errorOfSize = ERROR_NOT_SUPPORTED;
    QueryProcessorTopology();
    EXPECT_EQ(topology.calls, Lines({"size", "fallback"}));
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(SystemTest, KeepsNothingOfTheAnswer)
{
    FakeTopology topology;
    QueryProcessorTopology();
    topology.answers = FALSE;
    QueryProcessorTopology();
    QueryProcessorTopology();
    ASSERT_EQ(topology.buffers.size(), 3u);
    EXPECT_EQ(topology.buffers[1], topology.buffers[0]);
    EXPECT_EQ(topology.buffers[2], topology.buffers[0]);
}

TEST_F(SystemTest, QueriesTheProcessorsSilently)
{
    uint32_t answers = 0;
    FakeImport ask("GetLogicalProcessorInformationEx",
                   [&](decltype(&GetLogicalProcessorInformationEx) real,
                       LOGICAL_PROCESSOR_RELATIONSHIP relation,
                       PSYSTEM_LOGICAL_PROCESSOR_INFORMATION_EX answer, PDWORD size) -> BOOL {
                       const BOOL answered = real(relation, answer, size);
                       answers += answered;
                       return answered;
                   });
    QueryProcessorTopology();
    EXPECT_EQ(answers, 1u);
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(SystemTest, ReturnsTheVersionOfTheOS)
{
    QueryOSVersion(version);
    OSVERSIONINFOW expected = {};
    expected.dwOSVersionInfoSize = sizeof(expected);
    ASSERT_EQ(GetWindowsInternalAPI().RtlGetVersion(&expected), 0);
    EXPECT_GE(version.dwMajorVersion, 6u);
    EXPECT_EQ(version.dwMajorVersion, expected.dwMajorVersion);
    EXPECT_EQ(version.dwMinorVersion, expected.dwMinorVersion);
    EXPECT_EQ(version.dwBuildNumber, expected.dwBuildNumber);
    EXPECT_EQ(version.dwPlatformId, static_cast<DWORD>(VER_PLATFORM_WIN32_NT));
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(SystemTest, LogsAFailureToTellTheVersionAndLeavesTheFieldsCleared)
{
    TestInternalAPI::Get().RtlGetVersion.pointer = FailToTellTheVersion;
    QueryOSVersion(version);
    EXPECT_EQ(version.dwMajorVersion, 0u);
    EXPECT_EQ(version.dwMinorVersion, 0u);
    EXPECT_EQ(version.dwBuildNumber, 0u);
    EXPECT_EQ(log.GetLines(), Lines({"ERR Call to function RtlGetVersion failed. Error: 0xC0000005"}));
}
} // namespace Torvane::Testing
