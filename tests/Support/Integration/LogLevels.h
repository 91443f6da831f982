#pragma once

/// \file
/// The level of each line that an Agent can log; any thread.

#include "tests/Support/Integration/AgentLog.h"

#include <string>
#include <vector>

namespace Torvane::Testing
{
/// \return the records that no Agent logs at their level, as "TAG message", and those that no Agent logs at all.
std::vector<std::string> FindUnknownLines(const std::vector<LogRecord>& records);
} // namespace Torvane::Testing
