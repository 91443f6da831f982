#pragma once

/// \file
/// The types that the natvis file shows.

#include "Agent/Protocol/Blob.h"
#include "Shared/Concurrency/Latch.h"
#include "Shared/Container/Array.h"
#include "Shared/Container/DynamicArray.h"
#include "Shared/Container/OwnedString.h"
#include "Shared/Foundation/FixedString.h"
#include "Shared/Foundation/Result.h"
#include "Shared/Memory/Allocation.h"
#include "Shared/Process/ModuleIdentity.h"

// A macro of <windows.h>, which debuggers don't know.
#undef CopyMemory
