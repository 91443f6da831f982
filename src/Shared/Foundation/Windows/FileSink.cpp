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
/// Whether this thread is reporting a failed write: what can't be written of the report is lost without another one.
thread_local bool reporting = false;

constexpr const char* tags[] = {"DBG", "SCS", "INF", "WRN", "ERR", "PNC"}; ///< by `LogLevel`

uint32_t LengthOrWholeBuffer(int formatted)
{
    return formatted < 0 ? fileLineBufferSize : static_cast<uint32_t>(formatted);
}
} // namespace

void FileSink::WriteBytes(const char* bytes, uint32_t count) const
{
    DWORD written = 0;
    if (WriteFile(file, bytes, count, &written, nullptr))
    {
        failing = 0;
    }
    else if (InterlockedExchange(&failing, 1) == 0 && !reporting)
    {
        reporting = true;
        MakeOSError("Cannot write to file.");
        reporting = false;
    }
}

void FileSink::Write(const LogMessage& message) const
{
    if (file == INVALID_HANDLE_VALUE)
    {
        return;
    }
    FixedString position = {};
    position.Format("%hs(%d)", message.file, message.line);
    const double seconds = SecondsSinceStartup();
    const char* tag = tags[static_cast<uint32_t>(message.level)];
    char* record = GetFileLineBuffer();
    if (message.separateText != 1)
    {
        WriteBytes(record, LengthOrWholeBuffer(FormatBounded(
                               record, fileLineBufferSize, "\r\n%9.2f | %hs | %43s | %.*s", seconds, tag,
                               position.text, static_cast<int>(message.length), message.text)));
        return;
    }
    WriteBytes(record,
               LengthOrWholeBuffer(FormatBounded(record, fileLineBufferSize, "\r\n%9.2f | %hs | %43s\r\n",
                                                 seconds, tag, position.text)));
    WriteBytes(message.text, message.length);
}
} // namespace Torvane
