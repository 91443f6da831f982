#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// What of the log reaches the debugger, by the host's filter.

#if TORVANE_HOST_HALF

#include "tests/Support/DebugOutput.h"
#include "tests/Support/Integration/StartupGate.h"

#include <algorithm>
#include <stdlib.h>

namespace
{
struct LevelRow
{
    const char* fileTag;
    const char* debuggerTag;
    uint32_t bit;
};

constexpr LevelRow levelRows[] = {
    {"SCS", "Success", 1}, {"INF", "Info   ", 2},  {"WRN", "Warning", 4},
    {"ERR", "Error  ", 8}, {"PNC", "Panic  ", 16},
};

class DebugOutputTest : public LinkTest
{
protected:
    /// A run with a record of every level that there is, but for warnings, which nothing logs.
    void Run(const TvnLogFilter* filter)
    {
        // An object of another kind takes the name of the heartbeat's mutex, so that it can't be created.
        const std::wstring identifier = std::to_wstring(GetCurrentProcessId());
        CreateEventW(nullptr, TRUE, FALSE, (std::wstring(heartbeatMutexPrefix) + identifier).c_str());
        UseScenario("DebugOutput.AfterAnUnknownBlob");
        StartDefaultAgent(nullptr, nullptr, filter);
        LeaveAgentRunning(); // the heartbeat uses whatever handle it has
        EXPECT_EQ(ConnectionSucceeded, WaitForConnection());
        ExpectReceiverEnd(0);
        EXPECT_TRUE(WaitForLog("Sender thread ready"));
        EXPECT_TRUE(WaitForLog("Cannot create heart beat mutex for process " +
                               std::to_string(GetCurrentProcessId())));
        Signal("logged");
    }

    void RunWithFilter(uint32_t levels)
    {
        const TvnLogFilter filter = {levels};
        Run(&filter);
    }

    /// The debugger has got the records of these levels, each as its own text, and nothing else.
    void ExpectLevels(uint32_t mask)
    {
        // The file is written first, and the heartbeat continues to log, so the two agree only at times.
        std::vector<std::string> expected;
        std::vector<std::string> texts;
        WaitUntil([&] {
            expected = ExpectedTexts(mask);
            texts.clear();
            for (const std::string& text : output.Texts())
            {
                texts.push_back(WithoutTime(text));
            }
            std::sort(expected.begin(), expected.end());
            std::sort(texts.begin(), texts.end());
            return expected == texts;
        });
        EXPECT_EQ(expected, texts);
    }

    /// The file's records of these levels, in the debugger's form without the time.
    std::vector<std::string> ExpectedTexts(uint32_t mask) const
    {
        std::vector<std::string> expected;
        for (const LogRecord& record : ReadLog())
        {
            for (const LevelRow& row : levelRows)
            {
                if ((mask & row.bit) != 0 && record.tag == row.fileTag)
                {
                    expected.push_back(std::string(" Torvane ") + row.debuggerTag + "] " + record.message +
                                       "\r\n");
                }
            }
        }
        return expected;
    }

    DebugOutput output;

private:
    /// Checks the bracket and the time, nine columns with two decimals, and cuts them off.
    static std::string WithoutTime(const std::string& text)
    {
        const std::string time = text.substr(0, 10);
        char* end = nullptr;
        const double seconds = strtod(time.c_str() + 1, &end);
        EXPECT_TRUE(time.size() == 10 && time[0] == '[' && time[7] == '.' && *end == '\0') << text;
        EXPECT_TRUE(seconds >= 0 && seconds < 60) << text;
        return text.size() < 10 ? text : text.substr(10);
    }
};
} // namespace

#define DEBUG_OUTPUT(Name) HOST_TEST_OF(DebugOutputTest, DebugOutput, Name)

DEBUG_OUTPUT(HasAllLevelsButDebugWithoutAFilter)
{
    Run(nullptr);
    for (const LevelRow& row : levelRows)
    {
        EXPECT_EQ(row.bit == 4, ExpectedTexts(row.bit).empty()) << row.fileTag;
    }
    ExpectLevels(255);
}

DEBUG_OUTPUT(HasNothingWithNoLevel)
{
    RunWithFilter(0);
    ExpectLevels(0);
    EXPECT_FALSE(ExpectedTexts(255).empty()) << "The file has everything.";
}

DEBUG_OUTPUT(HasSuccessesAlone)
{
    RunWithFilter(1);
    ExpectLevels(1);
}

DEBUG_OUTPUT(HasInformationAlone)
{
    RunWithFilter(2);
    ExpectLevels(2);
}

DEBUG_OUTPUT(HasNoWarningsSinceThereAreNone)
{
    RunWithFilter(4);
    ExpectLevels(4);
}

DEBUG_OUTPUT(HasErrorsAlone)
{
    RunWithFilter(8);
    ExpectLevels(8);
}

DEBUG_OUTPUT(HasPanicsAlone)
{
    RunWithFilter(16);
    ExpectLevels(16);
}

DEBUG_OUTPUT(HasNothingForBitsThatMeanNoLevel)
{
    RunWithFilter(0xFFFFFFE0);
    ExpectLevels(0);
}

DEBUG_OUTPUT(IsDecidedDuringStartupAlone)
{
    UseDefaultBridge();
    StartupGate gate;
    TvnLogFilter filter = {1};
    StartDefaultAgent(nullptr, nullptr, &filter);
    filter.debugOutputLevels = 0;
    gate.Open();
    EXPECT_EQ(ConnectionSucceeded, WaitForConnection());
    Shutdown();
    EXPECT_FALSE(ExpectedTexts(1).empty());
    ExpectLevels(1);
}

#else

BRIDGE_SCENARIO_OF(BridgeTest, DebugOutput, AfterAnUnknownBlob)
{
    EXPECT_TRUE(Connect());
    EXPECT_TRUE(link.Send(MakeBlob(BlobType::RegisterAgent, nullptr, 0)));
    EXPECT_TRUE(Await("logged"));
}

#endif
