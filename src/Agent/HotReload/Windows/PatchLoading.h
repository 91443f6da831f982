#pragma once

/// \file
/// Brings a patch image into the process, and out of it; receiver thread only.

#include "Agent/Protocol/Blob.h"

namespace Torvane
{
/// Releases the address space that the Bridge has reserved, waits for a host thread where that was agreed, loads the
/// image, prepares its sections and answers `PatchLoaded`.
///
/// If the image can't be loaded, that is logged, sent to the Bridge as a `LogNarrow` Blob (and no `PatchLoaded`), and the
/// address space is reserved again.
void LoadPatch(const LoadPatchWindowsBlob& blob);

/// Frees the patch's library once. The result isn't looked at.
void UnloadPatch(const UnloadPatchBlob& blob);
} // namespace Torvane
