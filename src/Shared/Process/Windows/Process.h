#pragma once

/// \file
/// Starting a child process. Any thread.

#include "Shared/Foundation/Result.h"
#include "Shared/Process/Windows/ProcessTypes.h"

namespace Torvane
{
/// Starts a child without a console window, standard handles or inherited handles, in our environment.
/// \param workingDirectory and \param commandLine may be null. A command line has to be shorter than 32768 units.
/// \return the record, to be released by the caller.
Result<SpawnedProcess> Spawn(const wchar_t* executable, const wchar_t* workingDirectory,
                             const wchar_t* commandLine);

/// Creates the record of a process that was started; with `SpawnDrainsOutput`, starts the thread that reads `outputPipe` to
/// its end.
SpawnedProcess MakeSpawnedProcess(HANDLE outputPipe, const PROCESS_INFORMATION& information, uint32_t flags);

/// Closes the handles and frees the drained output. The child is neither waited for nor ended.
void ReleaseSpawnedProcess(SpawnedProcess& process);
} // namespace Torvane
