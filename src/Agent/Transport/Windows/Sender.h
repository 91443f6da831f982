#pragma once

/// \file
/// The way out: any thread queues its Blobs, the sender thread alone writes the agent pipe.
///
/// But for `PushBlob`, what is declared here is called by startup and shutdown on the host's thread, and by the receiver
/// thread during its initialization.

#include "Agent/Protocol/BlobBuilder.h"
#include "Shared/Foundation/FixedString.h"
#include "Shared/Foundation/Result.h"

namespace Torvane
{
/// Takes over a Blob and queues it; any thread, also before there is a connection. Waits without a limit while the queue
/// is full. A Blob that can't be queued is freed, after an Error line of the queue.
void PushBlob(OwnedBlob blob);
} // namespace Torvane

namespace Torvane::Sender
{
/// Creates the queue of 4096 Blobs. A semaphore that can't be created panics.
void CreateQueue();
void DestroyQueue();

/// \return false after the Error line "Failed to create agent pipe".
bool CreatePipe(const FixedWideString& identifier);
void DisconnectPipe();
void ClosePipe();

/// Creates the event that `Connect` signals.
void CreateConnectedEvent();

/// Starts the thread, which waits for `Connect` and then sends the handshake Blobs and what is queued. A thread that can't
/// be started logs an Error line.
void StartThread();
void CancelThreadIO();

/// Lets the thread run to the end of the queue, waits for it, and closes its handle and event. Blobs that are still
/// queued if the link is lost aren't freed.
void EndThread();

/// 0 if the thread couldn't be started.
uint32_t GetThreadId();

/// Waits for the Bridge on the agent pipe. \return the failure "ConnectNamedPipe failed.".
Result<bool> WaitForBridge(uint32_t milliseconds);

/// Keeps `RegisterProjectPreferences` for the handshake.
void SetProjectPreferences(OwnedBlob blob);

/// The Blob that was set, which stays valid until `Connect`. Its header is followed by a `ProjectPreferencesRecord`.
const BlobHeader& GetProjectPreferences();

/// Keeps `RegisterAgent` for the handshake.
void SetAgent(OwnedBlob blob);

/// Completes the handshake's Blobs with `RegisterProcess` and releases all of them to the sender thread.
void Connect(OwnedBlob process);
} // namespace Torvane::Sender
