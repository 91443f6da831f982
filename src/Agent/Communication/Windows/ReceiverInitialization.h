#pragma once

/// \file
/// The receiver thread up to the first Blob: spawns the Bridge, waits for it and registers with it. Called by startup and
/// shutdown, on the host's thread.

#include "Shared/Foundation/FixedString.h"

namespace Torvane::ReceiverInitialization
{
/// Creates the event that is signalled at the end of the initialization, however it went.
void CreateFinishedEvent();
void DestroyFinishedEvent();

/// Ends an initialization that has failed: releases whoever waits for the Bridge, signals the event and reports
/// `ConnectionFailed`. Also on the receiver thread.
void FailConnection();

/// Waits without a limit. \return false after an Error line of the event if the wait failed.
bool WaitUntilFinished();

/// Starts the receiver thread: the initialization, then the receive loop. A thread that can't be started logs an Error
/// line, and the connection has failed. The thread's result is 10 if the Bridge couldn't be spawned, 11 if a pipe didn't
/// connect, 12 if the process's executable couldn't be opened, otherwise that of the receive loop.
void StartThread(const FixedWideString& identifier, uint32_t agentType);
void CancelThreadIO();

/// Waits for the thread's end without a limit and closes its handle.
void WaitForThreadEnd();
} // namespace Torvane::ReceiverInitialization
