#pragma once

/// \file
/// Enabling and disabling modules for hot reload. Any thread between startup and shutdown.

#include "Torvane/Agent.h"

#include <stdint.h>

namespace Torvane
{
/// The host's filters; either may be null. The wide one wins, and without one every module is kept.
struct ModuleFilters
{
    void* narrowContext;
    TvnModuleFilterANSI narrowFilter;
    void* wideContext;
    TvnModuleFilter wideFilter;
};

/// Prepares the named modules for patching and queues one `EnableModules` with those that the filters keep, the largest
/// first. Loads nothing; sends nothing, and doesn't wait, if nothing is kept.
///
/// A module that isn't loaded or whose file can't be read is skipped, each with its Error line ("Failed to load
/// module %ls", "Failed to open executable %ls").
/// \param paths as `GetModuleHandleW` takes them.
/// \param wait until the Bridge has acknowledged every module that was gathered, those that were skipped later
/// included, or until the link is lost. Without it, acknowledgements are ignored.
void TvnGenericEnableModules(const wchar_t* const* paths, uint32_t count, TvnModuleOptions options,
                             const ModuleFilters& filters, bool wait);

/// Queues one `DisableModules` with the named modules that the filters keep. Frees nothing and never waits.
///
/// Skips what enabling skips; a module that isn't loaded logs "Failed to unload module %ls" then.
void TvnGenericDisableModules(const wchar_t* const* paths, uint32_t count, TvnModuleOptions options,
                              const ModuleFilters& filters);
} // namespace Torvane
