#pragma once

/// \file
/// The folder of the Agent's logs, and what the logs say. One thread.

#include "tools/doctor/Report.h"

#include <string>

namespace Torvane::Doctor
{
/// Reports whether the folder is there. \param makes it otherwise.
/// \return the folder, whether or not it is there; empty if the OS knows none.
std::wstring CheckLogFolder(bool makes, Report& report);

/// \return the path of the log that was written to last; empty if there is none.
std::wstring FindNewestLog(const std::wstring& logFolder);

/// \return the path of the log of a process; empty if there is none.
std::wstring FindLogOf(const std::wstring& logFolder, uint32_t processId);

/// Reports the Error and Panic lines of a log with what they mean, each text once.
/// \param path empty for none.
void ReportLog(const std::wstring& path, Report& report);
} // namespace Torvane::Doctor
