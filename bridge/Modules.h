#pragma once

/// \file
/// The modules that a host enables and disables, as its Agent reports them; value types, any thread.

#include "bridge/HostProcess.h"
#include "bridge/Link.h"
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

/// Counts the latch of an `EnableModules` down as often as the host's call waits for: once for each module that the call
/// has found. Those that a filter of the host has refused, or whose file couldn't be read, aren't in the Blob, so how many
/// remain is read from the latch in the host's memory, which begins with that number. A call that doesn't wait may have
/// left something else there: a number that can't be one counts as that of the Blob's modules.
/// \return how often; 0 if the bridge pipe is closed.
uint32_t AcknowledgeModules(Link& link, const HostProcess& host, const Received<EnableModulesBlob>& enabled);

/// The last part of a path.
std::wstring FileNameOf(const std::wstring& path);
} // namespace Torvane::Bridge
