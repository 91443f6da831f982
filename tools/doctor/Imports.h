#pragma once

/// \file
/// Checks that the libraries are found which a program or library imports, and those that they import. One thread.

#include "tools/doctor/Folders.h"
#include "tools/doctor/Report.h"

namespace Torvane::Doctor
{
/// Reports each import that isn't found, or that all of them are.
///
/// The OS's own libraries are taken to be complete, and TVN_Agent_x86.dll isn't looked for, since it has a check of its own.
/// \param programFolder of the executable of the process, which the loader searches first.
void CheckImports(const std::wstring& path, const std::wstring& programFolder, Report& report);
} // namespace Torvane::Doctor
