#pragma once

/// \file
/// The way in: the receiver thread reads the bridge pipe and handles every Blob itself, one after the other.
///
/// What is declared here is called by startup and shutdown on the host's thread, and by the receiver thread, unless a
/// comment says otherwise.

#include "Agent/Protocol/Blob.h"
#include "Shared/Concurrency/LatchRegistry.h"
#include "Shared/Foundation/FixedString.h"
#include "Shared/Foundation/Result.h"
#include "Shared/Memory/Allocation.h"

namespace Torvane::Receiver
{
/// Handles one Blob. `payload` is the payload without the header, and stays the caller's.
/// \return false for a Blob that the Agent doesn't accept, which ends the receiver.
using BlobHandler = bool (*)(BlobType type, const Allocation& payload);

/// The latches that wait for the Bridge, released when the receiver ends; any thread.
LatchRegistry& GetLatches();

/// \return false after the Error line "Failed to create bridge pipe".
bool CreatePipe(const FixedWideString& identifier);
void DisconnectPipe();
void ClosePipe();

/// Waits for the Bridge on the bridge pipe. \return the failure "ConnectNamedPipe failed.".
Result<bool> WaitForBridge(uint32_t milliseconds);

/// Reads the Bridge's `Version`, reports the connection's status, and handles Blobs until the handler refuses one or
/// the link is lost.
/// \return 0 if the handler returned false, 8 or 9 if a header or payload couldn't be read, 18 or 19 if the first
/// Blob wasn't a `Version` or didn't match.
uint32_t Run(BlobHandler handle);
} // namespace Torvane::Receiver
