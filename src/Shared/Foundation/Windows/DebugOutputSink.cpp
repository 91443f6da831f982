#include "Shared/Foundation/Windows/DebugOutputSink.h"

#include "Shared/Foundation/BoundedFormat.h"
#include "Shared/Foundation/ThreadBuffers.h"
#include "Shared/Foundation/Windows/Clock.h"

#include <windows.h>

namespace Torvane
{
namespace
{
struct Level
{
    uint32_t bit; ///< of the mask
    const char* tag;
};

/// By `LogLevel`.
constexpr Level levels[] = {
    {0x00, nullptr},   {0x01, "Success"}, {0x02, "Info   "},
    {0x04, "Warning"}, {0x08, "Error  "}, {0x10, "Panic  "},
};
} // namespace

void DebugOutputSink::Write(const LogMessage& message) const
{
    const Level& level = levels[static_cast<uint32_t>(message.level)];
    if ((levelMask & level.bit) == 0)
    {
        return;
    }
    char* record = GetDebuggerLineBuffer();
    FormatBounded(record, debuggerLineBufferSize, "[%9.2f Torvane %hs] %.*s\r\n", SecondsSinceStartup(),
                  level.tag, static_cast<int>(message.length), message.text);
    OutputDebugStringA(record);
}
} // namespace Torvane
