#include "Shared/Foundation/Windows/CompositeLogger.h"

#include "Shared/Foundation/Windows/DebugOutputSink.h"
#include "Shared/Foundation/Windows/FileSink.h"

#include <windows.h>

namespace Torvane
{
void BreakIntoDebugger()
{
    if (IsDebuggerPresent())
    {
        __asm__ volatile("int3");
    }
}

void CompositeLogger::Write(const LogMessage& message) const
{
    const bool breaks = message.level == LogLevel::Panic;
    fileSink->Write(message);
    if (breaks)
    {
        BreakIntoDebugger();
    }
    debugOutputSink->Write(message);
    if (breaks)
    {
        BreakIntoDebugger();
    }
}
} // namespace Torvane
