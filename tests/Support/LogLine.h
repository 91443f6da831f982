#pragma once

/// \file
/// A line that a test expects in a recorded log.

#include "Shared/Foundation/FixedString.h"

#include <string>

namespace Torvane::Testing
{
/// \param format begins with the level's tag; the filled line has at most 1023 bytes.
template<typename... Arguments>
std::string LogLine(FormatOf<Arguments...> format, Arguments... arguments)
{
    FixedString line = {};
    line.Format(format, arguments...);
    return line.text;
}
} // namespace Torvane::Testing
