#pragma once

/// \file
/// What the Bridge asks of the link itself; receiver thread only.

#include "Agent/Protocol/Blob.h"

namespace Torvane
{
/// Counts the latch at the Blob's address down. An address that isn't registered is ignored.
void DecrementLatch(const DecrementLatchBlob& blob);

/// Queues `EchoReply` with the Blob's token.
void AnswerEcho(const EchoRequestBlob& blob);

/// Does nothing: that the Blob was handled is what its log line says.
void Synchronize();
} // namespace Torvane
