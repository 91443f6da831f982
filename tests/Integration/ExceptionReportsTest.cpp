#include "tests/Support/ByteImage.h"
#include "tests/Support/Integration/IntegrationTest.h"
#include "tests/Support/TestExceptions.h"

#include <stdio.h>
#include <string>

#include <windows.h>

// What is reported of an exception to the Bridge and to the log, and which exceptions aren't reported.

#if TORVANE_HOST_HALF
#include "tests/Support/Integration/ExceptionHost.h"
#include "tests/Support/TestThread.h"
#else
#include "tests/Support/Integration/ExceptionBridge.h"
#endif

namespace
{
/// Flags of an exception that is raised directly, and whether it counts as continuable.
struct Flags
{
    uint32_t value;
    bool continuable;
};
constexpr Flags flags[] = {{0, true}, {1, false}, {2, true}, {3, true}, {0x80, true}, {0x81, true}};

/// Parameters of a memory fault, and the line about them.
struct Parameters
{
    uint32_t code;
    uint32_t count;
    uint32_t access;
    uint32_t address;
    const char* line; ///< null if there is to be none
};
constexpr Parameters parameters[] = {
    {0xC0000005, 2, 0, 0x1234,
     "Information: The thread attempted to read the inaccessible data at virtual address 0x00001234"},
    {0xC0000005, 2, 1, 0xFFFFFFF0,
     "Information: The thread attempted to write to an inaccessible address at virtual address 0xFFFFFFF0"},
    {0xC0000005, 2, 8, 0,
     "Information: The thread caused a user-mode data execution prevention (DEP) violation at virtual "
     "address "
     "0x00000000"},
    {0xC0000006, 3, 0, 0x2345,
     "Information: The thread attempted to read the inaccessible data at virtual address 0x00002345"},
    {0xC0000006, 3, 1, 0x3456,
     "Information: The thread attempted to write to an inaccessible address at virtual address 0x00003456"},
    {0xC0000006, 3, 8, 0x4567,
     "Information: The thread caused a user-mode data execution prevention (DEP) violation at virtual "
     "address "
     "0x00004567"},
    {0xC0000005, 2, 2, 0x5678, nullptr},
    {0xC0000005, 0, 0, 0, nullptr},
    {0xC0000006, 0, 0, 0, nullptr},
    {0xC0000094, 2, 0, 0x6789, nullptr},
};
} // namespace

#if TORVANE_HOST_HALF

namespace
{
constexpr uint32_t stackOverflow = 0xC00000FD;

/// Codes that languages, the OS and debuggers use, and neighbours of the known ones.
constexpr uint32_t unknownCodes[] = {
    0x406D1388, 0xE06D7363, 0xE0434352, 0x40010006, 0x4001000A, 0xC0000007,
    0xC0000027, 0xC00002B5, 0x80000005, 0x80000029, 0xC0000409, 0x12345678,
};

std::string ExceptionLine(uint32_t code, const char* name, bool continuable, const void* address)
{
    char line[200];
    snprintf(line, sizeof(line), "%s exception %s (0x%08X) occurred at address 0x%08X",
             continuable ? "Continuable" : "Non-continuable", name, code,
             static_cast<unsigned>(reinterpret_cast<uintptr_t>(address)));
    return line;
}
} // namespace

HOST_TEST_OF(ExceptionHost, ExceptionReports, AWholeReportIsSentAndLogged)
{
    ASSERT_TRUE(Start());
    LastHandler handler;
    const CodePages code({0xA1, 0x10, 0x00, 0x00, 0x00, 0xC3}); // mov eax, [0x10]; ret
    Publish("thread", GetCurrentThreadId());
    Publish("code", code.Start());
    EXPECT_FALSE(EndsByItself([&code] { code.Run(); }));
    Publish("context", &handler.Latest().context);
    Publish("record", &handler.Latest().record);
    ASSERT_TRUE(Await("compared"));

    ExpectLogOrder({
        "Processing Blob::InstallExceptionHandler",
        "Installing exception handler with order 1",
        ExceptionLine(0xC0000005, "EXCEPTION_ACCESS_VIOLATION", true, code.Start()),
        "Reason: The thread tried to read from or write to a virtual address for which it does not have the "
        "appropriate access",
        "Information: The thread attempted to read the inaccessible data at virtual address 0x00000010",
        "Select an action in the Torvane Broker exception handler dialog to continue execution",
        "Processing Blob::HandleExceptionWindowsResult",
        "Received exception handler action 0",
    });
    for (const LogRecord& record : ReadLog())
    {
        const std::string& text = record.message;
        if (text.find("exception EXCEPTION_") != std::string::npos || text.rfind("Reason: ", 0) == 0 ||
            text.rfind("Information: ", 0) == 0)
        {
            EXPECT_EQ("ERR", record.tag) << text;
        }
        else if (text.rfind("Select an action", 0) == 0 || text.rfind("Installing exception", 0) == 0)
        {
            EXPECT_EQ("INF", record.tag) << text;
        }
        else if (text.rfind("Received exception", 0) == 0 || text.rfind("Processing Blob::", 0) == 0)
        {
            EXPECT_EQ("DBG", record.tag) << text;
        }
    }
}

HOST_TEST_OF(ExceptionHost, ExceptionReports, EveryKnownCodeIsReported)
{
    ASSERT_TRUE(Start());
    LastHandler handler;
    for (const TestException& known : testExceptions)
    {
        SCOPED_TRACE(known.name);
        const size_t before = ReadLog().size();
        EXPECT_FALSE(EndsByItself([&known] { RaiseException(known.code, 0, 0, nullptr); }));
        EXPECT_EQ(known.code, handler.Latest().record.ExceptionCode);
        const std::vector<LogRecord> log = ReadLog();
        const std::string line =
            ExceptionLine(known.code, known.name, true, handler.Latest().record.ExceptionAddress);
        size_t found = 0;
        for (size_t i = before; i < log.size(); ++i)
        {
            found += log[i].message == line;
            found += log[i].message == std::string("Reason: ") + known.description;
            found += log[i].message.rfind("Information: ", 0) == 0 ? 100 : 0;
        }
        EXPECT_EQ(known.code == stackOverflow ? 0u : 2u, found);
    }
    EXPECT_EQ(23u, handler.Count());
}

HOST_TEST_OF(ExceptionHost, ExceptionReports, OtherCodesReachNeitherTheLockNorTheLog)
{
    ASSERT_TRUE(Start());
    LastHandler handler;
    handler.ContinueExecution();

    // Another thread is in the dialog phase all the while, and holds the lock.
    const CodePages code({0x0F, 0x0B, 0xC3}); // ud2; ret
    TestThread thread([&code] { code.Run(); });
    ASSERT_TRUE(Await("dialog"));
    const size_t before = ReadLog().size();
    for (const uint32_t unknown : unknownCodes)
    {
        RaiseException(unknown, 0, 0, nullptr);
        EXPECT_EQ(unknown, handler.Latest().record.ExceptionCode);
    }
    EXPECT_EQ(sizeof(unknownCodes) / sizeof(unknownCodes[0]), handler.Count());
    EXPECT_EQ(before, ReadLog().size());
    EXPECT_FALSE(thread.HasEnded());
    Signal("raised");
    EXPECT_TRUE(thread.WaitForEnd(testTimeout));
    EXPECT_EQ(1u, CountInLog("Received exception handler action 2"));
}

HOST_TEST_OF(ExceptionHost, ExceptionReports, OnlyTheFlagsValue1IsNonContinuable)
{
    ASSERT_TRUE(Start());
    using Raise = void(WINAPI*)(EXCEPTION_RECORD*);
    const auto raise = reinterpret_cast<Raise>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "RtlRaiseException")));
    LastHandler handler;
    handler.ContinueExecution();
    std::vector<std::string> lines;
    for (const Flags& entry : flags)
    {
        EXCEPTION_RECORD record = {};
        record.ExceptionCode = EXCEPTION_INT_OVERFLOW;
        record.ExceptionFlags = entry.value;
        raise(&record);
        const void* address = handler.Latest().record.ExceptionAddress;
        lines.push_back(
            ExceptionLine(record.ExceptionCode, "EXCEPTION_INT_OVERFLOW", entry.continuable, address));
    }
    std::vector<std::string> logged;
    for (const LogRecord& record : ReadLog())
    {
        if (record.message.find(" exception EXCEPTION_") != std::string::npos)
        {
            logged.push_back(record.message);
        }
    }
    EXPECT_EQ(lines, logged);
}

HOST_TEST_OF(ExceptionHost, ExceptionReports, MemoryFaultsHaveDetails)
{
    ASSERT_TRUE(Start());
    LastHandler handler;
    handler.ContinueExecution();
    std::vector<std::string> lines;
    for (const Parameters& entry : parameters)
    {
        const ULONG_PTR information[] = {entry.access, entry.address, 0};
        RaiseException(entry.code, 0, entry.count, information);
        if (entry.line != nullptr)
        {
            lines.push_back(entry.line);
        }
    }
    ExpectLogOrder(lines);
    size_t count = 0;
    for (const LogRecord& record : ReadLog())
    {
        count += record.message.rfind("Information: ", 0) == 0;
    }
    EXPECT_EQ(lines.size(), count);
}

#else

BRIDGE_SCENARIO_OF(ExceptionBridge, ExceptionReports, AWholeReportIsSentAndLogged)
{
    const ExceptionReport report = AwaitException();
    ASSERT_TRUE(report);

    // All that the sender can't choose, by the position of its bytes.
    ByteImage expected(48 + 716 + 80);
    expected.U64(0x00, report.blob->event)
        .U64(0x08, report.blob->action)
        .U64(0x10, report.blob->resumeRecord);
    expected.U32(0x18, link.HostProcessId()).U32(0x1C, static_cast<uint32_t>(AwaitNumber("thread")));
    expected.U32(0x20, 48 - 0x20).U32(0x24, 48 + 716 - 0x24);
    expected.Put(48, &report.context, 716).Put(48 + 716, &report.record, 80);
    EXPECT_EQ(expected.Blob(61), report.blob.Bytes());

    // The thread waits: the words that it waits for are in its stack, all 0.
    EXPECT_NE(0u, report.blob->event);
    EXPECT_LT(report.blob->action, report.context.Esp);
    EXPECT_GT(report.blob->action, report.context.Esp - 0x10000);
    EXPECT_EQ(std::vector<uint8_t>(4), host.Read(report.blob->action, 4));
    EXPECT_EQ(std::vector<uint8_t>(24), host.Read(report.blob->resumeRecord, 24));

    const AddressSlot code = AwaitNumber("code");
    EXPECT_EQ(0xC0000005, report.record.ExceptionCode);
    EXPECT_EQ(0u, report.record.ExceptionFlags);
    EXPECT_EQ(code, report.record.ExceptionAddress);
    ASSERT_EQ(2u, report.record.NumberParameters);
    EXPECT_EQ(0u, report.record.ExceptionInformation[0]);
    EXPECT_EQ(0x10u, report.record.ExceptionInformation[1]);
    EXPECT_EQ(code, report.context.Eip);

    Answer(report, ActionContinueSearch);
    const std::vector<uint8_t> context = host.Read(AwaitNumber("context"), 716);
    const std::vector<uint8_t> record = host.Read(AwaitNumber("record"), 80);
    ASSERT_EQ(716u, context.size());
    ASSERT_EQ(80u, record.size());
    EXPECT_EQ(0, memcmp(&report.context, context.data(), 716)) << "The next handler gets the same.";
    EXPECT_EQ(0, memcmp(&report.record, record.data(), 80)) << "The next handler gets the same.";
    Signal("compared");
}

BRIDGE_SCENARIO_OF(ExceptionBridge, ExceptionReports, EveryKnownCodeIsReported)
{
    for (const TestException& known : testExceptions)
    {
        const ExceptionReport report = AwaitException();
        ASSERT_TRUE(report) << known.name;
        EXPECT_EQ(known.code, report.record.ExceptionCode);
        Answer(report, ActionContinueSearch);
    }
}

BRIDGE_SCENARIO_OF(ExceptionBridge, ExceptionReports, OtherCodesReachNeitherTheLockNorTheLog)
{
    const ExceptionReport report = AwaitException();
    ASSERT_TRUE(report);
    Signal("dialog");
    ASSERT_TRUE(Await("raised"));
    EXPECT_TRUE(NothingElseCame());
    Answer(report, ActionSkipInstruction);
}

BRIDGE_SCENARIO_OF(ExceptionBridge, ExceptionReports, OnlyTheFlagsValue1IsNonContinuable)
{
    for (const Flags& entry : flags)
    {
        const ExceptionReport report = AwaitException();
        ASSERT_TRUE(report);
        EXPECT_EQ(entry.value, report.record.ExceptionFlags);
        Answer(report, ActionContinueSearch);
    }
}

BRIDGE_SCENARIO_OF(ExceptionBridge, ExceptionReports, MemoryFaultsHaveDetails)
{
    for (const Parameters& entry : parameters)
    {
        const ExceptionReport report = AwaitException();
        ASSERT_TRUE(report);
        EXPECT_EQ(entry.code, report.record.ExceptionCode);
        EXPECT_EQ(entry.count, report.record.NumberParameters);
        Answer(report, ActionContinueSearch);
    }
}

#endif
