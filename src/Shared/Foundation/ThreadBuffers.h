#pragma once

/// \file
/// The log's buffers, one set for each thread: native thread-local storage, never allocated, never freed.

#include <stdint.h>

namespace Torvane
{
constexpr uint32_t messageBufferSize = 32768;                           ///< what a front-end formats into
constexpr uint32_t fileLineBufferSize = messageBufferSize + 1024 + 128; ///< a record of the log file
constexpr uint32_t debuggerLineBufferSize = messageBufferSize + 128;    ///< a record to the debugger

/// Each is this thread's own, with the size of the like-named constant.
char* GetMessageBuffer();
char* GetFileLineBuffer();
char* GetDebuggerLineBuffer();
} // namespace Torvane
