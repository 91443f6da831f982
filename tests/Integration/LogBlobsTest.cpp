#include "tests/Support/ByteImage.h"
#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// LogNarrow and LogWide to the Agent: the Broker's words in the debugger of the host, which the Bridge half is.

#if TORVANE_HOST_HALF

HOST_TEST(LogBlobs, ReachTheDebuggerInOrder)
{
    StartDefaultAgent();
    EXPECT_TRUE(Await("checked"));
    EXPECT_EQ(2u, CountInLog("Processing Blob::LogNarrow"));
    EXPECT_EQ(2u, CountInLog("Processing Blob::LogWide"));
    for (const LogRecord& record : ReadLog())
    {
        EXPECT_EQ(std::string::npos, record.message.find("from the Broker"))
            << "It goes to the debugger alone: " << record.message;
    }
    ExpectNoErrorsInLog();
}

HOST_TEST(LogBlobs, ReachTheDebuggerAtEveryLevel)
{
    StartDefaultAgent();
    EXPECT_TRUE(Await("checked"));
    EXPECT_EQ(8u, CountInLog("Processing Blob::LogNarrow"));
    ExpectNoErrorsInLog();
}

HOST_TEST(LogBlobs, ReachTheDebuggerWithTheBytesThatTheyHave)
{
    StartDefaultAgent();
    EXPECT_TRUE(Await("checked"));
    ExpectNoErrorsInLog();
}

HOST_TEST(LogBlobs, ReachTheDebuggerFromWhereverTheTextIs)
{
    StartDefaultAgent();
    EXPECT_TRUE(Await("checked"));
    ExpectNoErrorsInLog();
}

#else

namespace
{
class LogBridge : public ConnectedBridgeTest
{
protected:
    /// Becomes the host's debugger; every debug event has to be waited for on this thread.
    void SetUp() override
    {
        ConnectedBridgeTest::SetUp();
        ASSERT_FALSE(HasFatalFailure());
        ASSERT_TRUE(DebugActiveProcess(link.HostProcessId())) << GetLastError();
        DebugSetProcessKillOnExit(FALSE);
        // The process continues after the breakpoint of the attachment.
        while (!attached)
        {
            ASSERT_TRUE(ContinueHost()) << "The process doesn't come to the breakpoint.";
        }
    }

    /// Lets the host run until the debugger has received this text; others may come before.
    void ExpectOutput(const std::string& expected)
    {
        for (;;)
        {
            while (!outputs.empty())
            {
                const std::string output = outputs.front();
                outputs.erase(outputs.begin());
                if (output == expected)
                {
                    return;
                }
            }
            ASSERT_TRUE(ContinueHost()) << "The debugger hasn't been given: " << expected;
        }
    }

    void TearDown() override
    {
        EXPECT_TRUE(DebugActiveProcessStop(link.HostProcessId()));
        ExpectNoReply();
        ConnectedBridgeTest::TearDown();
    }

private:
    /// Takes one event. \return false if none has come.
    bool ContinueHost()
    {
        DEBUG_EVENT event = {};
        if (!WaitForDebugEvent(&event, testTimeout))
        {
            return false;
        }
        DWORD status = DBG_CONTINUE;
        if (event.dwDebugEventCode == OUTPUT_DEBUG_STRING_EVENT)
        {
            TakeOutput(event.u.DebugString);
        }
        else if (event.dwDebugEventCode == EXCEPTION_DEBUG_EVENT)
        {
            const DWORD code = event.u.Exception.ExceptionRecord.ExceptionCode;
            status = code == EXCEPTION_BREAKPOINT ? DBG_CONTINUE : DBG_EXCEPTION_NOT_HANDLED;
            attached = attached || code == EXCEPTION_BREAKPOINT;
        }
        return ContinueDebugEvent(event.dwProcessId, event.dwThreadId, status);
    }

    void TakeOutput(const OUTPUT_DEBUG_STRING_INFO& information)
    {
        ASSERT_EQ(0, information.fUnicode);
        const std::vector<uint8_t> bytes = host.Read(
            reinterpret_cast<uintptr_t>(information.lpDebugStringData), information.nDebugStringLength);
        ASSERT_FALSE(bytes.empty());
        outputs.push_back(reinterpret_cast<const char*>(bytes.data()));
        ASSERT_EQ(bytes.size(), outputs.back().size() + 1);
    }

    bool attached = false;
    std::vector<std::string> outputs;
};

/// As the OS gives wide text to a debugger that hasn't asked for it otherwise.
std::string InCodePage(const std::wstring& text)
{
    char bytes[256] = {};
    WideCharToMultiByte(CP_ACP, 0, text.c_str(), -1, bytes, sizeof(bytes), nullptr, nullptr);
    return bytes;
}
} // namespace

#define LOG_BRIDGE(Name) BRIDGE_SCENARIO_OF(LogBridge, LogBlobs, Name)

LOG_BRIDGE(ReachTheDebuggerInOrder)
{
    ASSERT_TRUE(SendLogNarrow(link, "first words from the Broker"));
    ASSERT_TRUE(SendLogWide(link, L"second words from the Broker"));
    ASSERT_TRUE(SendLogNarrow(link, "third words from the Broker\r\n"));
    ASSERT_TRUE(SendLogWide(link, L"fourth words from the Broker\r\n"));
    ExpectOutput("first words from the Broker");
    ExpectOutput("second words from the Broker");
    ExpectOutput("third words from the Broker\r\n");
    ExpectOutput("fourth words from the Broker\r\n");
}

LOG_BRIDGE(ReachTheDebuggerAtEveryLevel)
{
    for (const uint32_t level : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 0xFFFFFFFFu})
    {
        const std::string text = "level " + std::to_string(level);
        ASSERT_TRUE(SendLogNarrow(link, text, static_cast<BlobLogLevel>(level)));
        ExpectOutput(text);
    }
}

LOG_BRIDGE(ReachTheDebuggerWithTheBytesThatTheyHave)
{
    const std::string bytes = "%s%n \x80\xFF\xC3\xA4 \t";
    ASSERT_TRUE(SendLogNarrow(link, bytes));
    ExpectOutput(bytes);
    const std::wstring wide = L"%ls \u00E4\u20AC";
    ASSERT_TRUE(SendLogWide(link, wide));
    ExpectOutput(InCodePage(wide));
    const std::string longText(3000, 'x');
    ASSERT_TRUE(SendLogNarrow(link, longText));
    ExpectOutput(longText);
    ASSERT_TRUE(SendLogWide(link, std::wstring(longText.begin(), longText.end())));
    ExpectOutput(longText);
}

LOG_BRIDGE(ReachTheDebuggerFromWhereverTheTextIs)
{
    const char narrow[] = "after a gap";
    const wchar_t wide[] = L"after an odd gap";
    ASSERT_TRUE(link.Send(ByteImage(20).U32(4, 16).Put(20, narrow, sizeof(narrow)).Blob(10)));
    ExpectOutput("after a gap");
    ASSERT_TRUE(link.Send(ByteImage(21).U32(4, 17).Put(21, wide, sizeof(wide)).Blob(11)));
    ExpectOutput("after an odd gap");
}

#endif
