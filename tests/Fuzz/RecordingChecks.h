#pragma once

/// \file
/// What holds for every recording, whatever is in its Blobs; for the fuzzers' only thread.

#include "tools/blobs/Recording.h"

namespace Torvane::Testing
{
/// Ends the program, with a word on stderr, unless the condition holds.
void Require(bool condition, const char* what);

/// Decodes all Blobs, writes the recording and reads it again, and makes all that the command makes of it.
void CheckRecording(const Blobs::Recording& recording);
} // namespace Torvane::Testing
