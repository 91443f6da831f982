#include "tests/Support/Integration/LinkTest.h"

#include <algorithm>
#include <stdlib.h>

#include <windows.h>

namespace Torvane::Testing
{
namespace
{
bool StartsWith(const std::string& text, const std::string& start)
{
    return text.compare(0, start.size(), start) == 0;
}

bool IsOrdinaryEnd(uint32_t code)
{
    return code == ERROR_BROKEN_PIPE || code == ERROR_PIPE_NOT_CONNECTED || code == ERROR_OPERATION_ABORTED;
}
} // namespace

void TVN_CALL LinkTest::CountReport(void* context, TvnConnectionStatus status)
{
    Reports& reports = *static_cast<Reports*>(context);
    InterlockedExchange(&reports.status, status);
    InterlockedIncrement(&reports.count);
}

TvnDefaultAgent& LinkTest::StartWatchedAgent(const TvnProjectPreferences* projectPreferences)
{
    agent = &StartDefaultAgent(nullptr, projectPreferences);
    agent->TvnOnConnection(&reports, &CountReport);
    return *agent;
}

void LinkTest::ExpectStatus(TvnConnectionStatus status)
{
    EXPECT_TRUE(WaitUntil([this] { return reports.count != 0; })) << "No connection status has come.";
    EXPECT_EQ(status, static_cast<TvnConnectionStatus>(reports.status));
    EXPECT_EQ(1, reports.count);
}

void LinkTest::ExpectThreadEnd(const std::string& thread, uint32_t result)
{
    const std::string words = "Thread '" + thread + "' exited with result ";
    std::vector<std::string> ends;
    WaitUntil([&] {
        for (const LogRecord& record : ReadLog())
        {
            if (StartsWith(record.message, words))
            {
                ends.push_back(record.message);
            }
        }
        return !ends.empty();
    });
    EXPECT_EQ(std::vector<std::string>{words + std::to_string(result)}, ends);
}

void LinkTest::ExpectReceiverEnd(uint32_t result)
{
    ExpectThreadEnd("Torvane receiver", result);
}

void LinkTest::ExpectSenderEnd(uint32_t result)
{
    ExpectThreadEnd("Torvane sender", result);
}

std::vector<uint32_t> LinkTest::PipeErrors() const
{
    // The code of a failure has a record of its own after the message, from the same source file; both threads can write
    // theirs at once.
    size_t awaited = 0;
    std::string position;
    std::vector<uint32_t> codes;
    for (const LogRecord& record : ReadLog())
    {
        if (record.message == "WriteFile() failed." || record.message == "ReadFile() failed.")
        {
            ++awaited;
            position = record.position.substr(0, record.position.find('('));
        }
        else if (awaited != 0 && StartsWith(record.message, "Error: ") &&
                 StartsWith(record.position, position))
        {
            --awaited;
            codes.push_back(static_cast<uint32_t>(strtoul(record.message.c_str() + 7, nullptr, 10)));
        }
    }
    EXPECT_EQ(0u, awaited) << "A failure has no code.";
    return codes;
}

void LinkTest::ExpectErrorLines(std::vector<std::string> messages) const
{
    for (const uint32_t code : PipeErrors())
    {
        if (!IsOrdinaryEnd(code))
        {
            messages.push_back("Failed to send blob to bridge");
        }
    }
    std::vector<std::string> found;
    for (const LogRecord& record : WithoutHeapSearch(ReadLog()))
    {
        if (record.tag == "ERR" || record.tag == "PNC")
        {
            found.push_back(record.message);
        }
    }
    std::sort(messages.begin(), messages.end());
    std::sort(found.begin(), found.end());
    EXPECT_EQ(messages, found);
}

void LinkTest::ExpectHostWorksAndShutsDown()
{
    EXPECT_TRUE(WaitForBridge());
    agent->TvnLogMessageANSI("nobody reads this");
    agent->TvnLogMessage(L"nor this");
    agent->TvnSetIntPreferences(1, 2);
    const size_t before = ReadLog().size();
    Shutdown();
    const std::vector<LogRecord> records = ReadLog();
    ASSERT_LT(before, records.size());
    EXPECT_EQ("Shutting down default allocators for memory system", records.back().message);
}

void LinkTest::WaitForFirstPipe()
{
    EXPECT_TRUE(WaitUntil([this] { return CountInLog("Thread 'Torvane connect named pipe' started") == 2; }));
}
} // namespace Torvane::Testing
