#pragma once

/// \file
/// The one way out: every thread pushes its Blobs, the sender thread alone writes the agent pipe.

#include "Agent/Protocol/Blob.h"
#include "Shared/Concurrency/Windows/Event.h"
#include "Shared/Container/FixedSizeQueue.h"
#include "Shared/Memory/Allocation.h"

#include <windows.h>

namespace Torvane
{
/// The sending queue. An `Allocation` with a null pointer is the mark that ends the sender thread.
using BlobQueue = FixedSizeQueue<Allocation, 4096>;

/// The Blobs that go out before the queue is drained, built by startup and the receiver thread, freed by the
/// sender thread at its end.
struct RegistrationBlobs
{
    Allocation projectPreferences;
    Allocation agent;
    Allocation process;
};

/// What the sender thread works with. Complete before `connected` is signalled, which releases it to the thread.
struct SenderState
{
    BlobQueue* queue = nullptr;
    HANDLE agentPipe = INVALID_HANDLE_VALUE;
    Event connected = {INVALID_HANDLE_VALUE};
    RegistrationBlobs registration = {};
};
extern SenderState senderState;

/// Takes over a Blob and queues it; any thread, also before there is a connection. Waits without a limit while the
/// queue is full. The caller's `Allocation` is empty afterwards and the Blob must not be touched any more.
void PushBlob(Allocation& blob);

/// As above, for a Blob that no variable holds.
void PushBlob(Allocation&& blob);

/// Body of the sender thread: waits for `connected`, sends the handshake Blobs, drains the queue.
/// \return 0 at the end mark or a failure of the queue, 2 to 7 by what could not be waited for or sent.
uint32_t RunSender();
} // namespace Torvane
