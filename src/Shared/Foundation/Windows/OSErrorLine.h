#pragma once

/// \file
/// The log line of an error of the OS, as a recorded log has it. Tests only.

#include "Shared/Foundation/FixedString.h"
#include "Shared/Foundation/Windows/ResultOS.h"

#include <string>

namespace Torvane
{
inline std::string OSErrorLine(DWORD code)
{
    FixedString text = {};
    text.Format("DBG Error: %u, 0x%X: %hs", code, code, OSErrorText(code).Get());
    return text.text;
}
} // namespace Torvane
