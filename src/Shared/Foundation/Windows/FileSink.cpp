#include "Shared/Foundation/Windows/FileSink.h"

#include "Shared/Foundation/BoundedFormat.h"
#include "Shared/Foundation/FixedString.h"
#include "Shared/Foundation/ThreadBuffers.h"
#include "Shared/Foundation/Windows/Clock.h"
#include "Shared/Foundation/Windows/ResultOS.h"

namespace Torvane
{
namespace
{
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
    FixedString position = {};
    position.Format("%hs(%d)", source, line);
    const double seconds = SecondsSinceStartup();
    char* record = GetFileLineBuffer();
    if (separateText != 1)
    {
        WriteBytes(record, LengthOrWholeBuffer(FormatBounded(record, fileLineBufferSize,
                                                             "\r\n%9.2f | %hs | %43s | %.*s", seconds, tag,
                                                             position.text, static_cast<int>(length), text)));
        return;
    }
    WriteBytes(record,
               LengthOrWholeBuffer(FormatBounded(record, fileLineBufferSize, "\r\n%9.2f | %hs | %43s\r\n",
                                                 seconds, tag, position.text)));
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
