#pragma once

/// \file
/// A trial connection, in a process of its own: what goes wrong in the Agent doesn't end the doctor. One thread.

#include "tools/doctor/Report.h"

namespace Torvane::Doctor
{
/// The argument by which the doctor starts itself as the trial's process; the library's path follows it.
constexpr wchar_t trialArgument[] = L"--trial-of";

/// Loads the library in a new process, connects, and reports what became of it. The process and what it has started,
/// the Bridge among them, have ended when this returns.
/// \param timeout of the preferences, in milliseconds. \return the id of the process; 0 if there was none.
uint32_t TryConnection(const std::wstring& library, uint32_t timeout, Report& report);

/// What the trial's process does. It ends with 0 after a success, with 1 after it has printed a problem.
[[noreturn]] void RunTrial(const std::wstring& library);
} // namespace Torvane::Doctor
