#include "Shared/Foundation/Windows/FileSink.h"

#include "Shared/Foundation/DecimalDigits.h"
#include "Shared/Foundation/TextOutput.h"
#include "Shared/Foundation/ThreadBuffers.h"
#include "Shared/Foundation/Windows/Clock.h"
#include "Shared/Foundation/Windows/ResultOS.h"

namespace Torvane
{
namespace
{
constexpr uint32_t tagLength = 3;
constexpr uint32_t timeWidth = 9;
constexpr uint32_t timeDecimals = 2;
constexpr uint32_t positionWidth = 43;
constexpr uint32_t positionCapacity = 1024; ///< terminator included

/// Numbers and texts go in one by one: a format would be read anew for each record, and it's the same for all.
void PutSeconds(TextOutput<char>& output, double seconds)
{
    char digits[maximumIntegerDigits + 1 + timeDecimals];
    const uint32_t length = WriteDecimal(digits, seconds, timeDecimals);
    output.Repeat(' ', length < timeWidth ? timeWidth - length : 0);
    output.PutText(digits, length);
}

/// "source(line)", at the right.
void PutPosition(TextOutput<char>& output, const char* source, int32_t line)
{
    char digits[16];
    char* first = digits + sizeof(digits);
    *--first = ')';
    uint32_t rest = line < 0 ? 0u - static_cast<uint32_t>(line) : static_cast<uint32_t>(line);
    do
    {
        *--first = static_cast<char>('0' + rest % 10);
        rest /= 10;
    }
    while (rest != 0);
    if (line < 0)
    {
        *--first = '-';
    }
    *--first = '(';
    const uint32_t digitCount = static_cast<uint32_t>(digits + sizeof(digits) - first);

    const uint32_t sourceLength = MeasureBounded(source, positionCapacity - 1);
    const uint32_t length = sourceLength + digitCount;
    output.Repeat(' ', length < positionWidth ? positionWidth - length : 0);
    output.PutText(source, sourceLength);
    const uint32_t room = positionCapacity - 1 - sourceLength;
    output.PutText(first, digitCount < room ? digitCount : room);
}

uint32_t LengthOrWholeBuffer(int formatted)
{
    return formatted < 0 ? fileLineBufferSize : static_cast<uint32_t>(formatted);
}
} // namespace

void FileSink::WriteBytes(const char* bytes, uint32_t count) const
{
    DWORD written = 0;
    if (!WriteFile(file, bytes, count, &written, nullptr))
    {
        MakeOSError("Cannot write to file.");
    }
}

void FileSink::WriteRecord(const char* tag, const char* text, uint32_t length, const char* source,
                           int32_t line, uint32_t separateText) const
{
    if (file == INVALID_HANDLE_VALUE)
    {
        return;
    }
    char* record = GetFileLineBuffer();
    TextOutput<char> output(record, fileLineBufferSize);
    output.PutText("\r\n", 2);
    PutSeconds(output, SecondsSinceStartup());
    output.PutText(" | ", 3);
    output.PutText(tag, tagLength);
    output.PutText(" | ", 3);
    PutPosition(output, source, line);
    if (separateText != 1)
    {
        output.PutText(" | ", 3);
        output.PutText(text, MeasureBounded(text, length));
        WriteBytes(record, LengthOrWholeBuffer(output.Finish()));
        return;
    }
    output.PutText("\r\n", 2);
    WriteBytes(record, LengthOrWholeBuffer(output.Finish()));
    WriteBytes(text, length);
}

void FileSink::Debug(const char*, const char* text, uint32_t length, const char* source, int32_t line,
                     uint32_t separateText)
{
    WriteRecord("DBG", text, length, source, line, separateText);
}

void FileSink::Success(const char*, const char* text, uint32_t length, const char* source, int32_t line,
                       uint32_t separateText)
{
    WriteRecord("SCS", text, length, source, line, separateText);
}

void FileSink::Info(const char*, int32_t, const char* text, uint32_t length, const char* source, int32_t line,
                    uint32_t separateText)
{
    WriteRecord("INF", text, length, source, line, separateText);
}

void FileSink::Warning(const char*, const char* text, uint32_t length, const char* source, int32_t line,
                       uint32_t separateText)
{
    WriteRecord("WRN", text, length, source, line, separateText);
}

void FileSink::Error(const char*, const char* text, uint32_t length, const char* source, int32_t line,
                     uint32_t separateText)
{
    WriteRecord("ERR", text, length, source, line, separateText);
}

void FileSink::Panic(const char*, const char* text, uint32_t length, const char* source, int32_t line,
                     uint32_t separateText)
{
    WriteRecord("PNC", text, length, source, line, separateText);
}

void FileSink::Reserved()
{
}
} // namespace Torvane
