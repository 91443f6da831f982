#pragma once

/// \file
/// Ends a test that hangs; for the thread that runs the test.

#include <stdint.h>
#include <string>

namespace Torvane::Testing
{
constexpr uint32_t timeLimitExitCode = 86;

/// From now on the test has that many seconds, whatever it had before. When they are over, a thread of its own
/// writes a message, the failures of the Bridge half and the Agent's log, and ends the process at once.
void StartTimeLimit(uint32_t seconds, const std::string& testName);

/// The test has come to its end.
void StopTimeLimit();
} // namespace Torvane::Testing
