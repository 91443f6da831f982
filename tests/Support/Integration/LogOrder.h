#pragma once

/// \file
/// Whether a log holds exactly what was to be written, each thread's records in their order; any thread.

#include "tests/Support/Integration/AgentLog.h"

#include <string>
#include <vector>

namespace Torvane::Testing
{
/// What one thread writes, in its order: "TAG message", as in "DBG Running sender thread". The first `*`
/// stands for any text.
using LogSequence = std::vector<std::string>;

/// Whether a record is what an element of a sequence says.
bool IsLogged(const LogRecord& record, const std::string& expected);

/// Records don't tell their thread, so this asks whether they can be dealt out to the sequences such that each
/// sequence gets just its own, in its order, and nothing is left over on either side.
/// \return empty if they can; otherwise where it fails.
std::string FindLogDifference(const std::vector<LogRecord>& records,
                              const std::vector<LogSequence>& sequences);
} // namespace Torvane::Testing
