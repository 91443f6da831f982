#pragma once

/// \file
/// Calls a patch's entry point outside the loader; receiver thread only.

#include "Agent/Protocol/Blob.h"

namespace Torvane
{
/// Puts the Blob's first code at the entry point, calls it as the loader would (base, 1, null, `__stdcall`) in a
/// frame that accepts every exception, and puts the Blob's second code there. An exception logs the Error line
/// "Exception thrown while calling the patch entry point" and nothing more: our own exception handler is suspended
/// during the call.
void CallEntryPoint(const CallEntryPointBlob& blob);
} // namespace Torvane
