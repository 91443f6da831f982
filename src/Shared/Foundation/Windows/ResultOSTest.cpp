#include "Shared/Foundation/Windows/ResultOS.h"

#include "tests/Support/LogCalls.h"
#include "tests/Support/OSErrorLine.h"
#include "tests/Support/TestImport.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace Torvane
{
namespace
{
using Lines = std::vector<std::string>;

constexpr DWORD unknownCode = 0x2BADC0DE;

/// The text of an error at Error level, in the words of the log.
std::string ErrorLine(DWORD code)
{
    return "Error " + OSErrorLine(code).substr(4);
}

std::string DebugLine(DWORD code)
{
    return "Debug " + OSErrorLine(code).substr(4);
}

/// Changes the last error in each call, as a write to a file can.
class DisturbingLogger final : public Logger
{
public:
    explicit DisturbingLogger(DWORD codeToLeave)
        : code(codeToLeave)
        , before(GetCurrentLogger())
    {
        SetCurrentLogger(this);
    }

    ~DisturbingLogger()
    {
        SetCurrentLogger(before);
    }

    DisturbingLogger(const DisturbingLogger&) = delete;
    DisturbingLogger& operator=(const DisturbingLogger&) = delete;

    const Lines& GetLines() const
    {
        return lines;
    }

    void Debug(const char*, const char* text, uint32_t length, const char*, int32_t, uint32_t) override
    {
        Keep("Debug ", text, length);
    }
    void Success(const char*, const char*, uint32_t, const char*, int32_t, uint32_t) override
    {
    }
    void Info(const char*, int32_t, const char*, uint32_t, const char*, int32_t, uint32_t) override
    {
    }
    void Warning(const char*, const char*, uint32_t, const char*, int32_t, uint32_t) override
    {
    }
    void Error(const char*, const char* text, uint32_t length, const char*, int32_t, uint32_t) override
    {
        Keep("Error ", text, length);
    }
    void Panic(const char*, const char*, uint32_t, const char*, int32_t, uint32_t) override
    {
    }
    void Reserved() override
    {
    }

private:
    void Keep(const char* level, const char* text, uint32_t length)
    {
        lines.push_back(level + std::string(text, length));
        SetLastError(code);
    }

    DWORD code;
    Logger* before;
    Lines lines;
};
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
    const TestImport format("FormatMessageA",
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
    const LogCalls log;
    static constexpr char format[] = "Cannot open file %ls.";
    SetLastError(ERROR_ACCESS_DENIED);
    const Result<HANDLE> result = MakeOSError(format, L"C:\\log.txt");
    EXPECT_EQ(result.error, format) << "the unfilled text itself";
    EXPECT_EQ(result.code, 5u);
    EXPECT_EQ(log.GetLines(), Lines({"Debug Cannot open file C:\\log.txt.", DebugLine(ERROR_ACCESS_DENIED)}));
    for (const LogCall& call : log.Get())
    {
        EXPECT_EQ(call.file, "ResultOS.h");
        EXPECT_GT(call.line, 0);
    }
}

TEST(MakeOSError, WritesTheCodeTwiceAndTheText)
{
    const LogCalls log;
    SetLastError(unknownCode);
    MakeOSError("text");
    EXPECT_EQ(log.GetLines(), Lines({"Debug text", "Debug Error: 732807390, 0x2BADC0DE: unknown"}));
}

TEST(MakeOSError, ReadsTheLastErrorAfterItsFirstLogCall)
{
    const DisturbingLogger log(ERROR_DISK_FULL);
    SetLastError(ERROR_ACCESS_DENIED);
    const Failure failure = MakeOSError("text");
    EXPECT_EQ(failure.code, DWORD{ERROR_DISK_FULL});
    EXPECT_EQ(log.GetLines(), Lines({"Debug text", DebugLine(ERROR_DISK_FULL)}));
}

TEST(LogLastError, LogsTextAndLastErrorUnderTheCallersPosition)
{
    const LogCalls log;
    SetLastError(ERROR_FILE_NOT_FOUND);
    const int32_t line = __LINE__ + 1;
    LogLastError(TVN_HERE, "LoadLibraryW(%ls) failed.", L"patch.dll");
    EXPECT_EQ(log.GetLines(),
              Lines({"Error LoadLibraryW(patch.dll) failed.", ErrorLine(ERROR_FILE_NOT_FOUND)}));
    for (const LogCall& call : log.Get())
    {
        EXPECT_EQ(call.file, "ResultOSTest.cpp");
        EXPECT_EQ(call.line, line);
    }
}

TEST(LogLastError, WritesTheCodeTwiceAndTheText)
{
    const LogCalls log;
    SetLastError(unknownCode);
    LogLastError(TVN_HERE, "text");
    EXPECT_EQ(log.GetLines(), Lines({"Error text", "Error Error: 732807390, 0x2BADC0DE: unknown"}));
}

TEST(LogLastError, ReadsTheLastErrorFirstOfAll)
{
    const DisturbingLogger log(ERROR_DISK_FULL);
    SetLastError(ERROR_ACCESS_DENIED);
    LogLastError(TVN_HERE, "text");
    EXPECT_EQ(log.GetLines(), Lines({"Error text", ErrorLine(ERROR_ACCESS_DENIED)}));
}
} // namespace Torvane
