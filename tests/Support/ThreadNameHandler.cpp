/// \file
/// A part of every 32-bit test program. The threads library below the C++ library registers a vectored exception handler
/// that claims every thread name exception of its process. Tests run without it, as the Agent does in most hosts.

#include <windows.h>

/// The threads library's callback, which removes the handler when the process ends and does nothing else then.
extern "C" const PIMAGE_TLS_CALLBACK __xl_f;

namespace
{
[[maybe_unused]] const bool isHandlerRemoved = (__xl_f(nullptr, DLL_PROCESS_DETACH, nullptr), true);
} // namespace
