#pragma once

/// \file
/// Memory that two processes share by name. Any thread.

#include "Shared/Foundation/Result.h"

#include <windows.h>

namespace Torvane
{
/// All 0 while there is none.
struct NamedSharedMemory
{
    HANDLE mapping;
    uint8_t* view;
    uint32_t size; ///< bytes
};

/// Creates the section, or opens it if there is one of that name already. The caller closes it.
Result<NamedSharedMemory> CreateNamedSharedMemory(const wchar_t* name, uint32_t size);

void CloseNamedSharedMemory(NamedSharedMemory& memory);
} // namespace Torvane
