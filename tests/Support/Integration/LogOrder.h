#pragma once

/// \file
/// Whether a log has exactly the expected records, each thread's in their order; any thread.

#include "tests/Support/Integration/AgentLog.h"

#include <string>
#include <vector>

namespace Torvane::Testing
{
/// What one thread writes, in its order: "TAG message", as in "DBG Running sender thread". The first `*`
/// matches any text.
using LogSequence = std::vector<std::string>;

/// Whether a record matches an element of a sequence.
bool IsLogged(const LogRecord& record, const std::string& expected);

/// Records don't have a thread, so this finds out whether they can be assigned to the sequences such that each sequence
/// is complete, in its order, and no record is left over.
/// \return empty if they can; otherwise where it fails.
std::string FindLogDifference(const std::vector<LogRecord>& records,
                              const std::vector<LogSequence>& sequences);
} // namespace Torvane::Testing
