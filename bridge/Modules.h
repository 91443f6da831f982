#pragma once

/// \file
/// The modules that a host enables and disables, as its Agent reports them; value types, any thread.

#include "bridge/Message.h"
#include "bridge/RemoteAddress.h"

#include <stdint.h>
#include <string>
#include <vector>

namespace Torvane::Bridge
{
/// One module of an `EnableModules` or a `DisableModules`.
struct EnabledModule
{
    std::wstring path; ///< normalized
    RemoteAddress base = 0;
    uint32_t imageSize = 0; ///< bytes
    ExecutableIdentity executable = {};

    /// The state of its pages after the Agent has prepared them; empty for a module that is disabled.
    std::vector<WirePageRange> pages;
};

/// The modules, in the Blob's order. Empty if its arrays don't match each other or exceed the payload.
std::vector<EnabledModule> ModulesOf(const Received<EnableModulesBlob>& blob);
std::vector<EnabledModule> ModulesOf(const Received<DisableModulesBlob>& blob);

/// The last part of a path.
std::wstring FileNameOf(const std::wstring& path);
} // namespace Torvane::Bridge
