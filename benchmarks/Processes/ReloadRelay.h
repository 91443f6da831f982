#pragma once

/// \file
/// What an Agent does in a reload, as its calls of the OS alone: for a host without an Agent. The relay's receiving
/// thread executes, as an Agent's does.

#include "Agent/Protocol/Blob.h"

#include <stdint.h>

namespace Torvane::Benchmarks
{
/// Creates what `ExecuteBlob` uses, and the thread that watches a load.
/// \param synchronized whether requests and loads wait for `PollAsHost`.
/// \return the thread's id.
uint32_t PrepareReloadRelay(bool synchronized);

/// Executes a Blob's payload. Replies have the size of the Agent's.
void ExecuteBlob(BlobType type, const void* payload);

/// What a synchronized host does in each of its frames; the main thread.
void PollAsHost();
} // namespace Torvane::Benchmarks
