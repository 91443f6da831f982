#include "Shared/Foundation/Windows/ResultOS.h"

#include "tests/Support/FakeImport.h"
#include "tests/Support/OSErrorLine.h"
#include "tests/Support/RecordedLog.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace Torvane::Testing
{
namespace
{
using Lines = std::vector<std::string>;

constexpr DWORD unknownCode = 0x2BADC0DE;
} // namespace

TEST(OSErrorText, IsTheSystemsTextAsItComes)
{
    char expected[4096] = {};
    ASSERT_NE(FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, ERROR_FILE_NOT_FOUND, 0, expected,
                             sizeof(expected), nullptr),
              0u);
    const std::string text = OSErrorText(ERROR_FILE_NOT_FOUND).Get();
    EXPECT_EQ(text, expected);
    EXPECT_EQ(text.substr(text.size() - 2), "\r\n");
}

TEST(OSErrorText, IsUnknownWhereTheSystemHasNone)
{
    EXPECT_STREQ(OSErrorText(unknownCode).Get(), "unknown");
}

TEST(OSErrorText, IsAskedForInAClearedBuffer)
{
    uint32_t calls = 0;
    const FakeImport format("FormatMessageA",
                            [&](decltype(&FormatMessageA), DWORD flags, LPCVOID source, DWORD code,
                                DWORD language, LPSTR buffer, DWORD size, va_list* arguments) -> DWORD {
                                ++calls;
                                EXPECT_EQ(flags, 0x1000u);
                                EXPECT_EQ(source, nullptr);
                                EXPECT_EQ(code, 1234u);
                                EXPECT_EQ(language, 0u);
                                EXPECT_EQ(size, 4096u);
                                EXPECT_EQ(arguments, nullptr);
                                EXPECT_EQ(std::string(buffer, size), std::string(4096, '\0'));
                                buffer[0] = 'x';
                                return 1;
                            });
    EXPECT_STREQ(OSErrorText(1234).Get(), "x");
    EXPECT_EQ(calls, 1u);
}

TEST(MakeOSError, LogsTextAndLastErrorUnderItsOwnHeadersPosition)
{
    const RecordedLog log;
    static constexpr char format[] = "Cannot open file %ls.";
    SetLastError(ERROR_ACCESS_DENIED);
    const Result<HANDLE> result = MakeOSError(format, L"C:\\log.txt");
    EXPECT_EQ(result.error, format) << "the unfilled text itself";
    EXPECT_EQ(result.code, 5u);
    EXPECT_EQ(log.GetLines(), Lines({"DBG Cannot open file C:\\log.txt.", OSErrorLine(ERROR_ACCESS_DENIED)}));
    for (const LogCall& call : log.GetCalls())
    {
        EXPECT_EQ(call.file, "ResultOS.h");
        EXPECT_GT(call.line, 0);
    }
}

TEST(MakeOSError, WritesTheCodeTwiceAndTheText)
{
    const RecordedLog log;
    SetLastError(unknownCode);
    MakeOSError("text");
    EXPECT_EQ(log.GetLines(), Lines({"DBG text", "DBG Error: 732807390, 0x2BADC0DE: unknown"}));
}

TEST(MakeOSError, ReadsTheLastErrorAfterItsFirstLogCall)
{
    const RecordedLog log([] { SetLastError(ERROR_DISK_FULL); });
    SetLastError(ERROR_ACCESS_DENIED);
    const Failure failure = MakeOSError("text");
    EXPECT_EQ(failure.code, DWORD{ERROR_DISK_FULL});
    EXPECT_EQ(log.GetLines(), Lines({"DBG text", OSErrorLine(ERROR_DISK_FULL)}));
}

TEST(LogLastError, LogsTextAndLastErrorUnderTheCallersPosition)
{
    const RecordedLog log;
    SetLastError(ERROR_FILE_NOT_FOUND);
    const int32_t line = __LINE__ + 1;
    LogLastError(TVN_HERE, "LoadLibraryW(%ls) failed.", L"patch.dll");
    EXPECT_EQ(log.GetLines(),
              Lines({"ERR LoadLibraryW(patch.dll) failed.", OSErrorLine(ERROR_FILE_NOT_FOUND, "ERR")}));
    for (const LogCall& call : log.GetCalls())
    {
        EXPECT_EQ(call.file, "ResultOSTest.cpp");
        EXPECT_EQ(call.line, line);
    }
}

TEST(LogLastError, WritesTheCodeTwiceAndTheText)
{
    const RecordedLog log;
    SetLastError(unknownCode);
    LogLastError(TVN_HERE, "text");
    EXPECT_EQ(log.GetLines(), Lines({"ERR text", "ERR Error: 732807390, 0x2BADC0DE: unknown"}));
}

TEST(LogLastError, ReadsTheLastErrorFirstOfAll)
{
    const RecordedLog log([] { SetLastError(ERROR_DISK_FULL); });
    SetLastError(ERROR_ACCESS_DENIED);
    LogLastError(TVN_HERE, "text");
    EXPECT_EQ(log.GetLines(), Lines({"ERR text", OSErrorLine(ERROR_ACCESS_DENIED, "ERR")}));
}
} // namespace Torvane::Testing
