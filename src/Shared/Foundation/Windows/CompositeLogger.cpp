#include "Shared/Foundation/Windows/CompositeLogger.h"

#include "Shared/Foundation/Windows/DebugOutputSink.h"
#include "Shared/Foundation/Windows/Debugger.h"
#include "Shared/Foundation/Windows/FileSink.h"

namespace Torvane
{
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
