#pragma once

/// \file
/// Enabling and disabling libraries as the loader loads and frees them; the two exported functions that turn it on.

namespace Torvane
{
/// Ends the handling, if it was turned on, and forgets the filters. What was registered by earlier calls than the last
/// stays registered, and does nothing from now on. A failure logs "Call to function LdrUnregisterDllNotification
/// failed. Error: 0x%X". Host's thread, at shutdown.
void ShutdownAutomaticModuleHandling();
} // namespace Torvane
