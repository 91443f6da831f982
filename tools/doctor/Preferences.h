#pragma once

/// \file
/// Checks the Broker's preference files as an Agent reads them. One thread.

#include "tools/doctor/Report.h"

namespace Torvane::Doctor
{
/// Reports each file that is there, and the time-out that results.
/// \param libraryFolder of the Agent's library, from which the Agent finds the Broker's folder. A host can name another
/// folder, which isn't known here.
/// \return the time-out in milliseconds, as the Agent uses it.
uint32_t CheckPreferences(const std::wstring& libraryFolder, Report& report);
} // namespace Torvane::Doctor
