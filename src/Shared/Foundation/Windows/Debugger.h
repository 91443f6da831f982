#pragma once

/// \file
/// Stops in an attached debugger. Any thread.

namespace Torvane
{
/// Executes a breakpoint instruction if a debugger is attached, otherwise does nothing.
void BreakIntoDebugger();
} // namespace Torvane
