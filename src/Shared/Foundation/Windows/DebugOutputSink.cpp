#include "Shared/Foundation/Windows/DebugOutputSink.h"

#include "Shared/Foundation/BoundedFormat.h"
#include "Shared/Foundation/ThreadBuffers.h"
#include "Shared/Foundation/Windows/Clock.h"

#include <windows.h>

namespace Torvane
{
namespace
{
enum LevelBit : uint32_t
{
    SuccessBit = 0x01,
    InfoBit = 0x02,
    WarningBit = 0x04,
    ErrorBit = 0x08,
    PanicBit = 0x10,
};
} // namespace

void DebugOutputSink::WriteRecord(uint32_t level, const char* tag, const char* text, uint32_t length) const
{
    if ((levelMask & level) == 0)
    {
        return;
    }
    char* record = GetDebuggerLineBuffer();
    FormatBounded(record, debuggerLineBufferSize, "[%9.2f Torvane %hs] %.*s\r\n", SecondsSinceStartup(), tag,
                  static_cast<int>(length), text);
    OutputDebugStringA(record);
}

void DebugOutputSink::Debug(const char*, const char*, uint32_t, const char*, int32_t, uint32_t)
{
}

void DebugOutputSink::Success(const char*, const char* text, uint32_t length, const char*, int32_t, uint32_t)
{
    WriteRecord(SuccessBit, "Success", text, length);
}

void DebugOutputSink::Info(const char*, int32_t, const char* text, uint32_t length, const char*, int32_t,
                           uint32_t)
{
    WriteRecord(InfoBit, "Info   ", text, length);
}

void DebugOutputSink::Warning(const char*, const char* text, uint32_t length, const char*, int32_t, uint32_t)
{
    WriteRecord(WarningBit, "Warning", text, length);
}

void DebugOutputSink::Error(const char*, const char* text, uint32_t length, const char*, int32_t, uint32_t)
{
    WriteRecord(ErrorBit, "Error  ", text, length);
}

void DebugOutputSink::Panic(const char*, const char* text, uint32_t length, const char*, int32_t, uint32_t)
{
    WriteRecord(PanicBit, "Panic  ", text, length);
}

void DebugOutputSink::Reserved()
{
}
} // namespace Torvane
