#pragma once

/// \file
/// The shared section in which the Bridge finds the host's project preferences before it is connected. One thread at a
/// time.

#include "Agent/Protocol/Blob.h"
#include "Shared/Foundation/FixedString.h"

namespace Torvane::PreferencesSection
{
/// Opens the section `agentBridgeSectionPrefix` and the mutex `agentBridgeMutexPrefix` with the identifier appended. Each
/// panics if it can't be opened.
void Open(const FixedWideString& identifier);
void Close();

/// Stores the size of what follows, and the Blob's payload with eight bytes after it that mean nothing.
/// \param blob `RegisterProjectPreferences`, followed by its payload.
void Publish(const BlobHeader& blob);
} // namespace Torvane::PreferencesSection
