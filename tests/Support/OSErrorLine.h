#pragma once

/// \file
/// The log line of an error of the OS, as a recorded log has it.

#include "Shared/Foundation/FixedString.h"
#include "Shared/Foundation/Windows/ResultOS.h"

#include <string>

namespace Torvane::Testing
{
/// \param tag the tag of the level in the log file.
inline std::string OSErrorLine(DWORD code, const char* tag = "DBG")
{
    FixedString text = {};
    text.Format("%hs Error: %u, 0x%X: %hs", tag, code, code, OSErrorText(code).Get());
    return text.text;
}
} // namespace Torvane::Testing
