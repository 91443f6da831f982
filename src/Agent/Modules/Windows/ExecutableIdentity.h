#pragma once

/// \file
/// What distinguishes one executable file from another; any thread.

#include "Agent/Protocol/Blob.h"
#include "Shared/Executable/Windows/PE.h"

namespace Torvane
{
/// Size and headers of an open image's file.
ExecutableIdentity ReadExecutableIdentity(const ImageFile& image);
} // namespace Torvane
