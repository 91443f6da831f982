#pragma once

/// \file
/// A Bridge's work on a folder of patches: loads each library that appears or changes there, and has the host call its
/// functions; for the thread that waits on the session's link.

#include "bridge/Session.h"

#include <string>

namespace Torvane::Bridge
{
/// The full path of the folder that the environment variable `TORVANE_BRIDGE_WATCH` names, which a host sets before it
/// starts its Agent and which the Bridge inherits. A relative one begins at the folder of the Agent's library. Empty if it
/// isn't set.
std::wstring FolderToWatch();

/// What a watching Bridge does and what it can't do, for a help text: lines of at most 120 characters.
const char* WatchHelp();

/// Serves the link and watches the folder until the Agent closes its pipe.
///
/// Each *.dll that appears or changes in the folder later than now is copied to the folder `loaded` in it under a name of
/// its own, so that the original can be written again, and loaded by `RunReload`. `MatchFunctions` chooses the functions that
/// are routed, among those of the modules that the host has enabled, without the OS's. The host's exported tables of hooks
/// `beforeReloadHooks` (kind 0) and `afterReloadHooks` (kind 1) are called with the names of these functions and the
/// number of the reload; each ends with a null pointer. A library that can't be used is refused, with a line that says
/// why, and the host continues unchanged. Lines go to `bridge.log` in the folder and to the host's console.
/// \param session connected, and serving modules.
void WatchFolder(Session& session, const std::wstring& folder);
} // namespace Torvane::Bridge
