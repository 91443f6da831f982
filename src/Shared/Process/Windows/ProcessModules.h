#pragma once

/// \file
/// The modules that are loaded in this process, and what they import. Any thread; nothing here loads a module.

#include "Shared/Container/DynamicArray.h"
#include "Shared/Process/ModuleIdentity.h"

#include <stdint.h>
#include <windows.h>

namespace Torvane
{
using ModuleIdentityList = DynamicArray<ModuleIdentity>;

/// Describes a loaded module. A handle that isn't one gives an empty path and size 0, and nothing is logged.
ModuleIdentity GetModuleIdentity(HMODULE module);

/// Lists modules together with every loaded module that they import, directly or indirectly, by the import directories
/// of their files.
///
/// Depth first: the last start module comes first, and of a module's imports the last of its import directory. Imported
/// modules come once. A start module comes again if another one imports it and is visited later, or if it was named
/// twice. A module whose file can't be read is listed, and its imports aren't followed. An import that isn't loaded is
/// skipped.
///
/// \param names as `GetModuleHandleW` takes them; one that isn't loaded is skipped, with the Error line "Failed to load
/// module %ls".
/// \return the list, with room for 1024 modules at least.
ModuleIdentityList GatherImportClosure(const wchar_t* const* names, uint32_t count);
} // namespace Torvane
