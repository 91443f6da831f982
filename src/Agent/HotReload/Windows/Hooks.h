#pragma once

/// \file
/// Calls the hooks of a patch or module; receiver thread only.

#include "Agent/Protocol/Blob.h"

namespace Torvane
{
/// Calls each entry of the Blob's table that isn't null, in order, as a `__cdecl` function with a hook id (a stack
/// slot whose lowest byte is 0) and the arguments of the Blob's kind. Texts are passed as pointers into the Blob
/// and live as long as this call. A kind above 11 calls nothing.
void CallHooks(const CallHooksBlob& blob);
} // namespace Torvane
