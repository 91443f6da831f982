#pragma once

/// \file
/// The Agent's log as a whole: file and debugger. Started and ended on the host's thread; used by any.

#include "Shared/Foundation/Logger.h"

namespace Torvane
{
class FileSink;
class DebugOutputSink;

/// Executes a breakpoint instruction if a debugger is attached, otherwise does nothing.
void BreakIntoDebugger();

/// Passes each message to the file and then to the debugger. A panic breaks into an attached debugger after each.
class CompositeLogger final : public MessageLogger<CompositeLogger>
{
public:
    constexpr CompositeLogger(FileSink* fileSink, DebugOutputSink* debugOutputSink)
        : fileSink(fileSink)
        , debugOutputSink(debugOutputSink)
    {
    }

    void Write(const LogMessage& message) const;

private:
    FileSink* fileSink;
    DebugOutputSink* debugOutputSink;
};
} // namespace Torvane
